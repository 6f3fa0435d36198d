#!/usr/bin/env bash
# The one test command: installs what is missing, configures and builds with Ninja and
# ccache, builds the API reference (a doc warning fails), then runs every test with ctest.
#
#   scripts/test.sh [--asan] [CTEST ARGS...]
#
#   --asan   build into build-asan/ with AddressSanitizer, UndefinedBehaviorSanitizer and
#            LeakSanitizer (VELMAR_SANITIZE=ON) instead of build/
#   CTEST ARGS pass to ctest, e.g. `scripts/test.sh -R session` or `-L install`.
#
# A plain run without CTEST ARGS then fuzzes each target of tests/fuzz/ briefly with
# scripts/fuzz.sh (in build-fuzz/, when clang with libFuzzer is there); a finding fails the run.
#
# Environment: VELMAR_BUILD_DIR (default build/ or build-asan/), VELMAR_BUILD_TYPE (default
# Debug), VELMAR_TEST_TIMEOUT (seconds per test for tests that set none of their own, default
# 300), VELMAR_CTEST_JOBS (default 2), VELMAR_FUZZ_SECONDS (per fuzz target, default 11; 0
# leaves fuzzing out).
# Exit status: ctest's (or the failing setup/configure/build step's), else 1 for a fuzz finding.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
asan=0
while (($#)); do
  case $1 in
    --asan) asan=1; shift ;;
    -h|--help) sed -n '2,20s/^# \{0,1\}//p' "${BASH_SOURCE[0]}"; exit 0 ;;
    --) shift; break ;;
    *) break ;;
  esac
done

started=$SECONDS
say() { echo "test.sh: $*"; }

bash "$root/scripts/setup.sh"

build_type=${VELMAR_BUILD_TYPE:-Debug}
if ((asan)); then
  build=${VELMAR_BUILD_DIR:-$root/build-asan}
  sanitize=ON
  # Qt and the system libraries are not instrumented; only the project's own code is.
  export ASAN_OPTIONS="detect_leaks=1:halt_on_error=1:detect_stack_use_after_return=1:strict_init_order=1:check_initialization_order=1${ASAN_OPTIONS:+:$ASAN_OPTIONS}"
  export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1${UBSAN_OPTIONS:+:$UBSAN_OPTIONS}"
  export LSAN_OPTIONS="suppressions=$root/scripts/lsan.supp:print_suppressions=0${LSAN_OPTIONS:+:$LSAN_OPTIONS}"
  # The 2 GiB transfer checks byte counts, not memory: the plain run covers it, and
  # instrumented it takes many minutes.
  set -- -LE large "$@"
else
  build=${VELMAR_BUILD_DIR:-$root/build}
  sanitize=OFF
fi

# A build folder made by another generator cannot be reused by Ninja: start it afresh.
if [[ -f $build/CMakeCache.txt ]] && ! grep -qx 'CMAKE_GENERATOR:INTERNAL=Ninja' "$build/CMakeCache.txt"; then
  say "$build was not made with Ninja; reconfiguring from scratch"
  rm -rf "$build/CMakeCache.txt" "$build/CMakeFiles"
fi

launcher=()
if command -v ccache >/dev/null; then
  launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
fi

# Apps started by tests have no display in CI.
export QT_QPA_PLATFORM=${QT_QPA_PLATFORM:-offscreen}

say "configuring $build ($build_type, sanitizers $sanitize)"
if ! cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE="$build_type" \
     -DVELMAR_SANITIZE="$sanitize" -DVELMAR_BUILD_TESTS=ON "${launcher[@]}"; then
  say "configure failed"
  exit 1
fi

say "building with $(nproc) jobs"
if ! cmake --build "$build" -j "$(nproc)"; then
  say "build failed"
  exit 1
fi
# The API reference and the man pages: a Doxygen or groff warning fails the run.
if ! cmake --build "$build" --target docs; then
  say "the docs have warnings"
  exit 1
fi

log="$build/ctest-output.log"
ctest_args=$#
set +e
ctest --test-dir "$build" --output-on-failure --no-tests=error \
  -j "${VELMAR_CTEST_JOBS:-2}" --timeout "${VELMAR_TEST_TIMEOUT:-300}" "$@" 2>&1 | tee "$log"
status=${PIPESTATUS[0]}
set -e

# Hostile input: each fuzz target for a few seconds, after the whole plain suite.
fuzz_seconds=${VELMAR_FUZZ_SECONDS:-11}
fuzz_failed=0
if ((!asan && ctest_args == 0 && fuzz_seconds > 0)); then
  fuzz_started=$SECONDS
  set +e
  bash "$root/scripts/fuzz.sh" --seconds "$fuzz_seconds"
  fuzz_status=$?
  set -e
  case $fuzz_status in
    0) say "fuzzing: no finding in $((SECONDS - fuzz_started))s" ;;
    77) say "fuzzing skipped: no clang with libFuzzer" ;;
    *) say "fuzzing FAILED (fuzz.sh exit $fuzz_status)"; fuzz_failed=1 ;;
  esac
fi

# ctest counts skipped tests among the passed ones; report them apart.
total=0 failed=0
if summary=$(grep -Eo '[0-9]+ tests failed out of [0-9]+' "$log" | tail -1); then
  read -r failed _ _ _ _ total <<<"$summary"
fi
skipped=$(grep -c '(Skipped)$' "$log" || true)
passed=$((total - failed - skipped))
elapsed=$((SECONDS - started))
if ((status != 0)); then
  verdict="FAILED (ctest exit $status)"
elif ((fuzz_failed)); then
  verdict="FAILED (fuzz finding)"
  status=1
else
  verdict=OK
fi
say "$verdict in $((elapsed / 60))m$((elapsed % 60))s, build folder $build"
say "$passed passed, $failed failed, $skipped skipped"
exit "$status"

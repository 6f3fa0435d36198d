#!/usr/bin/env bash
# Builds the libFuzzer targets of tests/fuzz/ with clang into build-fuzz/ (ccache, only the
# library and the targets) and runs each for a while, one after the other.
#
#   scripts/fuzz.sh [--minutes N | --seconds N] [TARGET...]
#
#   --minutes N  run time per target (default 3)
#   --seconds N  the same in seconds (scripts/test.sh runs each target for 11)
#   TARGET       listing_line, directory_listing, reply, passive_port, script (default: all)
#
# Seeds come from tests/fuzz/corpus/TARGET/ (words from tests/fuzz/TARGET.dict) and are never
# written to; what the fuzzer adds goes to build-fuzz/corpus/TARGET/ (not in git), crash, leak,
# time-out and memory inputs to build-fuzz/findings/. Logs: build-fuzz/logs/TARGET.log.
# Environment: VELMAR_FUZZ_BUILD_DIR (default build-fuzz/), VELMAR_FUZZ_RSS_MB (default 2048).
# Exit status: 0 without findings, 1 with findings (their paths are printed), 2 for a failed
# build or bad arguments, 77 when clang cannot build libFuzzer programs here.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
all_targets=(listing_line directory_listing reply passive_port script)
seconds=180
targets=()
while (($#)); do
  case $1 in
    --minutes) seconds=$(($2 * 60)); shift 2 ;;
    --seconds) seconds=$2; shift 2 ;;
    -h|--help) sed -n '2,16s/^# \{0,1\}//p' "${BASH_SOURCE[0]}"; exit 0 ;;
    -*) echo "fuzz.sh: unknown option $1" >&2; exit 2 ;;
    *) targets+=("$1"); shift ;;
  esac
done
((${#targets[@]})) || targets=("${all_targets[@]}")
for target in "${targets[@]}"; do
  [[ " ${all_targets[*]} " == *" $target "* ]] || { echo "fuzz.sh: no target $target (${all_targets[*]})" >&2; exit 2; }
done
say() { echo "fuzz.sh: $*"; }

build=${VELMAR_FUZZ_BUILD_DIR:-$root/build-fuzz}
mkdir -p "$build/corpus" "$build/findings" "$build/logs"

# clang with libFuzzer's runtime: a one-line program must link.
probe=$build/libfuzzer-probe
if ! command -v clang++ >/dev/null ||
   ! echo 'extern "C" int LLVMFuzzerTestOneInput(const char*, unsigned long) { return 0; }' |
     clang++ -x c++ -fsanitize=fuzzer - -o "$probe" 2>/dev/null; then
  say "clang++ with libFuzzer is not available"
  exit 77
fi

launcher=()
command -v ccache >/dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
# -O1 for speed; a Debug build keeps Qt's own assertions (index checks of views) on.
if ! CC=clang CXX=clang++ cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS=-O1 \
     -DVELMAR_FUZZ=ON -DVELMAR_BUILD_TESTS=OFF -DVELMAR_BUILD_APP=OFF -DBUILD_SHARED_LIBS=OFF "${launcher[@]}" \
     >"$build/logs/configure.log" 2>&1; then
  cat "$build/logs/configure.log"
  say "configure failed"
  exit 2
fi
if ! cmake --build "$build" -j "$(nproc)" --target velmar-fuzz; then
  say "build failed"
  exit 2
fi

export ASAN_OPTIONS="detect_leaks=1${ASAN_OPTIONS:+:$ASAN_OPTIONS}"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1${UBSAN_OPTIONS:+:$UBSAN_OPTIONS}"
export LSAN_OPTIONS="suppressions=$root/scripts/lsan.supp:print_suppressions=0${LSAN_OPTIONS:+:$LSAN_OPTIONS}"
export QT_QPA_PLATFORM=${QT_QPA_PLATFORM:-offscreen}

found=0
for target in "${targets[@]}"; do
  corpus=$build/corpus/$target
  log=$build/logs/$target.log
  mkdir -p "$corpus"
  dict=()
  [[ -f $root/tests/fuzz/$target.dict ]] && dict=(-dict="$root/tests/fuzz/$target.dict")
  before=$(find "$build/findings" -name "$target-*" | sort)
  set +e
  "$build/tests/fuzz/fuzz_$target" -max_total_time="$seconds" -rss_limit_mb="${VELMAR_FUZZ_RSS_MB:-2048}" \
    -timeout=10 -print_final_stats=1 -artifact_prefix="$build/findings/$target-" "${dict[@]}" \
    "$corpus" "$root/tests/fuzz/corpus/$target" >"$log" 2>&1
  status=$?
  set -e
  # libFuzzer's last status line: "#RUNS DONE cov: C ft: F corp: ... exec/s: E rss: R".
  last=$(grep -E '^#[0-9]+' "$log" | tail -1 || true)
  runs=$(sed -nE 's/^#([0-9]+).*/\1/p' <<<"$last")
  cov=$(sed -nE 's/.* cov: ([0-9]+).*/\1/p' <<<"$last")
  rate=$(sed -nE 's/.* exec\/s: ([0-9]+).*/\1/p' <<<"$last")
  new=$(comm -13 <(echo "$before") <(find "$build/findings" -name "$target-*" | sort) | sed '/^$/d')
  if ((status != 0)) || [[ -n $new ]]; then
    found=1
    say "$target: FINDING (exit $status) after ${runs:-?} runs; log $log"
    grep -E '^(==[0-9]+==ERROR|SUMMARY|.*runtime error)' "$log" | head -5 || true
    while read -r input; do [[ -n $input ]] && say "  input: $input"; done <<<"$new"
  else
    say "$target: ${runs:-?} runs in ${seconds}s, ${rate:-?} exec/s, cov ${cov:-?}, no finding"
  fi
done
exit "$found"

#!/usr/bin/env bash
# Installs everything the project needs on Debian 12 to build, test, benchmark and demo:
# compilers and build tools (clang with libFuzzer too), Qt 6, GoogleTest, the FTP servers and peers the tests run,
# and an X server for screenshots. Idempotent: when every package is there it only asks
# dpkg and returns.
set -euo pipefail
export DEBIAN_FRONTEND=noninteractive

packages=(
  # build
  build-essential cmake ninja-build ccache pkg-config git
  qt6-base-dev qt6-base-dev-tools qt6-qpa-plugins libgl-dev libssl-dev libedit-dev
  nlohmann-json3-dev
  libgtest-dev libgmock-dev googletest
  # the API reference, man page checks, and the Debian packages (dpkg-shlibdeps)
  doxygen groff-base dpkg-dev
  # fuzzing (scripts/fuzz.sh): clang and its libFuzzer runtime
  clang libclang-rt-14-dev
  # real servers, peers and tools used by tests, benchmarks and demos
  python3 python3-pyftpdlib python3-openssl vsftpd openssl curl lftp
  iproute2 util-linux passwd procps
  # running the app on a virtual display for screenshots
  xvfb xauth fonts-dejavu-core
)

# One dpkg query for all: names it does not know are simply absent from its answer.
declare -A installed=()
while read -r name state; do
  [[ $state == ii* ]] && installed[$name]=1
done < <(dpkg-query -W -f='${Package} ${db:Status-Abbrev}\n' "${packages[@]}" 2>/dev/null || true)
missing=()
for pkg in "${packages[@]}"; do
  [[ -n ${installed[$pkg]:-} ]] || missing+=("$pkg")
done

if ((${#missing[@]} == 0)); then
  echo "setup: all ${#packages[@]} packages are installed"
  exit 0
fi

sudo=()
if [[ $(id -u) -ne 0 ]]; then
  sudo=(sudo)
fi
echo "setup: installing ${missing[*]}"
"${sudo[@]}" apt-get update -q
"${sudo[@]}" apt-get install -y -q --no-install-recommends "${missing[@]}"
echo "setup: done"

#!/usr/bin/env bash
# Thornquill Upload in two minutes: installs what is missing, builds the app, starts an FTP
# server on 127.0.0.1:21 in a private network namespace (nothing is visible outside it),
# writes settings for it into a temporary config folder, drops a sample folder and a file
# with `thornquill-upload --drop`, prints the status rows and lists what arrived.
#
#   scripts/demo.sh
#
# Run as root, or as a user who may sudo (for apt-get and the network namespace).
# Environment: VELMAR_BUILD_DIR (default build/), TQ_FTP_SERVER=vsftpd|pyftpdlib (default:
# vsftpd, pyftpdlib when vsftpd cannot start). Everything temporary is removed at the end,
# also when a step fails.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=${VELMAR_BUILD_DIR:-$root/build}
app=$build/app/thornquill-upload
say() { printf '\n== %s\n' "$*"; }
# shellcheck source=netns_ftp_server.sh
source "$root/scripts/netns_ftp_server.sh"

if [[ -z ${TQ_IN_NETNS:-} ]]; then
  say "installing what is missing"
  bash "$root/scripts/setup.sh"
  say "building thornquill-upload in $build"
  cmake -S "$root" -B "$build" -G Ninja >/dev/null
  cmake --build "$build" --target thornquill-upload
  say "starting a private network namespace"
  tq_reexec_in_netns "${BASH_SOURCE[0]}" || true
  # Not permitted here: ask sudo for a namespace as root.
  if [[ $(id -u) -ne 0 ]] && command -v sudo >/dev/null; then
    exec sudo env TQ_IN_NETNS=1 VELMAR_BUILD_DIR="$build" TQ_FTP_SERVER="${TQ_FTP_SERVER:-}" \
      unshare -n bash "${BASH_SOURCE[0]}"
  fi
  echo "demo.sh: cannot make a private network namespace (unshare -n needs root)" >&2
  exit 1
fi

# ---- inside the private network namespace
tq_reexec_in_netns "${BASH_SOURCE[0]}"  # brings up its loopback interface
work=$(mktemp -d /tmp/thornquill-demo.XXXXXX)
cleanup() {
  local status=$?
  tq_stop_server
  rm -rf "$work"
  ((status == 0)) || echo "demo.sh: failed (exit $status); everything temporary has been removed" >&2
  exit "$status"
}
trap cleanup EXIT
trap 'exit 130' INT TERM
chmod 755 "$work"
user=thornquill$$ password=demo-$RANDOM$RANDOM
mkdir -p "$work/server/incoming"

say "sample items in $work/local"
folder="$work/local/Holiday Photos"
mkdir -p "$folder/Day one/raw" "$folder/Day two"
printf 'What we saw on day one.\n' >"$folder/Day one/notes.txt"
head -c 120000 /dev/urandom >"$folder/Day one/raw/beach at dawn.jpg"
head -c 45000 /dev/urandom >"$folder/Day two/harbour.jpg"
printf 'A file dropped on its own.\n' >"$work/local/packing list.txt"
(cd "$work/local" && find . -type f -printf '%10s  %P\n' | LC_ALL=C sort -k2)

say "FTP server on 127.0.0.1:21"
tq_start_server "$work/server" "$user" "$password"
echo "$TQ_SERVER serves $work/server to user $user"

config=$work/config
tq_write_settings "$config" 127.0.0.1 /incoming "$user" "$password"
say "settings in $config/Skelvane (server, server directory, user, password)"
sed '4s/.*/********/' "$config/Skelvane"

say "thornquill-upload --drop \"Holiday Photos\" \"packing list.txt\""
set +e
XDG_CONFIG_HOME=$config "$app" --drop "$folder" "$work/local/packing list.txt" \
  >"$work/rows.txt" 2> >(grep -v '^QStandardPaths: XDG_RUNTIME_DIR' >&2)
status=$?
set -e
# Every change of a row, in order; of the progress lines only the last of each run.
awk -F'\t' '$3 ~ /^Transferring: / { held[$2] = $0; next }
             { if ($2 in held) print held[$2]; delete held[$2]; print }
             END { for (id in held) print held[id] }' "$work/rows.txt"
say "last status of each row (exit status $status)"
awk -F'\t' '$1 == "row" { last[$2] = $3 } END { for (id in last) printf "  row %s: %s\n", id, last[id] }' \
  "$work/rows.txt" | sort

say "arrived on the server (under /incoming)"
(cd "$work/server/incoming" &&
  find . -mindepth 1 \( -type d -printf '    folder  %P/\n' \) -o \( -type f -printf '%10s  %P\n' \) |
  LC_ALL=C sort -k2)
if diff -r "$work/local" "$work/server/incoming" >/dev/null; then
  echo "every file arrived, byte for byte"
else
  echo "the server's files differ from the local ones" >&2
  status=1
fi
exit "$status"

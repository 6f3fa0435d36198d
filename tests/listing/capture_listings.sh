#!/usr/bin/env bash
# Captures real listing lines for the parser's tests: builds a small tree (names with
# blanks, a folder, a link, sizes, one file dated in an earlier year and one of today), lists
# it with the velmar shell against vsftpd and pyftpdlib on 127.0.0.1:21 in a private network
# namespace, and writes each server's lines to tests/listing/data/SERVER.txt: one listing line
# as the server sent it per line, without its CR LF. Usage (as root; BUILD_DIR default build/):
#   tests/listing/capture_listings.sh [BUILD_DIR]
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
export VELMAR_BUILD_DIR=${1:-${VELMAR_BUILD_DIR:-$root/build}}
# shellcheck source=../../scripts/netns_ftp_server.sh
source "$root/scripts/netns_ftp_server.sh"
tq_reexec_in_netns "${BASH_SOURCE[0]}" "$@" || { echo "capture_listings.sh: needs root (unshare -n)" >&2; exit 1; }

work=$(mktemp -d /tmp/velmar-listings.XXXXXX)
trap 'tq_stop_server; rm -rf "$work"' EXIT
tree=$work/server/tree
mkdir -p "$tree/a folder"
printf '%01234d' 0 >"$tree/report final.txt"
printf 'x' >"$tree/two  blanks.txt"
head -c 4096 /dev/zero >"$tree/a folder/inner.bin"
: >"$tree/empty"
printf 'old' >"$tree/old.txt"
touch -d '2006-12-03 12:00' "$tree/old.txt"
ln -s "a folder" "$tree/link"
chmod -R a+rX "$work"

for server in vsftpd pyftpdlib; do
  user=velmarlist$$ password=capture-$RANDOM$RANDOM
  TQ_FTP_SERVER=$server tq_start_server "$work/server" "$user" "$password"
  "$VELMAR_BUILD_DIR/velmar" --no-progress \
    -e "SetLoginInfo 127.0.0.1 $user $password" -e Logon -e wait \
    -e 'SetServerDirectoryPathName tree' -e ChangeDir -e wait -e GetDirList -e wait \
    -e 'print DirectoryFileList' >"$work/$server.out"
  tq_stop_server
  # The value line holds the listing as a JSON string: one captured line per listing line.
  /usr/bin/python3 - "$work/$server.out" "$root/tests/listing/data/$server.txt" <<'PY'
import json, sys
values = [line.rstrip("\n").split("\t", 2)[2] for line in open(sys.argv[1], encoding="utf-8") if line.startswith("value\t")]
lines = [line for line in json.loads(values[0]).split("\r\n") if line] if values else []
if not lines:
    sys.exit("no listing captured")
open(sys.argv[2], "w", encoding="utf-8").write("\n".join(lines) + "\n")
PY
  echo "captured $(wc -l <"$root/tests/listing/data/$server.txt") lines from $server"
done

#!/usr/bin/env bash
# End to end: `thornquill-upload --drop` to a real FTP server on 127.0.0.1:21 in a private
# network namespace.
#   e2e_drop.sh APP        a folder tree and two files; the server's files must equal the local
#                          ones byte for byte (names in ISO Latin 1, as the app sends them), with
#                          the empty file left out of the folder. Then the exit statuses of a
#                          refused login (1) and of missing settings (2).
#   e2e_drop.sh APP COUNT  COUNT small files at once, one session and one control connection
#                          each, all side by side; every row must end in success and every file
#                          arrive intact. The server is pyftpdlib where it can run, as it logs
#                          on faster than vsftpd's PAM (TQ_FTP_SERVER=vsftpd chooses vsftpd).
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
# shellcheck source=../../scripts/netns_ftp_server.sh
source "$here/../../scripts/netns_ftp_server.sh"

app=$(realpath "${1:?usage: e2e_drop.sh PATH/TO/thornquill-upload [COUNT]}")
count=${2:-}
if ! tq_reexec_in_netns "${BASH_SOURCE[0]}" "$@"; then
  echo "SKIP: no private network namespace can be made here (unshare -n / unshare -rn not permitted)"
  exit 77
fi
# A temporary folder (removed, with the server, on exit) and a fresh FTP account.
work=$(mktemp -d /tmp/tq-e2e.XXXXXX)
trap 'tq_stop_server; rm -rf "$work"' EXIT
chmod 755 "$work"
src=$work/src root=$work/root config=$work/config out=$work/out.txt err=$work/err.txt
user=tqe2e$$ password=pw-$RANDOM-$$
mkdir -p "$src" "$root/incoming"

if [[ -n $count ]]; then
  items=() rows=""
  for ((i = 0; i < count; i++)); do
    items+=("$src/$(printf 'file %03d.txt' "$i")")
    printf 'content of file %d\n%s\n' "$i" "$RANDOM$RANDOM" >"${items[-1]}"
    rows+=$i$'\tFile Transfer Complete.\n'
  done
  if [[ -z ${TQ_FTP_SERVER:-} ]] && "$TQ_PYTHON" -c 'import pyftpdlib' 2>/dev/null; then export TQ_FTP_SERVER=pyftpdlib; fi
else
  # A folder tree with blanks, non-ASCII letters, nesting, an empty folder and an empty
  # file, plus two files of their own.
  top="$src/Urlaub Kärnten"
  mkdir -p "$top/Tag 1/Straße am See" "$top/leerer Ordner" "$top/Tag 2"
  head -c 300000 /dev/urandom >"$top/Tag 1/Straße am See/Blick über den See.jpg"
  head -c 1 /dev/urandom >"$top/Tag 1/ein Byte"
  printf 'Notizen\r\nmit CR LF\n\0und NUL\n' >"$top/Tag 2/notizen.txt"
  head -c 70000 /dev/urandom >"$top/Tag 2/café crème.bin"
  : >"$top/Tag 2/leer.txt"
  head -c 2500000 /dev/urandom >"$src/Bericht été.pdf"
  printf 'plain\n' >"$src/plain.txt"
  items=("$top" "$src/Bericht été.pdf" "$src/plain.txt")
  rows=$'0\tDirectory Transfer Complete.\n1\tFile Transfer Complete.\n2\tFile Transfer Complete.\n'
fi

tq_start_server "$root" "$user" "$password" || fail "no FTP server"
tq_drop $((count ? 240 : 120)) "$password" "${items[@]}"
echo "drop of ${#items[@]} items to $TQ_SERVER: exit $status, $(grep -c '^row' "$out") row changes"
# The last change of each row, in the order of the IDs, is its end: a success.
last=$(awk -F'\t' '$1 == "row" { last[$2] = $3 } END { for (id in last) print id "\t" last[id] }' "$out" | sort -n)
if [[ $status -ne 0 || $last != "${rows%$'\n'}" ]]; then
  grep -v $'\tFile Transfer Complete.$' <<<"$last" | head -n 5 >&2 || true
  tail -n 5 "$err" >&2
  fail "exit status $status, or not every row ends in success"
fi
# Nothing but row lines on stdout, each with three fields.
awk -F'\t' 'NF != 3 || $1 != "row" { bad = 1 } END { exit bad }' "$out" || fail "malformed output lines"
if [[ -z $count ]]; then
  grep -q $'^row\t1\tTransferring: 2.4 MB$' "$out" || fail "no progress shown for the large file"
  # The server should hold the items without the empty file, but with the empty folder (diff
  # -r reports either), with names in Latin 1 where it keeps them as sent; deepest names are
  # renamed first, so that renaming a folder does not move what is still to be renamed.
  rm "$top/Tag 2/leer.txt"
  ((TQ_NAMES_AS_SENT == 0)) || "$TQ_PYTHON" -c 'import os, sys
for folder, dirs, files in os.walk(os.fsencode(sys.argv[1]), topdown=False):
    for name in dirs + files:
        os.rename(os.path.join(folder, name), os.path.join(folder, name.decode().encode("latin-1")))' "$src"
fi
diff -r "$src" "$root/incoming" || fail "the server's files differ from the local ones"
echo "server files: $(find "$root/incoming" -type f | wc -l), equal to the local ones"
[[ -z $count ]] || { echo "PASS"; exit 0; }

# A refused login: the row shows the server's answer, the exit status is 1.
tq_drop 60 wrong-password "$src/plain.txt"
[[ $status -eq 1 && $(tail -n 1 "$out") == $'row\t0\tError: 530'* ]] ||
  fail "refused login: exit status $status, last line $(tail -n 1 "$out")"
# Missing settings: exit status 2 and a message, no rows.
tq_drop 60 "" "$src/plain.txt"
[[ $status -eq 2 && ! -s $out && $(<"$err") == *"settings missing: Password"* ]] ||
  fail "missing settings: exit status $status, $(grep -c . "$out") lines out, $(cat "$err")"
echo "PASS"

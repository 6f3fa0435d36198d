#!/usr/bin/env bash
# End to end: `thornquill-upload --drop` to a real FTP server on 127.0.0.1:21 in a private
# network namespace.
#   e2e_drop.sh APP        a folder tree and two files; the server's files must equal the local
#                          ones byte for byte (names in ISO Latin 1, as the app sends them), with
#                          the empty file left out of the folder. Then the exit statuses of a
#                          refused login (1) and of missing settings (2).
#   e2e_drop.sh APP COUNT  COUNT small files at once, one session and one control connection
#                          each, all side by side; every row must end in success and every file
#                          arrive intact. The server is pyftpdlib where it can run: vsftpd's PAM
#                          logins take about 12 s for 500, which sessions waiting for their turn
#                          to connect count against their 20 s inactivity timeout.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
# shellcheck source=netns_ftp_server.sh
source "$here/netns_ftp_server.sh"

app=$(realpath "${1:?usage: e2e_drop.sh PATH/TO/thornquill-upload [COUNT]}")
count=${2:-}
if ! tq_reexec_in_netns "${BASH_SOURCE[0]}" "$@"; then
  echo "SKIP: no private network namespace can be made here (unshare -n / unshare -rn not permitted)"
  exit 77
fi
tq_make_workspace tq-e2e tqe2e
out=$work/out.txt err=$work/err.txt

if [[ -n $count ]]; then
  items=()
  for ((i = 0; i < count; i++)); do
    items+=("$src/$(printf 'file %03d.txt' "$i")")
    printf 'content of file %d\n%s\n' "$i" "$RANDOM$RANDOM" >"${items[-1]}"
  done
  if [[ -z ${TQ_FTP_SERVER:-} ]] && "$TQ_PYTHON" -c 'import pyftpdlib' 2>/dev/null; then
    export TQ_FTP_SERVER=pyftpdlib
  fi
  tq_start_server "$root" "$user" "$password" || fail "no FTP server"
  tq_drop 240 127.0.0.1 /incoming "$user" "$password" -- "${items[@]}"
  echo "drop of $count files to $TQ_SERVER: exit $status, $(grep -c '^row' "$out") row changes"
  if [[ $status -ne 0 ]]; then
    tq_last_rows | grep -v $'\tFile Transfer Complete.$' | head -n 5 >&2 || true
    tail -n 5 "$err" >&2
    fail "exit status $status"
  fi
  [[ $(tq_last_rows) == "$(for ((i = 0; i < count; i++)); do printf '%d\tFile Transfer Complete.\n' "$i"; done)" ]] ||
    fail "not every row of 0..$((count - 1)) ends in success"
  diff -r "$src" "$root/incoming" || fail "the server's files differ from the local ones"
  echo "PASS: $(find "$root/incoming" -type f | wc -l) files on the server, equal to the local ones"
  exit 0
fi

# A folder tree with blanks, non-ASCII letters, nesting, an empty folder and an empty file,
# plus two files of their own.
top="$src/Urlaub Kärnten"
mkdir -p "$top/Tag 1/Straße am See" "$top/leerer Ordner" "$top/Tag 2"
head -c 300000 /dev/urandom >"$top/Tag 1/Straße am See/Blick über den See.jpg"
head -c 1 /dev/urandom >"$top/Tag 1/ein Byte"
printf 'Notizen\r\nmit CR LF\n\0und NUL\n' >"$top/Tag 2/notizen.txt"
head -c 70000 /dev/urandom >"$top/Tag 2/café crème.bin"
: >"$top/Tag 2/leer.txt"
head -c 2500000 /dev/urandom >"$src/Bericht été.pdf"
printf 'plain\n' >"$src/plain.txt"

tq_start_server "$root" "$user" "$password" || fail "no FTP server"
tq_drop 120 127.0.0.1 /incoming "$user" "$password" -- "$top" "$src/Bericht été.pdf" "$src/plain.txt"
echo "drop to $TQ_SERVER: exit $status, $(grep -c '^row' "$out") row changes"
[[ $status -eq 0 ]] || { tq_last_rows >&2; tail -n 5 "$err" >&2; fail "exit status $status"; }
# The last change of each row is its end, a success.
last=$(tq_last_rows)
[[ $last == $'0\tDirectory Transfer Complete.\n1\tFile Transfer Complete.\n2\tFile Transfer Complete.' ]] ||
  fail "rows end as: $last"
grep -q $'^row\t1\tTransferring: 2.4 MB$' "$out" || fail "no progress shown for the large file"
# Nothing but row lines on stdout, each with three fields.
awk -F'\t' 'NF != 3 || $1 != "row" { bad = 1 } END { exit bad }' "$out" || fail "malformed output lines"

# What the server should hold: the items with their names in Latin 1 (as sent), without the
# empty file.
expect=$work/expect
mkdir -p "$expect"
cp -a "$top" "$src/Bericht été.pdf" "$src/plain.txt" "$expect/"
rm "$expect/Urlaub Kärnten/Tag 2/leer.txt"
latin1() { if ((TQ_NAMES_AS_SENT)); then printf '%s' "$1" | iconv -f UTF-8 -t LATIN1; else printf '%s' "$1"; fi; }
if ((TQ_NAMES_AS_SENT)); then
  "$TQ_PYTHON" - "$expect" <<'PY'
import os, sys
# Deepest names first, so that renaming a folder does not move what is still to be renamed.
for folder, dirs, files in os.walk(os.fsencode(sys.argv[1]), topdown=False):
    for name in dirs + files:
        latin1 = name.decode("utf-8").encode("latin-1")
        if latin1 != name:
            os.rename(os.path.join(folder, name), os.path.join(folder, latin1))
PY
fi
diff -r "$expect" "$root/incoming" || fail "the server's files differ from the local ones"
arrived=$root/incoming/$(latin1 "Urlaub Kärnten")
[[ ! -e "$arrived/Tag 2/leer.txt" ]] || fail "the empty file was sent"
[[ -d "$arrived/leerer Ordner" ]] || fail "the empty folder is missing"
echo "server files: $(find "$root/incoming" -type f | wc -l) files equal to the local ones"

# A refused login: the row shows the server's answer, the exit status is 1.
tq_drop 60 127.0.0.1 /incoming "$user" wrong-password -- "$src/plain.txt"
[[ $status -eq 1 ]] || { tq_last_rows >&2; fail "a refused login gave exit status $status"; }
tail -n 1 "$out" | grep -q $'^row\t0\tError: 530' || fail "refused login row: $(tail -n 1 "$out")"
# Missing settings: exit status 2 and a message, no window.
tq_drop 60 127.0.0.1 /incoming "$user" "" -- "$src/plain.txt"
[[ $status -eq 2 ]] || fail "missing settings gave exit status $status"
grep -q "settings missing: Password" "$err" || fail "missing settings message: $(cat "$err")"
[[ ! -s $out ]] || fail "missing settings printed rows"
echo "PASS"

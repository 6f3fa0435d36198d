#!/usr/bin/env bash
# The example programs against a local pyftpdlib: a folder uploaded, its listing printed as
# parsed entries, and three files uploaded side by side; each checked on the server's side.
#   examples_test.sh SOURCE_DIR EXAMPLES_BIN_DIR
set -euo pipefail
source_dir=$1 bin=$2
work=$(mktemp -d /tmp/velmar-examples.XXXXXX)
server_pid=
cleanup() { [[ -n $server_pid ]] && kill "$server_pid" 2>/dev/null; rm -rf "$work"; }
trap cleanup EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }

mkdir -p "$work/root/site" "$work/photos/2024" "$work/batch"
printf 'first photo' >"$work/photos/a.jpg"
head -c 300000 /dev/urandom >"$work/photos/2024/b.jpg"
for n in 1 2 3; do head -c $((n * 70000)) /dev/urandom >"$work/batch/part$n.bin"; done

# The server prints "PORT USER" once it listens, and stops when its stdin closes.
coproc server { /usr/bin/python3 "$source_dir/scripts/local_ftp_server.py" pyftpdlib --root "$work/root" \
  --password secret --until-stdin-closes 2>&1; }
server_pid=$server_PID
read -r port user <&"${server[0]}" || fail "the server did not start"
[[ $port =~ ^[0-9]+$ ]] || { echo "SKIP: no server: $port $user"; exit 77; }
export FTP_PASSWORD=secret

"$bin/upload-folder" 127.0.0.1 "$port" "$user" "$work/photos" /site/photos >"$work/up.txt" ||
  fail "upload-folder: $(cat "$work/up.txt")"
cmp "$work/photos/a.jpg" "$work/root/site/photos/a.jpg" && cmp "$work/photos/2024/b.jpg" "$work/root/site/photos/2024/b.jpg" ||
  fail "the folder did not arrive whole"
grep -qx 'done: Directory Transfer Complete.' "$work/up.txt" || fail "no success line: $(cat "$work/up.txt")"

"$bin/list-directory" 127.0.0.1 "$port" "$user" /site/photos >"$work/list.txt" || fail "list-directory failed"
[[ $(sort "$work/list.txt") == $'- 11 a.jpg\nd 2024' ]] || fail "the listing printed: $(cat "$work/list.txt")"

"$bin/parallel-uploads" 127.0.0.1 "$port" "$user" /site "$work"/batch/part{1,2,3}.bin >"$work/par.txt" ||
  fail "parallel-uploads: $(cat "$work/par.txt")"
for n in 1 2 3; do cmp "$work/batch/part$n.bin" "$work/root/site/part$n.bin" || fail "part$n.bin differs"; done
[[ $(grep -c ': File Transfer Complete.$' "$work/par.txt") == 3 ]] || fail "not three successes: $(cat "$work/par.txt")"

# A wrong password ends in a failure report and exit status 1.
FTP_PASSWORD=wrong "$bin/list-directory" 127.0.0.1 "$port" "$user" /site >/dev/null 2>"$work/err.txt" &&
  fail "a wrong password was accepted"
grep -q '^failed: Error: 530' "$work/err.txt" || fail "the failure said: $(cat "$work/err.txt")"
echo "examples: all three did their work"

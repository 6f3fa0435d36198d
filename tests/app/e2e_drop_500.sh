#!/usr/bin/env bash
# End to end: 500 small files dropped at once, one session and one control connection each,
# all side by side, to a real FTP server on 127.0.0.1:21 in a private network namespace.
# Every row must end in success and every file must arrive intact.
# The server is pyftpdlib (vsftpd when it is missing): vsftpd's 500 PAM logins take about
# 12 s here, and sessions that wait for their turn to connect count that time against their
# 20 s inactivity timeout, too thin a margin on a busy machine. TQ_FTP_SERVER=vsftpd forces it.
# Usage: e2e_drop_500.sh PATH/TO/thornquill-upload [COUNT]
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
# shellcheck source=netns_ftp_server.sh
source "$here/netns_ftp_server.sh"

app=$(realpath "${1:?usage: e2e_drop_500.sh PATH/TO/thornquill-upload [COUNT]}")
count=${2:-500}
if ! tq_reexec_in_netns "${BASH_SOURCE[0]}" "$app" "$count"; then
  echo "SKIP: no private network namespace can be made here (unshare -n / unshare -rn not permitted)"
  exit 77
fi

tq_make_workspace tq-e2e500 tqmany

items=()
for ((i = 0; i < count; i++)); do
  name=$(printf 'file %03d.txt' "$i")
  printf 'content of file %d\n%s\n' "$i" "$RANDOM$RANDOM" >"$src/$name"
  items+=("$src/$name")
done

if [[ -z ${TQ_FTP_SERVER:-} ]] && "$TQ_PYTHON" -c 'import pyftpdlib' 2>/dev/null; then
  export TQ_FTP_SERVER=pyftpdlib
fi
tq_start_server "$root" "$user" "$password" || fail "no FTP server"
echo "server: $TQ_SERVER on 127.0.0.1:21"
tq_write_settings "$config" 127.0.0.1 /incoming "$user" "$password"

out=$work/out.txt err=$work/err.txt
started=$(date +%s.%N)
set +e
XDG_CONFIG_HOME=$config timeout 240 "$app" --drop "${items[@]}" >"$out" 2>"$err"
status=$?
set -e
elapsed=$(echo "$(date +%s.%N) - $started" | bc 2>/dev/null || echo "?")
last=$work/last.txt
awk -F'\t' '$1 == "row" { last[$2] = $3 } END { for (id in last) print id "\t" last[id] }' "$out" | sort -n >"$last"
echo "drop of $count files: exit $status in ${elapsed} s, $(wc -l <"$last") rows, $(grep -c '^row' "$out") row changes"
if [[ $status -ne 0 ]]; then
  grep -v $'\tFile Transfer Complete.$' "$last" | head -n 5 >&2 || true
  tail -n 5 "$err" >&2
  fail "exit status $status"
fi
# Rows 0 to count-1, each ending in success.
expected_rows=$(for ((i = 0; i < count; i++)); do printf '%d\tFile Transfer Complete.\n' "$i"; done)
[[ $(cat "$last") == "$expected_rows" ]] || fail "not every row of 0..$((count - 1)) ends in success"
arrived=$(find "$root/incoming" -type f | wc -l)
[[ $arrived -eq $count ]] || fail "$arrived files on the server, $count expected"
diff -r "$src" "$root/incoming" || fail "the server's files differ from the local ones"
echo "PASS: $arrived files on the server, equal to the local ones"

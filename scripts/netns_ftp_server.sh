# shellcheck shell=bash
# Helpers for scripts that run Thornquill Upload against a real FTP server on 127.0.0.1:21
# inside a private network namespace, where port 21 is free and nothing leaks outside.
# Sourced by demo.sh and screenshots.sh beside it, and by the end-to-end test.
#
#   tq_reexec_in_netns SCRIPT ARGS...  re-runs SCRIPT in a private network namespace (once);
#                                      returns 1 when no namespace can be made here
#   tq_start_server ROOT USER PASSWORD starts vsftpd (pyftpdlib when vsftpd cannot start;
#                                      TQ_FTP_SERVER=vsftpd or =pyftpdlib forces one), serving
#                                      ROOT to USER on 127.0.0.1:21; sets TQ_SERVER
#   tq_stop_server                     stops it and removes what it created (idempotent)
#
# Non-ASCII names: the app sends names in ISO Latin 1. vsftpd stores those bytes as they
# are; pyftpdlib stores them in UTF-8 (TQ_NAMES_AS_SENT=0 then, 1 with vsftpd).
TQ_SERVER=""
TQ_NAMES_AS_SENT=1
TQ_SERVER_PID=""
TQ_SERVER_DIR=""
TQ_PYTHON=/usr/bin/python3
TQ_SCRIPTS_DIR=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)

tq_log() { printf '%s\n' "$*" >&2; }

tq_reexec_in_netns() {
  local script=$1
  shift
  if [[ -n ${TQ_IN_NETNS:-} ]]; then
    ip link set lo up || { tq_log "cannot bring up the loopback interface"; exit 1; }
    # Hundreds of clients connect at once and wait for the server to speak first: with SYN
    # cookies a connection that found the accept queue full is forgotten by the server while
    # the client thinks it open; without, the client retries. This namespace's setting only.
    sysctl -qw net.ipv4.tcp_syncookies=0 2>/dev/null || true
    return 0
  fi
  local unshare=(unshare -n)
  # Without root, a user namespace may still give a private network namespace.
  unshare -n true 2>/dev/null || unshare=(unshare -rn)
  "${unshare[@]}" true 2>/dev/null || return 1
  TQ_IN_NETNS=1 exec "${unshare[@]}" bash "$script" "$@"
}

# tq_retry TRIES PAUSE COMMAND...: runs COMMAND until it succeeds, at most TRIES times.
tq_retry() {
  local tries=$1 pause=$2 attempt
  shift 2
  for ((attempt = 0; attempt < tries; attempt++)); do
    "$@" && return 0
    sleep "$pause"
  done
  return 1
}
tq_gone() { ! kill -0 "$TQ_SERVER_PID" 2>/dev/null; }
tq_said_something() { [[ -s $TQ_SERVER_DIR/port ]] || tq_gone; }

# tq_launch KIND ROOT USER PASSWORD: starts the shared launcher (local_ftp_server.py) on
# 127.0.0.1:21 and waits (at most 45 s) for its first line: "21 USER" once it serves.
tq_launch() {
  local line=""
  setsid "$TQ_PYTHON" "$TQ_SCRIPTS_DIR/local_ftp_server.py" "$1" --root "$2" --user "$3" --password "$4" --port 21 \
    --latin1-names --crowd >"$TQ_SERVER_DIR/port" 2>"$TQ_SERVER_DIR/server.log" </dev/null &
  TQ_SERVER_PID=$!
  tq_retry 450 0.1 tq_said_something || true
  read -r line <"$TQ_SERVER_DIR/port" || true
  [[ $line == "21 $3" ]] && { TQ_SERVER=$1; return 0; }
  tq_log "$1 did not start: ${line:-$(tail -c 300 "$TQ_SERVER_DIR/server.log")}"
  tq_stop_process
  return 1
}

tq_start_server() {
  local root=$1 user=$2 password=$3 kind
  TQ_SERVER_DIR=$(mktemp -d /tmp/tq-server.XXXXXX)
  for kind in vsftpd pyftpdlib; do
    [[ ${TQ_FTP_SERVER:-$kind} == "$kind" ]] || continue
    tq_launch "$kind" "$root" "$user" "$password" || continue
    [[ $kind == vsftpd ]] || TQ_NAMES_AS_SENT=0
    return 0
  done
  tq_log "no FTP server could be started on 127.0.0.1:21 (install vsftpd or python3-pyftpdlib: scripts/setup.sh)"
  return 1
}

# Stops the launcher, which stops its server and removes the account it made (idempotent).
tq_stop_process() {
  [[ -n $TQ_SERVER_PID ]] || return 0
  kill -TERM "$TQ_SERVER_PID" 2>/dev/null || true
  tq_retry 100 0.1 tq_gone || kill -KILL -- "-$TQ_SERVER_PID" 2>/dev/null || true
  wait "$TQ_SERVER_PID" 2>/dev/null || true
  TQ_SERVER_PID=""
}

tq_stop_server() {
  tq_stop_process
  [[ -z $TQ_SERVER_DIR ]] || rm -rf "$TQ_SERVER_DIR"
  TQ_SERVER_DIR="" TQ_SERVER=""
}

# tq_write_settings FOLDER SERVER PATH USER PASSWORD: the app's settings file in FOLDER (used
# as XDG_CONFIG_HOME).
tq_write_settings() { mkdir -p "$1" && (umask 077 && printf '%s\n' "${@:2:4}" >"$1/Skelvane"); }

# tq_drop SECONDS PASSWORD ITEM...: runs "$app --drop ITEM..." with the settings 127.0.0.1,
# /incoming, $user and PASSWORD; sets status, with stdout in $out and stderr in $err.
# shellcheck disable=SC2154  # app, config, user, out and err come from the calling script
tq_drop() {
  tq_write_settings "$config" 127.0.0.1 /incoming "$user" "$2"
  status=0
  XDG_CONFIG_HOME=$config timeout "$1" "$app" --drop "${@:3}" >"$out" 2>"$err" || status=$?
}

fail() { echo "FAIL: $*" >&2; exit 1; }

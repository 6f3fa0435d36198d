# shellcheck shell=bash
# Helpers for scripts that run Thornquill Upload against a real FTP server on 127.0.0.1:21
# inside a private network namespace, where port 21 is free and nothing leaks outside.
# Sourced by the end-to-end test and by scripts/demo.sh and scripts/screenshots.sh.
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
TQ_SERVER_USER=""
TQ_SERVER_DIR=""
TQ_PYTHON=/usr/bin/python3

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

# Waits until something on 127.0.0.1:21 greets with 220; at most about 10 s.
tq_wait_for_greeting() {
  local attempt line
  for ((attempt = 0; attempt < 100; attempt++)); do
    [[ -n $TQ_SERVER_PID ]] && ! kill -0 "$TQ_SERVER_PID" 2>/dev/null && return 1
    if { exec 7<>/dev/tcp/127.0.0.1/21; } 2>/dev/null; then
      line=""
      read -r -t 2 line <&7 || true
      exec 7<&- 7>&-
      [[ $line == 220* ]] && return 0
    fi
    sleep 0.1
  done
  return 1
}

tq_start_vsftpd() {
  local root=$1 user=$2 password=$3
  [[ $(id -u) -eq 0 && -x /usr/sbin/vsftpd ]] || return 1
  command -v useradd >/dev/null && command -v chpasswd >/dev/null || return 1
  # Accounts are seen outside the namespace: a unique name, removed again by tq_stop_server.
  useradd -M -d "$root" -s /bin/bash "$user" 2>/dev/null || return 1
  TQ_SERVER_USER=$user
  # SHA-512: Debian's default hash makes every login cost a lot of server CPU.
  printf '%s:%s\n' "$user" "$password" | chpasswd -c SHA512 || return 1
  chown -R "$user:" "$root" || return 1
  local dir=$TQ_SERVER_DIR
  mkdir -m 755 "$dir/empty"
  printf '%s\n' listen=YES listen_ipv6=NO background=NO listen_address=127.0.0.1 listen_port=21 \
    anonymous_enable=NO local_enable=YES write_enable=YES local_umask=022 seccomp_sandbox=NO isolate_network=NO \
    pam_service_name=vsftpd "secure_chroot_dir=$dir/empty" chroot_local_user=YES allow_writeable_chroot=YES \
    pasv_enable=YES pasv_min_port=31000 pasv_max_port=31999 port_enable=YES connect_from_port_20=NO \
    xferlog_enable=NO dirmessage_enable=NO use_localtime=NO delay_failed_login=0 max_per_ip=0 max_clients=0 \
    >"$dir/vsftpd.conf"
  # In a session of its own, so that its forked connection processes stop with it.
  setsid /usr/sbin/vsftpd "$dir/vsftpd.conf" >"$dir/server.log" 2>&1 &
  TQ_SERVER_PID=$!
  tq_wait_for_greeting && { TQ_SERVER=vsftpd; return 0; }
  tq_log "vsftpd did not start: $(head -c 300 "$dir/server.log" 2>/dev/null)"
  tq_stop_process
  return 1
}

tq_start_pyftpdlib() {
  local root=$1 user=$2 password=$3
  "$TQ_PYTHON" -c 'import pyftpdlib' 2>/dev/null || return 1
  setsid "$TQ_PYTHON" - "$root" "$user" "$password" >"$TQ_SERVER_DIR/server.log" 2>&1 <<'PY' &
import logging, socket, sys
from pyftpdlib.authorizers import DummyAuthorizer
from pyftpdlib.handlers import DTPHandler, FTPHandler
from pyftpdlib.servers import FTPServer
root, user, password = sys.argv[1:4]
logging.basicConfig(level=logging.WARNING)
authorizer = DummyAuthorizer()
authorizer.add_user(user, password, root, perm="elradfmwMT")
FTPHandler.authorizer = authorizer
FTPHandler.passive_ports = list(range(29000, 30000))
FTPHandler.auth_failed_timeout = 0.1


class PatientDTPHandler(DTPHandler):
    # A client may send a file's bytes as soon as the data connection is up, before the
    # server has read its STOR. pyftpdlib takes a readable data connection that is not yet
    # receiving for a closed one and resets it, and the STOR then waits for ever: here only
    # a connection that really has ended is closed.
    def readable(self):
        if not self.receive and not self._initialized:
            try:
                if self.socket.recv(1, socket.MSG_PEEK):
                    return False
            except BlockingIOError:
                return False
            except OSError:
                pass
            return self.close()
        return self.receive


class Latin1Handler(FTPHandler):
    dtp_handler = PatientDTPHandler

    # The client speaks ISO Latin 1; the file system gets the same names in UTF-8.
    def decode(self, data):
        return data.decode("latin-1")


server = FTPServer(("127.0.0.1", 21), Latin1Handler, backlog=1024)  # hundreds connect at once
server.max_cons = server.max_cons_per_ip = 0
server.serve_forever()
PY
  TQ_SERVER_PID=$!
  tq_wait_for_greeting && { TQ_SERVER=pyftpdlib TQ_NAMES_AS_SENT=0; return 0; }
  tq_log "pyftpdlib did not start: $(tail -c 300 "$TQ_SERVER_DIR/server.log" 2>/dev/null)"
  tq_stop_process
  return 1
}

tq_start_server() {
  local root=$1 user=$2 password=$3
  TQ_SERVER_DIR=$(mktemp -d /tmp/tq-server.XXXXXX)
  chmod 755 "$TQ_SERVER_DIR"
  local choice=${TQ_FTP_SERVER:-auto}
  [[ $choice != pyftpdlib ]] && tq_start_vsftpd "$root" "$user" "$password" && return 0
  tq_remove_user
  [[ $choice != vsftpd ]] && tq_start_pyftpdlib "$root" "$user" "$password" && return 0
  tq_log "no FTP server could be started on 127.0.0.1:21 (install vsftpd or python3-pyftpdlib: scripts/setup.sh)"
  return 1
}

tq_stop_process() {
  if [[ -n $TQ_SERVER_PID ]]; then
    kill -TERM -- "-$TQ_SERVER_PID" 2>/dev/null || kill -TERM "$TQ_SERVER_PID" 2>/dev/null || true
    local attempt
    for ((attempt = 0; attempt < 50; attempt++)); do
      kill -0 "$TQ_SERVER_PID" 2>/dev/null || break
      sleep 0.1
    done
    kill -KILL -- "-$TQ_SERVER_PID" 2>/dev/null || true
    wait "$TQ_SERVER_PID" 2>/dev/null || true
    TQ_SERVER_PID=""
  fi
}

tq_remove_user() {
  if [[ -n $TQ_SERVER_USER ]]; then
    # Connection processes may still be on their way out: userdel refuses while they run.
    local attempt
    for ((attempt = 0; attempt < 20; attempt++)); do
      userdel "$TQ_SERVER_USER" 2>/dev/null && break
      id "$TQ_SERVER_USER" >/dev/null 2>&1 || break
      sleep 0.2
    done
    TQ_SERVER_USER=""
  fi
}

tq_stop_server() {
  tq_stop_process
  tq_remove_user
  [[ -z $TQ_SERVER_DIR ]] || rm -rf "$TQ_SERVER_DIR"
  TQ_SERVER_DIR="" TQ_SERVER=""
}

# Writes the app's settings file into the folder $1 (used as XDG_CONFIG_HOME).
tq_write_settings() {
  local folder=$1 server=$2 path=$3 user=$4 password=$5
  mkdir -p "$folder"
  (umask 077 && printf '%s\n%s\n%s\n%s\n' "$server" "$path" "$user" "$password" >"$folder/Skelvane")
}

# tq_make_workspace NAME USERPREFIX: a temporary folder (removed, with the server, on exit)
# holding src/, root/incoming/ and config/, and a fresh FTP account name and password; sets
# work, src, root, config, user and password.
tq_make_workspace() {
  work=$(mktemp -d "/tmp/$1.XXXXXX")
  trap 'tq_stop_server; rm -rf "$work"' EXIT
  chmod 755 "$work"
  src=$work/src root=$work/root config=$work/config
  user=$2$$ password=pw-$RANDOM-$$
  mkdir -p "$src" "$root/incoming"
}

# tq_drop SECONDS SERVER PATH USER PASSWORD -- ITEM...: writes these settings and runs
# "$app --drop ITEM..." with them; sets status, with stdout in $out and stderr in $err.
# shellcheck disable=SC2154  # app, out and err come from the calling script
tq_drop() {
  tq_write_settings "$config" "$2" "$3" "$4" "$5"
  set +e
  XDG_CONFIG_HOME=$config timeout "$1" "$app" --drop "${@:7}" >"$out" 2>"$err"
  status=$?
  set -e
}

# The last text of each row of $out, as "ID<TAB>TEXT" lines in the order of the IDs.
tq_last_rows() { awk -F'\t' '$1 == "row" { last[$2] = $3 } END { for (id in last) print id "\t" last[id] }' "$out" | sort -n; }

fail() { echo "FAIL: $*" >&2; exit 1; }

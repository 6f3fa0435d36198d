# shellcheck shell=bash
# Helpers for scripts that run Thornquill Upload against a real FTP server on 127.0.0.1:21
# inside a private network namespace, where port 21 is free and nothing leaks outside.
# Sourced by the end-to-end tests and by scripts/demo.sh and scripts/screenshots.sh.
#
#   tq_reexec_in_netns SCRIPT ARGS...  re-runs SCRIPT in a private network namespace (once);
#                                      returns 1 when no namespace can be made here
#   tq_start_server ROOT USER PASSWORD starts vsftpd (pyftpdlib when vsftpd cannot start)
#                                      serving ROOT to USER on 127.0.0.1:21; sets TQ_SERVER
#   tq_stop_server                     stops it and removes what it created (idempotent)
#
# TQ_FTP_SERVER=vsftpd or =pyftpdlib picks one server without the other as a fallback.
#
# Non-ASCII names: the app sends names in ISO Latin 1. vsftpd stores those bytes as they
# are; pyftpdlib wants UTF-8 paths, so it reads commands as Latin 1 and stores the names in
# UTF-8 (TQ_NAMES_AS_SENT=0 then, 1 with vsftpd).

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
    # Hundreds of clients connect at once, and an FTP client waits for the server to speak
    # first. With SYN cookies a connection that found the accept queue full is forgotten by
    # the server while the client thinks it is open; without them the client just retries.
    # This namespace's own setting: the machine's is not touched.
    sysctl -qw net.ipv4.tcp_syncookies=0 2>/dev/null || true
    return 0
  fi
  local unshare=(unshare -n)
  if ! unshare -n true 2>/dev/null; then
    # Without root, a user namespace may still give a private network namespace.
    if unshare -rn true 2>/dev/null; then
      unshare=(unshare -rn)
    else
      return 1
    fi
  fi
  TQ_IN_NETNS=1 exec "${unshare[@]}" bash "$script" "$@"
}

# Waits until something on 127.0.0.1:21 greets with 220; at most about 10 s.
tq_wait_for_greeting() {
  local attempt line
  for ((attempt = 0; attempt < 100; attempt++)); do
    if [[ -n $TQ_SERVER_PID ]] && ! kill -0 "$TQ_SERVER_PID" 2>/dev/null; then
      return 1
    fi
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
  mkdir -p "$dir/empty"
  chmod 755 "$dir/empty"
  cat >"$dir/vsftpd.conf" <<CONF
listen=YES
listen_ipv6=NO
background=NO
listen_address=127.0.0.1
listen_port=21
anonymous_enable=NO
local_enable=YES
write_enable=YES
local_umask=022
seccomp_sandbox=NO
isolate_network=NO
pam_service_name=vsftpd
secure_chroot_dir=$dir/empty
chroot_local_user=YES
allow_writeable_chroot=YES
pasv_enable=YES
pasv_min_port=31000
pasv_max_port=31999
port_enable=YES
connect_from_port_20=NO
xferlog_enable=NO
dirmessage_enable=NO
use_localtime=NO
delay_failed_login=0
max_per_ip=0
max_clients=0
CONF
  # In a session of its own, so that its forked connection processes stop with it.
  setsid /usr/sbin/vsftpd "$dir/vsftpd.conf" >"$dir/server.log" 2>&1 &
  TQ_SERVER_PID=$!
  if tq_wait_for_greeting; then
    TQ_SERVER=vsftpd
    return 0
  fi
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


# A deep accept queue: a drop connects hundreds of sessions at once.
server = FTPServer(("127.0.0.1", 21), Latin1Handler, backlog=1024)
server.max_cons = 0
server.max_cons_per_ip = 0
server.serve_forever()
PY
  TQ_SERVER_PID=$!
  if tq_wait_for_greeting; then
    TQ_SERVER=pyftpdlib
    TQ_NAMES_AS_SENT=0
    return 0
  fi
  tq_log "pyftpdlib did not start: $(tail -c 300 "$TQ_SERVER_DIR/server.log" 2>/dev/null)"
  tq_stop_process
  return 1
}

tq_start_server() {
  local root=$1 user=$2 password=$3
  TQ_SERVER_DIR=$(mktemp -d /tmp/tq-server.XXXXXX)
  chmod 755 "$TQ_SERVER_DIR"
  local choice=${TQ_FTP_SERVER:-auto}
  if [[ $choice != pyftpdlib ]] && tq_start_vsftpd "$root" "$user" "$password"; then
    return 0
  fi
  tq_remove_user
  if [[ $choice != vsftpd ]] && tq_start_pyftpdlib "$root" "$user" "$password"; then
    return 0
  fi
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
  if [[ -n $TQ_SERVER_DIR ]]; then
    rm -rf "$TQ_SERVER_DIR"
    TQ_SERVER_DIR=""
  fi
  TQ_SERVER=""
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

fail() {
  echo "FAIL: $*" >&2
  exit 1
}

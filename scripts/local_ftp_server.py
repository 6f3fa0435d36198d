#!/usr/bin/env python3
"""A local FTP server on 127.0.0.1 with one user, for the tests, the demo and the benchmarks:
pyftpdlib, run in this process, or vsftpd, run as a child with a system account made for it
(vsftpd logs in system users only) and the configuration vsftpd.conf beside this file.

Prints "PORT USER" on the first line of stdout (or "error: ..." and exits with 3 when it
cannot start), then serves until SIGTERM or SIGINT; with --until-stdin-closes also until stdin
is closed, so that it never outlives the test that started it. On the way out it stops vsftpd
and removes the account it made. pyftpdlib's passive ports are 29000-29999 and vsftpd's
31000-31999: below the ephemeral range, where ports in TIME_WAIT would make PASV fail.
"""
import argparse
import ctypes
import logging
import os
import re
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import threading
import time

HERE = os.path.dirname(os.path.abspath(__file__))
ACCOUNT_PREFIX = "velmarftp"  # accounts made without --user: ACCOUNT_PREFIX + this process id


def fail(message):
    print("error: " + message, flush=True)
    sys.exit(3)


def run_tool(arguments, stdin=b""):
    """Runs a system tool; returns its complaint, or None. useradd and userdel lock /etc/passwd,
    which servers started side by side may hold for a moment: a complaint about a lock is retried."""
    for attempt in range(20):
        done = subprocess.run(arguments, input=stdin, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        if done.returncode == 0:
            return None
        complaint = "%s failed: %s" % (arguments[0], done.stdout.decode(errors="replace").strip())
        if "lock" not in complaint.lower():
            return complaint
        time.sleep(0.1)
    return complaint


def greets(port, seconds):
    """True when something on the port answers with an FTP greeting within the time given."""
    try:
        with socket.create_connection(("127.0.0.1", port), timeout=seconds) as s:
            s.settimeout(seconds)
            return s.recv(4).startswith(b"220")
    except OSError:
        return False


def die_with_parent():
    """In a child: SIGTERM when this launcher dies, however it dies."""
    ctypes.CDLL(None, use_errno=True).prctl(1, signal.SIGTERM)  # PR_SET_PDEATHSIG


def serve_vsftpd(args):
    if os.geteuid() != 0:
        fail("vsftpd needs root (it logs in a system user made for it)")
    if not os.access("/usr/sbin/vsftpd", os.X_OK):
        fail("vsftpd is not installed (/usr/sbin/vsftpd)")
    if not all(shutil.which(t, path="/usr/sbin:/sbin:/usr/bin:/bin") for t in ("useradd", "chpasswd", "userdel")):
        fail("useradd, chpasswd or userdel is missing")
    # Accounts left by launchers that died without cleaning up.
    with open("/etc/passwd") as passwd:
        for name in (line.split(":")[0] for line in passwd):
            match = re.fullmatch(ACCOUNT_PREFIX + r"(\d+)", name)
            if match and not os.path.exists("/proc/" + match.group(1)):
                run_tool(["userdel", "-f", name])

    user = args.user or ACCOUNT_PREFIX + str(os.getpid())
    work = tempfile.mkdtemp(prefix="velmar-vsftpd-")
    os.chmod(work, 0o755)
    process, made_user = None, False

    def stop(*_):
        raise SystemExit(0)

    signal.signal(signal.SIGTERM, stop)
    signal.signal(signal.SIGINT, stop)
    try:
        complaint = run_tool(["useradd", "-M", "-d", args.root, "-s", "/bin/bash", user])
        made_user = complaint is None
        # SHA-512 keeps a login cheap; Debian's default yescrypt costs a lot of CPU per login.
        complaint = complaint or run_tool(["chpasswd", "-c", "SHA512"], ("%s:%s\n" % (user, args.password)).encode())
        # The user owns its home, which is its chroot.
        complaint = complaint or run_tool(["chown", "-R", user + ":", args.root])
        if complaint:
            fail(complaint)
        empty = os.path.join(work, "empty")
        os.mkdir(empty, 0o755)
        with open(os.path.join(HERE, "vsftpd.conf")) as shared:
            template = shared.read().replace("@EMPTY_DIR@", empty)
        if args.tls:
            template += tls_settings(args.tls, args.tls_data_required)
        config = os.path.join(work, "vsftpd.conf")
        # A free port may be taken by someone else before vsftpd binds it: try a few.
        for attempt in range(3 if args.port == 0 else 1):
            port = args.port or free_port()
            with open(config, "w") as out:
                out.write(template.replace("@PORT@", str(port)))
            log = open(os.path.join(work, "vsftpd.log"), "w+")
            # In a session of its own, so that its connection processes stop with it.
            process = subprocess.Popen(["/usr/sbin/vsftpd", config], stdin=subprocess.DEVNULL, stdout=log,
                                       stderr=subprocess.STDOUT, start_new_session=True, preexec_fn=die_with_parent)
            # vsftpd does not tell when it listens: knock until it greets, or it exits.
            deadline = time.monotonic() + 10
            while process.poll() is None and time.monotonic() < deadline and not greets(port, 0.5):
                time.sleep(0.05)
            if process.poll() is None and time.monotonic() < deadline:
                break
            stop_group(process)
            log.seek(0)
            complaint = "vsftpd did not start: %s" % (log.read().strip()[:300] or "no output")
            process = None
        if process is None:
            fail(complaint)
        print(port, user, flush=True)
        if args.until_stdin_closes:
            threading.Thread(target=lambda: (read_until_closed(), os.kill(os.getpid(), signal.SIGTERM)),
                             daemon=True).start()
        process.wait()
    finally:
        if process is not None:
            stop_group(process)
        if made_user:
            # Connection processes may still be on their way out: userdel refuses while they run.
            for attempt in range(20):
                if run_tool(["userdel", "-f", user]) is None:
                    break
                time.sleep(0.2)
        shutil.rmtree(work, ignore_errors=True)


def tls_settings(pem, data_required):
    """vsftpd's lines for explicit TLS with the certificate and key of one PEM file."""
    return "\n".join([
        "ssl_enable=YES",
        "rsa_cert_file=" + pem,
        "rsa_private_key_file=" + pem,
        # Its default cipher list is a single old cipher that today's clients no longer offer.
        "ssl_ciphers=HIGH",
        "force_local_logins_ssl=NO",
        "force_local_data_ssl=" + ("YES" if data_required else "NO"),
        # A data connection must resume the control connection's TLS session (its default).
        "require_ssl_reuse=YES",
        "",
    ])


def stop_group(process):
    for sig in (signal.SIGTERM, signal.SIGKILL):
        try:
            os.killpg(process.pid, sig)
            process.wait(3)
        except (ProcessLookupError, subprocess.TimeoutExpired):
            pass
    try:
        os.killpg(process.pid, signal.SIGKILL)  # connection processes that outlived the listener
    except ProcessLookupError:
        pass
    process.wait()


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def read_until_closed():
    try:
        while os.read(0, 4096):
            pass
    except OSError:
        pass


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("server", choices=["pyftpdlib", "vsftpd"])
    parser.add_argument("--root", required=True)
    parser.add_argument("--user", help="the login; for vsftpd a new system account "
                                       "(default: %s followed by this process id)" % ACCOUNT_PREFIX)
    parser.add_argument("--password", required=True)
    parser.add_argument("--port", type=int, default=0, help="0 (the default): a free port")
    parser.add_argument("--tls", metavar="CERTFILE", help="PEM file with certificate and private key: explicit TLS "
                                                          "(AUTH TLS) offered, plain logins still possible")
    parser.add_argument("--tls-data-required", action="store_true",
                        help="with --tls: data connections must run TLS (vsftpd: resuming the control "
                             "connection's TLS session)")
    parser.add_argument("--until-stdin-closes", action="store_true")
    parser.add_argument("--latin1-names", action="store_true",
                        help="pyftpdlib: read commands as ISO Latin 1, as the app sends them; names are stored in UTF-8")
    parser.add_argument("--crowd", action="store_true",
                        help="pyftpdlib: hundreds of clients at once: no connection limits, a long listen queue, "
                             "and file bytes that come before their STOR is read")
    parser.add_argument("--listing-in-one-write", action="store_true",
                        help="pyftpdlib: send a listing in one write (pyftpdlib writes 20 lines at a time)")
    args = parser.parse_args()
    if args.server == "vsftpd":
        return serve_vsftpd(args)
    args.user = args.user or "tester"

    try:
        from pyftpdlib import handlers
        from pyftpdlib.authorizers import DummyAuthorizer
        from pyftpdlib.servers import FTPServer
    except ImportError:
        fail("python module pyftpdlib is missing (%s); install python3-pyftpdlib" % sys.executable)

    base = handlers.FTPHandler
    if args.tls:
        if not hasattr(handlers, "TLS_FTPHandler"):
            fail("pyftpdlib has no TLS support here; install python3-openssl")
        base = handlers.TLS_FTPHandler

    logging.basicConfig(level=logging.WARNING, stream=sys.stderr)
    if args.listing_in_one_write:
        handlers.BufferedIteratorProducer.loops = 100000

    class PatientDTPHandler(handlers.DTPHandler):
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

    class Handler(base):
        authorizer = DummyAuthorizer()
        passive_ports = list(range(29000, 30000))
        # A wrong password is answered after this delay; the default of 3 s only slows tests down.
        auth_failed_timeout = 0.1
        if args.crowd:
            dtp_handler = PatientDTPHandler

        if args.latin1_names:
            def decode(self, data):
                return data.decode("latin-1")

    Handler.authorizer.add_user(args.user, args.password, args.root, perm="elradfmwMT")
    if args.tls:
        Handler.certfile = args.tls
        # Plain logins keep working on the TLS server; the client chooses the upgrade.
        Handler.tls_control_required = False
        Handler.tls_data_required = args.tls_data_required

    try:
        server = FTPServer(("127.0.0.1", args.port), Handler, backlog=1024 if args.crowd else 100)
    except Exception as error:  # a port in use or a bad certificate shows up here
        fail("cannot start the server: %s" % error)
    if args.crowd:
        server.max_cons = server.max_cons_per_ip = 0

    if args.until_stdin_closes:
        threading.Thread(target=lambda: (read_until_closed(), os._exit(0)), daemon=True).start()

    print(server.address[1], args.user, flush=True)
    server.serve_forever()


if __name__ == "__main__":
    main()

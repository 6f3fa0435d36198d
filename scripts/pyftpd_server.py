#!/usr/bin/env python3
"""A pyftpdlib server on 127.0.0.1 with one user, for the tests, the demo and the benchmarks.

Prints the port on the first line of stdout (or "error: ..." when it cannot start), then
serves until SIGTERM; with --until-stdin-closes also until stdin is closed, so that it never
outlives the test that started it. Passive ports 29000-29999: below the ephemeral range,
clear of vsftpd's 31000-31999.
"""
import argparse
import logging
import os
import socket
import sys
import threading


def fail(message):
    print("error: " + message, flush=True)
    sys.exit(3)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--root", required=True)
    parser.add_argument("--user", required=True)
    parser.add_argument("--password", required=True)
    parser.add_argument("--port", type=int, default=0, help="0 (the default): a free port")
    parser.add_argument("--tls", metavar="CERTFILE", help="PEM file with certificate and private key")
    parser.add_argument("--until-stdin-closes", action="store_true")
    parser.add_argument("--latin1-names", action="store_true",
                        help="read commands as ISO Latin 1, as the app sends them; names are stored in UTF-8")
    parser.add_argument("--crowd", action="store_true",
                        help="hundreds of clients at once: no connection limits, a long listen queue, "
                             "and file bytes that come before their STOR is read")
    parser.add_argument("--listing-in-one-write", action="store_true",
                        help="send a listing in one write (pyftpdlib writes 20 lines at a time)")
    args = parser.parse_args()

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
        Handler.tls_data_required = False

    try:
        server = FTPServer(("127.0.0.1", args.port), Handler, backlog=1024 if args.crowd else 100)
    except Exception as error:  # a port in use or a bad certificate shows up here
        fail("cannot start the server: %s" % error)
    if args.crowd:
        server.max_cons = server.max_cons_per_ip = 0

    if args.until_stdin_closes:
        def exit_when_stdin_closes():
            try:
                while os.read(0, 4096):
                    pass
            except OSError:
                pass
            os._exit(0)

        threading.Thread(target=exit_when_stdin_closes, daemon=True).start()

    print(server.address[1], flush=True)
    server.serve_forever()


if __name__ == "__main__":
    main()

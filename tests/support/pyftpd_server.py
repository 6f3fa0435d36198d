#!/usr/bin/env python3
"""A pyftpdlib server for the tests: one user, loopback only, on a port of the system's choice.

Prints the port on the first line of stdout (or "error: ..." when it cannot start), then
serves until SIGTERM or until stdin is closed, so it never outlives the test that started it.
"""
import argparse
import logging
import os
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
    parser.add_argument("--tls", metavar="CERTFILE", help="PEM file with certificate and private key")
    args = parser.parse_args()

    try:
        from pyftpdlib.authorizers import DummyAuthorizer
        from pyftpdlib.handlers import FTPHandler
        from pyftpdlib.servers import FTPServer
    except ImportError:
        fail("python module pyftpdlib is missing (%s); install python3-pyftpdlib" % sys.executable)

    base = FTPHandler
    if args.tls:
        try:
            from pyftpdlib.handlers import TLS_FTPHandler as base
        except ImportError:
            fail("pyftpdlib has no TLS support here; install python3-openssl")

    logging.basicConfig(level=logging.WARNING, stream=sys.stderr)

    class Handler(base):
        authorizer = DummyAuthorizer()
        # Below the ephemeral range, clear of vsftpd's 31000-31999.
        passive_ports = list(range(29000, 30000))
        # A wrong password is answered after this delay; the default of 3 s only slows tests down.
        auth_failed_timeout = 0.1

    Handler.authorizer.add_user(args.user, args.password, args.root, perm="elradfmwMT")
    if args.tls:
        Handler.certfile = args.tls
        # Plain logins keep working on the TLS server; the client chooses the upgrade.
        Handler.tls_control_required = False
        Handler.tls_data_required = False

    try:
        server = FTPServer(("127.0.0.1", 0), Handler)
    except Exception as error:  # a bad certificate shows up here
        fail("cannot start the server: %s" % error)

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

"""Loopback FTP server for the FTP client's tests.

Serves ROOT to one user, binds an ephemeral port on 127.0.0.1, prints "READY <port>" on standard
output once it accepts connections, and appends every command it receives (the password masked)
to COMMAND_LOG, so that the tests can see what actually went over the control connection.
Files whose names start with "full-" behave like a full disk after their first 50 bytes; a file
named "cutN-..." is sent only up to its Nth byte, after which reading it fails.
Stops by itself after a while in case the test that started it dies without killing it.
"""

import sys
import threading
import os

import errno
import re

from pyftpdlib.authorizers import DummyAuthorizer
from pyftpdlib.filesystems import AbstractedFS
from pyftpdlib.handlers import FTPHandler
from pyftpdlib.servers import FTPServer


class DiskFullFile:
    def __init__(self, file):
        self._file = file
        self._written = 0

    def write(self, data):
        self._written += len(data)
        if self._written > 50:
            raise OSError(errno.ENOSPC, "No space left on device")
        return self._file.write(data)

    def __getattr__(self, name):
        return getattr(self._file, name)


class CutFile:
    def __init__(self, file, cut):
        self._file = file
        self._left = cut

    def read(self, size=-1):
        if self._left <= 0:
            raise OSError(errno.EIO, "Input/output error")
        data = self._file.read(min(size, self._left) if size >= 0 else self._left)
        self._left -= len(data)
        return data

    def __getattr__(self, name):
        return getattr(self._file, name)


class TestFS(AbstractedFS):
    def open(self, filename, mode):
        file = super().open(filename, mode)
        name = os.path.basename(filename)
        if "w" in mode and name.startswith("full-"):
            return DiskFullFile(file)
        match = re.match(r"cut(\d+)-", name)
        if "r" in mode and match:
            return CutFile(file, int(match.group(1)))
        return file


def main():
    root, user, password, command_log = sys.argv[1:5]
    lifetime = float(sys.argv[5]) if len(sys.argv) > 5 else 300.0

    authorizer = DummyAuthorizer()
    authorizer.add_user(user, password, root, perm="elradfmwMT")

    class RecordingHandler(FTPHandler):
        def pre_process_command(self, line, cmd, arg):
            with open(command_log, "a") as log:
                log.write("PASS ******\n" if cmd == "PASS" else line + "\n")
            return super().pre_process_command(line, cmd, arg)

    RecordingHandler.authorizer = authorizer
    RecordingHandler.abstracted_fs = TestFS
    RecordingHandler.permit_foreign_addresses = False
    RecordingHandler.banner = "test server ready"
    RecordingHandler.auth_failed_timeout = 0.05  # no need to slow down the tests' guessing
    RecordingHandler.use_sendfile = False  # the "cut" files are read through their wrapper

    import logging
    logging.basicConfig(level=logging.CRITICAL)

    server = FTPServer(("127.0.0.1", 0), RecordingHandler)
    timer = threading.Timer(lifetime, lambda: os._exit(0))
    timer.daemon = True
    timer.start()
    print("READY %d" % server.address[1], flush=True)
    server.serve_forever(handle_exit=False)


if __name__ == "__main__":
    main()

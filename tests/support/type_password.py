#!/usr/bin/env python3
"""Runs a shell command on a terminal of its own and types a password whenever one is asked for.

usage: type_password.py PASSWORD COMMAND

Prints what the command writes and ends as it does. COMMAND is run by bash.
"""
import os
import pty
import select
import sys


def main():
    password, command = sys.argv[1:]
    read, write = os.pipe()
    child, terminal = pty.fork()
    if child == 0:
        os.dup2(write, 1)
        os.dup2(write, 2)
        os.closerange(3, 256)
        os.execvp("bash", ["bash", "-o", "pipefail", "-c", command])
    os.close(write)
    seen = b""
    open_ends = [terminal, read]
    while open_ends:
        for end in select.select(open_ends, [], [])[0]:
            try:
                got = os.read(end, 65536)
            except OSError:  # so says a terminal that nobody has open any more
                got = b""
            if not got:
                open_ends.remove(end)
            elif end == read:
                sys.stdout.buffer.write(got)
            else:  # what is asked comes on the terminal
                seen += got.lower()
                if b"passphrase" in seen and seen.rstrip().endswith(b":"):
                    seen = b""
                    os.write(terminal, password.encode() + b"\n")
    sys.stdout.flush()
    return os.waitstatus_to_exitcode(os.waitpid(child, 0)[1])


if __name__ == "__main__":
    sys.exit(main())

#!/usr/bin/python3
"""Runs a client program against a development host of its own that asks for an
access token (--token), as a host beyond loopback does: COMMAND gets the host's
URL and the token as its last two arguments. Exits with the program's status,
or 77 when the machine cannot run the host (no FUSE).

usage: run_client.py DEVHOST COMMAND [ARGUMENT...]"""
import os
import secrets
import subprocess
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "common"))
from devhost import Host  # noqa: E402 (found through the path above)


def main(executable, command):
    token = secrets.token_urlsafe(32)
    host = Host(executable, "--token", token)
    try:
        return subprocess.run([*command, host.url, token], timeout=90).returncode
    finally:
        host.stop()


if __name__ == "__main__":
    if len(sys.argv) < 3:
        sys.exit(__doc__)
    sys.exit(main(sys.argv[1], sys.argv[2:]))

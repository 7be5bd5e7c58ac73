#!/usr/bin/env python3
"""Runs a command while COM ports of the Wine prefix echo back whatever is written to them.

    tools/wine/with-echo-ports.py 5 12 -- tools/wine/wine-run.sh build-win/pelmo_win32_tests.exe

Each COM number gets a pseudo-terminal of its own, linked as $WINEPREFIX/dosdevices/com<n>; the
master side is kept in raw mode and copies every byte back. The command learns the wired ports
from PELMO_TEST_ECHO_PORTS ("5,12"). The links are removed afterwards and the command's exit
status is returned.
"""

import os
import pathlib
import pty
import selectors
import subprocess
import sys
import threading
import tty


def wine_prefix() -> pathlib.Path:
    here = pathlib.Path(__file__).resolve().parent
    out = subprocess.run([str(here / "wine-prefix.sh")], check=True, capture_output=True, text=True)
    return pathlib.Path(out.stdout.strip())


def echo(masters: list[int], stop: threading.Event) -> None:
    selector = selectors.DefaultSelector()
    for master in masters:
        selector.register(master, selectors.EVENT_READ)
    while not stop.is_set():
        for key, _ in selector.select(timeout=0.05):
            try:
                data = os.read(key.fd, 4096)
            except OSError:
                # EIO while no program holds the slave side open: nothing to echo yet.
                stop.wait(0.01)
                continue
            while data:
                data = data[os.write(key.fd, data):]


def main() -> int:
    args = sys.argv[1:]
    if "--" not in args:
        print(__doc__, file=sys.stderr)
        return 2
    split = args.index("--")
    ports, command = [int(n) for n in args[:split]], args[split + 1:]
    if not command or any(not 1 <= n <= 32 for n in ports):
        print(__doc__, file=sys.stderr)
        return 2

    dosdevices = wine_prefix() / "dosdevices"
    masters, slaves, links = [], [], []
    try:
        for number in ports:
            master, slave = pty.openpty()
            # Raw on both ends: no echo by the line discipline, no CR/LF translation.
            tty.setraw(master)
            tty.setraw(slave)
            masters.append(master)
            # The slave stays open here too, so the master never sees a hang-up between opens.
            slaves.append(slave)
            link = dosdevices / f"com{number}"
            if link.is_symlink() or link.exists():
                link.unlink()
            link.symlink_to(os.ttyname(slave))
            links.append(link)

        stop = threading.Event()
        thread = threading.Thread(target=echo, args=(masters, stop), daemon=True)
        thread.start()
        env = dict(os.environ, PELMO_TEST_ECHO_PORTS=",".join(str(n) for n in ports))
        try:
            return subprocess.run(command, env=env).returncode
        finally:
            stop.set()
            thread.join()
    finally:
        for link in links:
            link.unlink(missing_ok=True)
        for fd in masters + slaves:
            os.close(fd)


if __name__ == "__main__":
    sys.exit(main())

#!/usr/bin/env python3
"""pelmo over pseudo-terminals (and UDP beside them): several ports and a UDP device at once, COMn and
device paths, the port list, progress bars on a terminal and plain lines in a pipe, Ctrl+C."""

from __future__ import annotations

import fcntl
import os
import pty
import re
import select
import signal
import struct
import subprocess
import termios
import time
import unittest

import cli_e2e
from cli_e2e import FW_ADDRESS, UdpCliCase, firmware_image, stored_firmware

BOOT = ["--fw-address", hex(FW_ADDRESS), "--fw-max-size", "131072"]


class CliSerialSuite(UdpCliCase):
    @classmethod
    def setUpClass(cls) -> None:
        if cli_e2e.under_wine():
            raise unittest.SkipTest("pseudo-terminals are Linux's; the UDP suite runs under Wine")
        super().setUpClass()

    def test_serial_and_udp_targets_at_once(self):
        (com3, com3_path), (other, other_path) = self.pty_device("com3", *BOOT), self.pty_device("tty-b", *BOOT)
        udp, address = self.udp_device(0, *BOOT)
        image = firmware_image(12000)
        self.write("fw.bin", image)
        env = {"PELMO_COM3": str(com3_path)}
        targets = ["serial:COM3", f"serial:{other_path}", f"udp:{address}"]
        run = self.pelmo("--json", "--serial", f"com3,{other_path}", "--udp", address, "flash", "fw.bin", env=env)
        self.assertExit(run, 0)
        self.assertTargets(run, "flash", [(t, True) for t in targets])
        run = self.pelmo("--json", "--serial", f"COM3,{other_path}", "--udp", address, "read", "out.bin", env=env)
        self.assertExit(run, 0)
        files = [t["file"] for t in run.json()["targets"]]
        tag = re.sub(r"[^A-Za-z0-9._-]+", "-", str(other_path)).strip("-")
        self.assertEqual(["out.serial-COM3.bin", f"out.serial-{tag}.bin", f"out.udp-{address}.bin"], files)
        for name in files:
            self.assertEqual(stored_firmware(image), (self.folder / name).read_bytes(), name)
        for device in (com3, other, udp):
            self.assertIn("WRITE_FW", {name for name, _, _ in device.requests()})
        # The port list names the COM port the variable points at; it needs no target.
        run = self.pelmo("--json", "ports", env={"PELMO_COM7": str(other_path)})
        self.assertExit(run, 0)
        report = run.json()
        self.assertEqual(("ports", True), (report["command"], report["ok"]))
        self.assertIn("COM7", [port["com"] for port in report["ports"]], report)
        self.assertIn("COM7", self.pelmo("ports", env={"PELMO_COM7": str(other_path)}).out)

    def progress_run(self, *args: str, on_terminal: bool) -> tuple[subprocess.CompletedProcess, bytes, float]:
        """Runs pelmo with standard error on a pseudo-terminal of our own (or a pipe): what it wrote there."""
        argv = [*cli_e2e.Config.cli, *args]
        if not on_terminal:
            started = time.monotonic()
            done = subprocess.run(argv, cwd=self.folder, stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=60)
            return done, done.stderr, time.monotonic() - started
        main, side = pty.openpty()
        fcntl.ioctl(side, termios.TIOCSWINSZ, struct.pack("HHHH", 24, 160, 0, 0))
        started = time.monotonic()
        process = subprocess.Popen(argv, cwd=self.folder, stdout=subprocess.PIPE, stderr=side,
                                   stdin=subprocess.DEVNULL)
        os.close(side)
        written = b""
        while True:
            ready, _, _ = select.select([main], [], [], 60)
            try:
                chunk = os.read(main, 65536) if ready else b""
            except OSError:  # the program ended and the terminal hung up
                chunk = b""
            if not chunk:
                break
            written += chunk
        out, _ = process.communicate(timeout=10)
        os.close(main)
        return subprocess.CompletedProcess(argv, process.returncode, out), written, time.monotonic() - started

    def test_progress_on_a_terminal_and_in_a_pipe(self):
        # A paced serial line makes a 24 KiB flash take a few seconds: enough redraws to count.
        (_, path_a), (_, path_b) = (self.pty_device(name, "--baud-pace", *BOOT) for name in ("tty-a", "tty-b"))
        self.write("fw.bin", firmware_image(24576))
        args = ["--serial", f"{path_a},{path_b}", "flash", "fw.bin"]
        done, written, wall = self.progress_run(*args, on_terminal=True)
        self.assertEqual(0, done.returncode, written)
        frames = written.count(b"\x1b[2A") + 1
        self.assertGreater(frames, 10, written)
        self.assertLessEqual(frames, 20 * wall + 2, f"{frames} redraws in {wall:.1f} s")
        text = written.decode()
        self.assertRegex(text, r"write   \[#*\.*\] +\d+%  [\d.]+ KiB/s  ETA \d+:\d\d")
        self.assertTrue(text.rstrip("\r\n").endswith("done\x1b[K"), text[-200:])
        self.assertNotIn(b"\x1b", done.stdout)  # the results stay plain

        done, written, _ = self.progress_run(*args, on_terminal=False)
        self.assertEqual(0, done.returncode, written)
        lines = written.decode().splitlines()
        self.assertNotIn("\r", written.decode())
        self.assertNotIn("\x1b", written.decode())
        for path in (path_a, path_b):
            mine = [line for line in lines if line.startswith(f"serial:{path}: ")]
            self.assertEqual(len(mine), len(set(mine)), lines)
            self.assertIn(f"serial:{path}: write 24576 bytes", mine)

        done, written, _ = self.progress_run("--no-progress", *args, on_terminal=True)
        self.assertEqual((0, b""), (done.returncode, written))

    def test_ctrl_c_cancels_every_target(self):
        (_, path_a), (_, path_b) = (self.pty_device(name, "--baud-pace", *BOOT) for name in ("tty-a", "tty-b"))
        self.write("fw.bin", firmware_image(65536))
        process = subprocess.Popen([*cli_e2e.Config.cli, "--json", "--serial", f"{path_a},{path_b}", "flash",
                                    "fw.bin"], cwd=self.folder, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        time.sleep(1.5)
        started = time.monotonic()
        process.send_signal(signal.SIGINT)
        out, err = process.communicate(timeout=30)
        self.assertLess(time.monotonic() - started, 5)
        self.assertEqual(1, process.returncode, err)
        report = cli_e2e.json.loads(out)
        self.assertEqual([("cancelled", False)] * 2, [(t["result"], t["ok"]) for t in report["targets"]])
        self.assertIn(b"stopped by SIGINT; 2 target(s) cancelled", err)


if __name__ == "__main__":
    cli_e2e.main()

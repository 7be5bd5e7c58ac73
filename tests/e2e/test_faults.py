#!/usr/bin/env python3
"""PelmoWin against a lossy, late, noisy or failing device, against bad input and a user's faults: each run
either completes with the device holding the image byte for byte, or fails with the code and message its
fault allows, within the time its lost attempts imply and never by crashing; bad input files never reach
the device; a signal, a full disk or a closed console loses nothing the run could keep."""

from __future__ import annotations

import fcntl
import os
import pwd
import random
import resource
import signal
import struct
import subprocess
import sys
import termios
import time
import unittest
from functools import partial
from pathlib import Path

import pelmo_e2e
from expected import (BAD_PARAMS, BANNER, EMPTY_FACTORY, UDP_CHUNK, BootloaderValues, FactoryValues, Label,
                      calib_label, error, factory_listing, firmware_verify, firmware_write, line, ok, run_output,
                      single, step)
from pelmo_e2e import E2eCase, PtySerial, finish_program, start_program, under_wine
from samples import calibration_table, crc32_mpeg2, firmware_image, stored_firmware, write_bin

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "tools"))
from reliability import erase_write_verify, loss_options  # noqa: E402

# -ewv's steps: label, OK width, Error width.
EWV_STEPS = [(Label.ERASE_FW, 9, 14), (Label.WRITE_FW, 10, 14), (Label.VERIFY_FW, 9, 13)]

# (fault, device options, results allowed; 0 is success). Seeded, so every run repeats exactly.
FAULTS = [
    ("lost requests", ["--drop-requests", "8"], {0, -25}),
    ("lost answers", ["--drop-responses", "8"], {0, -25}),
    # A copy that comes after the program stopped listening answers its next request.
    ("answers twice", ["--duplicate", "30"], {0, -11}),
    ("late answers", ["--delay-ms", "25"], {0}),
    ("answers in two pieces", ["--split"], {0}),
    # Only silence is asked again: a broken answer ends the run with the decoder's -7.
    ("broken CRCs", ["--corrupt-crc", "3"], {0, -7}),
    ("device falls silent", ["--silent-after", "12"], {-25}),
    ("verify never answered", ["--silent-code", "VERIFY_FW"], {-25}),
]
UDP_FAULTS = [("stray datagrams", ["--stray-rate", "10"], {0, -11, -25})]


BOOT = BootloaderValues("Fault Boot", (2, 3), "Apr  4 2026", "10:11:12", 0x08000000, 1 << 20)
INTERRUPTED = "Interrupted: the run was stopped by signal {} ({})\n"
FW_INCOMPLETE = "The device's firmware is incomplete: write it again\n"


def memory_bound() -> None:
    """An input read without end fails its allocations here within a second, not at 16 GiB."""
    resource.setrlimit(resource.RLIMIT_AS, (256 << 20, 256 << 20))


def bounded_memory() -> dict:
    """Run options that bound the program's memory. A program built with the address sanitizer
    reserves terabytes of address space up front, so it is bounded by the sanitizer's own limit on
    resident memory instead; Wine manages its own address space and is left unbounded."""
    if under_wine():
        return {}
    if "ASAN_OPTIONS" in os.environ:
        return {"env": {"ASAN_OPTIONS": os.environ["ASAN_OPTIONS"] + ":hard_rss_limit_mb=256"}}
    return {"preexec_fn": memory_bound}


def ewv_output(code: int, text: str) -> str:
    """-ewv's console output: every step OK, or OK up to the step that failed (the last one shown)."""
    shown = sum(1 for label, _, _ in EWV_STEPS if "\r" + label in text)
    body = ""
    for index, (label, ok_width, error_width) in enumerate(EWV_STEPS[:shown]):
        if code == 0 or index < shown - 1:
            body += step(label, ok(ok_width))
        elif label == Label.VERIFY_FW and code == -11:
            body += step(label, "Error. FW is different\n")
        else:
            body += step(label, error(error_width))
    return run_output(body, code)


class FaultCases:
    link = ""
    extra_ms = 0  # the program's extra time-out
    fw_length = 16 * 1024
    faults = FAULTS

    def check_outcome(self, outcome, allowed: set[int], delay_s: float = 0.0) -> None:
        result = outcome.result
        self.assertIn(outcome.code, allowed, result.describe())
        self.assertRun(result, ewv_output(outcome.code, result.text), 0 if outcome.code == 0 else 255)
        # Once the write has ended (the verify step began) the device holds the image.
        if outcome.code == 0 or "\r" + Label.VERIFY_FW in result.text:
            self.assertTrue(outcome.identical, result.describe())
        # Every lost attempt costs its whole time-out, and nothing else waits long.
        self.assertGreaterEqual(result.wall_s, outcome.waited_s - 0.05, outcome.drops)
        slack = 3.0 + outcome.requests * (0.05 + delay_s)
        self.assertLessEqual(result.wall_s, outcome.waited_s + slack, outcome.drops)

    def test_faults(self):
        image = firmware_image(self.fw_length, seed=11)
        for name, options, allowed in self.faults:
            with self.subTest(fault=name):
                outcome = erase_write_verify(self.topology, self.link, self.folder, image,
                                             [*options, "--seed", "1"], self.extra_ms)
                delay = float(options[1]) / 1000 if options[0] == "--delay-ms" else 0.0
                self.check_outcome(outcome, allowed, delay)
                if -25 in allowed and 0 not in allowed:  # the stuck request went out three times
                    self.assertEqual(3, len(outcome.drops), outcome.drops)
                    self.assertEqual(1, len({request for request, _ in outcome.drops}), outcome.drops)


class SerialFaults(FaultCases, E2eCase):
    link = "serial"

    @classmethod
    def setUpClass(cls) -> None:
        pelmo_e2e.require_program()
        pelmo_e2e.require_device()

    def setUp(self) -> None:
        super().setUp()
        self.topology = PtySerial(self.folder)
        self.topology.setup()
        self.addCleanup(self.topology.teardown)


class SerialUserFaults(pelmo_e2e.PtyCase):
    """A user's run stopped by a signal, or given up, must leave the port as it found it: openable by
    ordinary users, its line settings back, and no late answer waiting to be taken by the next run."""

    def setUp(self) -> None:
        super().setUp()
        self.dev = self.device(*BOOT.options(), "--erase-ms", "800")
        self.pty = os.path.realpath(self.topology.link)

    def on_port(self, action, flags: int = os.O_NONBLOCK):
        port = os.open(self.pty, os.O_RDWR | os.O_NOCTTY | flags)
        try:
            return action(port)
        finally:
            os.close(port)

    def line_settings(self, terminal: bool = False) -> list:
        """The port's line settings; with `terminal`, first as a terminal leaves them (9600, flow control, output
        processing): nothing the program would set itself."""
        def read(port: int) -> list:
            if terminal:
                iflag, oflag, cflag, lflag, _, _, chars = termios.tcgetattr(port)
                termios.tcsetattr(port, termios.TCSANOW, [iflag | termios.IXON, oflag | termios.OPOST, cflag, lflag,
                                                          termios.B9600, termios.B9600, chars])
            return termios.tcgetattr(port)
        return self.on_port(read)

    def until(self, ready, what: str) -> None:
        deadline = time.monotonic() + 10
        while not ready():
            self.assertLess(time.monotonic(), deadline, what)
            time.sleep(0.01)

    def await_late_answer(self) -> None:
        """Until the answer to a request of a run that has ended waits in the port."""
        unread = partial(self.on_port, lambda port: struct.unpack("i", fcntl.ioctl(port, termios.FIONREAD, b"1234"))[0])
        self.until(lambda: unread() >= 12, "no late answer came")

    def check_next_run(self, **popen) -> None:
        self.dev.new_requests()  # the earlier run's
        result = self.run_pelmo("-io", **popen)
        self.assertRun(result, run_output(step(Label.BOOT_INFO, ok(14)) + BOOT.display(), 0), 0)
        self.assertSent(self.dev, single("BOOTLOADER_INFO"))

    def test_a_signal_releases_the_port(self):
        if under_wine() or os.geteuid() != 0:
            raise unittest.SkipTest("POSIX signals, and root to hand the port to an ordinary user")
        self.folder.chmod(0o755)
        os.chmod(self.pty, 0o666)
        write_bin(self.folder / "fw.bin", firmware_image(16 * 1024))
        rows = [
            # (signal, arguments, the request (its log line) it comes during, the step shown, firmware left incomplete)
            (signal.SIGINT, ["-ewv", "fw.bin"], "rx ERASE_FW addr=0x00000000 len=0", Label.ERASE_FW, True),
            (signal.SIGTERM, ["-w", "fw.bin"], "rx WRITE_FW addr=0x00000000 len=240", Label.WRITE_FW, True),
            (signal.SIGHUP, ["-ef"], "rx ERASE_FACTORY addr=0x00000000 len=0", Label.ERASE_FACTORY, False),
        ]
        for number, args, request, label, incomplete in rows:
            with self.subTest(signal=number.name):
                settings = self.line_settings(terminal=True)
                seen = self.dev.log_lines().count(request)
                process = start_program(self.topology, [self.topology.connection, *args], self.folder)
                self.until(lambda: self.dev.log_lines().count(request) > seen, f"the device never got {request}")
                process.send_signal(number)
                result = finish_program(process)
                said = INTERRUPTED.format(int(number), number.name) + (FW_INCOMPLETE if incomplete else "")
                self.assertRun(result, BANNER + "\r" + label + "\n" + said, 255)
                self.assertEqual(settings, self.line_settings())
                if "ERASE" in request:  # answered only after --erase-ms
                    self.await_late_answer()
                self.check_next_run(user="nobody", group=pwd.getpwnam("nobody").pw_gid, extra_groups=[])
                self.assertEqual(settings, self.line_settings())

    def test_a_late_answer_left_in_the_port_is_not_taken(self):
        # A run that gave up on its erase before the device answered.
        request = bytes([0xB5, 0x44, 0, 0, 0, 0, 0, 0])
        self.on_port(lambda port: os.write(port, request + crc32_mpeg2(request).to_bytes(4, "little")), 0)
        self.await_late_answer()
        self.check_next_run()


class UdpFaults(FaultCases, pelmo_e2e.UdpCase):
    link = "udp"
    extra_ms = 250  # a lost verify block costs 250 ms instead of 2 s, ten times a late answer
    faults = FAULTS + UDP_FAULTS

    def test_two_percent_loss_on_a_256_kib_image(self):
        # One run of tools/reliability.py's series: about 20 lost attempts, each sat out in full.
        image = firmware_image(256 * 1024, seed=256 * 1024)
        outcome = erase_write_verify(self.topology, self.link, self.folder, image, loss_options(2, 1),
                                     self.extra_ms)
        self.check_outcome(outcome, {0})
        self.assertGreater(len(outcome.drops), 5, "the link lost hardly anything")

    def test_output_that_fails_after_opening_fails_the_run(self):
        if under_wine():
            raise unittest.SkipTest("/dev/full is a Linux device")
        folder = self.folder
        stored = write_bin(folder / "stored.bin", stored_firmware(firmware_image(40 * 1024, seed=5)))
        cal = write_bin(folder / "cal.bin", calibration_table(600))
        self.device("--fw-max-size", str(1 << 20), "--load-firmware", str(stored), "--load-calib", str(cal))
        cases = [
            (["-r", "/dev/full"], step(Label.READ_FW, ok(10))),
            (["-rc", "/dev/full"], step(calib_label("Reading", False), ok(11))),
            (["-rf", "/dev/full"], step(Label.READ_FACTORY, ok(12)) + factory_listing(EMPTY_FACTORY)),
        ]
        tiny = folder / "tiny"
        tiny.mkdir()
        mount = ["mount", "-t", "tmpfs", "-o", "size=32k", "tiny", str(tiny)]
        if os.geteuid() == 0 and subprocess.run(mount, timeout=10).returncode == 0:
            self.addCleanup(subprocess.run, ["umount", str(tiny)], timeout=10)
            cases.append((["-r", "tiny/fw.bin"], step(Label.READ_FW, ok(10))))  # 32 KiB of the 40 fit
        for args, body in cases:
            with self.subTest(args=args):
                self.expect(self.run_pelmo(*args), body + f"Error writing file {args[1]}\n", -1)
        self.assertEqual([], list(tiny.iterdir()))
        self.assertTrue(Path("/dev/full").is_char_device())

    def test_a_closed_console_does_not_stop_a_flash(self):
        device = self.device("--fw-max-size", str(1 << 20), "--erase-ms", "300")
        image = write_bin(self.folder / "fw.bin", firmware_image(64 * 1024, seed=6)).read_bytes()
        process = start_program(self.topology, [self.topology.connection, "-ewv", "fw.bin"], self.folder)
        self.assertEqual(BANNER.encode()[:BANNER.index("\n") + 1], process.stdout.readline())
        process.stdout.close()  # as `| head -n 1` does
        self.assertEqual(0, process.wait(timeout=60))
        self.assertSent(device, single("ERASE_FW") + firmware_write(len(image), UDP_CHUNK)
                        + firmware_verify(len(image), UDP_CHUNK))

    def test_bad_files_never_reach_the_device(self):
        device = self.device("--fw-max-size", str(1 << 20))
        folder = self.folder
        (folder / "dir.bin").mkdir()
        (folder / "dir.txt").mkdir()
        write_bin(folder / "empty.bin", b"")
        write_bin(folder / "empty.txt", b"")
        garbage = random.Random(3).randbytes(4096).replace(b"\n", b" ")
        write_bin(folder / "garbage.hex", garbage)
        write_bin(folder / "garbage.txt", garbage)
        write_bin(folder / "huge.bin", calibration_table((1 << 20) + 1))
        write_bin(folder / "huge.txt", b"x" * ((1 << 20) + 1))
        long_name = "n" * 300 + ".bin"
        deep_name = "d" * 120 + "/" + "é" * 60 + ".bin"  # 246 bytes: longer than 127, yet a good path
        (folder / deep_name).parent.mkdir()
        write_bin(folder / deep_name, firmware_image(512))
        foreign = "prošivka-固件.bin"
        for name in ("zero.txt", "zero.bin", "zero.hex"):  # endless inputs
            (folder / name).symlink_to("/dev/zero")

        def shown(name: str) -> str:  # the name as the console shows its bytes
            return name.encode().decode("latin-1")

        empty_table = factory_listing(FactoryValues(type="", sn="", hw=0, modif=0, mac=(0,) * 6, ip_addr=(0,) * 4,
                                                    ip_mask=(0,) * 4, ip_gtw=(0,) * 4))
        parse_error = line("Parsing factory table file error") + empty_table
        boot_info = step(Label.BOOT_INFO, ok(14))
        cases = [
            # (arguments, console body, result, requests that reached the device)
            (["-w", "missing.bin"], "Error while opening file missing.bin\n", -1, []),
            # A directory cannot be read: on Linux it opens, the read fails.
            (["-w", "dir.bin"], "Error while opening file dir.bin\n", -1, []),
            (["-wc", "dir.bin"], "Error while opening file dir.bin\n", -1, []),
            (["-ewvc", "dir.bin"], "\r" + error(13), -1, []),
            (["-wf", "dir.txt"], parse_error, -14, []),
            (["-w", "empty.bin"], "", -1, []),
            (["-wf", "empty.txt"], parse_error, -14, []),
            (["-vf", "garbage.txt"], parse_error, -14, []),
            (["-wf", "huge.txt"], parse_error, -14, []),
            (["-wc", "huge.bin"], "File huge.bin is larger than 1048576 bytes\n", -1, []),
            (["-ewvb", "huge.bin"], "File huge.bin is larger than 1048576 bytes\n", -1, []),
            # HEX records need the firmware's address: the bootloader is asked before the first line.
            (["-w", "garbage.hex"], boot_info, -1, [("BOOTLOADER_INFO", 0, 0)]),
            (["-ewvf", "zero.txt"], "File zero.txt is larger than 2097152 bytes\n", -1, []),
            (["-wc", "zero.bin"], "File zero.bin is larger than 1048576 bytes\n", -1, []),
            (["-w", "zero.hex"], boot_info, -1, [("BOOTLOADER_INFO", 0, 0)]),
            (["-w", long_name], f"Error while opening file {long_name}\n", -1, []),
            (["-v", foreign], f"Error while opening file {shown(foreign)}\n", -1, []),
            (["-w", deep_name], step(Label.WRITE_FW, ok(10)), 0, None),
        ]
        if os.geteuid() != 0:  # root reads any file whatever its mode
            write_bin(folder / "locked.bin", b"\x01").chmod(0)
            cases.append((["-wc", "locked.bin"], "Error while opening file locked.bin\n", -1, []))
        for args, body, code, sent in cases:
            with self.subTest(args=args):
                self.expect(self.run_pelmo(*args, **bounded_memory()), body, code)
                if sent is None:
                    device.new_requests()
                else:
                    self.assertSent(device, sent)

    def test_hostile_arguments_print_the_usage_or_fail_to_open(self):
        cases = [
            (["-" + "e" * 100000], BAD_PARAMS),
            (["-ëwv", "fw.bin"], BAD_PARAMS),
            (["#1.2.3.4", "*99999999999999999999", "-" + "\x7f"], BAD_PARAMS),
            # The port number saturates: no such port.
            (["@99999999999999999999", "-io"], BANNER + "illegal comport number\nCan not open comport\n"),
            (["@17", "-i"], BANNER + "illegal comport number\nCan not open comport\n"),
        ]
        for args, output in cases:
            with self.subTest(args=[a[:20] for a in args]):
                self.assertRun(self.run_pelmo(*args, connect=False), output, 255)

    def expect(self, result, body: str, code: int) -> None:
        self.assertRun(result, run_output(body, code), 255 if code < 0 else 0)


if __name__ == "__main__":
    pelmo_e2e.main()

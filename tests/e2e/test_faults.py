#!/usr/bin/env python3
"""PelmoWin against a lossy, late, noisy or failing device, and against bad input: each run either
completes with the device holding the image byte for byte, or fails with the code and message its
fault allows, within the time its lost attempts imply and never by crashing; bad input files never
reach the device."""

from __future__ import annotations

import os
import random
import sys
from pathlib import Path

import pelmo_e2e
from expected import BAD_PARAMS, BANNER, FactoryValues, Label, error, factory_listing, line, ok, run_output, step
from pelmo_e2e import E2eCase, PtySerial
from samples import calibration_table, firmware_image, write_bin

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
            (["-w", long_name], f"Error while opening file {long_name}\n", -1, []),
            (["-v", foreign], f"Error while opening file {shown(foreign)}\n", -1, []),
            (["-w", deep_name], step(Label.WRITE_FW, ok(10)), 0, None),
        ]
        if os.geteuid() != 0:  # root reads any file whatever its mode
            write_bin(folder / "locked.bin", b"\x01").chmod(0)
            cases.append((["-wc", "locked.bin"], "Error while opening file locked.bin\n", -1, []))
        for args, body, code, sent in cases:
            with self.subTest(args=args):
                self.expect(self.run_pelmo(*args), body, code)
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

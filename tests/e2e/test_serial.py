#!/usr/bin/env python3
"""PelmoWin against pelmo-device over a real pseudo-terminal opened as COM3: the serial link's
block sizes and time-outs, and the port's own failures."""

from __future__ import annotations

import fcntl
import os
import pelmo_e2e
import wire
from expected import BANNER, Label, bootloader_info_display, BootloaderValues, control_display, error, line, ok, step
from pelmo_e2e import E2eCase, PtySerial
from samples import firmware_image, write_bin
from scenarios import CalibrationScenarios, FactoryScenarios, FirmwareScenarios

BOOTLOADER = BootloaderValues(
    name="Serial Boot", major=1, minor=9, date="Mar  3 2026", time="23:59:58",
    fw_address=0x08004000, fw_max_size=0x20000,
)
BOOTLOADER_OPTIONS = [
    "--fw-address", hex(BOOTLOADER.fw_address),
    "--fw-max-size", str(BOOTLOADER.fw_max_size),
    "--bl-name", BOOTLOADER.name,
    "--bl-version", f"{BOOTLOADER.major}.{BOOTLOADER.minor}",
    "--bl-date", BOOTLOADER.date,
    "--bl-time", BOOTLOADER.time,
]


class SerialSuite(FirmwareScenarios, CalibrationScenarios, FactoryScenarios, E2eCase):
    chunk = wire.SERIAL_CHUNK
    fw_length = 1000  # blocks of 240 at 0, 240, 480, 720 and one of 40 at 960

    @classmethod
    def setUpClass(cls) -> None:
        pelmo_e2e.require_program()
        pelmo_e2e.require_device()

    def setUp(self) -> None:
        super().setUp()
        self.topology = PtySerial(self.folder)
        self.topology.setup()
        self.addCleanup(self.topology.teardown)

    def device(self, *options: str):
        return super().device(*BOOTLOADER_OPTIONS, *options)

    def test_information_and_control(self):
        device = self.device()
        sessions = [
            (["-io"], step(Label.BOOT_INFO, ok(14)) + bootloader_info_display(BOOTLOADER), "BOOTLOADER_INFO"),
            (["-rst"], step(Label.RESTART, ok(12)), "RESTART"),
            (["-rctrl"], step(Label.READ_CTRL, ok(14)) + control_display(1, 1), "READ_CONTROL"),
            (["-ectrl"], step(Label.CLEAR_CTRL, ok(12)), "CLEAR_CONTROL"),
        ]
        for args, body, name in sessions:
            with self.subTest(args=args):
                self.expect(self.run_pelmo(*args), body, 0)
                self.assertSent(device, wire.single(name))

    def test_line_timing_and_wrong_answers(self):
        image = firmware_image(self.fw_length, seed=9)
        write_bin(self.folder / "fw.bin", image)
        boot_ok = step(Label.BOOT_INFO, ok(14)) + bootloader_info_display(BOOTLOADER)
        cases = [
            # (device options, arguments, console body, result, requests sent)
            # Answers paced like a real 115200 8N1 line still fit the waits.
            (["--baud-pace"], ["-ewv", "fw.bin"],
             step(Label.ERASE_FW, ok(9)) + step(Label.WRITE_FW, ok(10)) + step(Label.VERIFY_FW, ok(9)), 0,
             wire.single("ERASE_FW") + wire.firmware_write(len(image), self.chunk)
             + wire.firmware_verify(len(image), self.chunk)),
            (["--baud-pace"], ["-io"], boot_ok, 0, wire.single("BOOTLOADER_INFO")),
            # An answer written in two pieces is joined within the quiet time.
            (["--split", "--split-gap-ms", "60"], ["-io"], boot_ok, 0, wire.single("BOOTLOADER_INFO")),
            # A broken answer is not asked for again.
            (["--corrupt-crc-code", "0x2F"], ["-io"], step(Label.BOOT_INFO, error(14)), -7,
             wire.single("BOOTLOADER_INFO")),
            (["--status", "0x84=0x02"], ["-w", "fw.bin"], step(Label.WRITE_FW, error(10)), -254,
             [("BEGIN_WRITE", 0, 0), ("WRITE_FW", 0, 240)]),
        ]
        for options, args, body, code, sent in cases:
            with self.subTest(options=options, args=args):
                device = pelmo_e2e.Device(self.topology, self.folder, [*BOOTLOADER_OPTIONS, *options])
                with device:
                    self.expect(self.run_pelmo(*args), body, code)
                    self.assertSent(device, sent)

    def test_silent_device_with_the_default_time_out(self):
        device = self.device("--silent-first", "3")
        result = self.run_pelmo("-i")
        self.expect(result, step(Label.FW_INFO, error(14)) + line("\nReceive timeout"), -25)
        self.assertSent(device, wire.single("FW_INFO") * 3)
        # Each attempt gives up at its 25th empty poll (250 ms counted in 10 ms steps); the 24
        # polls before it each sleep 10 ms and show the progress once.
        self.assertEqual(3 * 24, len(result.progress), result.describe())
        self.assertEqual({("", 0)}, set(result.progress), result.describe())
        self.assertGreaterEqual(result.wall_s, 0.72, result.describe())
        self.assertLess(result.wall_s, 5.0, result.describe())

    def test_port_that_cannot_be_opened(self):
        missing = str(self.folder / "no-such-port")
        cases = [
            # (arguments, environment, message of the serial transport)
            (["@3", "-io"], {"PELMO_COM3": missing}, "unable to open comport"),
            (["@17", "-io"], {}, "illegal comport number"),
        ]
        for args, env, message in cases:
            with self.subTest(args=args):
                result = pelmo_e2e.run_program(None, args, self.folder, env=env)
                self.assertRun(result, BANNER + line(message) + line("Can not open comport"), 255)

    def test_port_held_by_another_program(self):
        if any("wine" in part for part in pelmo_e2e.Config.program):
            self.skipTest("Wine does not refuse a second open of a port")
        device = self.device()
        holder = os.open(self.topology.link, os.O_RDWR | os.O_NOCTTY | os.O_NONBLOCK)
        self.addCleanup(os.close, holder)
        fcntl.flock(holder, fcntl.LOCK_EX | fcntl.LOCK_NB)
        result = self.run_pelmo("-io")
        self.assertRun(result, BANNER + line("unable to open comport") + line("Can not open comport"), 255)
        self.assertSent(device, [])


if __name__ == "__main__":
    pelmo_e2e.main()

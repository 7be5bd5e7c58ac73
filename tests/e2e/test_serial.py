#!/usr/bin/env python3
"""PelmoWin against pelmo-device over a pseudo-terminal as COM3: block size, pacing, time-outs, open failure."""

from __future__ import annotations

import pelmo_e2e
from expected import (BANNER, SERIAL_CHUNK, BootloaderValues, Label, calib_label, calibration, error,
                      firmware_verify, firmware_write, line, ok, single, step)
from pelmo_e2e import Device, PtyCase
from samples import bin_to_hex, calibration_table, firmware_image, write_bin

BOOT = BootloaderValues("Serial Boot", (1, 9), "Mar  3 2026", "23:59:58", 0x08004000, 0x20000)
EWV = step(Label.ERASE_FW, ok(9)) + step(Label.WRITE_FW, ok(10)) + step(Label.VERIFY_FW, ok(9))


class SerialSuite(PtyCase):
    def test_operations_and_line_faults(self):
        image = firmware_image(1000, seed=9)  # blocks of 240 and one of 40
        bin_to_hex(write_bin(self.folder / "fw.bin", image), self.folder / "fw.hex", BOOT.fw_address)
        cal = write_bin(self.folder / "cal.bin", calibration_table(600)).read_bytes()
        ewv_sent = single("ERASE_FW") + firmware_write(1000, SERIAL_CHUNK) + firmware_verify(1000, SERIAL_CHUNK)
        boot_ok = step(Label.BOOT_INFO, ok(14))
        cases = [
            # (device options, arguments, console body, result, requests sent); no options: one device
            ([], ["-ewv", "fw.hex"], boot_ok + EWV, 0, single("BOOTLOADER_INFO") + ewv_sent),
            ([], ["-wb", "cal.bin"], step(calib_label("Writing", True), ok(13)), 0,
             calibration("WRITE", 600, SERIAL_CHUNK, True)),
            ([], ["-rb", "out.bin"], step(calib_label("Reading", True), ok(11)), 0,
             calibration("READ", 600, SERIAL_CHUNK, True)),
            # Answers paced like a real 115200 8N1 line still fit the waits.
            (["--baud-pace"], ["-ewv", "fw.bin"], EWV, 0, ewv_sent),
            # An answer written in two pieces is joined within the quiet time.
            (["--split", "--split-gap-ms", "60"], ["-io"], boot_ok + BOOT.display(), 0, single("BOOTLOADER_INFO")),
            # A broken answer is not asked for again.
            (["--corrupt-crc-code", "0x2F"], ["-io"], step(Label.BOOT_INFO, error(14)), -7, single("BOOTLOADER_INFO")),
        ]
        shared = self.device(*BOOT.options())
        for options, args, body, code, sent in cases:
            with self.subTest(options=options, args=args):
                if not options:
                    self.check(shared, args, body, code, sent)
                    continue
                shared.stop()
                with Device(self.topology, self.folder, [*BOOT.options(), *options]) as own:
                    self.check(own, args, body, code, sent)
        self.assertEqual(cal, (self.folder / "out.bin").read_bytes())

    def test_silent_device(self):
        device = self.device("--silent-first", "3")
        result = self.check(device, ["-i"], step(Label.FW_INFO, error(14)) + line("\nReceive timeout"), -25,
                            single("FW_INFO") * 3)
        # Each attempt gives up at its 25th empty poll (250 ms in 10 ms steps); the 24 polls before
        # it each sleep 10 ms and show the progress, still without a label.
        self.assertEqual([("", 0)] * 72, result.progress, result.describe())
        self.assertGreaterEqual(result.wall_s, 0.72, result.describe())

    def test_port_that_cannot_be_opened(self):
        result = self.run_pelmo("-io", env={"PELMO_COM3": str(self.folder / "no-such-port")})
        self.assertRun(result, BANNER + line("unable to open comport") + line("Can not open comport"), 255)


if __name__ == "__main__":
    pelmo_e2e.main()

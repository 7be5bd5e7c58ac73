"""Scenarios that run on either link. A suite combines the mixins it wants with `E2eCase` and
sets the link's sizes: `chunk` (payload bytes per data frame) and `fw_length` (sample image)."""

from __future__ import annotations

import wire
from expected import (
    FactoryValues,
    FirmwareHeader,
    Label,
    calib_label,
    error,
    factory_file,
    factory_listing,
    firmware_info_display,
    line,
    ok,
    run_output,
    step,
    exit_status,
)
from samples import (
    calibration_table,
    crc32_mpeg2,
    factory_text,
    firmware_image,
    stored_firmware,
    write_bin,
)


class LinkSizes:
    chunk = 0
    fw_length = 0

    def expect(self, result, body: str, code: int) -> None:
        """The run printed the banner, `body`, the closing lines of result `code`, and exited
        with the matching status."""
        self.assertRun(result, run_output(body, code), exit_status(code))


class FirmwareScenarios(LinkSizes):
    def test_firmware_erase_write_verify_info_read(self):
        device = self.device()
        image = firmware_image(self.fw_length, FirmwareHeader())
        write_bin(self.folder / "fw.bin", image)

        self.expect(self.run_pelmo("-e"), step(Label.ERASE_FW, ok(10)), 0)
        self.assertSent(device, wire.single("ERASE_FW"))

        # An erased firmware area holds no valid header.
        self.expect(
            self.run_pelmo("-i"),
            step(Label.FW_INFO, error(14)) + line("Firmware is not valid, invalid FW header"),
            -6,
        )
        self.assertSent(device, wire.single("FW_INFO"))

        self.expect(self.run_pelmo("-w", "fw.bin"), step(Label.WRITE_FW, ok(10)), 0)
        self.assertSent(device, wire.firmware_write(len(image), self.chunk))

        self.expect(self.run_pelmo("-v", "fw.bin"), step(Label.VERIFY_FW, ok(10)), 0)
        self.assertSent(device, wire.firmware_verify(len(image), self.chunk))

        info = self.run_pelmo("-i")
        self.expect(
            info,
            step(Label.FW_INFO, ok(14))
            + firmware_info_display(FirmwareHeader(), len(image), crc32_mpeg2(image[8:])),
            0,
        )
        # The request goes out before the step's label is set: progress shows the empty label.
        self.assertTrue(info.progress, info.describe())
        self.assertEqual({""}, {label for label, _ in info.progress}, info.describe())
        self.assertSent(device, wire.single("FW_INFO"))

        self.expect(self.run_pelmo("-r", "out.bin"), step(Label.READ_FW, ok(10)), 0)
        self.assertEqual(stored_firmware(image), (self.folder / "out.bin").read_bytes())
        self.assertSent(device, wire.chunked_read("READ_FW", len(image), self.chunk))

    def test_erase_write_verify_of_debug_build_then_differing_images(self):
        device = self.device()
        header = FirmwareHeader(name="DebugBuild", major=2, minor=7, patch=41, debug=True)
        image = firmware_image(self.fw_length, header, seed=5)
        write_bin(self.folder / "debug.bin", image)

        self.expect(
            self.run_pelmo("-EWV", "debug.bin"),
            step(Label.ERASE_FW, ok(9)) + step(Label.WRITE_FW, ok(10)) + step(Label.VERIFY_FW, ok(9)),
            0,
        )
        self.assertSent(
            device,
            wire.single("ERASE_FW")
            + wire.firmware_write(len(image), self.chunk)
            + wire.firmware_verify(len(image), self.chunk),
        )
        self.expect(
            self.run_pelmo("-i"), step(Label.FW_INFO, ok(14)) + firmware_info_display(header, 0, 0), 0
        )
        device.new_requests()

        # Bytes 0 to 7 are the device's (size and CRC): they are never compared.
        head_changed = bytes(8) + image[8:]
        write_bin(self.folder / "head.bin", head_changed)
        self.expect(self.run_pelmo("-v", "head.bin"), step(Label.VERIFY_FW, ok(10)), 0)
        device.new_requests()

        # A difference in the last byte: every block is compared, the last one fails.
        tail_changed = image[:-1] + bytes([image[-1] ^ 0x5A])
        write_bin(self.folder / "tail.bin", tail_changed)
        self.expect(
            self.run_pelmo("-v", "tail.bin"),
            step(Label.VERIFY_FW, error(10)) + line("FW is different"),
            -11,
        )
        self.assertSent(device, wire.firmware_verify(len(image), self.chunk))


class CalibrationScenarios(LinkSizes):
    calib_length = 600

    def _calibration_session(self, backup: bool) -> None:
        device = self.device()
        flag = "b" if backup else "c"
        data = calibration_table(self.calib_length, seed=11 if backup else 12)
        write_bin(self.folder / "cal.bin", data)
        write_bin(self.folder / "other.bin", data[:-1] + bytes([data[-1] ^ 1]))
        write_bin(self.folder / "empty.bin", b"")

        def label(action: str) -> str:
            return calib_label(action, backup)

        sessions = [
            # (arguments, expected console body, result, expected requests)
            ([f"-w{flag}", "cal.bin"], step(label("Writing"), ok(13)), 0,
             wire.calibration_write(len(data), self.chunk, backup)),
            ([f"-v{flag}", "cal.bin"], step(label("Verificating"), ok(8)), 0,
             wire.calibration_verify(len(data), self.chunk, backup)),
            ([f"-r{flag}", "out.bin"], step(label("Reading"), ok(11)), 0,
             wire.calibration_read(len(data), self.chunk, backup)),
            ([f"-v{flag}", "other.bin"],
             step(label("Verificating"), error(11)) + line("Calibration table is different"), -11,
             wire.calibration_verify(len(data), self.chunk, backup)),
            ([f"-e{flag}"], step(label("Erasing"), ok(11)), 0, wire.calibration_erase(backup)),
            ([f"-r{flag}", "erased.bin"], step(label("Reading"), ok(11)), 0,
             wire.calibration_read(0, self.chunk, backup)),
            ([f"-ewv{flag}", "cal.bin"],
             step(label("Erasing"), ok(10)) + step(label("Writing"), ok(10))
             + step(label("Verificating"), ok(10)), 0,
             wire.calibration_erase(backup) + wire.calibration_write(len(data), self.chunk, backup)
             + wire.calibration_verify(len(data), self.chunk, backup)),
            # Empty files: the write still opens and closes the table, the verify sends nothing.
            ([f"-w{flag}", "empty.bin"], step(label("Writing"), ok(13)), 0,
             wire.calibration_write(0, self.chunk, backup)),
            ([f"-v{flag}", "empty.bin"], step(label("Verificating"), ok(8)), 0, []),
            ([f"-w{flag}", "missing.bin"], "Error while opening file missing.bin\n", -1, []),
            ([f"-v{flag}", "missing.bin"], "Error while opening file missing.bin\n", -1, []),
            # The combined operation reports a missing file as a bare Error status.
            ([f"-ewv{flag}", "missing.bin"], "\r" + error(13), -1, []),
        ]
        for args, body, code, sent in sessions:
            with self.subTest(args=args):
                self.expect(self.run_pelmo(*args), body, code)
                self.assertSent(device, sent)
        self.assertEqual(data, (self.folder / "out.bin").read_bytes())
        self.assertEqual(b"", (self.folder / "erased.bin").read_bytes())

    def test_calibration_table(self):
        self._calibration_session(backup=False)

    def test_calibration_backup_table(self):
        self._calibration_session(backup=True)


class FactoryScenarios(LinkSizes):
    def test_factory_table_round_trip(self):
        device = self.device()
        values = FactoryValues()
        (self.folder / "factory.txt").write_text(factory_text(values))
        listing = factory_listing(values)

        self.expect(
            self.run_pelmo("-ewvf", "factory.txt"),
            listing + step(Label.ERASE_FACTORY, ok(10)) + step(Label.WRITE_FACTORY, ok(10))
            + step(Label.VERIFY_FACTORY, ok(10)),
            0,
        )
        self.assertSent(device, wire.FACTORY_ERASE + wire.FACTORY_WRITE + wire.FACTORY_VERIFY)

        self.expect(self.run_pelmo("-rf", "read.txt"), step(Label.READ_FACTORY, ok(12)) + listing, 0)
        self.assertEqual(factory_file(values), (self.folder / "read.txt").read_text())
        self.assertSent(device, wire.chunked_read("READ_FACTORY", wire.FACTORY_SIZE, self.chunk))

        # The file the program wrote is valid input again.
        self.expect(self.run_pelmo("-vf", "read.txt"), listing + step(Label.VERIFY_FACTORY, ok(11)), 0)
        self.assertSent(device, wire.FACTORY_VERIFY)

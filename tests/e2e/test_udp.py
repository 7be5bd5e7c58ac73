#!/usr/bin/env python3
"""PelmoWin against pelmo-device over UDP: all 25 operations, the device's failures and bad input, by console
bytes, exit status, files written and the requests the device got."""

from __future__ import annotations

from functools import partial

import pelmo_e2e
from expected import (UDP_CHUNK, BootloaderValues, FactoryValues, FirmwareHeader, Label, calib_label,
                      calibration, chunked_read, control_display, error, factory_file, factory_listing,
                      FACTORY_VERIFY, FACTORY_WRITE, firmware_info_display, firmware_verify, firmware_write, line,
                      ok, single, step)
from pelmo_e2e import Device
from samples import (HEX_EOF, bin_to_hex, calibration_table, crc32_mpeg2, factory_text, firmware_image, hex_record,
                     stored_firmware, write_bin, write_files)

FW_ADDRESS, FW_MAX_SIZE = 0x08000000, 0x10000  # a small area: a HEX file reaches past it cheaply
BOOT = BootloaderValues("Test Boot UDP", (3, 5), "Feb  2 2026", "08:09:10", FW_ADDRESS, FW_MAX_SIZE)
BOOT_OK = step(Label.BOOT_INFO, ok(14))  # how a HEX file's operation begins
EWV = step(Label.ERASE_FW, ok(9)) + step(Label.WRITE_FW, ok(10)) + step(Label.VERIFY_FW, ok(9))
FACTORY = FactoryValues()
LISTING = factory_listing(FACTORY)
NOT_OPENED = "Error while opening file {}\n"


class UdpSuite(pelmo_e2e.UdpCase):
    def run_table(self, device: Device, cases: list[tuple]) -> None:
        for args, body, code, sent in cases:
            with self.subTest(args=args):
                self.check(device, args, body, code, sent)

    def test_every_operation(self):
        device = self.device(*BOOT.options())
        image, cal = firmware_image(4096), calibration_table(600)
        debug = FirmwareHeader(name="HexFW", major=2, minor=7, patch=41, debug=True)
        bin_to_hex(write_bin(self.folder / "fw.raw", firmware_image(3000, debug)), self.folder / "fw.hex", FW_ADDRESS)
        other = FactoryValues(type="Other", sn="X-1", hw=65535, modif=0, dhcp=1, ipv6=True,
                              ip_addr=(1, 2, 3, 4, 5, 6), ip_mask=(255,) * 5 + (0,), ip_gtw=(1, 2, 3, 4, 5, 1))
        write_files(self.folder, {"fw.bin": image, "tail.bin": image[:-1] + bytes([image[-1] ^ 0x5A]),
                                  "cal.bin": cal, "other.bin": cal[:-1] + bytes([cal[-1] ^ 1]), "empty.bin": b"",
                                  "factory.txt": factory_text(FACTORY), "other.txt": factory_text(other)})
        info = firmware_info_display(FirmwareHeader(), 4096, crc32_mpeg2(image[8:]))
        cases = [
            (["-e"], step(Label.ERASE_FW, ok(10)), 0, single("ERASE_FW")),
            (["-i"], step(Label.FW_INFO, error(14)) + line("Firmware is not valid, invalid FW header"), -6,
             single("FW_INFO")),
            (["-w", "fw.bin"], step(Label.WRITE_FW, ok(10)), 0, firmware_write(4096, UDP_CHUNK)),
            (["-v", "fw.bin"], step(Label.VERIFY_FW, ok(10)), 0, firmware_verify(4096, UDP_CHUNK)),
            (["-v", "tail.bin"], step(Label.VERIFY_FW, error(10)) + line("FW is different"), -11,
             firmware_verify(4096, UDP_CHUNK)),
            (["-i"], step(Label.FW_INFO, ok(14)) + info, 0, single("FW_INFO")),
            (["-r", "out.bin"], step(Label.READ_FW, ok(10)), 0, chunked_read("READ_FW", 4096, UDP_CHUNK)),
            (["-ewv", "fw.hex"], BOOT_OK + EWV, 0, single("BOOTLOADER_INFO") + single("ERASE_FW")
             + firmware_write(3000, UDP_CHUNK) + firmware_verify(3000, UDP_CHUNK)),
            (["-i"], step(Label.FW_INFO, ok(14)) + firmware_info_display(debug, 0, 0), 0, single("FW_INFO")),
            (["-io"], BOOT_OK + BOOT.display(), 0, single("BOOTLOADER_INFO")),
            (["-rctrl"], step(Label.READ_CTRL, ok(14)) + control_display(1, 0), 0, single("READ_CONTROL")),
            (["-rst"], step(Label.RESTART, ok(12)), 0, single("RESTART")),
            (["-rctrl"], step(Label.READ_CTRL, ok(14)) + control_display(1, 1), 0, single("READ_CONTROL")),
            (["-ectrl"], step(Label.CLEAR_CTRL, ok(12)), 0, single("CLEAR_CONTROL")),
            (["-rctrl"], step(Label.READ_CTRL, ok(14)) + control_display(1, 0), 0, single("READ_CONTROL")),
            (["-ef"], step(Label.ERASE_FACTORY, ok(10)), 0, single("ERASE_FACTORY")),
            (["-wf", "other.txt"], factory_listing(other) + step(Label.WRITE_FACTORY, ok(10)), 0, FACTORY_WRITE),
            (["-vf", "factory.txt"], LISTING + step(Label.VERIFY_FACTORY, error(11))
             + line("Factory table is different"), -11, FACTORY_VERIFY),
            (["-ewvf", "factory.txt"], LISTING + step(Label.ERASE_FACTORY, ok(10)) + step(Label.WRITE_FACTORY, ok(10))
             + step(Label.VERIFY_FACTORY, ok(10)), 0, single("ERASE_FACTORY") + FACTORY_WRITE + FACTORY_VERIFY),
            (["-rf", "read.txt"], step(Label.READ_FACTORY, ok(12)) + LISTING, 0,
             chunked_read("READ_FACTORY", 120, UDP_CHUNK)),
            # The file the program wrote is valid input again.
            (["-vf", "read.txt"], LISTING + step(Label.VERIFY_FACTORY, ok(11)), 0, FACTORY_VERIFY),
        ]
        n = len(cal)
        for flag, backup in (("c", False), ("b", True)):
            label = {action: calib_label(action, backup) for action in ("Reading", "Writing", "Verificating",
                                                                        "Erasing")}
            sent = partial(calibration, chunk=UDP_CHUNK, backup=backup)
            cases += [
                ([f"-w{flag}", "cal.bin"], step(label["Writing"], ok(13)), 0, sent("WRITE", n)),
                ([f"-v{flag}", "cal.bin"], step(label["Verificating"], ok(8)), 0, sent("VERIFY", n)),
                ([f"-r{flag}", f"out-{flag}.bin"], step(label["Reading"], ok(11)), 0, sent("READ", n)),
                ([f"-v{flag}", "other.bin"], step(label["Verificating"], error(11))
                 + line("Calibration table is different"), -11, sent("VERIFY", n)),
                ([f"-e{flag}"], step(label["Erasing"], ok(11)), 0, sent("ERASE", 0)),
                ([f"-r{flag}", f"erased-{flag}.bin"], step(label["Reading"], ok(11)), 0, sent("READ", 0)),
                ([f"-ewv{flag}", "cal.bin"], step(label["Erasing"], ok(10)) + step(label["Writing"], ok(10))
                 + step(label["Verificating"], ok(10)), 0, sent("ERASE", 0) + sent("WRITE", n) + sent("VERIFY", n)),
                # An empty file still opens and closes the table; its verify sends nothing.
                ([f"-w{flag}", "empty.bin"], step(label["Writing"], ok(13)), 0, sent("WRITE", 0)),
                ([f"-v{flag}", "empty.bin"], step(label["Verificating"], ok(8)), 0, []),
                # The combined operation reports a missing file as a bare Error status.
                ([f"-ewv{flag}", "missing.bin"], "\r" + error(13), -1, []),
            ]
        self.run_table(device, cases)
        self.assertEqual(stored_firmware(image), (self.folder / "out.bin").read_bytes())
        self.assertEqual(factory_file(FACTORY), (self.folder / "read.txt").read_text())
        for flag in "cb":
            self.assertEqual(cal, (self.folder / f"out-{flag}.bin").read_bytes())
            self.assertEqual(b"", (self.folder / f"erased-{flag}.bin").read_bytes())

    def test_misbehaving_device(self):
        write_files(self.folder, {"fw.bin": firmware_image(2048), "cal.bin": calibration_table(300),
                                  "factory.txt": factory_text(FACTORY)})
        erase_write = step(Label.ERASE_FW, ok(9)) + step(Label.WRITE_FW, ok(10))
        cal = {action: calib_label(action, False) for action in ("Erasing", "Writing", "Verificating")}
        first_block = [("BEGIN_WRITE", 0, 0), ("WRITE_FW", 0, 1008)]
        timeout = line("\nReceive timeout")
        cases = [
            # (device options, arguments, console body, result, requests sent); statuses as command=status.
            (["--status", "0x44=0x01"], ["-e"], step(Label.ERASE_FW, error(10)), -255, single("ERASE_FW")),
            (["--status", "0x84=0x02"], ["-ewv", "fw.bin"], step(Label.ERASE_FW, ok(9))
             + step(Label.WRITE_FW, error(14)), -254, single("ERASE_FW") + first_block),
            (["--status", "0xC4=0xF5"], ["-ewv", "fw.bin"], erase_write
             + step(Label.VERIFY_FW, "Error. FW is different\n"), -11, None),
            (["--status", "0xC4=0x03"], ["-ewv", "fw.bin"], erase_write + step(Label.VERIFY_FW, error(13)), -253, None),
            (["--status", "0x24=0x05"], ["-i"], step(Label.FW_INFO, error(14)) + "Error code: (-251)\n", -251, None),
            # Status 0xE7 reads as -25 and is reported like silence, after one request.
            (["--status", "0x24=0xE7"], ["-i"], step(Label.FW_INFO, error(14)) + timeout, -25, single("FW_INFO")),
            (["--status", "0x4F=0x20"], ["-rst"], step(Label.RESTART, error(12)), -224, None),
            (["--status", "0xC1=0x04"], ["-vf", "factory.txt"], LISTING + step(Label.VERIFY_FACTORY, error(11))
             + line("Error while verificating factory table"), -252, FACTORY_VERIFY),
            (["--status", "0x11=0x01"], ["-ewvf", "factory.txt"], LISTING + step(Label.ERASE_FACTORY, ok(10))
             + step(Label.WRITE_FACTORY, error(11)), -255, None),
            (["--status", "0x83=0x01"], ["-wb", "cal.bin"], step(calib_label("Writing", True), error(13)), -255,
             [("BEGIN_WRITE", 0, 0), ("BEGIN_WRITE", 0, 0), ("WRITE_CALIB_BACKUP", 0, 300)]),
            (["--status", "0x42=0x01"], ["-ewvc", "cal.bin"], step(cal["Erasing"], error(13)), -255, None),
            (["--status", "0xC2=0x01"], ["-ewvc", "cal.bin"], step(cal["Erasing"], ok(10))
             + step(cal["Writing"], ok(10)) + step(cal["Verificating"], error(12))
             + line("Error while verificating calibration table"), -255, None),
            (["--wrong-address", "0x84"], ["-w", "fw.bin"], step(Label.WRITE_FW, error(10)), -11, first_block),
            # Silence is asked again ("*100" replaces the 2 s wait); a datagram from another port ends
            # an attempt at once.
            (["--silent-first", "1"], ["*100", "-io"], BOOT_OK + BOOT.display(), 0, single("BOOTLOADER_INFO") * 2),
            (["--stray", "0x2F"], ["-io"], step(Label.BOOT_INFO, error(14)), -25, single("BOOTLOADER_INFO") * 3),
        ]
        for options, args, body, code, sent in cases:
            with self.subTest(options=options, args=args), Device(self.topology, self.folder,
                                                                  [*BOOT.options(), *options]) as device:
                result = self.check(device, args, body, code, sent)
                self.assertLess(result.wall_s, 2.0, result.describe())

    def test_bad_input_sends_nothing(self):
        """What the program makes of its files; the readers' own rules are checked where they live."""
        device = self.device(*BOOT.options())
        image = firmware_image(512)
        area = hex_record(0x04, 0, b"\x08\x00") + "\n"
        write_files(self.folder, {
            **{name: image for name in ("fw.txt", "fw.BIN", "fw.Hex", "image.bin.hex")},
            "checksum.hex": area + hex_record(0x00, 0, image[:16], checksum_delta=1) + "\n" + HEX_EOF,
            # 16 bytes ending one byte past the firmware area the bootloader reports, or its last 16.
            "beyond.hex": area + hex_record(0x00, FW_MAX_SIZE - 15, image[:16]) + "\n" + HEX_EOF,
            "edge.hex": area + hex_record(0x00, FW_MAX_SIZE - 16, image[:16]) + "\n" + HEX_EOF,
            "no_mac.txt": factory_text(FACTORY, drop=("MAC:",)),
            # A mask of the six-number form while the address has four numbers.
            "mixed.txt": factory_text(FACTORY, extra="IPV6_MASK: 1.2.3.4.5.6\n")})
        cases = [
            (["-w", "fw.txt"], "Unknown file type (fw.txt)\n", -1, []),
            (["-v", "fw.BIN"], "Unknown file type (fw.BIN)\n", -1, []),
            (["-ewv", "fw.Hex"], "Unknown file type (fw.Hex)\n", -1, []),
            (["-wf", "missing.txt"], NOT_OPENED.format("missing.txt"), -1, []),
            (["-v", "checksum.hex"], BOOT_OK, -1, single("BOOTLOADER_INFO")),
            (["-ewv", "beyond.hex"], BOOT_OK, -1, single("BOOTLOADER_INFO")),
            (["-w", "edge.hex"], BOOT_OK + step(Label.WRITE_FW, ok(10)), 0,
             single("BOOTLOADER_INFO") + firmware_write(FW_MAX_SIZE, UDP_CHUNK)),
            # A name holding ".bin" anywhere is a raw image.
            (["-w", "image.bin.hex"], step(Label.WRITE_FW, ok(10)), 0, firmware_write(512, UDP_CHUNK)),
            (["-wf", "no_mac.txt"], line("Parsing factory table file error")
             + factory_listing(FactoryValues(mac=(0,) * 6)), -14, []),
            (["-wf", "mixed.txt"], line("Parsing factory table file error") + LISTING, -11, []),
        ]
        self.run_table(device, cases)

if __name__ == "__main__":
    pelmo_e2e.main()

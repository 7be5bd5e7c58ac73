#!/usr/bin/env python3
"""PelmoWin against pelmo-device over real UDP: every operation, the main failure paths, and what
reached the device."""

from __future__ import annotations

import subprocess
import sys
import time
import unittest

import pelmo_e2e
import wire
from expected import (
    BANNER,
    BootloaderValues,
    FactoryValues,
    FirmwareHeader,
    Label,
    bootloader_info_display,
    calib_label,
    control_display,
    error,
    factory_file,
    factory_listing,
    firmware_info_display,
    line,
    ok,
    step,
)
from pelmo_e2e import E2eCase
from samples import (
    HEX_EOF,
    bin_to_hex,
    calibration_table,
    crc32_mpeg2,
    factory_text,
    firmware_image,
    hex_record,
    stored_firmware,
    write_bin,
)
from scenarios import CalibrationScenarios, FactoryScenarios, FirmwareScenarios

FW_ADDRESS = 0x08000000
FW_MAX_SIZE = 0x10000  # small, so that a HEX file can reach past the limit cheaply

BOOTLOADER = BootloaderValues(
    name="Test Boot UDP", major=3, minor=5, date="Feb  2 2026", time="08:09:10",
    fw_address=FW_ADDRESS, fw_max_size=FW_MAX_SIZE,
)
BOOTLOADER_OPTIONS = [
    "--fw-address", hex(BOOTLOADER.fw_address),
    "--fw-max-size", str(BOOTLOADER.fw_max_size),
    "--bl-name", BOOTLOADER.name,
    "--bl-version", f"{BOOTLOADER.major}.{BOOTLOADER.minor}",
    "--bl-date", BOOTLOADER.date,
    "--bl-time", BOOTLOADER.time,
]

# The image loader's bootloader information step, as it shows before a HEX file's operation.
BOOT_INFO_OK = step(Label.BOOT_INFO, ok(14))


class UdpSuite(FirmwareScenarios, CalibrationScenarios, FactoryScenarios, E2eCase):
    chunk = wire.UDP_CHUNK
    fw_length = 4096

    @classmethod
    def setUpClass(cls) -> None:
        pelmo_e2e.require_program()
        pelmo_e2e.require_device()
        cls.topology = pelmo_e2e.udp_topology()
        cls.topology.setup()
        cls.addClassCleanup(cls.topology.teardown)

    def device(self, *options: str):
        return super().device(*BOOTLOADER_OPTIONS, *options)

    # ---- images -------------------------------------------------------------------------------

    def test_hex_image_is_placed_by_the_bootloader_information(self):
        device = self.device()
        image = firmware_image(3000, FirmwareHeader(name="HexFW"), seed=3)
        bin_to_hex(write_bin(self.folder / "fw.raw", image), self.folder / "fw.hex", FW_ADDRESS)

        self.expect(
            self.run_pelmo("-ewv", "fw.hex"),
            BOOT_INFO_OK + step(Label.ERASE_FW, ok(9)) + step(Label.WRITE_FW, ok(10))
            + step(Label.VERIFY_FW, ok(9)),
            0,
        )
        self.assertSent(
            device,
            wire.single("BOOTLOADER_INFO") + wire.single("ERASE_FW")
            + wire.firmware_write(len(image), self.chunk) + wire.firmware_verify(len(image), self.chunk),
        )
        self.expect(self.run_pelmo("-v", "fw.hex"), BOOT_INFO_OK + step(Label.VERIFY_FW, ok(10)), 0)
        self.expect(self.run_pelmo("-r", "back.bin"), step(Label.READ_FW, ok(10)), 0)
        self.assertEqual(stored_firmware(image), (self.folder / "back.bin").read_bytes())

        # A name holding ".bin" anywhere is a raw image, even when it ends in ".hex".
        write_bin(self.folder / "image.bin.hex", image)
        device.new_requests()
        self.expect(self.run_pelmo("-w", "image.bin.hex"), step(Label.WRITE_FW, ok(10)), 0)
        self.assertSent(device, wire.firmware_write(len(image), self.chunk))

    def test_image_that_cannot_be_loaded_sends_nothing(self):
        device = self.device()
        image = firmware_image(512)
        for name in ("fw.txt", "fw.BIN", "fw.Hex"):
            write_bin(self.folder / name, image)
        write_bin(self.folder / "empty.bin", b"")
        data = hex_record(0x04, 0, b"\x08\x00") + "\n" + hex_record(0x00, 0, image[:16]) + "\n"
        hex_files = {
            "checksum.hex": data + hex_record(0x00, 0x10, image[16:32], checksum_delta=1) + "\n" + HEX_EOF,
            "no_eof.hex": data,
            "blank_line.hex": data + "\n" + HEX_EOF + "\n",
            "type03.hex": data + hex_record(0x03, 0, bytes(4)) + "\n" + HEX_EOF + "\n",
            # 16 bytes ending one byte past the firmware area's limit.
            "beyond.hex": hex_record(0x04, 0, b"\x08\x00") + "\n"
            + hex_record(0x00, FW_MAX_SIZE - 15, image[:16]) + "\n" + HEX_EOF + "\n",
            "below.hex": hex_record(0x04, 0, b"\x07\xFF") + "\n" + hex_record(0x00, 0xFFF0, image[:16])
            + "\n" + HEX_EOF + "\n",
        }
        for name, text in hex_files.items():
            (self.folder / name).write_text(text)

        cases = [
            # (file, console body before the closing lines, requests sent)
            ("fw.txt", "Unknown file type (fw.txt)\n", []),
            ("fw.BIN", "Unknown file type (fw.BIN)\n", []),
            ("fw.Hex", "Unknown file type (fw.Hex)\n", []),
            ("missing.bin", "Error while opening file missing.bin\n", []),
            ("missing.hex", "Error while opening file missing.hex\n", []),
            ("empty.bin", "", []),
            *[(name, BOOT_INFO_OK, wire.single("BOOTLOADER_INFO")) for name in hex_files],
        ]
        for option in ("-w", "-v", "-ewv"):
            for name, body, sent in cases:
                with self.subTest(option=option, file=name):
                    self.expect(self.run_pelmo(option, name), body, -1)
                    self.assertSent(device, sent)

    def test_hex_file_reaching_exactly_to_the_limit_is_accepted(self):
        device = self.device()
        # The last 16 bytes of the firmware area, at an absolute address, and a start record.
        text = (hex_record(0x04, 0, b"\x08\x00") + "\n" + hex_record(0x00, FW_MAX_SIZE - 16, bytes(range(16)))
                + "\n" + hex_record(0x05, 0, b"\x08\x00\x00\x00") + "\n" + HEX_EOF + "\n")
        (self.folder / "edge.hex").write_text(text)
        self.expect(self.run_pelmo("-w", "edge.hex"), BOOT_INFO_OK + step(Label.WRITE_FW, ok(10)), 0)
        self.assertSent(device, wire.single("BOOTLOADER_INFO") + wire.firmware_write(FW_MAX_SIZE, self.chunk))

    # ---- information, control, restart ----------------------------------------------------------

    def test_information_control_and_restart(self):
        device = self.device()
        sessions = [
            (["-io"], BOOT_INFO_OK + bootloader_info_display(BOOTLOADER), "BOOTLOADER_INFO"),
            (["-rctrl"], step(Label.READ_CTRL, ok(14)) + control_display(1, 0), "READ_CONTROL"),
            (["-rst"], step(Label.RESTART, ok(12)), "RESTART"),
            (["-rst"], step(Label.RESTART, ok(12)), "RESTART"),
            (["-RCTRL"], step(Label.READ_CTRL, ok(14)) + control_display(1, 2), "READ_CONTROL"),
            (["-ectrl"], step(Label.CLEAR_CTRL, ok(12)), "CLEAR_CONTROL"),
            (["-rctrl"], step(Label.READ_CTRL, ok(14)) + control_display(1, 0), "READ_CONTROL"),
        ]
        for args, body, name in sessions:
            with self.subTest(args=args):
                self.expect(self.run_pelmo(*args), body, 0)
                self.assertSent(device, wire.single(name))

    def test_write_that_never_ended_leaves_an_invalid_firmware(self):
        # The device seals the firmware (size and CRC into bytes 0 to 7) only on the end command.
        device = self.device("--status", "0x14=0x01")
        write_bin(self.folder / "fw.bin", firmware_image(2048))
        self.expect(self.run_pelmo("-w", "fw.bin"), step(Label.WRITE_FW, error(10)), -255)
        self.assertSent(device, wire.firmware_write(2048, self.chunk))
        self.expect(
            self.run_pelmo("-i"),
            step(Label.FW_INFO, error(14)) + line("Firmware is not valid, invalid FW CRC"),
            -7,
        )
        self.assertSent(device, wire.single("FW_INFO"))

    # ---- device failures ----------------------------------------------------------------------

    def test_device_statuses_end_the_operation(self):
        image = firmware_image(2048)
        write_bin(self.folder / "fw.bin", image)
        write_bin(self.folder / "cal.bin", calibration_table(300))
        values = FactoryValues()
        (self.folder / "factory.txt").write_text(factory_text(values))
        listing = factory_listing(values)
        erase_ok = step(Label.ERASE_FW, ok(9)) + step(Label.WRITE_FW, ok(10))
        first_block = [("BEGIN_WRITE", 0, 0), ("WRITE_FW", 0, 1008)]
        cal = {action: calib_label(action, False) for action in ("Erasing", "Writing", "Verificating")}
        calb = {action: calib_label(action, True) for action in ("Erasing", "Writing", "Verificating")}

        cases = [
            # (device option, arguments, console body, result, requests sent)
            ("0x44=0x01", ["-e"], step(Label.ERASE_FW, error(10)), -255, wire.single("ERASE_FW")),
            ("0x44=0x01", ["-ewv", "fw.bin"], step(Label.ERASE_FW, error(14)), -255,
             wire.single("ERASE_FW")),
            ("0x84=0x02", ["-ewv", "fw.bin"], step(Label.ERASE_FW, ok(9)) + step(Label.WRITE_FW, error(14)),
             -254, wire.single("ERASE_FW") + first_block),
            ("0xC4=0xF5", ["-ewv", "fw.bin"], erase_ok + step(Label.VERIFY_FW, "Error. FW is different\n"),
             -11, None),
            ("0xC4=0x03", ["-ewv", "fw.bin"], erase_ok + step(Label.VERIFY_FW, error(13)), -253, None),
            ("0x8F=0xFA", ["-w", "fw.bin"], step(Label.WRITE_FW, error(10)), -6, wire.single("BEGIN_WRITE")),
            ("0x84=0xFD", ["-w", "fw.bin"], step(Label.WRITE_FW, error(10)), -3, first_block),
            ("0x14=0x01", ["-w", "fw.bin"], step(Label.WRITE_FW, error(10)), -255, None),
            ("0xC4=0x09", ["-v", "fw.bin"], step(Label.VERIFY_FW, error(10)), -247,
             [("VERIFY_FW", 8, 1008)]),
            ("0x04=0x30", ["-r", "out.bin"], step(Label.READ_FW, error(10)), -208, [("READ_FW", 0, 1012)]),
            ("0x24=0x05", ["-i"], step(Label.FW_INFO, error(14)) + "Error code: (-251)\n", -251, None),
            ("0x24=0xFF", ["-i"], step(Label.FW_INFO, error(14)) + "Error code: (-1)\n", -1, None),
            ("0x24=0xF9", ["-i"], step(Label.FW_INFO, error(14)) + line("Firmware is not valid, invalid FW CRC"),
             -7, None),
            # Status 0xE7 reads as -25 and is reported like silence, after one request.
            ("0x24=0xE7", ["-i"], step(Label.FW_INFO, error(14)) + line("\nReceive timeout"), -25,
             wire.single("FW_INFO")),
            ("0x2F=0xFD", ["-io"], step(Label.BOOT_INFO, error(14)), -3, wire.single("BOOTLOADER_INFO")),
            ("0x2E=0x10", ["-rctrl"], step(Label.READ_CTRL, error(14)), -240, None),
            ("0x4E=0x01", ["-ectrl"], step(Label.CLEAR_CTRL, error(12)), -255, None),
            ("0x4F=0x20", ["-rst"], step(Label.RESTART, error(12)), -224, None),
            ("0x41=0x01", ["-ef"], step(Label.ERASE_FACTORY, error(10)), -255, None),
            ("0x81=0x01", ["-wf", "factory.txt"], listing + step(Label.WRITE_FACTORY, error(10)), -255,
             wire.FACTORY_WRITE[:2]),
            ("0xC1=0x04", ["-vf", "factory.txt"],
             listing + step(Label.VERIFY_FACTORY, error(11)) + line("Error while verificating factory table"),
             -252, wire.FACTORY_VERIFY),
            ("0xC1=0xF5", ["-vf", "factory.txt"],
             listing + step(Label.VERIFY_FACTORY, error(11)) + line("Factory table is different"), -11, None),
            ("0x41=0x01", ["-ewvf", "factory.txt"], listing + step(Label.ERASE_FACTORY, error(13)), -255,
             wire.FACTORY_ERASE),
            ("0x11=0x01", ["-ewvf", "factory.txt"],
             listing + step(Label.ERASE_FACTORY, ok(10)) + step(Label.WRITE_FACTORY, error(11)), -255, None),
            ("0xC1=0xF5", ["-ewvf", "factory.txt"],
             listing + step(Label.ERASE_FACTORY, ok(10)) + step(Label.WRITE_FACTORY, ok(10))
             + step(Label.VERIFY_FACTORY, error(11)) + line("Factory table is different"), -11, None),
            ("0x02=0x11", ["-rc", "out.bin"], step(calib_label("Reading", False), error(11)),
             -239, None),
            ("0x03=0x11", ["-rb", "out.bin"], step(calib_label("Reading", True), error(11)),
             -239, None),
            ("0x8F=0x01", ["-wc", "cal.bin"], step(cal["Writing"], error(13)), -255, wire.single("BEGIN_WRITE")),
            ("0x83=0x01", ["-wb", "cal.bin"], step(calb["Writing"], error(13)), -255,
             [("BEGIN_WRITE", 0, 0), ("BEGIN_WRITE", 0, 0), ("WRITE_CALIB_BACKUP", 0, 300)]),
            ("0xC2=0x01", ["-vc", "cal.bin"], step(cal["Verificating"], error(11)), -255, None),
            ("0x42=0x01", ["-ec"], step(cal["Erasing"], error(11)), -255, None),
            ("0x43=0x01", ["-eb"], step(calb["Erasing"], error(11)), -255, None),
            ("0x42=0x01", ["-ewvc", "cal.bin"], step(cal["Erasing"], error(13)), -255, None),
            ("0x82=0x01", ["-ewvc", "cal.bin"], step(cal["Erasing"], ok(10)) + step(cal["Writing"], error(12)),
             -255, None),
            ("0xC2=0x01", ["-ewvc", "cal.bin"],
             step(cal["Erasing"], ok(10)) + step(cal["Writing"], ok(10)) + step(cal["Verificating"], error(12))
             + line("Error while verificating calibration table"), -255, None),
            ("0xC3=0xF5", ["-ewvb", "cal.bin"],
             step(calb["Erasing"], ok(10)) + step(calb["Writing"], ok(10))
             + step(calb["Verificating"], error(12)) + line("Calibration table is different"), -11, None),
        ]
        for status, args, body, code, sent in cases:
            with self.subTest(status=status, args=args):
                device = pelmo_e2e.Device(self.topology, self.folder, [*BOOTLOADER_OPTIONS, "--status", status])
                with device:
                    self.expect(self.run_pelmo(*args), body, code)
                    if sent is not None:
                        self.assertSent(device, sent)

    def test_answers_that_do_not_belong_to_the_request(self):
        write_bin(self.folder / "fw.bin", firmware_image(2048))
        cases = [
            # (device options, arguments, console body, result, requests sent)
            (["--wrong-address", "0x84"], ["-w", "fw.bin"], step(Label.WRITE_FW, error(10)), -11,
             [("BEGIN_WRITE", 0, 0), ("WRITE_FW", 0, 1008)]),
            (["--wrong-address", "0x2E"], ["-rctrl"], step(Label.READ_CTRL, error(14)), -11, None),
            (["--extra-payload", "0x4F"], ["-rst"], step(Label.RESTART, error(12)), -11, None),
            # A broken answer is not asked for again: one request, the decoder's -7.
            (["--corrupt-crc-code", "0x2F"], ["-io"], step(Label.BOOT_INFO, error(14)), -7,
             wire.single("BOOTLOADER_INFO")),
            # An answer to the write probe that does not decode lets the write go on.
            (["--corrupt-crc-code", "0x8F"], ["-w", "fw.bin"], step(Label.WRITE_FW, ok(10)), 0,
             wire.firmware_write(2048, self.chunk)),
            # Each answer split in two datagrams is joined within the quiet time.
            (["--split"], ["-io"], BOOT_INFO_OK + bootloader_info_display(BOOTLOADER), 0,
             wire.single("BOOTLOADER_INFO")),
            # A datagram from another port ends each attempt at once: three requests, -25.
            (["--stray", "0x2F"], ["-io"], step(Label.BOOT_INFO, error(14)), -25,
             wire.single("BOOTLOADER_INFO") * 3),
        ]
        for options, args, body, code, sent in cases:
            with self.subTest(options=options, args=args):
                device = pelmo_e2e.Device(self.topology, self.folder, [*BOOTLOADER_OPTIONS, *options])
                with device:
                    self.expect(self.run_pelmo(*args), body, code)
                    if sent is not None:
                        self.assertSent(device, sent)

    def test_silent_device_gets_three_requests(self):
        cases = [
            # (device options, arguments, console body, result, requests that reached the device)
            (["--silent-first", "3"], ["*100", "-i"],
             step(Label.FW_INFO, error(14)) + line("\nReceive timeout"), -25, wire.single("FW_INFO") * 3),
            # The second request is answered: one silent time-out, then success.
            (["--silent-first", "1"], ["*100", "-io"], BOOT_INFO_OK + bootloader_info_display(BOOTLOADER), 0,
             wire.single("BOOTLOADER_INFO") * 2),
            (["--silent-first", "3"], ["*100", "-rst"], step(Label.RESTART, error(12)), -25,
             wire.single("RESTART") * 3),
        ]
        for options, args, body, code, sent in cases:
            with self.subTest(options=options, args=args):
                device = pelmo_e2e.Device(self.topology, self.folder, [*BOOTLOADER_OPTIONS, *options])
                with device:
                    result = self.run_pelmo(*args)
                    self.expect(result, body, code)
                    self.assertSent(device, sent)
                    # "*100" replaces the 2 s default wait: three attempts take well under 2 s.
                    self.assertLess(result.wall_s, 2.0, result.describe())

    def test_silence_with_the_default_time_out(self):
        device = self.device("--silent-first", "3")
        result = self.run_pelmo("-io")
        self.expect(result, step(Label.BOOT_INFO, error(14)), -25)
        self.assertSent(device, wire.single("BOOTLOADER_INFO") * 3)
        # Three attempts of 2 s each, counted by the program's own clock.
        self.assertGreaterEqual(result.wall_s, 5.9, result.describe())
        self.assertLess(result.wall_s, 9.0, result.describe())
        self.assertIn(result.reported_s, (6, 7), result.describe())
        seconds = [s for label, s in result.progress]
        self.assertEqual(seconds, sorted(seconds), "the step's seconds only rise")
        self.assertIn(max(seconds), (5, 6), result.describe())

    def test_progress_counts_the_seconds_of_a_long_erase(self):
        device = self.device("--erase-ms", "1300")
        result = self.run_pelmo("-e")
        self.expect(result, step(Label.ERASE_FW, ok(10)), 0)
        self.assertSent(device, wire.single("ERASE_FW"))
        self.assertEqual({Label.ERASE_FW}, {label for label, _ in result.progress}, result.describe())
        self.assertEqual([0, 1], sorted({s for _, s in result.progress}), result.describe())
        self.assertEqual(1, result.reported_s)

    # ---- factory table --------------------------------------------------------------------------

    def test_factory_table_write_verify_erase_and_six_number_form(self):
        device = self.device()
        first = FactoryValues()
        second = FactoryValues(type="Other", sn="X-1", hw=65535, modif=0, dhcp=1, ip_addr=(10, 0, 0, 9))
        six = FactoryValues(sn="six", ipv6=True, ip_addr=(1, 2, 3, 4, 5, 6), ip_mask=(255,) * 5 + (0,),
                            ip_gtw=(1, 2, 3, 4, 5, 1))
        for name, values in (("first.txt", first), ("second.txt", second), ("six.txt", six)):
            (self.folder / name).write_text(factory_text(values))

        sessions = [
            (["-wf", "first.txt"], factory_listing(first) + step(Label.WRITE_FACTORY, ok(10)), 0,
             wire.FACTORY_WRITE),
            (["-vf", "first.txt"], factory_listing(first) + step(Label.VERIFY_FACTORY, ok(11)), 0,
             wire.FACTORY_VERIFY),
            (["-vf", "second.txt"], factory_listing(second) + step(Label.VERIFY_FACTORY, error(11))
             + line("Factory table is different"), -11, wire.FACTORY_VERIFY),
            (["-ef"], step(Label.ERASE_FACTORY, ok(10)), 0, wire.FACTORY_ERASE),
            (["-wf", "six.txt"], factory_listing(six) + step(Label.WRITE_FACTORY, ok(10)), 0,
             wire.FACTORY_WRITE),
            (["-rf", "six-read.txt"], step(Label.READ_FACTORY, ok(12)) + factory_listing(six), 0,
             wire.chunked_read("READ_FACTORY", wire.FACTORY_SIZE, self.chunk)),
            # An output file that cannot be created: the table is listed all the same.
            (["-rf", "no-such-dir/out.txt"], step(Label.READ_FACTORY, ok(12)) + factory_listing(six), 0,
             wire.chunked_read("READ_FACTORY", wire.FACTORY_SIZE, self.chunk)),
            (["-wf", "missing.txt"], "Error while opening file missing.txt\n", -1, []),
        ]
        for args, body, code, sent in sessions:
            with self.subTest(args=args):
                self.expect(self.run_pelmo(*args), body, code)
                self.assertSent(device, sent)
        self.assertEqual(factory_file(six), (self.folder / "six-read.txt").read_text())

    def test_factory_file_that_does_not_parse_sends_nothing(self):
        device = self.device()
        values = FactoryValues()
        no_mac = FactoryValues(mac=(0,) * 6)
        files = {
            # (text, listing of what was filled, parser result)
            "no_mac.txt": (factory_text(values, drop=("MAC:",)), no_mac, -14),
            # The same file with one line twice adds up again and is accepted.
            "twice.txt": (factory_text(values, drop=("MAC:",), extra="DHCP: 0\n"), no_mac, 0),
            "empty.txt": ("", FactoryValues(type="", sn="", hw=0, modif=0, mac=(0,) * 6, ip_addr=(0,) * 4,
                                            ip_mask=(0,) * 4, ip_gtw=(0,) * 4), -14),
            "short_address.txt": (factory_text(values, drop=("IPV4_ADDR:",), extra="IPV4_ADDR: 1.2.3\n"),
                                  FactoryValues(ip_addr=(0,) * 4), -14),
            # A mask of the six-number form while the address has four numbers.
            "mixed.txt": (factory_text(values, extra="IPV6_MASK: 1.2.3.4.5.6\nSN: late\n"), values, -11),
        }
        for name, (text, _, _) in files.items():
            (self.folder / name).write_text(text)
        for option in ("-wf", "-vf", "-ewvf"):
            for name, (_, filled, code) in files.items():
                with self.subTest(option=option, file=name):
                    result = self.run_pelmo(option, name)
                    if code == 0:
                        self.assertEqual(0, result.returncode, result.describe())
                        device.new_requests()
                        continue
                    self.expect(result, line("Parsing factory table file error") + factory_listing(filled), code)
                    self.assertSent(device, [])

    # ---- the program's side -------------------------------------------------------------------

    def test_read_into_a_file_that_cannot_be_created_still_succeeds(self):
        image = firmware_image(1024)
        preload = write_bin(self.folder / "preload.bin", stored_firmware(image))
        device = self.device("--load-firmware", str(preload))
        self.expect(self.run_pelmo("-r", "no-such-dir/out.bin"), step(Label.READ_FW, ok(10)), 0)
        self.assertSent(device, wire.chunked_read("READ_FW", 1024, self.chunk))
        self.expect(
            self.run_pelmo("-i"),
            step(Label.FW_INFO, ok(14)) + firmware_info_display(FirmwareHeader(), 1024, crc32_mpeg2(image[8:])),
            0,
        )

    def test_port_in_use_cannot_be_opened(self):
        holder = self.topology.run_in_host(
            [sys.executable, "-c",
             "import socket,sys,time\n"
             "s=socket.socket(socket.AF_INET,socket.SOCK_DGRAM)\n"
             "s.bind(('0.0.0.0',57998))\nprint('bound',flush=True)\ntime.sleep(60)\n"],
            stdout=subprocess.PIPE, start_new_session=True,
        )
        self.addCleanup(holder.stdout.close)
        self.addCleanup(holder.wait, 10)
        self.addCleanup(holder.kill)
        self.assertEqual(b"bound\n", holder.stdout.readline())
        result = self.run_pelmo("-io")
        self.assertRun(result, BANNER + "Can not open UDP port\n", 255)


if __name__ == "__main__":
    pelmo_e2e.main()

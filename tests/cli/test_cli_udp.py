#!/usr/bin/env python3
"""pelmo over UDP: every command with its JSON record and what reached the device, refusals that send
nothing, several devices at once, output files written whole or not at all. Runs under Wine too."""

from __future__ import annotations

import os
import struct

import cli_e2e
from cli_e2e import FW_ADDRESS, UdpCliCase, firmware_image, stored_firmware
from expected import FactoryValues
from samples import calibration_table, factory_text

BOOT = ["--bl-name", "Rack Boot", "--bl-version", "3.5", "--fw-address", hex(FW_ADDRESS), "--fw-max-size", "65536"]
FACTORY = FactoryValues()


def names(requests: list[tuple[str, int, int]]) -> set[str]:
    return {name for name, _, _ in requests}


def hex_text(data: bytes, address: int) -> str:
    """Intel HEX as a toolchain writes it: 32-byte records under one linear base."""
    def record(kind: int, offset: int, payload: bytes) -> str:
        body = bytes([len(payload), offset >> 8, offset & 0xFF, kind]) + payload
        return ":" + (body + bytes([-sum(body) & 0xFF])).hex().upper() + "\n"
    lines = record(4, 0, (address >> 16).to_bytes(2, "big"))
    lines += "".join(record(0, (address + i) & 0xFFFF, data[i:i + 32]) for i in range(0, len(data), 32))
    return lines + record(1, 0, b"")


def srec_text(data: bytes, address: int) -> str:
    def record(kind: str, body: bytes) -> str:
        body = bytes([len(body) + 1]) + body
        return f"{kind}{(body + bytes([~sum(body) & 0xFF])).hex().upper()}\n"
    lines = record("S0", b"\0\0fw")
    lines += "".join(record("S3", (address + i).to_bytes(4, "big") + data[i:i + 32]) for i in range(0, len(data), 32))
    return lines + record("S7", address.to_bytes(4, "big"))


def elf_file(data: bytes, address: int) -> bytes:
    """A 32-bit little-endian executable with one loadable segment at `address`, as a linker writes it."""
    header = struct.pack("<16sHHIIIIIHHHHHH", b"\x7fELF\x01\x01\x01" + bytes(9), 2, 40, 1, address, 52, 0, 0, 52,
                         32, 1, 40, 0, 0)
    segment = struct.pack("<IIIIIIII", 1, 84, address, address, len(data), len(data), 5, 4)
    return header + segment + data


class CliUdpSuite(UdpCliCase):
    def test_every_command(self):
        device, address = self.udp_device(0, *BOOT)
        target = f"udp:{address}"
        image = firmware_image(5000)
        other = firmware_image(5000, seed=2)
        cal = calibration_table(700)
        self.write("fw.bin", image)
        self.write("fw.hex", hex_text(image, FW_ADDRESS))
        self.write("fw.s37", srec_text(image, FW_ADDRESS))
        self.write("fw.elf", elf_file(image, FW_ADDRESS))
        self.write("other.bin", other)
        self.write("cal.bin", cal)
        self.write("factory.txt", factory_text(FACTORY))
        fw_writes = {"ERASE_FW", "WRITE_FW", "END_FW", "VERIFY_FW"}
        # (arguments, exit status, requests that must and must not reach the device, checks on the target)
        cases = [
            (["info"], 0, {"BOOTLOADER_INFO", "FW_INFO"}, set(),
             lambda t: (self.assertIsNone(t["firmware"]), self.assertEqual(
                 {"name": "Rack Boot", "version": "3.05", "fw_address": FW_ADDRESS, "fw_max_size": 65536},
                 {k: t["bootloader"][k] for k in ("name", "version", "fw_address", "fw_max_size")}))),
            # Images that do not fit the area the bootloader reports: nothing is erased.
            (["flash", "big.bin"], 1, {"BOOTLOADER_INFO"}, {"ERASE_FW", "WRITE_FW"},
             lambda t: self.assertEqual("input", t["result"])),
            (["flash", "low.hex"], 1, {"BOOTLOADER_INFO"}, {"ERASE_FW", "WRITE_FW"},
             lambda t: self.assertIn("0X07FFFF00", t["message"].upper())),
            (["flash", "fw.hex"], 0, fw_writes, set(), lambda t: self.assertEqual(5000, t["bytes"])),
            (["info"], 0, {"FW_INFO"}, set(),
             lambda t: self.assertEqual(5000, t["firmware"]["size"])),
            (["verify", "fw.s37"], 0, {"VERIFY_FW"}, {"ERASE_FW", "WRITE_FW"}, None),
            (["verify", "fw.elf"], 0, {"VERIFY_FW"}, {"ERASE_FW", "WRITE_FW"}, None),
            (["verify", "other.bin"], 1, {"VERIFY_FW"}, set(),
             lambda t: self.assertEqual("mismatch", t["result"])),
            (["read", "out.bin"], 0, {"READ_FW"}, set(), None),  # replaced by the second read below
            (["flash", "--skip-identical", "fw.bin"], 0, set(), {"ERASE_FW", "WRITE_FW"},
             lambda t: self.assertEqual((True, "skipped"), (t["skipped"], t["result"]))),
            # The device holds a longer firmware that starts with this image: not the same.
            (["flash", "--skip-identical", "short.bin"], 0, {"ERASE_FW", "WRITE_FW"}, set(),
             lambda t: self.assertFalse(t["skipped"])),
            (["flash", "--no-verify", "fw.bin"], 0, {"ERASE_FW", "WRITE_FW"}, {"VERIFY_FW"}, None),
            (["erase"], 0, {"ERASE_FW"}, set(), None),
            (["write", "fw.bin"], 0, {"WRITE_FW"}, {"ERASE_FW"}, None),
            (["read", "out.bin"], 0, {"READ_FW"}, set(),
             lambda t: self.assertEqual(stored_firmware(image), (self.folder / "out.bin").read_bytes())),
            (["read", "out.hex"], 0, {"READ_FW", "BOOTLOADER_INFO"}, set(),
             lambda t: self.assertTrue((self.folder / "out.hex").read_text().startswith(":020000040800F2"))),
            (["verify", "out.hex"], 0, {"VERIFY_FW"}, set(), None),
            (["factory", "write", "factory.txt"], 0, {"ERASE_FACTORY", "WRITE_FACTORY", "VERIFY_FACTORY"}, set(),
             None),
            (["factory", "read", "table.txt"], 0, {"READ_FACTORY"}, set(),
             lambda t: self.assertEqual(
                 {"type": "PelmoBox", "sn": "SN-0042 A", "hw": 7, "mac": "0A:1B:2C:3D:4E:5F",
                  "ip_addr": "192.168.1.15"},
                 {k: t["factory"][k] for k in ("type", "sn", "hw", "mac", "ip_addr")})),
            (["factory", "verify", "table.txt"], 0, {"VERIFY_FACTORY"}, {"WRITE_FACTORY"}, None),
            (["factory", "erase"], 0, {"ERASE_FACTORY"}, set(), None),
            (["factory", "verify", "table.txt"], 1, {"VERIFY_FACTORY"}, set(), None),
            (["calib", "write", "cal.bin"], 0, {"ERASE_CALIB", "WRITE_CALIB", "VERIFY_CALIB"}, set(), None),
            (["calib", "read", "cal-out.bin"], 0, {"READ_CALIB"}, set(),
             lambda t: self.assertEqual(cal, (self.folder / "cal-out.bin").read_bytes())),
            (["calib", "verify", "--backup", "cal.bin"], 1, {"VERIFY_CALIB_BACKUP"}, {"VERIFY_CALIB"}, None),
            (["calib", "--backup", "write", "cal.bin"], 0, {"WRITE_CALIB_BACKUP"}, {"WRITE_CALIB"}, None),
            (["calib", "erase"], 0, {"ERASE_CALIB"}, {"ERASE_CALIB_BACKUP"}, None),
            (["calib", "read", "--backup", "backup.bin"], 0, {"READ_CALIB_BACKUP"}, set(),
             lambda t: self.assertEqual(cal, (self.folder / "backup.bin").read_bytes())),
            (["control", "read"], 0, {"READ_CONTROL"}, set(),
             lambda t: self.assertEqual({"struct_version": 1, "reset_count": 0}, t["control"])),
            (["restart"], 0, {"RESTART"}, set(), None),
            (["control", "read"], 0, {"READ_CONTROL"}, set(),
             lambda t: self.assertEqual(1, t["control"]["reset_count"])),
            (["control", "clear"], 0, {"CLEAR_CONTROL"}, set(), None),
            (["control", "read"], 0, {"READ_CONTROL"}, set(),
             lambda t: self.assertEqual(0, t["control"]["reset_count"])),
        ]
        self.write("short.bin", image[:4096])
        self.write("big.bin", firmware_image(65537))
        self.write("low.hex", hex_text(image[:64], FW_ADDRESS - 256))
        device.new_requests()
        for args, code, sent, not_sent, check in cases:
            with self.subTest(args=args):
                run = self.pelmo("--udp", address, "--json", "--no-progress", *args)
                self.assertExit(run, code)
                self.assertEqual("", run.err, run.describe())
                command = " ".join(a for a in args if not a.startswith("-") and "." not in a)
                (result,) = self.assertTargets(run, command, [(target, code == 0)])
                requests = names(device.new_requests())
                self.assertLessEqual(sent, requests)
                self.assertFalse(not_sent & requests, requests)
                if check:
                    check(result)

    def test_text_mode_help_and_version(self):
        device, address = self.udp_device(0, *BOOT)
        run = self.pelmo("--udp", address, "info")
        self.assertExit(run, 0)
        self.assertIn("  Name:        Rack Boot\n  Version:     3.05\n", run.out)
        self.assertIn("  FW Address:  08000000\n  FW Max.size: 00010000\n", run.out)
        header, row = run.out.splitlines()[-2:]
        self.assertEqual(["TARGET", "RESULT", "SECONDS", "BYTES", "MESSAGE"], header.split())
        self.assertEqual([f"udp:{address}", "ok"], row.split()[:2])
        self.assertEqual({"BOOTLOADER_INFO", "FW_INFO"}, names(device.new_requests()))
        for args in (["--help"], ["factory", "read", "--help"], ["calib", "--help"], ["flash", "--help"]):
            with self.subTest(args=args):
                run = self.pelmo(*args)
                self.assertExit(run, 0)
                self.assertIn("Usage: pelmo", run.out)
                self.assertEqual("", run.err)
        self.assertIn("--skip-identical", self.pelmo("flash", "--help").out)
        self.assertRegex(self.pelmo("--version").out, r"^pelmo \d+\.\d+\n$")
        self.assertEqual([], device.new_requests())

    def test_refusals_send_nothing(self):
        device, address = self.udp_device(0, *BOOT)
        self.write("fw.bin", firmware_image(4096))
        good_hex = hex_text(firmware_image(64), FW_ADDRESS).splitlines()
        self.write("bad.hex", "\n".join(good_hex[:2] + [good_hex[2][:-2] + "00"] + good_hex[3:]) + "\n")
        self.write("bad.srec", "S0030000FC\nS1130000FFFF\n")
        for name, good, bad in (("hw.txt", "Hw: 7", "HW: 70000"), ("ip.txt", "192.168.1.15", "1.2.3.999"),
                                ("mac.txt", "MAC: 0a:1b:2c:3d:4e:5f", "MAC: 0a:1b:2c:3d:4e:5f:60")):
            self.assertIn(good, factory_text(FACTORY))
            self.write(name, factory_text(FACTORY).replace(good, bad))
        self.write("huge.bin", bytes(1024 * 1024 + 1))
        # (arguments, what standard error names)
        cases = [
            (["--udp", "192.168.1.300", "info"], "192.168.1.300"),
            (["--udp", "10.1.2", "info"], "10.1.2"),
            (["--udp", address, "--udp", address, "info"], "more than once"),
            (["info"], "no target"),
            (["--udp", address, "frobnicate"], "unknown command frobnicate"),
            (["--udp", address, "flash"], "FILE"),
            (["--udp", address, "--attempts", "x", "info"], "--attempts"),
            (["--udp", address, "flash", "missing.bin"], "missing.bin"),
            (["--udp", address, "flash", "fw.txt"], "fw.txt"),
            (["--udp", address, "flash", "bad.hex"], "bad.hex line 3"),
            (["--udp", address, "verify", "bad.srec"], "bad.srec line 2"),
            (["--udp", address, "factory", "write", "hw.txt"], "(HW): 70000"),
            (["--udp", address, "factory", "write", "mac.txt"], "(MAC)"),
            (["--udp", address, "factory", "verify", "ip.txt"], "(IPV4_ADDR)"),
            (["--udp", address, "calib", "write", "huge.bin"], "huge.bin"),
            (["--udp", address, "read", "no-such-folder/out.bin"], "no-such-folder/out.bin"),
            (["--udp", address, "read", "out.srec"], "out.srec"),
            (["--udp", address, "ports"], "no targets"),
        ]
        for args, named in cases:
            with self.subTest(args=args):
                run = self.pelmo("--json", *args)
                self.assertExit(run, 2)
                self.assertIn(named, run.err)
                report = run.json()
                self.assertEqual((False, []), (report["ok"], report["targets"]), run.describe())
                self.assertEqual([], device.new_requests())
        # No file was made, not even for a moment (a temporary left behind).
        self.assertEqual([], [p.name for p in self.folder.iterdir() if p.name.startswith(("out", "no-such", "."))])

    def test_several_devices_at_once(self):
        devices = [self.udp_device(i, *BOOT) for i in range(3)]
        targets = [f"udp:{address}" for _, address in devices]
        images = {name: firmware_image(20000, seed=n) for n, name in enumerate(("a.bin", "b.hex"))}
        self.write("a.bin", images["a.bin"])
        self.write("b.hex", hex_text(images["b.hex"], FW_ADDRESS))
        arg = ",".join(address for _, address in devices[:2])
        run = self.pelmo("--json", "--udp", arg, "--udp", devices[2][1], "flash", "a.bin")
        self.assertExit(run, 0)
        self.assertTargets(run, "flash", [(t, True) for t in targets])
        run = self.pelmo("--json", "--udp", devices[1][1], "flash", "b.hex")
        self.assertExit(run, 0)
        # Each one holds its own image: read back into one file per device.
        run = self.pelmo("--json", "--udp", arg, "--udp", devices[2][1], "read", "out.bin")
        self.assertExit(run, 0)
        for (_, address), held in zip(devices, ("a.bin", "b.hex", "a.bin")):
            with self.subTest(address=address):
                path = self.folder / f"out.udp-{address}.bin"
                self.assertEqual(stored_firmware(images[held]), path.read_bytes())
        self.assertEqual([f"out.udp-{a}.bin" for _, a in devices], [t["file"] for t in run.json()["targets"]])
        # One silent device fails alone, reported with its attempts and the time it waited.
        silent = self.udp.address(3)
        run = self.pelmo("--json", "--attempts", "3", "--timeout-ms", "100", "--udp", f"{devices[0][1]},{silent}",
                         "verify", "a.bin")
        self.assertExit(run, 1)
        ok, failed = self.assertTargets(run, "verify", [(targets[0], True), (f"udp:{silent}", False)])
        self.assertEqual("timeout", failed["result"])
        self.assertRegex(failed["message"], r"no answer from the device after 3 attempts in 0\.\d\d s")

    def test_output_files_whole_or_absent(self):
        stored = self.write("stored.bin", stored_firmware(firmware_image(30000)))
        self.write("keep.bin", b"old contents")
        # A device that goes silent half way through the read: the file keeps what it held.
        device, address = self.udp_device(0, *BOOT, "--load-firmware", str(stored), "--silent-after", "6")
        run = self.pelmo("--json", "--attempts", "2", "--timeout-ms", "50", "--udp", address, "read", "keep.bin")
        self.assertExit(run, 1)
        self.assertEqual(b"old contents", (self.folder / "keep.bin").read_bytes())
        self.assertEqual([], [p.name for p in self.folder.iterdir() if p.name.endswith(".tmp")])
        if cli_e2e.under_wine() or not os.path.exists("/dev/full"):
            return
        device.stop()
        device, _ = self.udp_device(0, *BOOT, "--load-firmware", str(stored))
        run = self.pelmo("--json", "--udp", address, "read", "/dev/full")
        self.assertExit(run, 1)
        (target,) = self.assertTargets(run, "read", [(f"udp:{address}", False)])
        self.assertEqual("output", target["result"])
        self.assertIn("No space left on device", target["message"])


if __name__ == "__main__":
    cli_e2e.main()

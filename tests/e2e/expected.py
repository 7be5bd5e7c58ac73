"""What PelmoWin must print and send, built from the program's rules (status widths, labels,
displays, transfer patterns), never copied from its output."""

from __future__ import annotations

import sys
from dataclasses import dataclass
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "tools"))
from sample_image import FirmwareHeader  # noqa: E402

BANNER = "PelmoWin (version 1.19) - Quillmark bootloader (serial line/ IP UDP)\n\n"
_TABLES = {"f": "factory table ", "c": "calibration table ", "b": "calibration backup table "}
_OPTION_HELP = [("-i", "read information about FW"), *[
    (f"-{o}{s}", f"{verb} {_TABLES[s] if s else 'firmware'}") for s in ("", "f", "c", "b")
    for o, verb in (("r", "read"), ("e", "erase"), ("w", "write"), ("v", "verificate"),
                    ("ewv", "erase, write and verify"))], ("-ectrl", "clear control"), ("-rctrl", "read control"),
    ("-rst", "restart")]
USAGE = "".join(line + "\n" for line in [
    "Usage:  PelmoWin.exe <connection> <timeout> <options> filename.bin", "Connection",
    "  Ser.Port:  @<n> = COM port n ", "  UDP IP:    #<a.b.c.d> = IP address a.b.c.d ",
    "Timeout:     *<n>   = extra timeout for nested comunications",
    "Options:     -iv    = read information about bootloader version",
    *[" " * 13 + f"{option:<6} = {text}" for option, text in _OPTION_HELP], "",
    'Example:  "PelmoWin.exe #192.168.1.15 -ewv Firmware.bin"', ""])
BAD_PARAMS = BANNER + "Bad params !!!\n\n" + USAGE


def ok(width: int) -> str:
    return "OK".ljust(width) + "\n"


def error(width: int) -> str:
    return "Error".ljust(width) + "\n"


def step(label: str, status: str) -> str:
    """A step once its progress writes are removed: its label when it begins, then label and status."""
    return "\r" + label + "\r" + label + status


def line(text: str) -> str:
    return text + "\n"


def run_output(body: str, result: int) -> str:
    return BANNER + body + (f"Last operation error code: {result}\n" if result < 0 else "") + "\nOperations last N s\n"


class Label:
    FW_INFO, BOOT_INFO = "Reading FW information ", "Reading bootloader information "
    RESTART, CLEAR_CTRL, READ_CTRL = "Restarting target device ", "Clearing PELMO Control ", "Reading PELMO Control "
    READ_FW, WRITE_FW, VERIFY_FW, ERASE_FW = "Reading FW ", "Writing FW ", "Verificating FW ", "Erasing FW "
    READ_FACTORY, WRITE_FACTORY = "Reading factory table ", "Writing factory table "
    VERIFY_FACTORY, ERASE_FACTORY = "Verificating factory table ", "Erasing factory table "


def calib_label(action: str, backup: bool) -> str:
    return f"{action} {'backup ' if backup else ''}calibration table "


def firmware_info_display(header: FirmwareHeader, size: int, crc: int) -> str:
    text = f"Name:       {header.name}\nVersion:    {header.major}.{header.minor:02d}.{header.patch:03d}"
    if header.debug:
        return text + f" (DEBUG)\nCompiled:   {header.date} {header.time}\n"
    return text + f"\nCompiled:   {header.date} {header.time}\nSize:       {size}\nCRC32:      0x{crc:08X}\n"


@dataclass
class BootloaderValues:
    name: str
    version: tuple[int, int]
    date: str
    time: str
    fw_address: int
    fw_max_size: int

    def options(self) -> list[str]:
        return ["--fw-address", hex(self.fw_address), "--fw-max-size", str(self.fw_max_size), "--bl-name",
                self.name, "--bl-version", "%d.%d" % self.version, "--bl-date", self.date, "--bl-time", self.time]

    def display(self) -> str:
        return (f"Name:        {self.name}\nVersion:     {self.version[0]}.{self.version[1]:02d}\n"
                f"Compiled:    {self.date} {self.time}\n" + "-" * 39 + f"\nFW Address:  {self.fw_address:08X}\n"
                f"FW Max.size: {self.fw_max_size:08X}\n")


def control_display(struct_version: int, reset_count: int) -> str:
    return f"Struct version:    {struct_version}\nReset count:       {reset_count}\n"


@dataclass
class FactoryValues:
    type: str = "PelmoBox"
    sn: str = "SN-0042 A"
    hw: int = 7
    modif: int = 3
    mac: tuple = (0x0A, 0x1B, 0x2C, 0x3D, 0x4E, 0x5F)
    dhcp: int = 0
    ipv6: bool = False
    ip_addr: tuple = (192, 168, 1, 15)
    ip_mask: tuple = (255, 255, 255, 0)
    ip_gtw: tuple = (192, 168, 1, 1)

    def rows(self) -> list[tuple[str, str]]:
        form, width = ("IPV6", 6) if self.ipv6 else ("IPV4", 4)
        return [("TYPE:", f'"{self.type}"'), ("SN:", f'"{self.sn}"'), ("HW:", str(self.hw)),
                ("MODIF:", str(self.modif)), ("MAC:", ":".join(f"{b:02X}" for b in self.mac)),
                ("DHCP:", str(self.dhcp)), *[(f"{form}_{key}:", ".".join(str(n) for n in numbers[:width]))
                                             for key, numbers in (("ADDR", self.ip_addr), ("MASK", self.ip_mask),
                                                                  ("GTW", self.ip_gtw))]]


EMPTY_FACTORY = FactoryValues(type="", sn="", hw=0, modif=0, mac=(0,) * 6, ip_addr=(0,) * 4, ip_mask=(0,) * 4,
                              ip_gtw=(0,) * 4)


def factory_lines(values: FactoryValues) -> str:
    return "".join(f"{key:<11} {value}\n" for key, value in values.rows())


def factory_listing(values: FactoryValues) -> str:
    return "Factory table values:\n" + factory_lines(values) + "\n"


def factory_file(values: FactoryValues) -> str:
    return "# Factory table values:\n" + factory_lines(values)


# ---- the requests of each transfer, as (name, address, length) in the device log's names ----
UDP_CHUNK, SERIAL_CHUNK = 1012, 244
FACTORY_WRITE = [("BEGIN_WRITE", 0, 0), ("WRITE_FACTORY", 0, 120), ("END_FACTORY", 0, 0)]
FACTORY_VERIFY = [("VERIFY_FACTORY", 8, 112)]


def single(name: str) -> list[tuple]:
    return [(name, 0, 0)]


def firmware_write(length: int, chunk: int) -> list[tuple]:
    """Blocks of the chunk rounded down to whole 8-byte units, each sent padded to 8 bytes."""
    step_ = chunk - chunk % 8
    return [("BEGIN_WRITE", 0, 0), *[("WRITE_FW", off, (min(step_, length - off) + 7) // 8 * 8)
                                     for off in range(0, length, step_)], ("END_FW", 0, 0)]


def firmware_verify(length: int, chunk: int) -> list[tuple]:
    step_ = chunk - chunk % 8
    return [("VERIFY_FW", off, min(step_, length - off)) for off in range(8, length, step_)]


def chunked_read(name: str, stored: int, chunk: int) -> list[tuple]:
    """A chunk at each offset reached, until the device reports the end of data at `stored`."""
    return [(name, off, chunk) for off in range(0, stored, chunk)] + [(name, stored, chunk)]


def calibration(action: str, length: int, chunk: int, backup: bool) -> list[tuple]:
    """ERASE, READ, WRITE (table opened twice, blocks, END) or VERIFY of a calibration table."""
    suffix = "CALIB_BACKUP" if backup else "CALIB"
    if action in ("ERASE", "READ"):
        return single("ERASE_" + suffix) if action == "ERASE" else chunked_read("READ_" + suffix, length, chunk)
    blocks = [(f"{action}_{suffix}", off, min(chunk, length - off)) for off in range(0, length, chunk)]
    return [("BEGIN_WRITE", 0, 0)] * 2 + blocks + single("END_" + suffix) if action == "WRITE" else blocks

"""The console texts PelmoWin prints, built from the program's own rules.

Everything here is written from the rules of the program (status widths, labels, displays), never
copied from its output, so that a test compares the program against what it must print.
"""

from __future__ import annotations

import struct
import sys
from dataclasses import dataclass
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "tools"))
from sample_image import FirmwareHeader  # noqa: E402

BANNER = "PelmoWin (version 1.19) - Quillmark bootloader (serial line/ IP UDP)\n\n"

_OPTION_HELP = [
    ("-i", "read information about FW"),
    ("-r", "read firmware"),
    ("-e", "erase firmware"),
    ("-w", "write firmware"),
    ("-v", "verificate firmware"),
    ("-ewv", "erase, write and verify firmware"),
    ("-rf", "read factory table "),
    ("-ef", "erase factory table "),
    ("-wf", "write factory table "),
    ("-vf", "verificate factory table "),
    ("-ewvf", "erase, write and verify factory table "),
    ("-rc", "read calibration table "),
    ("-ec", "erase calibration table "),
    ("-wc", "write calibration table "),
    ("-vc", "verificate calibration table "),
    ("-ewvc", "erase, write and verify calibration table "),
    ("-rb", "read calibration backup table "),
    ("-eb", "erase calibration backup table "),
    ("-wb", "write calibration backup table "),
    ("-vb", "verificate calibration backup table "),
    ("-ewvb", "erase, write and verify calibration backup table "),
    ("-ectrl", "clear control"),
    ("-rctrl", "read control"),
    ("-rst", "restart"),
]

USAGE = "".join(
    line + "\n"
    for line in [
        "Usage:  PelmoWin.exe <connection> <timeout> <options> filename.bin",
        "Connection",
        "  Ser.Port:  @<n> = COM port n ",
        "  UDP IP:    #<a.b.c.d> = IP address a.b.c.d ",
        "Timeout:     *<n>   = extra timeout for nested comunications",
        "Options:     -iv    = read information about bootloader version",
        *[" " * 13 + f"{option:<6} = {text}" for option, text in _OPTION_HELP],
        "",
        'Example:  "PelmoWin.exe #192.168.1.15 -ewv Firmware.bin"',
        "",
    ]
)

BAD_PARAMS = BANNER + "Bad params !!!\n\n" + USAGE


def ok(width: int) -> str:
    """The OK status text of a step, padded to its width."""
    return "OK".ljust(width) + "\n"


def error(width: int) -> str:
    """The Error status text of a step, padded to its width."""
    return "Error".ljust(width) + "\n"


def step(label: str, status: str) -> str:
    """One step as it stays on the console once its progress writes are removed: the label shown
    when the step begins, then the label rewritten with its status."""
    return "\r" + label + "\r" + label + status


def line(text: str) -> str:
    return text + "\n"


def closing(result: int) -> str:
    """The run's last lines; the seconds are normalised to N by the fixture."""
    head = f"Last operation error code: {result}\n" if result < 0 else ""
    return head + "\nOperations last N s\n"


def exit_status(result: int) -> int:
    return 255 if result < 0 else 0


def run_output(body: str, result: int) -> str:
    """A run that reached its operation: banner, the operation's output, the closing lines."""
    return BANNER + body + closing(result)


# Labels of the steps, one place for every test.
class Label:
    FW_INFO = "Reading FW information "
    BOOT_INFO = "Reading bootloader information "
    CLEAR_CTRL = "Clearing PELMO Control "
    READ_CTRL = "Reading PELMO Control "
    RESTART = "Restarting target device "
    READ_FW = "Reading FW "
    WRITE_FW = "Writing FW "
    VERIFY_FW = "Verificating FW "
    ERASE_FW = "Erasing FW "
    READ_FACTORY = "Reading factory table "
    WRITE_FACTORY = "Writing factory table "
    VERIFY_FACTORY = "Verificating factory table "
    ERASE_FACTORY = "Erasing factory table "


def calib_label(action: str, backup: bool) -> str:
    """"Reading calibration table " / "Reading backup calibration table " and so on."""
    return f"{action} {'backup ' if backup else ''}calibration table "


# ---- record displays ----


def firmware_info_display(header: FirmwareHeader, size: int, crc: int) -> str:
    text = f"Name:       {header.name}\n"
    text += f"Version:    {header.major}.{header.minor:02d}.{header.patch:03d}"
    if header.debug:
        return text + " (DEBUG)\n" + f"Compiled:   {header.date} {header.time}\n"
    return (
        text
        + "\n"
        + f"Compiled:   {header.date} {header.time}\n"
        + f"Size:       {size}\n"
        + f"CRC32:      0x{crc:08X}\n"
    )


@dataclass
class BootloaderValues:
    name: str
    major: int
    minor: int
    date: str
    time: str
    fw_address: int
    fw_max_size: int


def bootloader_info_display(info: BootloaderValues) -> str:
    return (
        f"Name:        {info.name}\n"
        f"Version:     {info.major}.{info.minor:02d}\n"
        f"Compiled:    {info.date} {info.time}\n"
        + "-" * 39
        + "\n"
        + f"FW Address:  {info.fw_address:08X}\n"
        + f"FW Max.size: {info.fw_max_size:08X}\n"
    )


def control_display(struct_version: int, reset_count: int) -> str:
    return f"Struct version:    {struct_version}\nReset count:       {reset_count}\n"


# ---- factory table ----


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

    def record(self) -> bytes:
        """The 120-byte record a text file of these values becomes."""
        width = 6 if self.ipv6 else 4

        def address(values):
            return bytes(values[:width]).ljust(6, b"\0")

        return (
            bytes(24)
            + struct.pack("<HH", self.modif, self.hw)
            + bytes(self.mac)
            + address(self.ip_addr)
            + address(self.ip_mask)
            + address(self.ip_gtw)
            + bytes([1 if self.ipv6 else 0, self.dhcp])
            + self.type.encode().ljust(32, b"\0")
            + self.sn.encode().ljust(32, b"\0")
            + bytes(2)
        )


def factory_lines(values: FactoryValues) -> str:
    """The nine lines of the factory table listing, the same on the console and in a file."""
    form = "IPV6" if values.ipv6 else "IPV4"

    def dotted(numbers) -> str:
        return ".".join(str(n) for n in numbers[: 6 if values.ipv6 else 4])

    rows = [
        ("TYPE:", f'"{values.type}"'),
        ("SN:", f'"{values.sn}"'),
        ("HW:", str(values.hw)),
        ("MODIF:", str(values.modif)),
        ("MAC:", ":".join(f"{b:02X}" for b in values.mac)),
        ("DHCP:", str(values.dhcp)),
        (f"{form}_ADDR:", dotted(values.ip_addr)),
        (f"{form}_MASK:", dotted(values.ip_mask)),
        (f"{form}_GTW:", dotted(values.ip_gtw)),
    ]
    return "".join(f"{key:<11} {value}\n" for key, value in rows)


def factory_listing(values: FactoryValues) -> str:
    """The listing on the console: heading, nine lines, an empty line."""
    return "Factory table values:\n" + factory_lines(values) + "\n"


def factory_file(values: FactoryValues) -> str:
    """The text file the program writes after reading the table."""
    return "# Factory table values:\n" + factory_lines(values)

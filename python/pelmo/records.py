"""What the device reports and holds, as frozen dataclasses: firmware and bootloader information,
the control record, the factory table, and the summary of an operation."""

from __future__ import annotations

from dataclasses import dataclass
from typing import Optional

from . import _pelmo
from .errors import FactoryTableError


@dataclass(frozen=True)
class FirmwareInfo:
    """The information header of the firmware the device holds."""

    name: str
    version_major: int
    version_minor: int
    version_patch: int
    compile_date: str
    compile_time: str
    size: int  #: the length the device sealed when the firmware was written
    crc32: int  #: CRC-32/MPEG-2 of the firmware from byte 8 on
    debug: bool  #: a debug build (its size and CRC fields hold markers instead)

    @property
    def version(self) -> str:
        """The version as the console tool shows it: ``1.02.003``."""
        return f"{self.version_major}.{self.version_minor:02d}.{self.version_patch:03d}"


@dataclass(frozen=True)
class BootloaderInfo:
    """The bootloader's information and the firmware area it manages."""

    name: str
    version_major: int
    version_minor: int
    compile_date: str
    compile_time: str
    fw_address: int  #: the firmware area's first address
    fw_max_size: int  #: the firmware area's size in bytes

    @property
    def version(self) -> str:
        """The version as the console tool shows it: ``1.00``."""
        return f"{self.version_major}.{self.version_minor:02d}"


@dataclass(frozen=True)
class DeviceInfo:
    """What info() found: the firmware (None when the device holds no valid firmware) and the
    bootloader."""

    firmware: Optional[FirmwareInfo]
    bootloader: BootloaderInfo


@dataclass(frozen=True)
class ControlRecord:
    """The two fields of the bootloader's control record the host reads."""

    struct_version: int
    reset_count: int


@dataclass(frozen=True)
class Result:
    """What an operation did: its one-line summary, the bytes it moved, its wall time, and
    whether a flash found the image already on the device and wrote nothing."""

    message: str
    bytes: int
    seconds: float
    skipped: bool = False


# Text key -> field, for reading the table's canonical text.
_FIELD_OF_KEY = {
    "TYPE": "type", "SN": "sn", "HW": "hw", "MODIF": "modif", "MAC": "mac", "DHCP": "dhcp",
    "IPV4_ADDR": "ip_addr", "IPV6_ADDR": "ip_addr", "IPV4_MASK": "ip_mask", "IPV6_MASK": "ip_mask",
    "IPV4_GTW": "ip_gtw", "IPV6_GTW": "ip_gtw",
}


def _canonical_text(text: str) -> str:
    try:
        return _pelmo.canonical_factory_text(text.encode("latin-1"))
    except UnicodeEncodeError as error:
        raise FactoryTableError(-1, f"a character outside Latin-1: {error.object[error.start]!r}") from None
    except _pelmo.Failure as failure:
        raise FactoryTableError(failure.args[1], failure.args[2]) from None


def _canonical_values(canonical: str) -> dict[str, object]:
    """The fields of a table's canonical text (as factory_table_text prints it)."""
    values: dict[str, object] = {}
    for line in canonical.splitlines():
        key, colon, value = line.partition(":")
        if line.startswith("#") or not colon:
            continue
        value = value.strip()
        field = _FIELD_OF_KEY[key]
        if field in ("type", "sn"):
            values[field] = value[1:-1]  # printed between double quotes
        elif field in ("hw", "modif"):
            values[field] = int(value)
        elif field == "dhcp":
            values[field] = value == "1"
        else:
            values[field] = value
    return values


@dataclass(frozen=True)
class FactoryTable:
    """The device's identity and network record. Addresses are written as in the text form: four
    dotted numbers for IPv4, six for the IPv6 form; ``mac`` is six hexadecimal pairs joined by
    colons. A table is checked strictly when it is made (FactoryTableError), so every table can
    be written."""

    type: str
    sn: str
    hw: int
    modif: int
    mac: str
    dhcp: bool
    ip_addr: str
    ip_mask: str
    ip_gtw: str

    def __post_init__(self) -> None:
        # Values as the device will hold them: "0a:1b:..." reads back as "0A:1B:...".
        for field, value in _canonical_values(self.to_text()).items():
            object.__setattr__(self, field, value)

    @property
    def ipv6(self) -> bool:
        """True when the addresses are in the six-number form."""
        return self.ip_addr.count(".") == 5

    @classmethod
    def from_text(cls, text: str) -> "FactoryTable":
        """The table a text of ``KEY: value`` lines describes, checked strictly: every key once,
        each value in its field's range, no unknown line (``#`` comments and blank lines aside)."""
        return cls(**_canonical_values(_canonical_text(text)))  # type: ignore[arg-type]

    def to_text(self) -> str:
        """The text form the console tool writes; from_text reads it back to an equal table."""
        form = "IPV6" if self.ipv6 else "IPV4"
        dhcp = int(self.dhcp) if isinstance(self.dhcp, bool) else self.dhcp
        return _canonical_text(
            f'TYPE: "{self.type}"\nSN: "{self.sn}"\nHW: {self.hw}\nMODIF: {self.modif}\n'
            f"MAC: {self.mac}\nDHCP: {dhcp}\n{form}_ADDR: {self.ip_addr}\n"
            f"{form}_MASK: {self.ip_mask}\n{form}_GTW: {self.ip_gtw}\n")

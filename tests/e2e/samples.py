"""Input files the tests generate: firmware images (raw, Intel HEX), factory texts, calibration tables."""

from __future__ import annotations

import random
import struct
import sys
from pathlib import Path

from expected import FactoryValues

# The image maker users run is the one the tests use.
sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "tools"))
from sample_image import FirmwareHeader, bin_to_hex, crc32_mpeg2, firmware_image  # noqa: E402,F401


def stored_firmware(image: bytes) -> bytes:
    """The image as the device holds it once written: its length and the CRC of bytes 8 on first."""
    return struct.pack("<II", len(image), crc32_mpeg2(image[8:])) + image[8:]


def write_bin(path: Path, data: bytes) -> Path:
    path.write_bytes(data)
    return path


def write_files(folder: Path, files: dict[str, bytes | str]) -> None:
    for name, data in files.items():
        write_bin(folder / name, data.encode() if isinstance(data, str) else data)


def hex_record(record_type: int, address: int, data: bytes = b"", checksum_delta: int = 0) -> str:
    """One Intel HEX record without its line end; `checksum_delta` spoils the checksum."""
    body = bytes([len(data), (address >> 8) & 0xFF, address & 0xFF, record_type]) + data
    return ":" + (body + bytes([(-sum(body) + checksum_delta) & 0xFF])).hex().upper()


HEX_EOF = hex_record(0x01, 0)


def calibration_table(length: int, seed: int = 7) -> bytes:
    return random.Random(seed).randbytes(length)


def factory_text(values: FactoryValues, drop: tuple[str, ...] = (), extra: str = "") -> str:
    """A factory text as a user writes it: a comment, keys in mixed case, values unquoted or quoted,
    CR LF on some lines; keys in `drop` left out."""
    rows = dict(values.rows())
    rows["TYPE:"], rows["MAC:"], rows["MODIF:"] = values.type, rows["MAC:"].lower(), f"{values.modif}\r"
    rows["DHCP:"] += "\r"
    lines = ["# factory table of the test device"] + [
        f"{key.capitalize() if key == 'HW:' else key.lower() if key == 'SN:' else key} {value}"
        for key, value in rows.items() if key not in drop]
    return "".join(text + "\n" for text in lines) + extra

#!/usr/bin/env python3
"""Makes a sample firmware image for trying PelmoWin against pelmo-device.

The image starts with the 96-byte firmware information header the bootloader reports with -i
(size and CRC left zero: the device fills them in when a write ends), followed by seeded
pseudo-random contents. With --hex it is also written as Intel HEX at the firmware address.

    python3 tools/sample_image.py sample.bin --size 8192 --hex sample.hex --address 0x08000000
"""

from __future__ import annotations

import argparse
import random
import shutil
import struct
import subprocess
from dataclasses import dataclass
from pathlib import Path

FW_MAGIC = 0x136AA631
DEBUG_MARKERS = (0x55555555, 0xAAAAAAAA, 0xDBDBDBDB)
FW_HEADER_SIZE = 96


@dataclass
class FirmwareHeader:
    name: str = "DemoFW"
    major: int = 1
    minor: int = 2
    patch: int = 3
    date: str = "Nov 23 2026"
    time: str = "12:34:56"
    debug: bool = False


def crc32_mpeg2(data: bytes) -> int:
    """CRC-32/MPEG-2: polynomial 0x04C11DB7, initial value 0xFFFFFFFF, no reflection, no final XOR."""
    crc = 0xFFFFFFFF
    for byte in data:
        crc ^= byte << 24
        for _ in range(8):
            crc = ((crc << 1) ^ 0x04C11DB7) if crc & 0x80000000 else (crc << 1)
            crc &= 0xFFFFFFFF
    return crc


def firmware_header(header: FirmwareHeader, magic: int = FW_MAGIC) -> bytes:
    """The 96-byte header; bytes 0 to 7 (size, CRC) stay zero for the device to fill in."""
    markers = DEBUG_MARKERS if header.debug else (0, 0, 0)
    return (
        struct.pack("<II", 0, 0)
        + struct.pack("<III", *markers)
        + struct.pack("<I", magic)
        + struct.pack("<HHHH", header.major, header.minor, header.patch, 0)
        + header.name.encode()[:31].ljust(32, b"\0")
        + header.date.encode()[:15].ljust(16, b"\0")
        + header.time.encode()[:15].ljust(16, b"\0")
    )


def firmware_image(
    length: int, header: FirmwareHeader | None = None, seed: int = 1, magic: int = FW_MAGIC
) -> bytes:
    """An image of `length` bytes: the header, then seeded pseudo-random contents."""
    head = firmware_header(header or FirmwareHeader(), magic)
    body = random.Random(seed).randbytes(max(0, length - len(head)))
    return (head + body)[:length]


def bin_to_hex(bin_path: Path, hex_path: Path, address: int) -> Path:
    """Converts a raw image into Intel HEX placed at `address`, as a firmware build would."""
    objcopy = shutil.which("objcopy")
    if objcopy is None:
        raise RuntimeError("objcopy (binutils) is needed to write Intel HEX")
    subprocess.run(
        [objcopy, "-I", "binary", "-O", "ihex", "--change-addresses", hex(address), bin_path, hex_path],
        check=True,
        timeout=30,
    )
    return hex_path


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("output", type=Path, help="raw image to write (.bin)")
    parser.add_argument("--size", type=int, default=8192, help="image length in bytes (default 8192)")
    parser.add_argument("--name", default="SampleFW", help="firmware name in the header")
    parser.add_argument("--version", default="1.0.0", help="MAJOR.MINOR.PATCH (default 1.0.0)")
    parser.add_argument("--debug", action="store_true", help="mark the image as a debug build")
    parser.add_argument("--seed", type=int, default=1, help="seed of the contents")
    parser.add_argument("--hex", type=Path, help="also write the image as Intel HEX here")
    parser.add_argument("--address", type=lambda t: int(t, 0), default=0x08000000,
                        help="device address of the HEX image (default 0x08000000)")
    args = parser.parse_args()
    if args.size < FW_HEADER_SIZE:
        parser.error(f"--size must be at least {FW_HEADER_SIZE} (the information header)")
    major, minor, patch = (int(part) for part in args.version.split("."))
    header = FirmwareHeader(name=args.name, major=major, minor=minor, patch=patch, debug=args.debug)
    args.output.write_bytes(firmware_image(args.size, header, args.seed))
    if args.hex:
        bin_to_hex(args.output, args.hex, args.address)


if __name__ == "__main__":
    main()

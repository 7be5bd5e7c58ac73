"""The request frames the program must send for each transfer, as (name, address, length) tuples in
the device log's names, worked out from the transfer patterns and the link's chunk size."""

from __future__ import annotations

UDP_CHUNK = 1012
SERIAL_CHUNK = 244


def firmware_step(chunk: int) -> int:
    """Write and verify advance by the chunk size rounded down to whole 8-byte units."""
    return chunk - chunk % 8


def _round_up8(value: int) -> int:
    return (value + 7) // 8 * 8


def firmware_write(length: int, chunk: int) -> list[tuple]:
    step = firmware_step(chunk)
    blocks = [("WRITE_FW", off, _round_up8(min(step, length - off))) for off in range(0, length, step)]
    return [("BEGIN_WRITE", 0, 0), *blocks, ("END_FW", 0, 0)]


def firmware_verify(length: int, chunk: int) -> list[tuple]:
    step = firmware_step(chunk)
    return [("VERIFY_FW", off, min(step, length - off)) for off in range(8, length, step)]


def chunked_read(name: str, stored: int, chunk: int) -> list[tuple]:
    """Requests for `chunk` bytes at the offset reached, until the device reports the end of
    data at offset `stored`."""
    offsets, offset = [], 0
    while offset < stored:
        offsets.append(offset)
        offset += min(chunk, stored - offset)
    offsets.append(stored)
    return [(name, off, chunk) for off in offsets]


def calibration_write(length: int, chunk: int, backup: bool) -> list[tuple]:
    suffix = "CALIB_BACKUP" if backup else "CALIB"
    blocks = [(f"WRITE_{suffix}", off, min(chunk, length - off)) for off in range(0, length, chunk)]
    return [("BEGIN_WRITE", 0, 0), ("BEGIN_WRITE", 0, 0), *blocks, (f"END_{suffix}", 0, 0)]


def calibration_verify(length: int, chunk: int, backup: bool) -> list[tuple]:
    suffix = "CALIB_BACKUP" if backup else "CALIB"
    return [(f"VERIFY_{suffix}", off, min(chunk, length - off)) for off in range(0, length, chunk)]


def calibration_erase(backup: bool) -> list[tuple]:
    return [("ERASE_CALIB_BACKUP" if backup else "ERASE_CALIB", 0, 0)]


def calibration_read(stored: int, chunk: int, backup: bool) -> list[tuple]:
    return chunked_read("READ_CALIB_BACKUP" if backup else "READ_CALIB", stored, chunk)


FACTORY_SIZE = 120
FACTORY_WRITE = [("BEGIN_WRITE", 0, 0), ("WRITE_FACTORY", 0, 120), ("END_FACTORY", 0, 0)]
FACTORY_VERIFY = [("VERIFY_FACTORY", 8, 112)]
FACTORY_ERASE = [("ERASE_FACTORY", 0, 0)]


def single(name: str) -> list[tuple]:
    """A command of one exchange with address 0 and no payload."""
    return [(name, 0, 0)]

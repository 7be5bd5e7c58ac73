"""Firmware images: files read whole before any device is asked anything, or raw bytes."""

from __future__ import annotations

import os
from dataclasses import dataclass
from typing import Union

from . import _pelmo
from .errors import ImageError


@dataclass(frozen=True)
class Segment:
    """Bytes that belong at consecutive device addresses (a raw image: offsets from the area's
    start)."""

    address: int
    data: bytes


class Image:
    """A firmware image as read from a file or bytes, not yet placed into a device's area: the
    device's firmware area decides where it goes, and a flash refuses an image that does not fit
    (ImageError) before anything is erased."""

    __slots__ = ("_file", "name")

    def __init__(self, file: _pelmo.FirmwareFile, name: str) -> None:
        self._file = file
        self.name = name  #: the file's path, or "<bytes>"

    @classmethod
    def from_bytes(cls, data: Union[bytes, bytearray, memoryview], format: str = "raw",
                   name: str = "<bytes>") -> "Image":
        """An image from contents in memory. ``format`` is ``raw`` (byte 0 at the area's start),
        ``intel-hex``, ``s-record`` or ``elf``, or an extension that names one (``hex``, ``s19``)."""
        try:
            return cls(_pelmo.parse_firmware_file(format, bytes(data), name), name)
        except _pelmo.Failure as failure:
            raise ImageError(failure.args[1], failure.args[2]) from None

    @property
    def format(self) -> str:
        """``raw``, ``intel-hex``, ``s-record`` or ``elf``."""
        return self._file.format

    @property
    def segments(self) -> list[Segment]:
        """The file's segments in its order; where two overlap, the later one's bytes count."""
        return [Segment(address, data) for address, data in self._file.segments]

    @property
    def data_bytes(self) -> int:
        """The data bytes of all segments."""
        return self._file.data_bytes

    def __repr__(self) -> str:
        return f"<pelmo.Image {self.name!r} {self.format}, {self.data_bytes} bytes>"


ImageLike = Union[Image, bytes, bytearray, memoryview]


def load_image(path: Union[str, os.PathLike]) -> Image:
    """Reads a firmware file in the format its extension names: .bin (raw), .hex (Intel HEX),
    .srec/.s19/.s28/.s37 (S-record) or .elf. Raises ImageError naming the line or segment at
    fault."""
    name = os.fspath(path)
    try:
        return Image(_pelmo.load_firmware_file(name), name)
    except _pelmo.Failure as failure:
        raise ImageError(failure.args[1], failure.args[2]) from None


def as_image(image: ImageLike) -> Image:
    """``image`` itself, or raw bytes as an image from the area's start."""
    return image if isinstance(image, Image) else Image.from_bytes(image)

"""The exceptions the pelmo package raises: one class per kind of failure, under PelmoError."""

from __future__ import annotations

from typing import Optional


class PelmoError(Exception):
    """A failed operation.

    Attributes:
        code: the library's result code (negative; a device status ``s`` is ``s - 256``).
        message: one line naming the cause.
        device: the device's name (``udp:192.168.1.15``), or ``None`` for a local input.
    """

    kind = "failed"

    def __init__(self, code: int, message: str, device: Optional[str] = None) -> None:
        super().__init__(f"{device}: {message}" if device else message)
        self.code = code
        self.message = message
        self.device = device


class DeviceStatusError(PelmoError):
    """The device answered with a non-zero status; ``status`` holds that byte."""

    kind = "device-status"

    @property
    def status(self) -> int:
        """The status byte the device answered with (0x01 to 0xFF)."""
        return self.code & 0xFF


class LinkTimeoutError(PelmoError):
    """The device did not answer within the attempts and the deadline."""

    kind = "timeout"


class ProtocolError(PelmoError):
    """An answer that did not fit the request: CRC, length, record size or echo."""

    kind = "protocol"


class VerifyError(PelmoError):
    """A verify found the device's data different from the host's."""

    kind = "mismatch"


class ImageError(PelmoError, ValueError):
    """A firmware file that cannot be read, or an image that does not fit the device's area."""

    kind = "input"


class FactoryTableError(PelmoError, ValueError):
    """A factory table text or value the strict check refuses."""

    kind = "factory-table"


class LinkError(PelmoError):
    """The link could not be opened, or is closed (after close() or restart())."""

    kind = "link"


class CancelledError(PelmoError):
    """The work was stopped: by a progress callback (False or an exception, then in
    ``__cause__``) or by Device.cancel()."""

    kind = "cancelled"


_BY_KIND = {cls.kind: cls for cls in (DeviceStatusError, LinkTimeoutError, ProtocolError, VerifyError,
                                      ImageError, LinkError, CancelledError)}


def error_from_failure(kind: str, code: int, message: str, device: Optional[str] = None) -> PelmoError:
    """The exception for a failure of the given kind (the library's kind names)."""
    return _BY_KIND.get(kind, PelmoError)(code, message, device)

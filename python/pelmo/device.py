"""Device: one bootloader device, reached over UDP or a serial line."""

from __future__ import annotations

import time
from typing import Any, Callable, Optional, Union

from . import _pelmo
from .errors import DeviceStatusError, error_from_failure
from .image import ImageLike, as_image
from .records import BootloaderInfo, ControlRecord, DeviceInfo, FactoryTable, FirmwareInfo, Result

#: ``progress(device, step, done, total)``: ``device`` is the device's name, ``step`` one of
#: query, erase, write, verify, read, compare; ``done`` and ``total`` count bytes (``total`` is 0
#: where the size is not known). Returning False, or raising, cancels the operation.
Progress = Callable[[str, str, int, int], Optional[bool]]

# The firmware statuses of a device that holds no valid firmware: no header, a wrong CRC.
_NO_FIRMWARE = (0xFA, 0xF9)


class _Callback:
    """The caller's progress callable as the extension calls it: an exception it raises is kept
    for the caller and turned into a cancel."""

    def __init__(self, progress: Progress) -> None:
        self.progress = progress
        self.raised: Optional[BaseException] = None

    def __call__(self, device: str, step: str, done: int, total: int) -> bool:
        try:
            return self.progress(device, step, done, total) is not False
        except BaseException as error:  # noqa: B036 - handed back to the caller after the cancel
            self.raised = error
            return False


class Device:
    """One device: a context manager that closes the link on exit. Every operation releases the
    interpreter lock while it talks to the device, so devices driven from several threads work in
    parallel; one device runs one operation at a time.

    Failures raise the PelmoError subclass of their kind, with the device's name in ``device``. A
    cancelled operation (a progress callback returned False or raised, or cancel() was called)
    raises CancelledError after the link stopped cleanly between two exchanges; the callback's
    exception is its ``__cause__``, except KeyboardInterrupt and SystemExit, which are re-raised as
    they are. Ctrl+C stops an operation running on the main thread the same way and raises
    KeyboardInterrupt. The device stays open and usable: repeat the operation (a cancelled flash
    left the area partly written)."""

    def __init__(self, session: _pelmo.Session) -> None:
        self._session = session

    @property
    def name(self) -> str:
        """``udp:192.168.1.15``, ``serial:/dev/ttyUSB0``, ``serial:COM3``."""
        return self._session.name

    @property
    def is_open(self) -> bool:
        """False after close() and restart()."""
        return self._session.is_open

    def __enter__(self) -> "Device":
        return self

    def __exit__(self, *exc_info: Any) -> None:
        self.close()

    def __repr__(self) -> str:
        return f"<pelmo.Device {self.name} {'open' if self.is_open else 'closed'}>"

    def close(self) -> None:
        """Closes the link (and lets go of the shared UDP hub). Calling it again does nothing."""
        self._session.close()

    def cancel(self) -> None:
        """Stops the operation under way, from any thread: it raises CancelledError."""
        self._session.cancel()

    def _call(self, method: Callable[..., Any], *args: Any, progress: Optional[Progress]) -> Any:
        callback = _Callback(progress) if progress is not None else None
        try:
            value = method(*args, callback)
        except _pelmo.Failure as failure:
            raised = callback.raised if callback else None
            if raised is not None and not isinstance(raised, Exception):
                raise raised from None
            kind, code, message = failure.args
            raise error_from_failure(kind, code, message, self.name) from raised
        if callback and callback.raised is not None:
            raise callback.raised  # the operation had nothing left to cancel
        return value

    def _operation(self, method: Callable[..., Any], *args: Any,
                   progress: Optional[Progress] = None) -> Result:
        started = time.monotonic()
        message, moved, skipped = self._call(method, *args, progress=progress)
        return Result(message, moved, time.monotonic() - started, skipped)

    # Information

    def firmware_info(self, progress: Optional[Progress] = None) -> FirmwareInfo:
        """The firmware's information header. DeviceStatusError (status 0xFA or 0xF9) when the
        device holds no valid firmware."""
        return FirmwareInfo(**self._call(self._session.firmware_info, progress=progress))

    def bootloader_info(self, progress: Optional[Progress] = None) -> BootloaderInfo:
        """The bootloader's information and its firmware area."""
        return BootloaderInfo(**self._call(self._session.bootloader_info, progress=progress))

    def info(self, progress: Optional[Progress] = None) -> DeviceInfo:
        """Firmware and bootloader information; ``firmware`` is None when the device holds no valid
        firmware."""
        bootloader = self.bootloader_info(progress)
        try:
            firmware: Optional[FirmwareInfo] = self.firmware_info(progress)
        except DeviceStatusError as error:
            if error.status not in _NO_FIRMWARE:
                raise
            firmware = None
        return DeviceInfo(firmware, bootloader)

    # Firmware

    def flash(self, image: ImageLike, verify: bool = True, skip_identical: bool = False,
              progress: Optional[Progress] = None) -> Result:
        """Erases the firmware area, writes ``image`` and, unless ``verify`` is False, has the device
        compare it. With ``skip_identical`` nothing is written when the device already holds exactly
        this image (``Result.skipped``). ImageError when the image does not fit the area; nothing
        is erased then."""
        return self._operation(self._session.flash, as_image(image)._file, verify, skip_identical,
                               progress=progress)

    def write(self, image: ImageLike, progress: Optional[Progress] = None) -> Result:
        """Writes ``image`` without erasing first."""
        return self._operation(self._session.write, as_image(image)._file, progress=progress)

    def verify(self, image: ImageLike, progress: Optional[Progress] = None) -> Result:
        """Has the device compare its firmware with ``image``: VerifyError when they differ."""
        return self._operation(self._session.verify, as_image(image)._file, progress=progress)

    def erase(self, progress: Optional[Progress] = None) -> Result:
        """Erases the firmware area."""
        return self._operation(self._session.erase, progress=progress)

    def read(self, progress: Optional[Progress] = None) -> bytes:
        """The firmware as the device holds it, from the area's start to the end it sealed. Its
        bytes 0 to 7 hold the length and CRC the device stored."""
        return self._call(self._session.read, progress=progress)

    def restart(self, progress: Optional[Progress] = None) -> Result:
        """Restarts the device out of its bootloader; the link is closed afterwards."""
        try:
            return self._operation(self._session.restart, progress=progress)
        finally:
            self.close()

    # Factory table

    def read_factory(self, progress: Optional[Progress] = None) -> FactoryTable:
        """The factory table the device holds."""
        return FactoryTable.from_text(self._call(self._session.read_factory, progress=progress))

    def write_factory(self, table: Union[FactoryTable, str],
                      progress: Optional[Progress] = None) -> Result:
        """Erases, writes and verifies the factory table (a FactoryTable or its text)."""
        return self._operation(self._session.write_factory, _table_text(table), progress=progress)

    def verify_factory(self, table: Union[FactoryTable, str],
                       progress: Optional[Progress] = None) -> Result:
        """Has the device compare its factory table: VerifyError when it differs."""
        return self._operation(self._session.verify_factory, _table_text(table), progress=progress)

    def erase_factory(self, progress: Optional[Progress] = None) -> Result:
        """Erases the factory table."""
        return self._operation(self._session.erase_factory, progress=progress)

    # Calibration tables: the main one, or its backup with backup=True

    def read_calibration(self, backup: bool = False, progress: Optional[Progress] = None) -> bytes:
        """A calibration table's bytes, as far as they were written."""
        return self._call(self._session.read_calibration, backup, progress=progress)

    def write_calibration(self, data: Union[bytes, bytearray, memoryview], backup: bool = False,
                          progress: Optional[Progress] = None) -> Result:
        """Erases, writes and verifies a calibration table."""
        return self._operation(self._session.write_calibration, bytes(data), backup, progress=progress)

    def verify_calibration(self, data: Union[bytes, bytearray, memoryview], backup: bool = False,
                           progress: Optional[Progress] = None) -> Result:
        """Has the device compare a calibration table: VerifyError when it differs."""
        return self._operation(self._session.verify_calibration, bytes(data), backup,
                               progress=progress)

    def erase_calibration(self, backup: bool = False, progress: Optional[Progress] = None) -> Result:
        """Erases a calibration table."""
        return self._operation(self._session.erase_calibration, backup, progress=progress)

    # Control record

    def read_control(self, progress: Optional[Progress] = None) -> ControlRecord:
        """The bootloader's control record."""
        return ControlRecord(**self._call(self._session.read_control, progress=progress))

    def clear_control(self, progress: Optional[Progress] = None) -> Result:
        """Clears the control record."""
        return self._operation(self._session.clear_control, progress=progress)


def _table_text(table: Union[FactoryTable, str]) -> bytes:
    text = table.to_text() if isinstance(table, FactoryTable) else FactoryTable.from_text(table).to_text()
    return text.encode("latin-1")


def open_device(opener: Callable[[_pelmo.Session], None]) -> Device:
    """A Device whose session ``opener`` opened; LinkError when it could not."""
    session = _pelmo.Session()
    try:
        opener(session)
    except _pelmo.Failure as failure:
        kind, code, message = failure.args
        raise error_from_failure(kind, code, message, session.name or None) from None
    return Device(session)


__all__ = ["Device", "Progress"]

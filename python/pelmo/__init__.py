"""pelmo: drive bootloader devices over UDP or a serial line from Python.

    import pelmo

    with pelmo.connect_udp("192.168.1.15") as device:
        print(device.info().bootloader.version)
        device.flash(pelmo.load_image("firmware.hex"))

One Device object per device, each with its own session; nothing is kept per process except the
UDP hub: devices answer to port 57998, so all UDP devices of a process that face the same host
address share one socket on it. The hub opens with the first such device and closes when the last
one is closed or collected. Every device operation releases the interpreter lock, so devices
driven from several threads work in parallel.
"""

from __future__ import annotations

from . import _pelmo
from .device import Device, Progress, open_device
from .errors import (CancelledError, DeviceStatusError, FactoryTableError, ImageError, LinkError,
                     LinkTimeoutError, PelmoError, ProtocolError, VerifyError)
from .image import Image, ImageLike, Segment, load_image
from .records import BootloaderInfo, ControlRecord, DeviceInfo, FactoryTable, FirmwareInfo, Result

__version__ = _pelmo.VERSION

#: The UDP port the devices listen and answer on.
DEVICE_UDP_PORT = 57998


def connect_udp(address: str, attempts: int = 0, timeout_ms: int = 0,
                port: int = DEVICE_UDP_PORT) -> Device:
    """Opens the UDP device at ``address`` (four dotted numbers).

    ``attempts``: sends per request, the first included (0: until the deadline). ``timeout_ms``: a
    fixed wait for each answer (0: adaptive, from the measured round trip). ``port``: the device's
    port, for devices (simulators) that do not listen on 57998; the host side stays on 57998.
    ValueError for an address that is not IPv4, LinkError when the hub's socket cannot be bound.
    """
    return open_device(lambda session: session.open_udp(address, port, attempts, timeout_ms))


def connect_serial(port: str, attempts: int = 0, timeout_ms: int = 0) -> Device:
    """Opens the serial device at ``port``: ``COMn`` or a device path such as ``/dev/ttyUSB0``,
    at 115200 8N1. ``attempts`` and ``timeout_ms`` as for connect_udp. LinkError when the port
    cannot be opened."""
    return open_device(lambda session: session.open_serial(port, attempts, timeout_ms))


__all__ = [
    "BootloaderInfo", "CancelledError", "ControlRecord", "DEVICE_UDP_PORT", "Device", "DeviceInfo",
    "DeviceStatusError", "FactoryTable", "FactoryTableError", "FirmwareInfo", "Image", "ImageError",
    "ImageLike", "LinkError", "LinkTimeoutError", "PelmoError", "Progress", "ProtocolError", "Result",
    "Segment", "VerifyError", "connect_serial", "connect_udp", "load_image",
]

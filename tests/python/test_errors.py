"""Each exception class, caused for real by a simulator fault or a bad input, and the cancel."""

from __future__ import annotations

import os
import signal
import socket
import threading
import time

import pytest

from conftest import pelmo, sample_firmware

IMAGE = sample_firmware(4096)

FAULTS = [
    # (simulator options, call, exception class, code)
    (["--status", "READ_CALIB=0xE1"], lambda d: d.read_calibration(), pelmo.DeviceStatusError, 0xE1 - 256),
    (["--status", "ERASE_FW=0xF3"], lambda d: d.flash(IMAGE), pelmo.DeviceStatusError, 0xF3 - 256),
    (["--silent-code", "BOOTLOADER_INFO"], lambda d: d.info(), pelmo.LinkTimeoutError, -25),
    (["--extra-payload", "BOOTLOADER_INFO"], lambda d: d.bootloader_info(), pelmo.ProtocolError, -11),
    (["--fw-max-size", "2048"], lambda d: d.flash(IMAGE), pelmo.ImageError, -3),
]


@pytest.mark.parametrize("options, call, error, code", FAULTS,
                         ids=["calib-status", "erase-status", "silent", "long-answer", "too-big"])
def test_device_faults(simulator, options, call, error, code):
    device_process = simulator(*options)
    with device_process.connect(attempts=2, timeout_ms=100) as device:
        with pytest.raises(error) as raised:
            call(device)
        assert (raised.value.code, raised.value.device) == (code, device.name)
        assert isinstance(raised.value, pelmo.PelmoError) and raised.value.message in str(raised.value)
        if error is pelmo.DeviceStatusError:
            assert raised.value.status == code + 256
        if error is pelmo.ImageError:  # refused before anything was erased
            assert "ERASE_FW" not in device_process.codes()


def test_verify_mismatch(link):
    with link().connect() as device:
        device.flash(IMAGE)
        with pytest.raises(pelmo.VerifyError) as raised:
            device.verify(sample_firmware(4096, seed=2))
        assert raised.value.code == -11


def test_silent_address_times_out():
    with pelmo.connect_udp("127.0.0.77", attempts=2, timeout_ms=50) as device:
        with pytest.raises(pelmo.LinkTimeoutError):
            device.bootloader_info()


@pytest.mark.parametrize("connect, error", [
    (lambda: pelmo.connect_serial("/nonexistent/ttyPELMO"), pelmo.LinkError),
    (lambda: pelmo.connect_udp("127.0.0.256"), ValueError),
    (lambda: pelmo.connect_serial(""), ValueError),
])
def test_connect_failures(connect, error):
    with pytest.raises(error):
        connect()


@pytest.mark.parametrize("content, name, words", [
    (b":10000000FF\n", "bad.hex", "line 1"),
    (b"", "empty.bin", "empty.bin"),
    (b"\0" * 16, "image.txt", "image.txt"),
], ids=["hex-checksum", "empty", "unknown-extension"])
def test_image_errors(tmp_path, content, name, words):
    (tmp_path / name).write_bytes(content)
    with pytest.raises(pelmo.ImageError, match=words):
        pelmo.load_image(tmp_path / name)


def hub_address() -> str:
    """The address the hub binds for a loopback device: the host name's when it is a 127.0.x
    address (it fits the device's best), else all interfaces."""
    own = socket.gethostbyname(socket.gethostname())
    return own if own.startswith("127.0.") else "0.0.0.0"


def test_hub_port_freed_with_the_last_device(simulator):
    """The shared hub holds port 57998 while a UDP device is open, and frees it when none is
    (closed or collected)."""
    device_process = simulator()
    local = (hub_address(), pelmo.DEVICE_UDP_PORT)
    devices = [device_process.connect(), pelmo.connect_udp("127.0.0.3")]
    probe = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    try:
        with pytest.raises(OSError):
            probe.bind(local)
        devices.pop().close()
        devices[0].bootloader_info()  # the hub still serves the other device
        devices.clear()  # collected without close(): its release frees the port as well
        probe.bind(local)
    finally:
        probe.close()


class Stop(Exception):
    pass


def stop_at(limit, how):
    def progress(device, step, done, total):
        if step == "write" and done >= limit:
            if how == "raise":
                raise Stop(done)
            return False
        return None
    return progress


@pytest.mark.parametrize("how", ["return", "raise"])
def test_callback_cancels_and_device_stays_usable(link, how):
    image = sample_firmware(64 * 1024)
    device_process = link()
    with device_process.connect() as device:
        with pytest.raises(pelmo.CancelledError) as raised:
            device.flash(image, progress=stop_at(8 * 1024, how))
        assert isinstance(raised.value.__cause__, Stop) == (how == "raise")
        codes = device_process.codes()
        assert "VERIFY_FW" not in codes and codes.count("WRITE_FW") < 64
        device.flash(image)
        assert device.read()[8:] == image[8:]


def test_keyboard_interrupt_in_callback_propagates(simulator):
    def interrupt(*_):
        raise KeyboardInterrupt

    with simulator().connect() as device:
        with pytest.raises(KeyboardInterrupt):
            device.erase(progress=interrupt)
        device.erase()


def test_cancel_from_another_thread(simulator):
    with simulator("--delay-ms", "20").connect() as device:
        timer = threading.Timer(0.3, device.cancel)
        timer.start()
        with pytest.raises(pelmo.CancelledError):
            device.flash(sample_firmware(64 * 1024))
        timer.join()
        assert device.bootloader_info().fw_max_size == 524288


def test_ctrl_c_stops_an_operation_on_the_main_thread(simulator):
    """Without a callback too: the interrupt ends the flash between two exchanges."""
    with simulator("--delay-ms", "20").connect() as device:
        timer = threading.Timer(0.3, os.kill, (os.getpid(), signal.SIGINT))
        timer.start()
        started = time.monotonic()
        with pytest.raises(KeyboardInterrupt):
            device.flash(sample_firmware(64 * 1024))
        assert time.monotonic() - started < 1.5
        timer.join()
        assert device.bootloader_info().fw_max_size == 524288

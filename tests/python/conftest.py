"""Fixtures of the pelmo module's tests: pelmo-device simulators (PELMO_DEVICE) over loopback UDP
and a pseudo-terminal, each with a request log and a state folder, and firmware images."""

from __future__ import annotations

import os
import re
import sys
from pathlib import Path
from typing import Callable, Iterator

import pytest

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "e2e"))
import pelmo_e2e  # noqa: E402
from samples import FirmwareHeader, firmware_image  # noqa: E402

pelmo = pytest.importorskip("pelmo")

_PORT = re.compile(r"^listening udp [\d.]+:(\d+)$", re.M)
_REQUEST = re.compile(r"^rx (\w+) ", re.M)


class Simulator(pelmo_e2e.Device):
    """One pelmo-device: on `address` at a free UDP port, or on a pty; its state in `state`."""

    def __init__(self, folder: Path, address: str | None, port: int, options: list[str]) -> None:
        topology = pelmo_e2e.Topology()
        self.state = folder / f"state-{id(self)}"
        self.state.mkdir()
        if address:
            topology.device_args, topology.ready = ["--udp", f"{address}:{port}"], "ready"
        else:
            self.link = folder / f"pty-{id(self)}"
            topology.device_args, topology.ready = ["--pty-link", str(self.link)], "ready"
            topology.link = self.link
        super().__init__(topology, folder, ["--state", str(self.state), *options])
        self.address = address

    def start(self) -> "Simulator":
        super().start()
        if self.address:
            self.port = int(_PORT.search(self.out_path.read_text()).group(1))
        return self

    def connect(self, **options) -> "pelmo.Device":
        if self.address:
            return pelmo.connect_udp(self.address, port=self.port, **options)
        return pelmo.connect_serial(str(self.link), **options)

    def codes(self) -> list[str]:
        """The names of the requests decoded since the last call."""
        return [name for name, _, _ in self.new_requests()]

    def stored(self, area: str) -> bytes:
        """What the device keeps of an area: firmware, factory, calib, calib_backup."""
        path = self.state / f"{area}.bin"
        return path.read_bytes() if path.exists() else b""


@pytest.fixture(scope="session", autouse=True)
def device_program() -> None:
    pelmo_e2e.Config.device = pelmo_e2e._command_from("PELMO_DEVICE", None)
    pelmo_e2e.require_device()


@pytest.fixture(scope="session", autouse=True)
def udp_port_lock() -> Iterator[None]:
    """The module's hub binds port 57998 on the loopback: one such run at a time."""
    lock = pelmo_e2e.LoopbackUdp()
    lock.setup()
    yield
    lock.teardown()


@pytest.fixture
def simulator(tmp_path: Path) -> Iterator[Callable[..., Simulator]]:
    """simulator(*options, address="127.0.0.2", port=0) starts a UDP device (port 0: a free one);
    address=None a pty device."""
    started: list[Simulator] = []

    def start(*options: str, address: str | None = "127.0.0.2", port: int = 0) -> Simulator:
        device = Simulator(tmp_path, address, port, list(options)).start()
        started.append(device)
        return device

    yield start
    for device in started:
        device.stop()


@pytest.fixture(params=["udp", "pty"])
def link(request, simulator) -> Callable[..., Simulator]:
    """The same tests over both links: link(*options) starts the device on that link."""
    address = "127.0.0.2" if request.param == "udp" else None
    return lambda *options: simulator(*options, address=address)


def sample_firmware(length: int, seed: int = 1, name: str = "DemoFW") -> bytes:
    """An image with a valid information header; `length` a multiple of the 8-byte write unit."""
    return firmware_image(length, FirmwareHeader(name=name), seed)

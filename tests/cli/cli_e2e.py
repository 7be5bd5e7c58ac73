"""pelmo (PELMO_CLI or --cli) against pelmo-device (PELMO_DEVICE or --device): running the program with its
standard output and error apart, devices on several UDP addresses and pseudo-terminals, inputs the tests
write. The links and the device processes are those of the PelmoWin suites (tests/e2e/pelmo_e2e.py)."""

from __future__ import annotations

import argparse
import json
import os
import shlex
import subprocess
import sys
import tempfile
import time
import unittest
from dataclasses import dataclass
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "e2e"))
import pelmo_e2e  # noqa: E402
from pelmo_e2e import Device, NamespaceUdp, Topology, class_udp_topology  # noqa: E402
from samples import firmware_image, stored_firmware  # noqa: E402,F401

FW_ADDRESS = 0x08000000


class Config:
    cli: list[str] = []


def under_wine() -> bool:
    return "wine" in " ".join(Config.cli)


@dataclass
class Run:
    argv: list[str]
    code: int
    out: str
    err: str
    wall_s: float

    def describe(self) -> str:
        return f"{shlex.join(self.argv)} -> {self.code}\nstdout: {self.out}\nstderr: {self.err}"

    def json(self) -> dict:
        return json.loads(self.out)


class UdpDevices:
    """Device addresses on the UDP link of the class: the link's own, then more on the device's side."""

    def __init__(self, topology: Topology) -> None:
        self.topology = topology
        self.namespaced = isinstance(topology, NamespaceUdp)
        self.added = 1

    def address(self, index: int) -> str:
        prefix = "10.57.98." if self.namespaced else "127.0.0."
        while self.namespaced and index >= self.added:  # the veth's device end takes each address once
            pelmo_e2e._ip("-n", self.topology.device_ns, "addr", "add", f"10.57.98.{2 + self.added}/24", "dev",
                          f"pe2d{self.topology.tag}"[:15])
            self.added += 1
        return f"{prefix}{2 + index}"

    def topology_for(self, index: int) -> Topology:
        link = Topology()
        link.device_args, link.device_ns = ["--udp", self.address(index)], self.topology.device_ns
        return link


class CliCase(unittest.TestCase):
    maxDiff = None
    topology: Topology | None = None

    @classmethod
    def setUpClass(cls) -> None:
        pelmo_e2e.require_program(Config.cli, "pelmo (PELMO_CLI)")
        pelmo_e2e.require_device()

    def setUp(self) -> None:
        folder = tempfile.TemporaryDirectory(prefix="pelmo-cli-e2e-")
        self.folder = Path(folder.name)
        self.addCleanup(folder.cleanup)

    def start_device(self, topology: Topology, *options: str) -> Device:
        device = Device(topology, self.folder, list(options)).start()
        self.addCleanup(device.stop)
        return device

    def pty_device(self, name: str, *options: str) -> tuple[Device, Path]:
        link = Topology()
        path = self.folder / name
        link.device_args, link.ready, link.link = ["--pty", "--pty-link", str(path)], "pty ", path
        return self.start_device(link, *options), path

    def write(self, name: str, data: bytes | str) -> Path:
        path = self.folder / name
        path.write_bytes(data.encode() if isinstance(data, str) else data)
        return path

    def pelmo(self, *args: str, env: dict[str, str] | None = None, stderr=subprocess.PIPE,
              timeout_s: float = 60.0) -> Run:
        ns = self.topology.program_ns if self.topology else ""
        argv = pelmo_e2e._in(ns, [*Config.cli, *args])
        started = time.monotonic()
        done = subprocess.run(argv, cwd=self.folder, env={**os.environ, **(env or {})}, stdin=subprocess.DEVNULL,
                              stdout=subprocess.PIPE, stderr=stderr, timeout=timeout_s)
        err = done.stderr.decode(errors="replace") if done.stderr is not None else ""
        return Run(argv, done.returncode, done.stdout.decode(errors="replace"), err, time.monotonic() - started)

    def assertExit(self, run: Run, code: int) -> None:
        self.assertEqual(code, run.code, run.describe())

    def assertTargets(self, run: Run, command: str, expected: list[tuple[str, bool]]) -> list[dict]:
        """One JSON object, with the command and one (target, ok) per target in order; its targets."""
        report = run.json()
        self.assertEqual(command, report["command"], run.describe())
        self.assertEqual([(t["target"], t["ok"]) for t in report["targets"]], expected, run.describe())
        self.assertEqual(all(ok for _, ok in expected), report["ok"])
        for target in report["targets"]:
            self.assertEqual(target["ok"], target["code"] == 0, target)
            self.assertIsInstance(target["seconds"], float)
            self.assertLessEqual(target["seconds"], run.wall_s)
            self.assertIsInstance(target["bytes"], int)
            self.assertIsInstance(target["message"], str)
        return report["targets"]


class UdpCliCase(CliCase):
    """One UDP link for the whole class, devices on as many addresses as a test asks for."""

    @classmethod
    def setUpClass(cls) -> None:
        super().setUpClass()
        cls.topology = class_udp_topology(cls)
        cls.udp = UdpDevices(cls.topology)

    def udp_device(self, index: int, *options: str) -> tuple[Device, str]:
        return self.start_device(self.udp.topology_for(index), *options), self.udp.address(index)


def main() -> None:
    """Runs the caller's tests; exit statuses as the PelmoWin suites (77 when skipped)."""
    parser = argparse.ArgumentParser(add_help=False)
    parser.add_argument("--cli")
    parser.add_argument("--device")
    known, rest = parser.parse_known_args()
    Config.cli = pelmo_e2e._command_from("PELMO_CLI", known.cli)
    pelmo_e2e.Config.device = pelmo_e2e._command_from("PELMO_DEVICE", known.device)
    outcome = unittest.main(argv=[sys.argv[0], *rest], exit=False, verbosity=2).result
    skipped = outcome.skipped or not outcome.testsRun
    strict = os.environ.get("PELMO_E2E_STRICT") == "1"
    sys.exit(1 if not outcome.wasSuccessful() or (skipped and strict) else 77 if skipped else 0)

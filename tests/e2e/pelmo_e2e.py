"""PelmoWin and pelmo-device (commands from PELMO_PROGRAM/PELMO_DEVICE or --program/--device) over
UDP between two network namespaces (as root; else device on 127.0.0.2) or over a pseudo-terminal; a suite that cannot run exits 77."""

from __future__ import annotations

import argparse
import atexit
import fcntl
import os
import re
import shlex
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time
import unittest
from dataclasses import dataclass, field
from pathlib import Path

from expected import run_output


class Config:
    program: list[str] = []
    device: list[str] = []


def _command_from(env_name: str, fallback: str | None) -> list[str]:
    text = os.environ.get(env_name) or fallback
    return shlex.split(text) if text else []


def require_program(command: list[str] | None = None, what: str = "program (PELMO_PROGRAM)") -> list[str]:
    command = Config.program if command is None else command
    if not command or not shutil.which(command[0]):
        raise unittest.SkipTest(f"{what} not found: {command!r}")
    return command


def require_device() -> list[str]:
    return require_program(Config.device, "device simulator (PELMO_DEVICE)")


def _ip(*args: str) -> None:
    subprocess.run(["ip", *args], check=True, timeout=20, capture_output=True)


def _in(ns: str, argv: list[str]) -> list[str]:
    return ["ip", "netns", "exec", ns, *argv] if ns else argv


class Topology:
    """A link: the program's argument and environment, the device's options, ready line, namespaces."""

    connection, program_env, device_args, ready, program_ns, device_ns = "", {}, [], "listening udp", "", ""


class NamespaceUdp(Topology):
    """Program and device in namespaces of their own, joined by a veth pair: port 57998 is theirs alone."""

    connection, device_args = "#10.57.98.2", ["--udp", "10.57.98.2"]

    def __init__(self) -> None:
        self.tag = f"{os.getpid() % 100000}{int(time.monotonic() * 1000) % 1000:03d}"
        self.program_ns, self.device_ns = f"pelmo-e2e-h-{self.tag}", f"pelmo-e2e-d-{self.tag}"
        self.created: list[str] = []

    @staticmethod
    def available() -> str | None:
        return None if os.geteuid() == 0 and shutil.which("ip") else "network namespaces need root and ip"

    def setup(self) -> None:
        ends = [(self.program_ns, f"pe2h{self.tag}"[:15], 1), (self.device_ns, f"pe2d{self.tag}"[:15], 2)]
        try:
            for ns, _, _ in ends:
                _ip("netns", "add", ns)
                self.created.append(ns)
                _ip("-n", ns, "link", "set", "lo", "up")
            _ip("link", "add", ends[0][1], "netns", ends[0][0], "type", "veth", "peer", "name", ends[1][1],
                "netns", ends[1][0])
            for ns, ifname, host in ends:
                _ip("-n", ns, "addr", "add", f"10.57.98.{host}/24", "dev", ifname)
                _ip("-n", ns, "link", "set", ifname, "up")
        except (OSError, subprocess.SubprocessError) as failure:
            self.teardown()
            raise unittest.SkipTest(f"cannot build the namespace link: {failure}")
        atexit.register(self.teardown)

    def teardown(self) -> None:
        while self.created:
            subprocess.run(["ip", "netns", "del", self.created.pop()], timeout=10, capture_output=True)


class LoopbackUdp(Topology):
    """Without namespaces: the device on 127.0.0.2 while the program binds the host name's 127.x address."""

    connection, device_args = "#127.0.0.2", ["--udp", "127.0.0.2"]

    @staticmethod
    def available() -> str | None:
        try:
            own = socket.gethostbyname(socket.gethostname())
        except OSError:
            own = ""
        return None if own.startswith("127.") and own != "127.0.0.2" else "the host name is not a 127.x address"

    def setup(self) -> None:
        self.lock = open(Path(tempfile.gettempdir()) / "pelmo-e2e-udp-57998.lock", "w")
        fcntl.flock(self.lock, fcntl.LOCK_EX)  # one loopback run at a time holds port 57998

    def teardown(self) -> None:
        if getattr(self, "lock", None):
            self.lock.close()
            self.lock = None


def class_udp_topology(case: type[unittest.TestCase]) -> Topology:
    """A UDP link set up for a whole test class and torn down after it."""
    topology = udp_topology()
    topology.setup()
    case.addClassCleanup(topology.teardown)
    return topology


def udp_topology() -> Topology:
    kinds = [LoopbackUdp] if os.environ.get("PELMO_E2E_UDP") == "loopback" else [NamespaceUdp, LoopbackUdp]
    reasons = [kind.available() for kind in kinds]
    for kind, reason in zip(kinds, reasons):
        if not reason:
            return kind()
    raise unittest.SkipTest("; ".join(reasons))


class PtySerial(Topology):
    """The device's pseudo-terminal is the program's COM3 (through PELMO_COM3 or Wine's dosdevices)."""

    connection, ready = "@3", "pty "

    def __init__(self, folder: Path) -> None:
        self.link = folder / "pelmo-com3"
        self.device_args, self.program_env = ["--pty", "--pty-link", str(self.link)], {"PELMO_COM3": str(self.link)}
        prefix = os.environ.get("WINEPREFIX")
        self.wine_link = Path(prefix) / "dosdevices" / "com3" if prefix and under_wine() else None

    def setup(self) -> None:
        if self.wine_link:
            self.wine_link.unlink(missing_ok=True)
            self.wine_link.symlink_to(self.link)

    def teardown(self) -> None:
        if self.wine_link:
            self.wine_link.unlink(missing_ok=True)


class Device:
    """One pelmo-device process with a request log; a context manager that always stops it."""

    def __init__(self, topology: Topology, folder: Path, options: list[str] | None = None) -> None:
        self.topology, self.options, self.process, self.log_offset = topology, list(options or []), None, 0
        self.log_path, self.out_path = (folder / f"device-{id(self)}.{kind}" for kind in ("log", "out"))

    def __enter__(self) -> "Device":
        return self.start()

    def __exit__(self, *exc) -> None:
        self.stop()

    def start(self) -> "Device":
        argv = _in(self.topology.device_ns,
                   [*require_device(), *self.topology.device_args, "--log", str(self.log_path), *self.options])
        with open(self.out_path, "wb") as out:
            self.process = subprocess.Popen(argv, stdout=out, stderr=subprocess.STDOUT,
                                            stdin=subprocess.DEVNULL, start_new_session=True)
        deadline = time.monotonic() + 10
        while time.monotonic() < deadline and self.process.poll() is None:
            lines = self.out_path.read_text(errors="replace").splitlines()
            # A pseudo-terminal's link must exist too before the program can open it.
            if any(text.startswith(self.topology.ready) for text in lines) and getattr(
                    self.topology, "link", self.out_path).exists():
                return self
            time.sleep(0.02)
        self.stop()
        raise AssertionError(f"device did not get ready: {shlex.join(argv)}\n{self.out_path.read_text()}")

    def stop(self) -> None:
        if self.process and self.process.poll() is None:
            os.killpg(self.process.pid, signal.SIGTERM)
            self.process.wait(timeout=5)

    def log_lines(self) -> list[str]:
        return self.log_path.read_text(errors="replace").splitlines() if self.log_path.exists() else []

    def requests(self) -> list[tuple[str, int, int]]:
        """(name, address, length) of every request the device decoded."""
        return [(name, int(address, 16), int(length))
                for name, address, length in _REQUEST.findall("\n".join(self.log_lines()))]

    def new_requests(self) -> list[tuple[str, int, int]]:
        """The requests since the last call: one run's worth."""
        every = self.requests()
        fresh, self.log_offset = every[self.log_offset:], len(every)
        return fresh


_REQUEST = re.compile(r"^rx (\w+) addr=(0x[0-9A-F]+) len=(\d+)$", re.M)
_PROGRESS = re.compile(r"\r([^\r\n]*) (\d+) \[s\]")
_ELAPSED = re.compile(r"\nOperations last (\d+) s\n")


@dataclass
class RunResult:
    argv: list[str]
    returncode: int
    raw: bytes
    text: str = ""  # the console output without progress writes, the elapsed seconds as N
    progress: list[tuple[str, int]] = field(default_factory=list)  # (label, seconds) per write
    wall_s: float = 0.0
    reported_s: int | None = None

    def describe(self) -> str:
        return f"{shlex.join(self.argv)} -> {self.returncode}\n{self.raw!r}"


def start_program(topology: Topology | None, args: list[str], cwd: Path, env: dict[str, str] | None = None,
                  **popen) -> subprocess.Popen:
    """Starts the program with `args` (connection included), its output in a pipe; finish it with finish_program.
    `popen` adds Popen's arguments: a user to run as, a preexec_fn."""
    topology = topology or Topology()
    argv = _in(topology.program_ns, [*require_program(), *args])
    process = subprocess.Popen(argv, cwd=cwd, env={**os.environ, **topology.program_env, **(env or {})},
                               stdout=subprocess.PIPE, stdin=subprocess.DEVNULL, start_new_session=True, **popen)
    process.started = time.monotonic()
    return process


def finish_program(process: subprocess.Popen, timeout_s: float = 60.0) -> RunResult:
    """Waits for a started program and collects what it printed."""
    argv = list(process.args)
    try:
        raw = process.communicate(timeout=timeout_s)[0] or b""
    except subprocess.TimeoutExpired:
        os.killpg(process.pid, signal.SIGKILL)
        raise AssertionError(f"program did not end within {timeout_s} s: {shlex.join(argv)}")
    result = RunResult(argv, process.returncode, raw, wall_s=time.monotonic() - process.started)
    text = raw.decode("latin-1")
    result.progress = [(m.group(1), int(m.group(2))) for m in _PROGRESS.finditer(text)]
    elapsed = _ELAPSED.search(text)
    result.reported_s = int(elapsed.group(1)) if elapsed else None
    result.text = _ELAPSED.sub("\nOperations last N s\n", _PROGRESS.sub("", text))
    return result


def run_program(topology: Topology | None, args: list[str], cwd: Path, timeout_s: float = 60.0,
                env: dict[str, str] | None = None, **popen) -> RunResult:
    """Runs the program once with `args` (connection included) and collects what it printed."""
    return finish_program(start_program(topology, args, cwd, env, **popen), timeout_s)


def under_wine() -> bool:
    return "wine" in " ".join(Config.program)


class E2eCase(unittest.TestCase):
    maxDiff = None
    topology: Topology | None = None

    @classmethod
    def setUpClass(cls) -> None:
        require_program()
        require_device()

    def setUp(self) -> None:
        folder = tempfile.TemporaryDirectory(prefix="pelmo-e2e-")
        self.folder = Path(folder.name)
        self.addCleanup(folder.cleanup)

    def device(self, *options: str) -> Device:
        device = Device(self.topology, self.folder, list(options)).start()
        self.addCleanup(device.stop)
        return device

    def run_pelmo(self, *args: str, env: dict[str, str] | None = None, connect: bool = True, **popen) -> RunResult:
        head = [self.topology.connection] if connect and self.topology else []
        return run_program(self.topology, [*head, *args], self.folder, env=env, **popen)

    def assertRun(self, result: RunResult, output: str, status: int) -> None:
        """Byte-exact console output (normalised) and exit status; the seconds never exceed the run."""
        self.assertEqual(output, result.text, result.describe())
        self.assertEqual(status, result.returncode, result.describe())
        if result.reported_s is not None:
            self.assertLessEqual(result.reported_s, int(result.wall_s) + 1, result.describe())

    def assertSent(self, device: Device, expected: list[tuple]) -> None:
        self.assertEqual(expected, device.new_requests())

    def check(self, device: Device, args: list[str], body: str, code: int, sent: list | None) -> RunResult:
        """One run that reached its operation: its output, exit status and, unless None, its requests."""
        result = self.run_pelmo(*args)
        self.assertRun(result, run_output(body, code), 255 if code < 0 else 0)
        if sent is not None:
            self.assertSent(device, sent)
        return result


class UdpCase(E2eCase):
    """One UDP link for the whole class: namespaces are slow to build."""

    @classmethod
    def setUpClass(cls) -> None:
        super().setUpClass()
        cls.topology = class_udp_topology(cls)


class PtyCase(E2eCase):
    def setUp(self) -> None:
        super().setUp()
        self.topology = PtySerial(self.folder)
        self.topology.setup()
        self.addCleanup(self.topology.teardown)


def main() -> None:
    """Runs the caller's tests. Exit 0 all passed, 1 a failure, 77 a skip (a failure when
    PELMO_E2E_STRICT=1, as in CI)."""
    parser = argparse.ArgumentParser(add_help=False)
    parser.add_argument("--program")
    parser.add_argument("--device")
    known, rest = parser.parse_known_args()
    Config.program = _command_from("PELMO_PROGRAM", known.program)
    Config.device = _command_from("PELMO_DEVICE", known.device)
    outcome = unittest.main(argv=[sys.argv[0], *rest], exit=False, verbosity=2).result
    skipped = outcome.skipped or not outcome.testsRun
    strict = os.environ.get("PELMO_E2E_STRICT") == "1"
    sys.exit(1 if not outcome.wasSuccessful() or (skipped and strict) else 77 if skipped else 0)

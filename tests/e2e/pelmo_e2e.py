"""End-to-end fixture: runs PelmoWin against the pelmo-device simulator over real links.

- `Topology` classes give the program and the device a link: UDP between two network namespaces
  joined by a veth pair (preferred, needs root), UDP on the loopback (device on 127.0.0.2, when the
  host name resolves to a 127.x address), or a pseudo-terminal that the program opens as COM3.
- `Device` starts the simulator with its options and a request log, waits for its ready line and
  always stops it.
- `run_program` runs the program with a time-out and returns its exit status and its console
  output with the progress writes taken out and the elapsed seconds replaced by N.

The program and the simulator are found through PELMO_PROGRAM and PELMO_DEVICE (a command line
each, e.g. PELMO_PROGRAM="wine /path/PelmoWin.exe"), else through --program/--device, which the
CTest registration passes. A suite whose link or binaries are missing exits 77 (skipped).
"""

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

SKIP_EXIT = 77
PROGRAM_TIMEOUT_S = 60.0
DEVICE_READY_TIMEOUT_S = 10.0
DEVICE_PORT = 57998


class Config:
    """Where the binaries are; filled by main() before the tests run."""

    program: list[str] = []
    device: list[str] = []


def _command_from(env_name: str, fallback: str | None) -> list[str]:
    text = os.environ.get(env_name) or fallback
    return shlex.split(text) if text else []


def require_program() -> list[str]:
    if not Config.program or not shutil.which(Config.program[0]):
        raise unittest.SkipTest(f"program not found: {Config.program!r} (set PELMO_PROGRAM)")
    return Config.program


def require_device() -> list[str]:
    if not Config.device or not shutil.which(Config.device[0]):
        raise unittest.SkipTest(f"device simulator not found: {Config.device!r} (set PELMO_DEVICE)")
    return Config.device


def _run_quiet(argv: list[str]) -> None:
    subprocess.run(argv, check=True, timeout=20, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)


# ---------------------------------------------------------------------------------------------
# Topologies


class Topology:
    """A link between the program and the device."""

    name = "link"
    connection = ""  # the program's connection argument

    def setup(self) -> None:
        pass

    def teardown(self) -> None:
        pass

    def device_args(self) -> list[str]:
        raise NotImplementedError

    def ready_markers(self) -> list[str]:
        """Starts of the simulator's ready lines for this link."""
        raise NotImplementedError

    def wrap_program(self, argv: list[str]) -> list[str]:
        return argv

    def wrap_device(self, argv: list[str]) -> list[str]:
        return argv

    def program_env(self) -> dict[str, str]:
        return {}


class NamespaceUdp(Topology):
    """Two network namespaces joined by a veth pair: the program on 10.57.98.1, the device on
    10.57.98.2. The program's host name resolves to the loopback, so it binds port 57998 on all
    interfaces of its own namespace; nothing of this run meets another run or the host."""

    name = "udp-netns"
    HOST_ADDRESS = "10.57.98.1"
    DEVICE_ADDRESS = "10.57.98.2"
    connection = "#" + DEVICE_ADDRESS

    def __init__(self) -> None:
        tag = f"{os.getpid() % 100000}{int(time.monotonic() * 1000) % 1000:03d}"
        self.host_ns = f"pelmo-e2e-h-{tag}"
        self.device_ns = f"pelmo-e2e-d-{tag}"
        self.host_if = f"pe2h{tag}"[:15]
        self.device_if = f"pe2d{tag}"[:15]
        self.created: list[str] = []

    @staticmethod
    def available() -> str | None:
        """None when namespaces can be made here, else the reason why not."""
        if os.geteuid() != 0:
            return "network namespaces need root"
        if not shutil.which("ip"):
            return "the ip tool (iproute2) is missing"
        return None

    @staticmethod
    def remove_stale() -> None:
        """Deletes namespaces that earlier runs left behind when they were killed."""
        try:
            names = subprocess.run(
                ["ip", "netns", "list"], capture_output=True, text=True, timeout=10
            ).stdout.split()
        except (OSError, subprocess.SubprocessError):
            return
        for name in names:
            match = re.fullmatch(r"pelmo-e2e-[hd]-(\d+?)(\d{3})", name)
            if match and not Path(f"/proc/{match.group(1)}").exists():
                subprocess.run(["ip", "netns", "del", name], timeout=10, capture_output=True)

    def setup(self) -> None:
        self.remove_stale()
        try:
            for ns in (self.host_ns, self.device_ns):
                _run_quiet(["ip", "netns", "add", ns])
                self.created.append(ns)
                _run_quiet(["ip", "-n", ns, "link", "set", "lo", "up"])
            _run_quiet(
                ["ip", "link", "add", self.host_if, "netns", self.host_ns, "type", "veth",
                 "peer", "name", self.device_if, "netns", self.device_ns]
            )
            for ns, ifname, address in (
                (self.host_ns, self.host_if, self.HOST_ADDRESS),
                (self.device_ns, self.device_if, self.DEVICE_ADDRESS),
            ):
                _run_quiet(["ip", "-n", ns, "addr", "add", f"{address}/24", "dev", ifname])
                _run_quiet(["ip", "-n", ns, "link", "set", ifname, "up"])
        except (OSError, subprocess.SubprocessError) as failure:
            detail = getattr(failure, "stderr", b"") or b""
            self.teardown()
            raise unittest.SkipTest(
                f"cannot build the namespace link: {failure} {detail.decode(errors='replace')}"
            )
        atexit.register(self.teardown)

    def teardown(self) -> None:
        while self.created:
            subprocess.run(["ip", "netns", "del", self.created.pop()], timeout=10, capture_output=True)

    def device_args(self) -> list[str]:
        return ["--udp", self.DEVICE_ADDRESS]

    def ready_markers(self) -> list[str]:
        return ["listening udp"]

    def wrap_program(self, argv: list[str]) -> list[str]:
        return ["ip", "netns", "exec", self.host_ns, *argv]

    def wrap_device(self, argv: list[str]) -> list[str]:
        return ["ip", "netns", "exec", self.device_ns, *argv]

    def run_in_host(self, argv: list[str], **kwargs) -> subprocess.Popen:
        """Starts a helper process on the program's side (for example one that holds a port)."""
        return subprocess.Popen(self.wrap_program(argv), **kwargs)


class LoopbackUdp(Topology):
    """The device on 127.0.0.2 and the program on the loopback address its host name resolves to.
    Both use port 57998 of the host, so runs of this kind take a lock file in turn."""

    name = "udp-loopback"
    DEVICE_ADDRESS = "127.0.0.2"
    connection = "#" + DEVICE_ADDRESS
    LOCK_PATH = Path(tempfile.gettempdir()) / "pelmo-e2e-udp57998.lock"

    def __init__(self) -> None:
        self.lock_file = None

    @staticmethod
    def available() -> str | None:
        try:
            address = socket.gethostbyname(socket.gethostname())
        except OSError as failure:
            return f"host name does not resolve: {failure}"
        if not address.startswith("127."):
            return f"host name resolves to {address}, not to the loopback"
        return None

    def setup(self) -> None:
        self.lock_file = open(self.LOCK_PATH, "w")
        fcntl.flock(self.lock_file, fcntl.LOCK_EX)

    def teardown(self) -> None:
        if self.lock_file:
            self.lock_file.close()
            self.lock_file = None

    def device_args(self) -> list[str]:
        return ["--udp", self.DEVICE_ADDRESS]

    def ready_markers(self) -> list[str]:
        return ["listening udp"]

    def run_in_host(self, argv: list[str], **kwargs) -> subprocess.Popen:
        return subprocess.Popen(argv, **kwargs)


def udp_topology() -> Topology:
    """The UDP link this machine allows: namespaces unless PELMO_E2E_UDP=loopback, else the
    loopback; skipped when neither is possible."""
    wanted = os.environ.get("PELMO_E2E_UDP", "")
    reasons = []
    for kind in (NamespaceUdp, LoopbackUdp):
        if wanted and wanted not in kind.name:
            continue
        reason = kind.available()
        if reason is None:
            return kind()
        reasons.append(f"{kind.name}: {reason}")
    raise unittest.SkipTest("no UDP topology: " + "; ".join(reasons))


class PtySerial(Topology):
    """The device holds a pseudo-terminal and links its slave side into a temporary folder; the
    program opens that link as COM3 through PELMO_COM3 (or, under Wine, through the prefix's
    dosdevices/com3 link)."""

    name = "serial-pty"
    COM_NUMBER = 3
    connection = f"@{COM_NUMBER}"

    def __init__(self, folder: Path) -> None:
        self.link = folder / "pelmo-com3"
        self.wine_link: Path | None = None

    def setup(self) -> None:
        prefix = os.environ.get("WINEPREFIX")
        if prefix and "wine" in " ".join(Config.program):
            self.wine_link = Path(prefix) / "dosdevices" / f"com{self.COM_NUMBER}"
            self.wine_link.unlink(missing_ok=True)
            self.wine_link.symlink_to(self.link)

    def teardown(self) -> None:
        if self.wine_link:
            self.wine_link.unlink(missing_ok=True)

    def device_args(self) -> list[str]:
        return ["--pty", "--pty-link", str(self.link)]

    def ready_markers(self) -> list[str]:
        return ["pty "]

    def program_env(self) -> dict[str, str]:
        return {f"PELMO_COM{self.COM_NUMBER}": str(self.link)}


# ---------------------------------------------------------------------------------------------
# The device


@dataclass
class Request:
    """One request the device received, from its log line `rx NAME addr=0x... len=N`."""

    name: str
    addr: int
    length: int

    def __repr__(self) -> str:
        return f"{self.name}@{self.addr}+{self.length}"


def _log_fields(text: str) -> dict[str, str]:
    return dict(part.split("=", 1) for part in text.split() if "=" in part)


class Device:
    """One pelmo-device process serving `topology`; a context manager that always stops it."""

    def __init__(self, topology: Topology, folder: Path, options: list[str] | None = None) -> None:
        self.topology = topology
        self.folder = folder
        self.options = list(options or [])
        self.log_path = folder / f"device-{id(self)}.log"
        self.out_path = folder / f"device-{id(self)}.out"
        self.process: subprocess.Popen | None = None
        self.log_offset = 0

    def __enter__(self) -> "Device":
        self.start()
        return self

    def __exit__(self, *exc) -> None:
        self.stop()

    def start(self) -> None:
        argv = self.topology.wrap_device(
            [*require_device(), *self.topology.device_args(), "--log", str(self.log_path),
             *self.options]
        )
        with open(self.out_path, "wb") as out:
            self.process = subprocess.Popen(
                argv, stdout=out, stderr=subprocess.STDOUT, stdin=subprocess.DEVNULL,
                start_new_session=True,
            )
        deadline = time.monotonic() + DEVICE_READY_TIMEOUT_S
        markers = self.topology.ready_markers()
        while time.monotonic() < deadline:
            text = self.out_path.read_text(errors="replace")
            if all(any(l.startswith(m) for l in text.splitlines()) for m in markers):
                if not isinstance(self.topology, PtySerial) or self.topology.link.exists():
                    return
            if self.process.poll() is not None:
                break
            time.sleep(0.02)
        self.stop()
        raise AssertionError(
            f"device did not get ready: {shlex.join(argv)}\n{self.out_path.read_text(errors='replace')}"
        )

    def stop(self) -> None:
        if self.process and self.process.poll() is None:
            os.killpg(self.process.pid, signal.SIGTERM)
            try:
                self.process.wait(timeout=5)
            except subprocess.TimeoutExpired:
                os.killpg(self.process.pid, signal.SIGKILL)
                self.process.wait(timeout=5)
        self.process = None

    def log_lines(self) -> list[str]:
        return self.log_path.read_text(errors="replace").splitlines() if self.log_path.exists() else []

    def requests(self) -> list[Request]:
        """Every request frame the device received and decoded, in order."""
        found = []
        for text in self.log_lines():
            parts = text.split()
            if len(parts) >= 2 and parts[0] == "rx" and parts[1] != "BAD_FRAME":
                fields = _log_fields(text)
                found.append(Request(parts[1], int(fields.get("addr", "0"), 0),
                                     int(fields.get("len", "0"), 0)))
        return found

    def new_requests(self) -> list[Request]:
        """The requests received since the last call (one program run's worth)."""
        every = self.requests()
        fresh = every[self.log_offset:]
        self.log_offset = len(every)
        return fresh


# ---------------------------------------------------------------------------------------------
# Running the program

_PROGRESS = re.compile(r"\r([^\r\n]*) (\d+) \[s\]")
_ELAPSED = re.compile(r"\nOperations last (\d+) s\n")


@dataclass
class RunResult:
    argv: list[str]
    returncode: int
    raw: bytes
    text: str  # console output without progress writes, elapsed seconds as N
    progress: list[tuple[str, int]] = field(default_factory=list)  # (label, seconds) per write
    wall_s: float = 0.0
    reported_s: int | None = None

    def describe(self) -> str:
        return f"{shlex.join(self.argv)} -> {self.returncode}\n{self.raw!r}"


def normalise(raw: bytes) -> tuple[str, list[tuple[str, int]], int | None]:
    """Removes the progress writes (a carriage return, the label, " N [s]") and replaces the
    number of "Operations last N s"."""
    text = raw.decode("latin-1")
    progress = [(m.group(1), int(m.group(2))) for m in _PROGRESS.finditer(text)]
    text = _PROGRESS.sub("", text)
    elapsed = _ELAPSED.search(text)
    text = _ELAPSED.sub("\nOperations last N s\n", text)
    return text, progress, int(elapsed.group(1)) if elapsed else None


def run_program(
    topology: Topology | None,
    args: list[str],
    cwd: Path,
    timeout_s: float = PROGRAM_TIMEOUT_S,
    env: dict[str, str] | None = None,
) -> RunResult:
    """Runs the program once with `args` (its connection argument included) and collects its
    exit status and console output."""
    argv = [*require_program(), *args]
    if topology is not None:
        argv = topology.wrap_program(argv)
    full_env = dict(os.environ)
    if topology is not None:
        full_env.update(topology.program_env())
    full_env.update(env or {})
    started = time.monotonic()
    process = subprocess.Popen(
        argv, cwd=cwd, env=full_env, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
        stdin=subprocess.DEVNULL, start_new_session=True,
    )
    try:
        raw, errors = process.communicate(timeout=timeout_s)
    except subprocess.TimeoutExpired:
        os.killpg(process.pid, signal.SIGKILL)
        raw, errors = process.communicate(timeout=10)
        raise AssertionError(f"program did not end within {timeout_s} s: {shlex.join(argv)}\n{raw!r}")
    wall = time.monotonic() - started
    text, progress, reported = normalise(raw)
    if errors:
        sys.stderr.write(f"[stderr of {shlex.join(argv)}]\n{errors.decode(errors='replace')}\n")
    return RunResult(argv, process.returncode, raw, text, progress, wall, reported)


# ---------------------------------------------------------------------------------------------
# Test case base


class E2eCase(unittest.TestCase):
    """Base class of the suites: a temporary folder per test, helpers to check a run."""

    maxDiff = None
    topology: Topology | None = None

    def setUp(self) -> None:
        self._folder = tempfile.TemporaryDirectory(prefix="pelmo-e2e-")
        self.folder = Path(self._folder.name)
        self.addCleanup(self._folder.cleanup)

    def device(self, *options: str) -> Device:
        device = Device(self.topology, self.folder, list(options))
        device.start()
        self.addCleanup(device.stop)
        return device

    def run_pelmo(self, *args: str, timeout_s: float = PROGRAM_TIMEOUT_S,
                  env: dict[str, str] | None = None, connect: bool = True) -> RunResult:
        """Runs the program with the topology's connection argument in front of `args`."""
        head = [self.topology.connection] if connect and self.topology else []
        return run_program(self.topology, [*head, *args], self.folder, timeout_s, env)

    def assertRun(self, result: RunResult, output: str, status: int) -> None:
        """Byte-exact console output (after normalisation) and the exit status."""
        self.assertEqual(output, result.text, result.describe())
        self.assertEqual(status, result.returncode, result.describe())
        if result.reported_s is not None:
            # The elapsed-time line counts whole seconds of the run: never more than it lasted.
            self.assertLessEqual(result.reported_s, int(result.wall_s) + 1, result.describe())

    def assertSent(self, device: Device, expected: list[tuple], exact_fields: bool = True) -> None:
        """The requests the device got during the last run: (name, addr, len) tuples, or names
        alone when `exact_fields` is false."""
        got = device.new_requests()
        if exact_fields:
            self.assertEqual(expected, [(r.name, r.addr, r.length) for r in got])
        else:
            self.assertEqual(expected, [r.name for r in got])


def main() -> None:
    """Runs the calling module's tests. Exit status: 0 all passed, 1 a failure, 77 when any test
    was skipped (a missing link or binary is never reported as a pass). With PELMO_E2E_STRICT=1
    (as in CI, where everything is installed) a skip is a failure."""
    parser = argparse.ArgumentParser(add_help=False)
    parser.add_argument("--program")
    parser.add_argument("--device")
    known, rest = parser.parse_known_args()
    Config.program = _command_from("PELMO_PROGRAM", known.program)
    Config.device = _command_from("PELMO_DEVICE", known.device)
    program = unittest.main(argv=[sys.argv[0], *rest], exit=False, verbosity=2)
    outcome = program.result
    if not outcome.wasSuccessful():
        sys.exit(1)
    if outcome.skipped or outcome.testsRun == 0:
        if os.environ.get("PELMO_E2E_STRICT") == "1":
            print("skipped tests are failures with PELMO_E2E_STRICT=1", file=sys.stderr)
            sys.exit(1)
        sys.exit(SKIP_EXIT)
    sys.exit(0)

#!/usr/bin/env python3
"""Success rate of PelmoWin's erase-write-verify over a lossy link, measured against pelmo-device.

For each loss rate and seed, the simulator loses that percentage of the requests and, separately,
of its answers (`--drop-requests P --drop-responses P --seed S`), and the program runs `-ewv` of a
seeded firmware image. A run succeeds when it exits 0 and the device's memory (its `--state`
file) holds the image byte for byte. The lost attempts are read from the device's log, so each
run's time can be set against the time-outs it had to sit out.

    python3 tools/reliability.py --program build/PelmoWin --device build/pelmo-device \\
        --link udp --loss 0,1,2,3 --seeds 10 --size 262144 [--extra 100] [--jobs 2]

The UDP link needs root (two network namespaces) or a host name that resolves to the loopback;
the serial link uses a pseudo-terminal. The end-to-end fault suite imports the run function.
"""

from __future__ import annotations

import argparse
import concurrent.futures
import re
import statistics
import sys
import tempfile
import time
from dataclasses import dataclass, field
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "tests" / "e2e"))
import pelmo_e2e  # noqa: E402
from pelmo_e2e import Config, Device, PtySerial, Topology, run_program  # noqa: E402
from samples import firmware_image, stored_firmware, write_bin  # noqa: E402

ERASE_TIMEOUT_MS = 25000
# Per link: the wait for an answer when a command passes no time-out of its own, and the write
# time-out; the erase time-out is the same on both.
LINK_TIMEOUTS_MS = {"udp": (2000, 4000), "serial": (250, 200)}
WRITE_TIMEOUT_CODES = {"WRITE_FW", "END_FW", "WRITE_FACTORY", "END_FACTORY"}
ERASE_TIMEOUT_CODES = {"ERASE_FW", "ERASE_FACTORY"}
FW_MAX_SIZE = 1 << 20

_LAST_CODE = re.compile(r"Last operation error code: (-?\d+)")


def attempt_wait_ms(link: str, request: str, extra_ms: int) -> int:
    """How long the program waits for the answer to one attempt of `request` before it gives the
    attempt up: the command's own time-out plus the extra one, where a command without a time-out
    of its own waits the link's default unless an extra time-out replaces it."""
    default_ms, write_ms = LINK_TIMEOUTS_MS[link]
    if request in ERASE_TIMEOUT_CODES:
        return ERASE_TIMEOUT_MS + extra_ms
    if request in WRITE_TIMEOUT_CODES:
        return write_ms + extra_ms
    return extra_ms if extra_ms > 0 else default_ms


@dataclass
class Outcome:
    code: int  # the run's result: 0, or the "Last operation error code"
    returncode: int
    wall_s: float
    identical: bool  # the device holds the image as stored after a write
    requests: int  # requests the device received
    drops: list[tuple[str, str]] = field(default_factory=list)  # (request, reason) per lost attempt
    waited_s: float = 0.0  # the time-outs the lost attempts imply
    result: pelmo_e2e.RunResult | None = None

    @property
    def succeeded(self) -> bool:
        return self.code == 0 and self.returncode == 0 and self.identical


def device_drops(device: Device) -> list[tuple[str, str]]:
    drops = []
    for line in device.log_lines():
        parts = line.split()
        if len(parts) >= 3 and parts[0] == "drop":
            drops.append((parts[1], parts[2].removeprefix("reason=")))
    return drops


def erase_write_verify(topology: Topology, link: str, folder: Path, image: bytes,
                       device_options: list[str], extra_ms: int = 0,
                       timeout_s: float = 900.0) -> Outcome:
    """One `-ewv` run of `image` against a fresh device with `device_options`."""
    state = folder / f"state-{time.monotonic_ns()}"
    state.mkdir()
    write_bin(folder / "fw.bin", image)
    options = ["--fw-max-size", str(FW_MAX_SIZE), "--state", str(state), *device_options]
    args = [topology.connection, *([f"*{extra_ms}"] if extra_ms else []), "-ewv", "fw.bin"]
    with Device(topology, folder, options) as device:
        result = run_program(topology, args, folder, timeout_s)
        drops = device_drops(device)
        requests = len(device.requests())
    stored = state / "firmware.bin"
    match = _LAST_CODE.search(result.text)
    return Outcome(
        # A run that ended without its closing lines (a crash) shows as its exit status.
        code=int(match.group(1)) if match else (0 if result.returncode == 0 else 1000 + result.returncode),
        returncode=result.returncode,
        wall_s=result.wall_s,
        identical=stored.exists() and stored.read_bytes() == stored_firmware(image),
        requests=requests,
        drops=drops,
        waited_s=sum(attempt_wait_ms(link, name, extra_ms) for name, _ in drops) / 1000,
        result=result,
    )


def make_topology(link: str, folder: Path) -> Topology:
    topology = pelmo_e2e.udp_topology() if link == "udp" else PtySerial(folder)
    topology.setup()
    return topology


def loss_options(loss: float, seed: int) -> list[str]:
    return ["--drop-requests", f"{loss:g}", "--drop-responses", f"{loss:g}", "--seed", str(seed)]


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--program", default="build/PelmoWin")
    parser.add_argument("--device", default="build/pelmo-device")
    parser.add_argument("--link", choices=sorted(LINK_TIMEOUTS_MS), default="udp")
    parser.add_argument("--loss", default="0,1,2,3", help="loss rates in percent, comma-separated")
    parser.add_argument("--seeds", type=int, default=10, help="runs per loss rate")
    parser.add_argument("--first-seed", type=int, default=1)
    parser.add_argument("--size", type=int, default=256 * 1024, help="image size in bytes")
    parser.add_argument("--extra", type=int, default=0, help="the program's extra time-out (*N)")
    parser.add_argument("--jobs", type=int, default=1, help="runs at a time, each on its own link")
    parsed = parser.parse_args()
    Config.program = pelmo_e2e._command_from("PELMO_PROGRAM", str(Path(parsed.program).resolve()))
    Config.device = pelmo_e2e._command_from("PELMO_DEVICE", str(Path(parsed.device).resolve()))
    pelmo_e2e.require_program()
    pelmo_e2e.require_device()

    if parsed.link == "udp" and pelmo_e2e.NamespaceUdp.available() is not None:
        parsed.jobs = 1  # the loopback link has one port 57998 to share
    image = firmware_image(parsed.size, seed=parsed.size)
    work = [(float(loss), seed) for loss in parsed.loss.split(",")
            for seed in range(parsed.first_seed, parsed.first_seed + parsed.seeds)]
    folders = [Path(tempfile.mkdtemp(prefix="pelmo-reliability-")) for _ in range(parsed.jobs)]
    links = []
    for folder in folders:
        links.append(make_topology(parsed.link, folder))
        time.sleep(0.002)  # namespace names carry the millisecond
    free = list(zip(links, folders))

    def one(item: tuple[float, int]) -> tuple[float, int, Outcome]:
        topology, folder = free.pop()
        try:
            loss, seed = item
            outcome = erase_write_verify(topology, parsed.link, folder, image,
                                         loss_options(loss, seed), parsed.extra)
            return loss, seed, outcome
        finally:
            free.append((topology, folder))

    print(f"-ewv of {parsed.size} bytes over {parsed.link}, extra time-out {parsed.extra} ms")
    print("loss%  seed  result  secs  requests  lost  time-outs(s)  state")
    by_loss: dict[float, list[Outcome]] = {}
    with concurrent.futures.ThreadPoolExecutor(max_workers=parsed.jobs) as pool:
        for loss, seed, outcome in pool.map(one, work):
            by_loss.setdefault(loss, []).append(outcome)
            print(f"{loss:5g}  {seed:4d}  {outcome.code:6d}  {outcome.wall_s:5.1f}  {outcome.requests:8d}"
                  f"  {len(outcome.drops):4d}  {outcome.waited_s:12.1f}  "
                  f"{'identical' if outcome.identical else 'differs'}", flush=True)
    for topology in links:
        topology.teardown()

    print("\nloss%  runs  succeeded  rate   failures(code:count)  median s  worst s")
    for loss, outcomes in by_loss.items():
        good = sum(o.succeeded for o in outcomes)
        codes: dict[int, int] = {}
        for o in outcomes:
            if not o.succeeded:
                codes[o.code] = codes.get(o.code, 0) + 1
        times = [o.wall_s for o in outcomes]
        failures = " ".join(f"{c}:{n}" for c, n in sorted(codes.items())) or "-"
        print(f"{loss:5g}  {len(outcomes):4d}  {good:9d}  {100 * good / len(outcomes):4.0f}%"
              f"  {failures:20s}  {statistics.median(times):8.1f}  {max(times):7.1f}")
    return 0


if __name__ == "__main__":
    sys.exit(main())

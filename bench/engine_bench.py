#!/usr/bin/env python3
"""The fast engine beside the classic one, against pelmo-device: figures and their targets.

Usage: bench/engine_bench.py [--build build-bench] [--only NAME,...] [--loss-runs 100]
                             [--via engine|pelmo]

Build first: cmake -S . -B build-bench -DPELMO_BUILD_BENCHMARKS=ON && cmake --build build-bench
(pelmo-engine-bench, pelmo and pelmo-device). With --via pelmo the fast runs go through the `pelmo`
command line itself (one process per run, its --json result, its wall and CPU time measured from
outside); the classic reference stays pelmo-engine-bench's. Run as root, the bench moves into a network namespace of its
own so that nothing else on the loopback shares the protocol port; UDP devices listen on
127.0.0.10 and up, the host side binds the host name's 127.x address. Serial devices are the
simulator's pseudo-terminals paced at 115200 8N1 (11520 bytes/s) in both directions.

Scenarios (each line prints the figure, the target and whether it was met):
  udp-read      read 1 MiB over UDP, fast; the classic profile reads 64 KiB for the per-byte ratio
  udp-flash     erase + write + verify 1 MiB over UDP, fast (the simulator erases at once)
  serial-read   read 256 KiB over the paced line: share of the line's 11520 bytes/s
  serial-flash  flash 64 KiB over the paced line, against the wire time of every byte it moves;
                the CPU time of both serial runs against their wall time
  loss          5 % of requests and 5 % of answers lost: seeded 256 KiB flashes over UDP, all must
                succeed; the time each loss cost
  udp-many      16 UDP devices flashed at once from one process, against one device alone; the
                devices answer 1 ms late, as a board would (udp-many-instant: at once)
  serial-many   8 paced serial ports flashed at once, against one port alone
"""
import argparse
import json
import os
import shutil
import subprocess
import sys
import tempfile
import time
from pathlib import Path

KIB = 1024
LINE_RATE = 11520
FRAME_OVERHEAD = 12
ROOT = Path(__file__).resolve().parent.parent


class Devices:
    """pelmo-device processes, stopped on exit."""

    def __init__(self, build: Path, work: Path) -> None:
        self.program, self.work, self.running = build / "pelmo-device", work, []

    def start(self, endpoint: list[str], *options: str) -> tuple[str, Path]:
        log = self.work / f"device{len(self.running)}.log"
        process = subprocess.Popen([str(self.program), *endpoint, "--log", str(log), *options],
                                   stdout=subprocess.PIPE, text=True)
        self.running.append(process)
        for line in process.stdout:
            if line.strip() == "ready":
                break
        else:
            sys.exit(f"pelmo-device {' '.join(endpoint)} did not start")
        return endpoint[1], log

    def udp(self, index: int, *options: str) -> tuple[str, Path]:
        address, log = self.start(["--udp", f"127.0.0.{10 + index}"], *options)
        return f"udp:{address}", log

    def serial(self, index: int, *options: str) -> tuple[str, Path]:
        link = self.work / f"tty{index}"
        _, log = self.start(["--pty-link", str(link), "--baud-pace"], *options)
        return f"serial:{link}", log

    def stop(self) -> None:
        for process in self.running:
            process.terminate()
        for process in self.running:
            process.wait(timeout=10)
        self.running.clear()


def run(build: Path, profile: str, op: str, targets: list[str], *extra: str) -> dict:
    if profile == "fast" and VIA["program"] == "pelmo":
        return run_pelmo(build, op, targets, *extra)
    done = subprocess.run([str(build / "pelmo-engine-bench"), "--profile", profile, "--op", op,
                           *extra, *targets], capture_output=True, text=True, timeout=1800)
    lines = [json.loads(line) for line in done.stdout.splitlines() if line.startswith("{")]
    if not lines or "wall" not in lines[-1]:
        sys.exit(f"pelmo-engine-bench gave no result: {done.stderr.strip()}")
    total = lines[-1]
    total["targets"] = lines[:-1]
    return total


VIA = {"program": "engine"}


def run_pelmo(build: Path, op: str, targets: list[str], *extra: str) -> dict:
    """One `pelmo` run on every target at once, in pelmo-engine-bench's result shape."""
    options = dict(zip(extra[::2], extra[1::2]))
    words = [str(build / "pelmo"), "--json", "--no-progress"]
    for target in targets:
        kind, _, where = target.partition(":")
        words += [f"--{kind}", where]
    with tempfile.TemporaryDirectory(prefix="pelmo-bench-read-") as folder:
        if op == "read":
            words += ["read", str(Path(folder) / "out.bin")]
        else:
            words += ["flash", options["--image"]]
        before = os.times()
        start = time.monotonic()
        done = subprocess.run(words, capture_output=True, text=True, timeout=1800)
        wall = time.monotonic() - start
        after = os.times()
    try:
        result = json.loads(done.stdout)
    except json.JSONDecodeError:
        sys.exit(f"pelmo gave no JSON result: {done.stderr.strip()}")
    cpu = (after.children_user - before.children_user) + (after.children_system -
                                                          before.children_system)
    return {"wall": wall, "cpu": cpu, "ok": result["ok"], "targets": result["targets"]}


def image(work: Path, size: int, seed: int = 1) -> Path:
    path = work / f"fw{size // KIB}k-{seed}.bin"
    if not path.exists():
        subprocess.run([sys.executable, str(ROOT / "tools" / "sample_image.py"), str(path), "--size",
                        str(size), "--seed", str(seed)], check=True, capture_output=True)
    return path


def flash_wire_bytes(size: int, chunk: int) -> int:
    """Bytes a lock-step erase, write and verify put on the line, both directions (firmware blocks
    are whole 8-byte units)."""
    blocks = -(-size // (chunk // 8 * 8))
    ack = FRAME_OVERHEAD
    exchanges = 2 * blocks + 4  # blocks written and verified; erase, probe, begin, end
    return 2 * size + exchanges * (FRAME_OVERHEAD + ack)


class Report:
    def __init__(self) -> None:
        self.missed = 0

    def line(self, name: str, figure: str, target: str, met: bool) -> None:
        self.missed += not met
        print(f"{name:14} {figure:44} {target:28} {'met' if met else 'MISSED'}", flush=True)


def udp_read(build, work, devices, report, args):
    target, _ = devices.udp(0, "--fw-max-size", str(1024 * KIB), "--load-firmware",
                            str(image(work, 1024 * KIB)))
    fast = run(build, "fast", "read", [target])
    devices.stop()
    # The classic profile waits 150 ms of quiet after every chunk: 64 KiB are enough to compare.
    target, _ = devices.udp(0, "--load-firmware", str(image(work, 64 * KIB)))
    classic = run(build, "classic", "read", [target], "--size", str(64 * KIB))
    devices.stop()
    fast_s, classic_s = fast["wall"], classic["wall"]
    report.line("udp-read", f"1 MiB in {fast_s:.3f} s", "<= 0.5 s", fast["ok"] and fast_s <= 0.5)
    ratio = (classic_s / (64 * KIB)) / (fast_s / (1024 * KIB))
    report.line("udp-read", f"{ratio:.0f}x faster per byte (classic 64 KiB {classic_s:.2f} s)",
                ">= 100x", classic["ok"] and ratio >= 100)


def udp_flash(build, work, devices, report, args):
    target, _ = devices.udp(0, "--fw-max-size", str(1024 * KIB))
    result = run(build, "fast", "flash", [target], "--image", str(image(work, 1024 * KIB)))
    devices.stop()
    report.line("udp-flash", f"1 MiB erase+write+verify in {result['wall']:.3f} s", "<= 0.5 s",
                result["ok"] and result["wall"] <= 0.5)


def serial(build, work, devices, report, args):
    firmware = image(work, 256 * KIB)
    target, _ = devices.serial(0, "--load-firmware", str(firmware))
    read = run(build, "fast", "read", [target])
    share = read["targets"][0]["bytes"] / read["wall"] / LINE_RATE
    report.line("serial-read", f"{share:.1%} of the line rate ({read['wall']:.1f} s)", ">= 90%",
                read["ok"] and share >= 0.9)
    flash = run(build, "fast", "flash", [target], "--image", str(image(work, 64 * KIB)))
    devices.stop()
    wire = flash_wire_bytes(64 * KIB, args.serial_chunk) / LINE_RATE
    ratio = flash["wall"] / wire
    report.line("serial-flash", f"{ratio:.3f} x wire time ({flash['wall']:.1f} s / {wire:.1f} s)",
                "<= 1.10", flash["ok"] and ratio <= 1.10)
    cpu = max(read["cpu"] / read["wall"], flash["cpu"] / flash["wall"])
    report.line("serial-cpu", f"{cpu:.2%} of wall", "<= 5%", cpu <= 0.05)


def loss(build, work, devices, report, args):
    firmware = str(image(work, 256 * KIB))
    target, _ = devices.udp(0)
    clean = run(build, "fast", "flash", [target], "--image", firmware)["wall"]
    devices.stop()
    succeeded, extra, losses = 0, 0.0, 0
    for seed in range(1, args.loss_runs + 1):
        target, log = devices.udp(0, "--drop-requests", "5", "--drop-responses", "5", "--seed",
                                  str(seed))
        result = run(build, "fast", "flash", [target], "--image", firmware)
        devices.stop()
        succeeded += result["ok"]
        extra += result["wall"] - clean
        losses += sum(line.startswith("drop ") for line in log.read_text().splitlines())
    per_loss = extra / losses * 1000 if losses else 0.0
    report.line("loss", f"{succeeded}/{args.loss_runs} flashes, {per_loss:.0f} ms per loss "
                f"({losses} losses)", f"{args.loss_runs}/{args.loss_runs}",
                succeeded == args.loss_runs)


def many(build, work, devices, report, kind, count, size, limit, *options):
    firmware = str(image(work, size))
    start = devices.udp if kind == "udp" else devices.serial
    one = run(build, "fast", "flash", [start(0, *options)[0]], "--image", firmware)
    devices.stop()
    targets = [start(i, *options)[0] for i in range(count)]
    all_at_once = run(build, "fast", "flash", targets, "--image", firmware)
    devices.stop()
    ratio = all_at_once["wall"] / one["wall"]
    name = f"{kind}-many" + ("" if limit else "-instant")
    report.line(name, f"{count} at once {all_at_once['wall']:.2f} s, one {one['wall']:.2f} s: "
                f"{ratio:.2f}x", f"<= {limit}x" if limit else "(for reference)",
                one["ok"] and all_at_once["ok"] and (not limit or ratio <= limit))


SCENARIOS = {
    "udp-read": udp_read,
    "udp-flash": udp_flash,
    "serial": serial,
    "loss": loss,
    # A board takes a moment to answer; simulators that answer at once make 16 of them on two
    # cores a measure of the CPU, not of the engine (udp-many-instant shows that figure).
    "udp-many": lambda b, w, d, r, a: many(b, w, d, r, "udp", 16, 256 * KIB, 1.5, "--delay-ms", "1"),
    "udp-many-instant": lambda b, w, d, r, a: many(b, w, d, r, "udp", 16, 256 * KIB, None),
    "serial-many": lambda b, w, d, r, a: many(b, w, d, r, "serial", 8, 32 * KIB, 1.2),
}


def main() -> None:
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("--build", type=Path, default=ROOT / "build-bench")
    ap.add_argument("--only", default=",".join(SCENARIOS))
    ap.add_argument("--loss-runs", type=int, default=100)
    ap.add_argument("--via", choices=("engine", "pelmo"), default="engine",
                    help="drive the fast runs through pelmo-engine-bench or the pelmo program")
    ap.add_argument("--serial-chunk", type=int, default=244, help=argparse.SUPPRESS)
    ap.add_argument("--in-namespace", action="store_true", help=argparse.SUPPRESS)
    args = ap.parse_args()
    chosen = args.only.split(",")
    unknown = [name for name in chosen if name not in SCENARIOS]
    if unknown:
        sys.exit(f"unknown scenario {unknown}; known: {', '.join(SCENARIOS)}")
    if not args.in_namespace and os.geteuid() == 0 and shutil.which("unshare") and \
            subprocess.run(["unshare", "-n", "true"], capture_output=True).returncode == 0:
        sys.exit(subprocess.run(["unshare", "-n", sys.executable, os.path.abspath(__file__),
                                 *sys.argv[1:], "--in-namespace"]).returncode)
    if args.in_namespace:
        subprocess.run(["ip", "link", "set", "lo", "up"], check=True)
    VIA["program"] = args.via
    report = Report()
    with tempfile.TemporaryDirectory(prefix="pelmo-engine-bench-") as folder:
        work = Path(folder)
        devices = Devices(args.build, work)
        try:
            for name in chosen:
                SCENARIOS[name](args.build, work, devices, report, args)
        finally:
            devices.stop()
    sys.exit(1 if report.missed else 0)


if __name__ == "__main__":
    main()

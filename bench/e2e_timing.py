#!/usr/bin/env python3
"""End-to-end timing of PelmoWin against pelmo-device, beside the floor its polling implies.

Usage: bench/e2e_timing.py [--build build] [--links udp,pty,pty-paced] [--jobs ewv64k,ewv1m,r64k]
                           [--repeat N]

Jobs: -ewv of a 64 KiB and of a 1 MiB image, -r of a 64 KiB firmware the device was loaded with.
Links: UDP over the loopback (device on 127.0.0.2, the program binds 127.0.0.1: the host name
resolves there), and the serial line over the simulator's pty through PELMO_COM3 and "@3", with
and without 115200-baud pacing of the device's output. Run as root, the whole bench moves into a
network namespace of its own, so nothing else on the loopback shares the protocol port.

The floor is the time the program must take when the device answers at once; it counts the
pauses the receive loops cannot avoid:
  UDP     an acknowledgement (min_count 12): one 5 ms pause before it arrives;
          a read answer (min_count 0): that pause plus 150 ms of quiet, polled every 5 ms.
  serial  every poll is followed by a 10 ms pause: one poll before the answer, polls while it
          arrives (its wire time at 11520 bytes/s when paced, rounded up to whole polls), then one
          more quiet poll for an acknowledgement or 15 quiet polls (150 ms) for a read answer.
"best s" is the same count for answers that are already waiting at the first poll after the send
(a device process that was scheduled at once); on a quiet machine UDP runs land between the two.
On the paced line the request's own wire time counts too: the simulator takes in what the program
writes at the line rate as well. Wall time is measured around the process; CPU time comes from os.wait4. While the program runs,
a thread of this script sleeps the same pause again and again; "pause ms" is how long such a pause
really took then, and "wall/adj" compares the wall time with the floor's pauses at that length,
which separates a loaded machine from time the program itself adds.
Targets: wall within 10% of the floor, CPU under 5% of wall.
"""
import argparse
import math
import os
import random
import shutil
import statistics
import subprocess
import sys
import tempfile
import threading
import time

DEVICE_ADDR = "127.0.0.2"
WIRE_BYTES_PER_S = 11520
FRAME_OVERHEAD = 12
KIB = 1024


class Link:
    def __init__(self, name, chunk, paced):
        self.name, self.chunk, self.paced = name, chunk, paced
        self.udp = name == "udp"
        self.pause_ms = 5 if self.udp else 10  # the receive loop's polling pause
        self.step = chunk - chunk % 8  # firmware blocks advance by a multiple of 8

    def ack_pauses(self, request_bytes=FRAME_OVERHEAD, waiting=False):
        """Pauses of one exchange whose 12-byte answer ends the receive as soon as it is in.
        `waiting`: the answer is already there at the first poll after the send."""
        if self.udp:
            return 0 if waiting else 1
        return self._serial_data_polls(request_bytes + FRAME_OVERHEAD, waiting) + 1

    def read_pauses(self, answer_bytes, waiting=False):
        """Pauses of one exchange whose answer ends only after 150 ms of quiet."""
        quiet = 150 // self.pause_ms
        if self.udp:
            return (0 if waiting else 1) + quiet
        return self._serial_data_polls(FRAME_OVERHEAD + answer_bytes, waiting) + quiet

    def _serial_data_polls(self, line_bytes, waiting):
        # Polls at 0, 10, 20 ... ms after the send; unless the answer is waiting already, the
        # first one comes before it. On the paced line the request and the answer both cross it
        # first, so the answer is never complete at the first poll.
        if self.paced:
            return max(1, math.ceil(line_bytes * 1000 / WIRE_BYTES_PER_S / self.pause_ms))
        return 0 if waiting else 1


LINKS = {
    "udp": Link("udp", 1012, False),
    "pty": Link("pty", 244, False),
    "pty-paced": Link("pty-paced", 244, True),
}


def ewv_pauses(link, size, waiting=False):
    def block_requests(start):
        return [FRAME_OVERHEAD + min(link.step, size - offset) for offset in range(start, size, link.step)]
    # erase, probe, the blocks written, end, the blocks verified
    requests = [FRAME_OVERHEAD] * 3 + block_requests(0) + block_requests(8)
    return len(requests), sum(link.ack_pauses(request, waiting) for request in requests)


def read_pauses(link, size, waiting=False):
    full, rest = divmod(size, link.chunk)
    answers = [link.chunk + FRAME_OVERHEAD] * full + ([rest + FRAME_OVERHEAD] if rest else [])
    answers.append(FRAME_OVERHEAD)  # the end-of-data status
    return len(answers), sum(link.read_pauses(a, waiting) for a in answers)


class PauseGauge:
    """Sleeps the link's pause over and over while a run goes on, to tell how long such a pause
    really lasts on this machine at that moment (a loaded machine wakes sleepers late)."""

    def __init__(self, pause_ms):
        self.pause_s, self.samples, self.stop = pause_ms / 1000, [], threading.Event()
        self.thread = threading.Thread(target=self._run, daemon=True)

    def _run(self):
        while not self.stop.is_set():
            start = time.perf_counter()
            time.sleep(self.pause_s)
            self.samples.append(time.perf_counter() - start)

    def __enter__(self):
        self.thread.start()
        return self

    def __exit__(self, *exc):
        self.stop.set()
        self.thread.join()

    def mean_ms(self):
        return statistics.mean(self.samples) * 1000 if self.samples else float("nan")


JOBS = {
    "ewv64k": ("-ewv", 64 * KIB),
    "ewv1m": ("-ewv", 1024 * KIB),
    "r64k": ("-r", 64 * KIB),
}


def start_device(device, link, work, preload=None):
    cmd = [device, "--fw-max-size", str(1024 * KIB), "--log", os.path.join(work, "device.log")]
    if preload:
        cmd += ["--load-firmware", preload]
    com = None
    if link.udp:
        cmd += ["--udp", DEVICE_ADDR]
    else:
        com = os.path.join(work, "com3")
        cmd += ["--pty-link", com] + (["--baud-pace"] if link.paced else [])
    proc = subprocess.Popen(cmd, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    if not wait_ready(proc):
        stop(proc)
        sys.exit(f"pelmo-device did not come up: {' '.join(cmd)}")
    return proc, com


def wait_ready(proc, timeout=10):
    """The device says "ready" once its endpoints are open; its output is drained from then on."""
    ready = threading.Event()

    def drain():
        for line in proc.stdout:
            if line.strip() == "ready":
                ready.set()
        ready.set()  # ended: let the waiter look at the process

    threading.Thread(target=drain, daemon=True).start()
    return ready.wait(timeout) and proc.poll() is None


def stop(proc):
    proc.terminate()
    try:
        proc.wait(5)
    except subprocess.TimeoutExpired:
        proc.kill()
        proc.wait()


def run_program(program, link, com, option, path, work):
    env = dict(os.environ)
    if com is not None:
        env["PELMO_COM3"] = com
    target = f"#{DEVICE_ADDR}" if link.udp else "@3"
    with open(os.path.join(work, "console.txt"), "wb") as console:
        start = time.perf_counter()
        proc = subprocess.Popen([program, target, option, path], stdout=console, env=env, cwd=work)
        _, status, usage = os.wait4(proc.pid, 0)
        wall = time.perf_counter() - start
    proc.returncode = os.waitstatus_to_exitcode(status)
    if proc.returncode != 0:
        with open(os.path.join(work, "console.txt"), "rb") as console:
            tail = console.read()[-600:].decode(errors="replace")
        sys.exit(f"PelmoWin {target} {option} failed ({proc.returncode}):\n{tail}")
    return wall, usage.ru_utime + usage.ru_stime


def measure(program, device, link, job, work, images):
    option, size = JOBS[job]
    count = ewv_pauses if option == "-ewv" else read_pauses
    exchanges, pauses = count(link, size)
    _, best_pauses = count(link, size, waiting=True)
    if option == "-ewv":
        preload, path = None, images[size]
    else:
        preload, path = images[size], os.path.join(work, "read.bin")
    proc, com = start_device(device, link, work, preload)
    try:
        with PauseGauge(link.pause_ms) as gauge:
            wall, cpu = run_program(program, link, com, option, path, work)
    finally:
        stop(proc)
    if option == "-r" and os.path.getsize(path) != size:
        sys.exit(f"read delivered {os.path.getsize(path)} bytes, expected {size}")
    return dict(exchanges=exchanges, pauses=pauses, best_pauses=best_pauses, wall=wall, cpu=cpu,
                pause=gauge.mean_ms())


def main():
    here = os.path.dirname(os.path.abspath(__file__))
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("--build", default=os.path.join(here, "..", "build"))
    ap.add_argument("--links", default="udp,pty,pty-paced")
    ap.add_argument("--jobs", default="ewv64k,ewv1m,r64k")
    ap.add_argument("--repeat", type=int, default=1, help="runs per case; the median is shown")
    ap.add_argument("--in-namespace", action="store_true", help=argparse.SUPPRESS)
    args = ap.parse_args()

    program = os.path.abspath(os.path.join(args.build, "PelmoWin"))
    device = os.path.abspath(os.path.join(args.build, "pelmo-device"))
    for path in (program, device):
        if not os.access(path, os.X_OK):
            sys.exit(f"{path} not built")
    links = [LINKS[name] for name in args.links.split(",")]
    jobs = args.jobs.split(",")
    for job in jobs:
        if job not in JOBS:
            sys.exit(f"unknown job {job}; known: {', '.join(JOBS)}")

    if not args.in_namespace and os.geteuid() == 0 and shutil.which("unshare") and \
            subprocess.run(["unshare", "-n", "true"], capture_output=True).returncode == 0:
        sys.exit(subprocess.run(["unshare", "-n", sys.executable, os.path.abspath(__file__)] +
                                sys.argv[1:] + ["--in-namespace"]).returncode)
    if args.in_namespace:
        subprocess.run(["ip", "link", "set", "lo", "up"], check=True)

    print(f"{'link':10} {'job':7} {'exch':>5} {'pauses':>6} {'best s':>7} {'floor s':>8} {'wall s':>8} "
          f"{'wall/floor':>10} {'pause ms':>8} {'wall/adj':>8} {'cpu s':>7} {'cpu/wall':>8}")
    worst_ratio, worst_cpu = 0.0, 0.0
    with tempfile.TemporaryDirectory(prefix="pelmo-e2e-") as work:
        rng = random.Random(7)
        images = {}
        for size in sorted({JOBS[j][1] for j in jobs}):
            images[size] = os.path.join(work, f"fw{size // KIB}k.bin")
            with open(images[size], "wb") as out:
                out.write(rng.randbytes(size))
        for link in links:
            for job in jobs:
                runs = [measure(program, device, link, job, work, images)
                        for _ in range(args.repeat)]
                r = dict(runs[0])
                for key in ("wall", "cpu", "pause"):
                    r[key] = statistics.median(run[key] for run in runs)
                floor = r["pauses"] * link.pause_ms / 1000
                # The same pauses at the length they really took while the run went on.
                adjusted = r["pauses"] * r["pause"] / 1000
                ratio, share = r["wall"] / floor, r["cpu"] / r["wall"]
                worst_ratio, worst_cpu = max(worst_ratio, ratio), max(worst_cpu, share)
                best = r["best_pauses"] * link.pause_ms / 1000
                print(f"{link.name:10} {job:7} {r['exchanges']:5d} {r['pauses']:6d} {best:7.3f} "
                      f"{floor:8.3f} "
                      f"{r['wall']:8.3f} {ratio:10.3f} {r['pause']:8.2f} "
                      f"{r['wall'] / adjusted:8.3f} {r['cpu']:7.3f} {share:8.2%}", flush=True)
    print(f"worst wall/floor {worst_ratio:.3f} (target <= 1.10): "
          f"{'met' if worst_ratio <= 1.10 else 'missed'}")
    print(f"worst cpu/wall {worst_cpu:.2%} (target < 5%): {'met' if worst_cpu < 0.05 else 'missed'}")


if __name__ == "__main__":
    main()

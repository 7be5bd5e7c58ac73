#!/usr/bin/env python3
"""Times loading one 1 MiB Intel HEX image with our reader against objcopy and srec_cat.

Usage: bench/hex_side_by_side.py [--loader build/pelmo-hex-load] [--runs 21]

The image is 1 MiB of pseudo-random bytes, turned into HEX text by objcopy (16-byte records,
CR LF, extended segment address records: what objcopy writes below 1 MiB). Each converter turns the
same file into a binary (our loader once only loading, as the tool does, once also writing the
binary); the outputs are first checked against the original bytes, then every command runs --runs
times, round-robin so that a busy machine slows all of them alike. Wall time per
run is measured around the process (start-up included for every tool); the median is compared.
Target: our reader takes at most a third of objcopy's time.
"""
import argparse
import os
import random
import resource
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

IMAGE_SIZE = 1024 * 1024


def tools(loader, hex_path, work):
    """name -> (command, the binary it writes or None)."""
    out = lambda name: os.path.join(work, name)
    return {
        "pelmo load": ([loader, hex_path], None),
        "pelmo load+write": ([loader, hex_path, out("pelmo.bin")], out("pelmo.bin")),
        "objcopy": (["objcopy", "-I", "ihex", "-O", "binary", hex_path, out("objcopy.bin")],
                    out("objcopy.bin")),
        "srec_cat": (["srec_cat", hex_path, "-intel", "-o", out("srec_cat.bin"), "-binary"],
                     out("srec_cat.bin")),
    }


def timed(cmd):
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    start = time.perf_counter()
    subprocess.run(cmd, check=True, stdout=subprocess.DEVNULL)
    wall = time.perf_counter() - start
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    return wall, (after.ru_utime - before.ru_utime), (after.ru_stime - before.ru_stime)


def main():
    here = os.path.dirname(os.path.abspath(__file__))
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("--loader", default=os.path.join(here, "..", "build", "pelmo-hex-load"))
    ap.add_argument("--runs", type=int, default=21)
    args = ap.parse_args()
    for tool in ("objcopy", "srec_cat"):
        if shutil.which(tool) is None:
            sys.exit(f"{tool} is not installed")
    if not os.access(args.loader, os.X_OK):
        sys.exit(f"{args.loader} not built (configure with -DPELMO_BUILD_BENCHMARKS=ON)")

    with tempfile.TemporaryDirectory(prefix="pelmo-hex-") as work:
        image = random.Random(1).randbytes(IMAGE_SIZE)
        bin_path, hex_path = os.path.join(work, "image.bin"), os.path.join(work, "image.hex")
        with open(bin_path, "wb") as out:
            out.write(image)
        subprocess.run(["objcopy", "-I", "binary", "-O", "ihex", bin_path, hex_path], check=True)
        print(f"image: {IMAGE_SIZE} bytes, HEX text {os.path.getsize(hex_path)} bytes")

        commands = tools(args.loader, hex_path, work)
        for name, (cmd, output) in commands.items():
            subprocess.run(cmd, check=True, stdout=subprocess.DEVNULL)
            if output is not None:
                with open(output, "rb") as result:
                    if result.read() != image:
                        sys.exit(f"{name} produced a different image")

        times = {name: [] for name in commands}
        for _ in range(args.runs):
            for name, (cmd, _) in commands.items():
                times[name].append(timed(cmd))

    # The kernel's split between user and system time is coarse here; their sum is the CPU time.
    print(f"{'tool':18} {'median ms':>10} {'min ms':>8} {'cpu ms':>8}")
    median = {}
    for name, runs in times.items():
        median[name] = statistics.median(w for w, _, _ in runs)
        print(f"{name:18} {median[name] * 1e3:10.2f} {min(w for w, _, _ in runs) * 1e3:8.2f} "
              f"{statistics.median(u + s for _, u, s in runs) * 1e3:8.2f}")
    for ours in ("pelmo load", "pelmo load+write"):
        for other in ("objcopy", "srec_cat"):
            print(f"{ours} / {other}: {median[ours] / median[other]:.3f}")
    ratio = median["pelmo load"] / median["objcopy"]
    verdict = "met" if ratio <= 1 / 3 else "missed"
    print(f"target (load at most 1/3 of objcopy's time): {verdict} ({ratio:.3f})")


if __name__ == "__main__":
    main()

#!/usr/bin/env python3
"""Flashes 1 MiB over UDP through the pelmo Python module and through the pelmo command line, on
the same pelmo-device, side by side.

Usage: bench/python_flash_bench.py [--build build] [--cli build/pelmo] [--runs 9]
                                   [--address 127.0.0.40] [--delay-ms 0]

The device serves a 1 MiB firmware area on ADDRESS:57998 (the command line reaches devices on
their own port). Each run flashes the same 1 MiB image (erase, write, verify) once through
`pelmo --udp ADDRESS --no-progress flash image.bin` and once through Python, round-robin so that
a busy machine slows both alike; every flash is checked by reading the image back first. Python
is timed two ways: connect and flash inside one interpreter (what a rig script pays per board),
and a whole `python3 -c` process (interpreter start and import included), which compares with the
command line's process. The medians are printed; target: Python in-process at most 1.1 times the
command line.
"""
import argparse
import os
import statistics
import subprocess
import sys
import tempfile
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parents[1]
sys.path.insert(0, str(ROOT / "tools"))
from sample_image import firmware_image  # noqa: E402

IMAGE_BYTES = 1024 * 1024

PYTHON_FLASH = """
import sys, time, pelmo
started = time.monotonic()
with pelmo.connect_udp(sys.argv[1]) as device:
    device.flash(pelmo.load_image(sys.argv[2]))
print(time.monotonic() - started)
"""


def timed(command, env=None):
    started = time.monotonic()
    done = subprocess.run(command, capture_output=True, text=True, env=env, timeout=300)
    elapsed = time.monotonic() - started
    if done.returncode != 0:
        sys.exit(f"{' '.join(command)} failed ({done.returncode}):\n{done.stdout}{done.stderr}")
    return elapsed, done.stdout


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--build", type=Path, default=ROOT / "build")
    parser.add_argument("--cli", type=Path, help="the pelmo command line (default: BUILD/pelmo)")
    parser.add_argument("--runs", type=int, default=9)
    parser.add_argument("--address", default="127.0.0.40")
    parser.add_argument("--delay-ms", type=int, default=0, help="the device answers this much late")
    args = parser.parse_args()
    cli, device = args.cli or args.build / "pelmo", args.build / "pelmo-device"
    if not cli.exists():
        sys.exit(f"{cli}: no pelmo command line (build it, or name it with --cli)")
    env = {**os.environ, "PYTHONPATH": str(args.build / "python")}
    sys.path.insert(0, env["PYTHONPATH"])
    import pelmo

    with tempfile.TemporaryDirectory(prefix="pelmo-python-bench-") as work:
        image_path = Path(work) / "image.bin"
        image = firmware_image(IMAGE_BYTES)
        image_path.write_bytes(image)
        simulator = subprocess.Popen(
            [device, "--udp", args.address, "--fw-max-size", str(IMAGE_BYTES), "--delay-ms", str(args.delay_ms),
             "--log", os.devnull], stdout=subprocess.PIPE, text=True)
        try:
            for line in simulator.stdout:
                if line.strip() == "ready":
                    break

            def held():
                with pelmo.connect_udp(args.address) as board:
                    if board.read()[8:] != image[8:]:
                        sys.exit("the device does not hold the image after a flash")

            figures = {"pelmo command line": [], "Python, in process": [], "Python, whole process": []}
            for _ in range(args.runs):
                figures["pelmo command line"].append(
                    timed([str(cli), "--udp", args.address, "--no-progress", "flash", str(image_path)])[0])
                held()
                whole, printed = timed([sys.executable, "-c", PYTHON_FLASH, args.address, str(image_path)], env)
                figures["Python, whole process"].append(whole)
                figures["Python, in process"].append(float(printed))
                held()
        finally:
            simulator.terminate()
            simulator.wait()

    cli_median = statistics.median(figures["pelmo command line"])
    print(f"1 MiB flash (erase, write, verify) over UDP to {args.address}, answers {args.delay_ms} ms late, "
          f"{args.runs} runs, medians:")
    for name, values in figures.items():
        median = statistics.median(values)
        print(f"  {name:<22} {median * 1000:8.1f} ms  {median / cli_median:5.2f} x  "
              f"(min {min(values) * 1000:.1f}, max {max(values) * 1000:.1f})")


if __name__ == "__main__":
    main()

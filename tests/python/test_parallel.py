"""Eight UDP devices flashed from eight Python threads: each ends up holding its own image, and
the work runs in parallel (the interpreter lock is released while each device is waited for)."""

from __future__ import annotations

import time
from concurrent.futures import ThreadPoolExecutor

from conftest import sample_firmware

BOARDS = 8
IMAGE_BYTES = 256 * 1024
# Each answer 2 ms late: one device's flash and read take about a second, far above the noise.
DEVICE_OPTIONS = ("--delay-ms", "2")


def flash_and_read(device_process, image: bytes) -> tuple[bytes, int]:
    calls = []
    with device_process.connect() as device:
        device.flash(image, progress=lambda *args: calls.append(args))
        return device.read(), len(calls)


def timed(work):
    started = time.monotonic()
    result = work()
    return result, time.monotonic() - started


def test_eight_devices_in_parallel(simulator):
    images = [sample_firmware(IMAGE_BYTES, seed=board) for board in range(BOARDS)]
    boards = [simulator(*DEVICE_OPTIONS, address=f"127.0.0.{10 + board}") for board in range(BOARDS)]

    (_, one_s) = timed(lambda: flash_and_read(boards[0], images[0]))
    with ThreadPoolExecutor(max_workers=BOARDS) as pool:
        results, eight_s = timed(lambda: list(pool.map(flash_and_read, boards, images)))

    for board, (stored, progress_calls) in enumerate(results):
        assert stored[8:] == images[board][8:], f"board {board} holds another image"
        assert progress_calls > IMAGE_BYTES // 1024
        assert boards[board].stored("firmware")[8:] == images[board][8:]
    assert eight_s <= 1.5 * one_s, f"one device {one_s:.2f} s, eight in parallel {eight_s:.2f} s"

"""The examples in docs/python.md run as written, against simulators at the addresses and with
the files their environment variables name."""

from __future__ import annotations

import json
import os
import re
import subprocess
import sys
from pathlib import Path

import pytest

from conftest import pelmo, pelmo_e2e, sample_firmware
from samples import bin_to_hex

DOC = Path(__file__).resolve().parents[2] / "docs" / "python.md"
_EXAMPLE = re.compile(r"<!-- example: (\S+) -->\n```python\n(.*?)```", re.S)


@pytest.fixture
def examples(tmp_path) -> dict[str, Path]:
    """Each example of the document written to its file name."""
    found = {}
    for name, code in _EXAMPLE.findall(DOC.read_text()):
        found[name] = tmp_path / name
        found[name].write_text(code)
    assert set(found) == {"first_session.py", "production_line.py", "conftest.py", "test_board.py"}
    return found


@pytest.fixture
def firmware_hex(tmp_path) -> tuple[Path, bytes]:
    image = sample_firmware(16 * 1024)
    raw = tmp_path / "firmware.bin"
    raw.write_bytes(image)
    return bin_to_hex(raw, tmp_path / "firmware.hex", 0x08000000), image


@pytest.fixture
def default_port():
    """The examples use the devices' own port 57998, which a loopback device can take only when
    the hub binds another host address."""
    reason = pelmo_e2e.LoopbackUdp.available()
    if reason:
        (pytest.fail if os.environ.get("PELMO_E2E_STRICT") == "1" else pytest.skip)(reason)


def run(script: Path, *args: str, **env: str) -> subprocess.CompletedProcess:
    return subprocess.run([sys.executable, str(script), *args], cwd=script.parent, capture_output=True,
                          text=True, timeout=120, env={**os.environ, **env})


def test_first_session(examples, firmware_hex, simulator, default_port):
    path, image = firmware_hex
    board = simulator(address="127.0.0.30", port=pelmo.DEVICE_UDP_PORT)
    done = run(examples["first_session.py"], BOARD_ADDRESS="127.0.0.30", FIRMWARE=str(path))
    assert done.returncode == 0, done.stderr
    assert "udp:127.0.0.30: bootloader PELMO-DEVICE BOOT 1.00" in done.stdout
    assert "firmware: none" in done.stdout and "now running DemoFW 1.02.003" in done.stdout
    assert board.stored("firmware")[8:] == image[8:]


def test_production_line(examples, firmware_hex, simulator, default_port, tmp_path):
    path, image = firmware_hex
    rack = {f"127.0.0.{20 + n}": simulator(*options, address=f"127.0.0.{20 + n}", port=pelmo.DEVICE_UDP_PORT)
            for n, options in enumerate([[], ["--status", "ERASE_FW=0xF3"], []])}
    done = run(examples["production_line.py"], RACK=" ".join(rack), FIRMWARE=str(path),
               RECORDS=str(tmp_path / "records"))
    assert done.returncode == 1, done.stderr
    records = {address: json.loads((tmp_path / "records" / f"{address}.json").read_text()) for address in rack}
    failed = records.pop("127.0.0.21")
    assert (failed["ok"], failed["error"], failed["code"]) == (False, "DeviceStatusError", 0xF3 - 256)
    assert done.stdout.splitlines() == ["2 of 3 boards flashed", f"  127.0.0.21: DeviceStatusError: {failed['message']}"]
    for address, record in records.items():
        assert (record["ok"], record["version"]) == (True, "1.02.003")
        assert rack[address].stored("firmware")[8:] == image[8:]


def test_pytest_fixture(examples):
    command = [sys.executable, "-m", "pytest", "-q", "-p", "no:cacheprovider", str(examples["test_board.py"])]
    done = subprocess.run(command, cwd=examples["conftest.py"].parent, capture_output=True, text=True, timeout=120)
    assert "3 passed" in done.stdout, done.stdout + done.stderr

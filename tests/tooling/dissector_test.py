#!/usr/bin/env python3
"""Checks tools/wireshark/pelmo.lua on a real capture: PelmoWin and pelmo-device talk over the
loopback (in a network namespace of their own when one can be made) while tshark captures; the
capture is then dissected and every frame compared. Exit status 77: cannot run here."""
import argparse
import os
import shutil
import signal
import subprocess
import sys
import tempfile
import time

DEVICE = "127.0.0.2"
# The Info column and the expert information (CRC values cut) of every frame: a 1500-byte
# calibration table written and read back (a read's length field is what it asks for, not what it
# carries; the end of data is a device status), and a control record answer whose CRC the device
# breaks.
EXPECTED = """\
Request BEGIN_WRITE addr=0x00000000 len=0
Response status 0x00 to BEGIN_WRITE addr=0x00000000 len=0
Request BEGIN_WRITE addr=0x00000000 len=0
Response status 0x00 to BEGIN_WRITE addr=0x00000000 len=0
Request WRITE_CALIB addr=0x00000000 len=1012
Response status 0x00 to WRITE_CALIB addr=0x00000000 len=0
Request WRITE_CALIB addr=0x000003F4 len=488
Response status 0x00 to WRITE_CALIB addr=0x000003F4 len=0
Request END_CALIB addr=0x00000000 len=0
Response status 0x00 to END_CALIB addr=0x00000000 len=0
Request READ_CALIB addr=0x00000000 len=1012
Response status 0x00 to READ_CALIB addr=0x00000000 len=1012
Request READ_CALIB addr=0x000003F4 len=1012
Response status 0x00 to READ_CALIB addr=0x000003F4 len=488
Request READ_CALIB addr=0x000005DC len=1012
Response status 0xFD (-3) to READ_CALIB addr=0x000005DC len=0 | Device status 0xFD (-3)
Request READ_CONTROL addr=0x00000000 len=0
Response status 0x00 [bad CRC] to READ_CONTROL addr=0x00000000 len=76 | CRC mismatch: computed"""


def skip(reason):
    print(f"SKIP: {reason}")
    sys.exit(77)


def tshark(*args):
    return subprocess.run(["tshark", *args], capture_output=True, text=True)


def capture(args, work):
    """Runs the programs while tshark captures; returns the path of the capture."""
    pcap, log = os.path.join(work, "out.pcap"), open(os.path.join(work, "tshark.log"), "w+")
    sniffer = subprocess.Popen(["tshark", "-n", "-i", "lo", "-f", "udp port 57998", "-w", pcap],
                               stdout=log, stderr=log)
    device_out = os.path.join(work, "device.out")
    device = subprocess.Popen([args.device, "--udp", DEVICE, "--corrupt-crc-code", "READ_CONTROL"],
                              stdout=open(device_out, "w"), stderr=subprocess.STDOUT)
    try:
        for _ in range(100):
            time.sleep(0.1)
            with open(log.name) as text, open(device_out) as out:
                capturing, ready = "Capturing on" in text.read(), "ready" in out.read()
            if capturing and ready:
                break
        else:
            if not capturing:
                skip("tshark could not capture on lo")
            sys.exit("pelmo-device did not come up")
        time.sleep(0.5)  # tshark reports before its filter is fully in place
        calibration = os.path.join(work, "calibration.bin")
        with open(calibration, "wb") as out:
            out.write(bytes(i * 13 & 0xFF for i in range(1500)))
        # The damaged control record fails the last run.
        for options, ok in ((["-wc", calibration], True), (["-rc", "back.bin"], True), (["-rctrl"], False)):
            done = subprocess.run([args.program, f"#{DEVICE}", *options], cwd=work, timeout=60,
                                  stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
            if (done.returncode == 0) != ok:
                sys.exit(f"PelmoWin {options} ended with {done.returncode}:\n{done.stdout}")
        time.sleep(0.5)
    finally:
        for process, stop in ((device, signal.SIGTERM), (sniffer, signal.SIGINT)):
            process.send_signal(stop)
            try:
                process.wait(15)
            except subprocess.TimeoutExpired:
                process.kill()
                process.wait()
    return pcap


def shown(info, expert):
    """A frame as EXPECTED writes it; a CRC expert message loses its computed value."""
    expert = expert.split(" 0x")[0] if expert.startswith("CRC mismatch") else expert
    return f"{info} | {expert}" if expert else info


def check(dissector, pcap):
    loaded = tshark("-G", "protocols", "-X", f"lua_script:{dissector}")
    if "Lua Error" in loaded.stdout + loaded.stderr or "\tpelmo\n" not in loaded.stdout:
        sys.exit(f"protocol pelmo not registered:\n{loaded.stderr[-2000:]}")
    out = tshark("-n", "-X", f"lua_script:{dissector}", "-r", pcap, "-T", "fields", "-e",
                 "_ws.col.Info", "-e", "pelmo.crc.good", "-e", "_ws.expert.message")
    if out.returncode != 0 or "Lua Error" in out.stdout + out.stderr:
        sys.exit(f"tshark failed ({out.returncode}):\n{(out.stdout + out.stderr)[-3000:]}")
    rows = [line.split("\t") for line in out.stdout.splitlines()]
    text = "\n".join(shown(row[0], row[2]) for row in rows)
    if text != EXPECTED:
        sys.exit(f"frames dissected as\n{text}")
    crc_good = [{"True": "1", "False": "0"}.get(row[1], row[1]) for row in rows]
    if crc_good != ["1"] * (len(rows) - 1) + ["0"]:
        sys.exit(f"CRC good: {crc_good}")
    print(f"capture: {len(rows)} frames dissected as expected")


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--dissector", required=True)
    ap.add_argument("--program", required=True)
    ap.add_argument("--device", required=True)
    ap.add_argument("--in-namespace", action="store_true", help=argparse.SUPPRESS)
    args = ap.parse_args()
    if shutil.which("tshark") is None:
        skip("tshark not installed")
    if not all(os.access(path, os.X_OK) for path in (args.program, args.device)):
        skip("programs not built")
    if os.geteuid() != 0:
        skip("capturing needs root")
    if not args.in_namespace and shutil.which("unshare"):
        # A network namespace of our own keeps other runs on the loopback out of the capture.
        if subprocess.run(["unshare", "-n", "true"], capture_output=True).returncode == 0:
            sys.exit(subprocess.run(["unshare", "-n", sys.executable, *sys.argv,
                                     "--in-namespace"]).returncode)
    if args.in_namespace:
        subprocess.run(["ip", "link", "set", "lo", "up"], check=True)
    with tempfile.TemporaryDirectory(prefix="pelmo-capture-") as work:
        check(os.path.abspath(args.dissector), capture(args, work))


if __name__ == "__main__":
    main()

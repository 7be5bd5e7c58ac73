#!/usr/bin/env python3
"""Checks the Wireshark dissector tools/wireshark/pelmo.lua with tshark.

frames:  frames encoded here (the encoder is first checked against two frames written out by
         hand) are written into a pcap and dissected; every field and expert message is compared.
capture: pelmo-device and PelmoWin talk over the loopback (in a network namespace of their own when
         one can be made) while tshark captures: bootloader and firmware information (the device has no
         firmware and says so), a calibration table write, and a control record request whose
         answer the device damages on purpose. The
         capture is dissected and every frame checked.

Exit status 77 means the check could not run here (no tshark, no capture rights, programs missing).
"""
import argparse
import os
import shutil
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import threading
import time

SKIP = 77
PORT = 57998
DEVICE_ADDR = "127.0.0.2"
HOST_ADDR = "127.0.0.1"
FIELDS = ["frame.number", "ip.src", "pelmo.start", "pelmo.command", "pelmo.status", "pelmo.result",
          "pelmo.address", "pelmo.length", "pelmo.payload", "pelmo.crc.good",
          "pelmo.request_command", "pelmo.request_in", "_ws.expert.message"]


# --- frames -------------------------------------------------------------------------------------

def _crc_table():
    table = []
    for i in range(256):
        c = i << 24
        for _ in range(8):
            c = ((c << 1) ^ 0x04C11DB7) if c & 0x80000000 else (c << 1)
            c &= 0xFFFFFFFF
        table.append(c)
    return table


CRC_TABLE = _crc_table()


def crc32_mpeg2(data):
    crc = 0xFFFFFFFF
    for b in data:
        crc = ((crc << 8) & 0xFFFFFFFF) ^ CRC_TABLE[(crc >> 24) ^ b]
    return crc


def frame(start, code, address, length, payload=b""):
    head = struct.pack("<BBIH", start, code, address, length) + payload
    return head + struct.pack("<I", crc32_mpeg2(head))


def request(code, address=0, length=0, payload=b""):
    return frame(0xB5, code, address, length, payload)


def response(status, address=0, payload=b""):
    return frame(0xBA, status, address, len(payload), payload)


def check_encoder():
    assert crc32_mpeg2(b"123456789") == 0x0376E6E7
    assert request(0x01, 0, 244) == bytes.fromhex("B5 01 00000000 F400 8CF9002A")
    assert request(0x8F) == bytes.fromhex("B5 8F 00000000 0000 9639C765")


# --- pcap ---------------------------------------------------------------------------------------

def ip_checksum(header):
    total = sum(struct.unpack("!10H", header))
    total = (total & 0xFFFF) + (total >> 16)
    total = (total & 0xFFFF) + (total >> 16)
    return ~total & 0xFFFF


def udp_packet(src, dst, payload):
    udp = struct.pack("!HHHH", PORT, PORT, 8 + len(payload), 0) + payload
    header = struct.pack("!BBHHHBBH4s4s", 0x45, 0, 20 + len(udp), 0, 0x4000, 64, 17, 0,
                         socket.inet_aton(src), socket.inet_aton(dst))
    header = header[:10] + struct.pack("!H", ip_checksum(header)) + header[12:]
    return header + udp


def write_pcap(path, packets):
    """packets: (source address, destination address, UDP payload); link type raw IPv4."""
    with open(path, "wb") as out:
        out.write(struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 65535, 101))
        for n, (src, dst, payload) in enumerate(packets):
            data = udp_packet(src, dst, payload)
            out.write(struct.pack("<IIII", 1_700_000_000, n * 1000, len(data), len(data)))
            out.write(data)


# --- tshark -------------------------------------------------------------------------------------

def tshark():
    path = shutil.which("tshark")
    if path is None:
        print("SKIP: tshark not installed")
        sys.exit(SKIP)
    return path


def check_loaded(dissector):
    out = subprocess.run([tshark(), "-G", "protocols", "-X", f"lua_script:{dissector}"],
                         capture_output=True, text=True)
    text = out.stdout + out.stderr
    if "Lua Error" in text:
        fail(f"Lua error while loading:\n{text[-2000:]}")
    if not any(line.split("\t")[2:3] == ["pelmo"] for line in out.stdout.splitlines()):
        fail("protocol pelmo is not registered")


def dissect(dissector, pcap):
    """One dict per packet, field name -> text, as tshark prints them."""
    cmd = [tshark(), "-n", "-X", f"lua_script:{dissector}", "-r", pcap, "-T", "fields",
           "-E", "separator=\t", "-E", "occurrence=a", "-E", "aggregator=|"]
    for name in FIELDS:
        cmd += ["-e", name]
    out = subprocess.run(cmd, capture_output=True, text=True)
    text = out.stdout + out.stderr
    if out.returncode != 0 or "Lua Error" in text:
        fail(f"tshark failed ({out.returncode}):\n{text[-3000:]}")
    rows = []
    for line in out.stdout.splitlines():
        values = line.split("\t")
        rows.append(dict(zip(FIELDS, values + [""] * (len(FIELDS) - len(values)))))
    return rows


def fail(message):
    print(f"FAIL: {message}")
    sys.exit(1)


def truth(text):
    return {"1": True, "True": True, "0": False, "False": False}.get(text)


def number(text):
    return int(text, 0) if text else None


# --- frames mode --------------------------------------------------------------------------------

def run_frames(dissector):
    check_encoder()
    check_loaded(dissector)
    info = bytes(range(96))
    block = bytes((i * 7) & 0xFF for i in range(1008))
    good = request(0x24)
    bad_crc = bytearray(request(0x84, 0x3F0, 1008, block))
    bad_crc[20] ^= 0x01  # one payload bit flipped after the CRC was computed
    truncated = response(0, 0, bytes(40))[:30]  # length field says 40, only 18 payload bytes came
    H, D = HOST_ADDR, DEVICE_ADDR
    # (source, destination, bytes, expected fields; missing keys are not checked,
    #  "experts" lists substrings that must each appear in the expert messages)
    cases = [
        (H, D, request(0x01, 0, 244),
         dict(start=0xB5, command=0x01, address=0, length=244, crc=True, experts=[])),
        (D, H, response(0xFD, 0),
         dict(start=0xBA, status=0xFD, result=-3, request_command=0x01, request_in=1, crc=True,
              experts=["Device status 0xFD (-3)"])),
        (H, D, good, dict(command=0x24, length=0, crc=True, experts=[])),
        (D, H, response(0, 0, info),
         dict(status=0, result=0, length=96, payload=info, request_command=0x24, request_in=3,
              crc=True, experts=[])),
        (H, D, request(0x84, 0x3F0, 1008, block),
         dict(command=0x84, address=0x3F0, length=1008, payload=block, crc=True, experts=[])),
        (D, H, response(0xFA, 0x3F0),
         dict(status=0xFA, result=-6, address=0x3F0, request_command=0x84, request_in=5)),
        (D, H, response(0xF9), dict(result=-7)),
        (H, D, bytes(bad_crc), dict(command=0x84, crc=False, experts=["CRC mismatch: computed 0x"])),
        (H, D, good[:11], dict(experts=["11 bytes, a frame has at least 12"])),
        (D, H, response(0, 4, b"") + b"\x00\x00\x00",
         dict(status=0, address=4, crc=True, experts=["3 bytes after the frame"])),
        (D, H, truncated, dict(crc=False, experts=["CRC mismatch"])),
        (H, D, b"\x55" + good[1:], dict(start=0x55, experts=["Unknown start byte"])),
        # A read request whose length field counts bytes asked for, not carried.
        (H, D, request(0x04, 0x100, 1012), dict(command=0x04, address=0x100, length=1012,
                                                payload=b"", crc=True, experts=[])),
    ]
    with tempfile.TemporaryDirectory(prefix="pelmo-dissector-") as work:
        pcap = os.path.join(work, "frames.pcap")
        write_pcap(pcap, [(s, d, b) for s, d, b, _ in cases])
        rows = dissect(dissector, pcap)
    if len(rows) != len(cases):
        fail(f"{len(rows)} packets dissected, {len(cases)} written")
    for n, ((_, _, data, want), row) in enumerate(zip(cases, rows), start=1):
        check_row(n, data, want, row)
    print(f"frames: {len(cases)} packets dissected as expected")


def check_row(n, data, want, row):
    got = {
        "start": number(row["pelmo.start"]), "command": number(row["pelmo.command"]),
        "status": number(row["pelmo.status"]), "result": number(row["pelmo.result"]),
        "address": number(row["pelmo.address"]), "length": number(row["pelmo.length"]),
        "payload": bytes.fromhex(row["pelmo.payload"].replace(":", "")),
        "crc": truth(row["pelmo.crc.good"]),
        "request_command": number(row["pelmo.request_command"]),
        "request_in": number(row["pelmo.request_in"]),
    }
    experts = [m for m in row["_ws.expert.message"].split("|") if m]
    for key, value in want.items():
        if key == "experts":
            if value == [] and experts:
                fail(f"packet {n} ({data.hex()[:40]}): unexpected expert info {experts}")
            for text in value:
                if not any(text in m for m in experts):
                    fail(f"packet {n}: expert info {text!r} missing from {experts}")
        elif got[key] != value:
            shown = value if key != "payload" else f"{len(value)} bytes"
            fail(f"packet {n} ({data.hex()[:40]}): {key} is {got[key]!r}, expected {shown!r}")


# --- capture mode -------------------------------------------------------------------------------

def capture_possible():
    if os.geteuid() != 0:
        return "capturing needs root"
    probe = subprocess.run([tshark(), "-D"], capture_output=True, text=True)
    if not any(line.split(". ", 1)[-1].startswith("lo") for line in probe.stdout.splitlines()):
        return "tshark lists no loopback interface"
    return None


def start_capture(pcap, log):
    proc = subprocess.Popen([tshark(), "-n", "-i", "lo", "-f", f"udp port {PORT}", "-w", pcap],
                            stdout=log, stderr=log)
    deadline = time.monotonic() + 15
    while time.monotonic() < deadline:
        time.sleep(0.1)
        log.flush()
        with open(log.name) as text:
            if "Capturing on" in text.read():
                time.sleep(0.5)  # tshark reports before the filter is fully in place
                return proc
        if proc.poll() is not None:
            break
    proc.kill()
    return None


def start_device(device_path, work):
    """Starts the device; it prints "ready" once its endpoint is open. Its output is drained."""
    device = subprocess.Popen([device_path, "--udp", DEVICE_ADDR, "--log",
                               os.path.join(work, "device.log"), "--corrupt-crc-code",
                               "READ_CONTROL"],
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    ready = threading.Event()

    def drain():
        for line in device.stdout:
            if line.strip() == "ready":
                ready.set()
        ready.set()

    threading.Thread(target=drain, daemon=True).start()
    if not ready.wait(10) or device.poll() is not None:
        device.kill()
        fail("pelmo-device did not come up on the loopback")
    return device


def run_program(program, args, work, expect_success=True):
    done = subprocess.run([program, f"#{DEVICE_ADDR}"] + args, cwd=work, capture_output=True,
                          timeout=60)
    print(f"PelmoWin {' '.join(args)}: exit {done.returncode}")
    if (done.returncode == 0) != expect_success:
        print(done.stdout.decode(errors="replace"))
        fail(f"PelmoWin {' '.join(args)} ended with {done.returncode}")


def capture_run(program, device_path, dissector, work):
    pcap = os.path.join(work, "out.pcap")
    log = open(os.path.join(work, "tshark.log"), "w+")
    tshark_proc = start_capture(pcap, log)
    if tshark_proc is None:
        print("SKIP: tshark could not start a capture on lo")
        sys.exit(SKIP)
    device = start_device(device_path, work)
    try:
        run_program(program, ["-io"], work)
        # No firmware was ever written: the device answers the firmware information request with
        # status 0xFA, which the program reports as -6.
        run_program(program, ["-i"], work, expect_success=False)
        calibration = os.path.join(work, "calibration.bin")
        with open(calibration, "wb") as out:
            out.write(bytes((i * 13 + 5) & 0xFF for i in range(2500)))
        run_program(program, ["-wc", calibration], work)
        # The device breaks the CRC of its control record answers: the program must fail, and the
        # capture holds a damaged frame for the dissector to flag.
        run_program(program, ["-rctrl"], work, expect_success=False)
        time.sleep(0.5)
    finally:
        device.terminate()
        try:
            device.wait(5)
        except subprocess.TimeoutExpired:
            device.kill()
            device.wait()
        tshark_proc.send_signal(signal.SIGINT)
        tshark_proc.wait(15)
        log.close()
    return dissect(dissector, pcap)


def check_capture(rows):
    frames = rows
    requests = [r for r in frames if number(r["pelmo.start"]) == 0xB5 and r["ip.src"] == HOST_ADDR]
    responses = [r for r in frames if number(r["pelmo.start"]) == 0xBA]
    commands = [number(r["pelmo.command"]) for r in requests]
    print("requests:", " ".join(f"{c:02X}" for c in commands))
    for code in (0x2F, 0x24, 0x2E):
        if code not in commands:
            fail(f"no request {code:#04x} captured")
    write = [c for c in commands if c not in (0x2F, 0x24, 0x2E)]
    # Calibration write of 2500 bytes in 1012-byte chunks: probe, second begin, three blocks, end.
    if write != [0x8F, 0x8F, 0x82, 0x82, 0x82, 0x12]:
        fail(f"calibration write captured as {[hex(c) for c in write]}")
    blocks = [(number(r["pelmo.address"]), number(r["pelmo.length"])) for r in requests
              if number(r["pelmo.command"]) == 0x82]
    if blocks != [(0, 1012), (1012, 1012), (2024, 476)]:
        fail(f"calibration blocks {blocks}")
    if len(responses) != len(requests):
        fail(f"{len(requests)} requests but {len(responses)} responses")
    for req, resp in zip(requests, responses):
        if truth(req["pelmo.crc.good"]) is not True:
            fail(f"CRC not good in a request: {req}")
        if number(resp["pelmo.request_command"]) != number(req["pelmo.command"]):
            fail(f"response not paired with its request: {resp}")
        code = number(req["pelmo.command"])
        # (status, result, payload length, CRC good) the answer must show
        want = {0x2F: (0, 0, 76, True), 0x24: (0xFA, -6, 0, True), 0x2E: (0, 0, 76, False)}.get(
            code, (0, 0, 0, True))
        got = (number(resp["pelmo.status"]), number(resp["pelmo.result"]),
               number(resp["pelmo.length"]), truth(resp["pelmo.crc.good"]))
        if got != want:
            fail(f"answer to {code:#04x}: (status, result, length, crc good) {got}, want {want}")
        if not want[3] and "CRC mismatch" not in resp["_ws.expert.message"]:
            fail(f"damaged answer to {code:#04x} without the CRC expert info: {resp}")
    print(f"capture: {len(requests)} exchanges dissected, device error and broken CRC shown")


def run_capture(args):
    args.program, args.device = os.path.abspath(args.program), os.path.abspath(args.device)
    args.dissector = os.path.abspath(args.dissector)
    for path in (args.program, args.device):
        if not os.access(path, os.X_OK):
            print(f"SKIP: {path} not built")
            sys.exit(SKIP)
    tshark()
    check_loaded(args.dissector)
    if not args.in_namespace and shutil.which("unshare") and os.geteuid() == 0:
        # A network namespace of our own keeps other runs on the loopback out of the capture.
        probe = subprocess.run(["unshare", "-n", "true"], capture_output=True)
        if probe.returncode == 0:
            cmd = ["unshare", "-n", sys.executable, os.path.abspath(__file__),
                   "--dissector", args.dissector, "capture", "--program", args.program,
                   "--device", args.device, "--in-namespace"]
            sys.exit(subprocess.run(cmd).returncode)
    if args.in_namespace:
        subprocess.run(["ip", "link", "set", "lo", "up"], check=True)
    reason = capture_possible()
    if reason:
        print(f"SKIP: {reason}")
        sys.exit(SKIP)
    with tempfile.TemporaryDirectory(prefix="pelmo-capture-") as work:
        check_capture(capture_run(args.program, args.device, args.dissector, work))


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--dissector", required=True)
    sub = ap.add_subparsers(dest="mode", required=True)
    sub.add_parser("frames")
    cap = sub.add_parser("capture")
    cap.add_argument("--program", required=True)
    cap.add_argument("--device", required=True)
    cap.add_argument("--in-namespace", action="store_true", help=argparse.SUPPRESS)
    args = ap.parse_args()
    if args.mode == "frames":
        run_frames(args.dissector)
    else:
        run_capture(args)


if __name__ == "__main__":
    main()

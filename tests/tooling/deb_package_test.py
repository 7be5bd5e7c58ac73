#!/usr/bin/env python3
"""Runs CPack's DEB generator on the build tree into a scratch folder and checks the package: its
control fields, and that the programs, the library, the headers and the CMake package are inside,
the programs byte for byte as built."""
import argparse
import filecmp
import glob
import os
import subprocess
import sys
import tempfile


def run(cmd):
    print("+", " ".join(cmd), flush=True)
    done = subprocess.run(cmd, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    if done.returncode != 0:
        print(done.stdout)
        sys.exit(f"command failed with exit status {done.returncode}")
    return done.stdout


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--cpack", required=True)
    ap.add_argument("--build-dir", required=True)
    ap.add_argument("--version", required=True)
    ap.add_argument("--with-device", action="store_true")
    args = ap.parse_args()

    with tempfile.TemporaryDirectory(prefix="pelmo-deb-") as work:
        run([args.cpack, "-G", "DEB", "--config", os.path.join(args.build_dir, "CPackConfig.cmake"),
             "-B", work])
        debs = glob.glob(os.path.join(work, "*.deb"))
        if len(debs) != 1:
            sys.exit(f"expected one .deb, found {debs}")
        deb = debs[0]
        fields = {k: run(["dpkg-deb", "-f", deb, k]).strip() for k in ("Package", "Version")}
        if fields != {"Package": "pelmowin", "Version": args.version}:
            sys.exit(f"control fields: {fields}")

        root = os.path.join(work, "root")
        run(["dpkg-deb", "-x", deb, root])
        programs = ["PelmoWin"] + (["pelmo-device"] if args.with_device else [])
        for program in programs:
            packed = os.path.join(root, "usr/bin", program)
            if not os.access(packed, os.X_OK):
                sys.exit(f"/usr/bin/{program} missing or not executable")
            if not filecmp.cmp(packed, os.path.join(args.build_dir, program), shallow=False):
                sys.exit(f"/usr/bin/{program} differs from the build")
        for wanted in ("usr/include/pelmo/protocol/frame.hpp", "usr/lib/cmake/Pelmo/PelmoConfig.cmake",
                       "usr/lib/cmake/Pelmo/PelmoTargets.cmake"):
            if not os.path.isfile(os.path.join(root, wanted)):
                sys.exit(f"/{wanted} missing from the package")
        if not glob.glob(os.path.join(root, "usr/lib*/**/libpelmo.a"), recursive=True):
            sys.exit("libpelmo.a missing from the package")
    print("deb package: ok")


if __name__ == "__main__":
    main()

#!/usr/bin/env python3
"""Installs the build tree into a scratch prefix, then configures, builds and runs the consumer
project against that prefix alone. Fails when a file is missing from the install, when the package
cannot be found or linked, or when the consumer's frame check fails."""
import argparse
import os
import subprocess
import sys
import tempfile


def run(cmd, **kw):
    print("+", " ".join(cmd), flush=True)
    done = subprocess.run(cmd, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, **kw)
    print(done.stdout, end="", flush=True)
    if done.returncode != 0:
        sys.exit(f"command failed with exit status {done.returncode}")
    return done.stdout


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--cmake", required=True)
    ap.add_argument("--build-dir", required=True)
    ap.add_argument("--consumer", required=True, help="source folder of the consumer project")
    ap.add_argument("--generator", required=True)
    ap.add_argument("--cxx", required=True)
    ap.add_argument("--with-device", action="store_true", help="pelmo-device is built and installed")
    ap.add_argument("--sanitize", default="", help="sanitizers the library was built with")
    args = ap.parse_args()

    with tempfile.TemporaryDirectory(prefix="pelmo-install-") as work:
        prefix = os.path.join(work, "prefix")
        run([args.cmake, "--install", args.build_dir, "--prefix", prefix])

        wanted = ["bin/PelmoWin", "lib/libpelmo.a", "include/pelmo/protocol/frame.hpp",
                  "include/pelmo/protocol/result_code.hpp", "include/pelmo/commands/command_code.hpp",
                  "include/pelmo/formats/intel_hex.hpp", "include/pelmo/transport/port_layer.hpp",
                  "lib/cmake/Pelmo/PelmoConfig.cmake", "lib/cmake/Pelmo/PelmoConfigVersion.cmake",
                  "lib/cmake/Pelmo/PelmoTargets.cmake"]
        if args.with_device:
            wanted.append("bin/pelmo-device")
        missing = [w for w in wanted if not os.path.isfile(os.path.join(prefix, w))]
        if missing:
            sys.exit(f"not installed: {missing}")
        for program in ("bin/PelmoWin", "bin/pelmo-device"):
            path = os.path.join(prefix, program)
            if os.path.exists(path) and not os.access(path, os.X_OK):
                sys.exit(f"{program} is not executable")
        leaked = [d for d in ("app", "simulator", "tests")
                  if os.path.exists(os.path.join(prefix, "include/pelmo", d))]
        if leaked:
            sys.exit(f"headers of non-library folders installed: {leaked}")

        # Only the prefix is offered; a consumer that compiled would prove the exported include path.
        build = os.path.join(work, "consumer-build")
        configure = [args.cmake, "-S", args.consumer, "-B", build, "-G", args.generator,
                     f"-DCMAKE_CXX_COMPILER={args.cxx}", f"-DCMAKE_PREFIX_PATH={prefix}",
                     "-DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF"]
        if args.sanitize:
            # A sanitized library needs its runtime in whatever links it.
            flag = f"-fsanitize={args.sanitize}"
            configure += [f"-DCMAKE_CXX_FLAGS={flag}", f"-DCMAKE_EXE_LINKER_FLAGS={flag}"]
        run(configure)
        run([args.cmake, "--build", build])
        out = run([os.path.join(build, "pelmo-consumer")])
        if "consumer: frame ok" not in out:
            sys.exit("consumer did not report success")
    print("install and consumer: ok")


if __name__ == "__main__":
    main()

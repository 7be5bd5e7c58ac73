#!/usr/bin/env python3
"""install: installs the build tree; deb: builds the Debian package and unpacks it. Both check the
programs (as built) and the library's files, then build and run the consumer against that tree
alone, through its CMake package."""
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
    print(done.stdout, end="", flush=True)
    if done.returncode != 0:
        sys.exit(f"command failed with exit status {done.returncode}")
    return done.stdout


def check_tree(root, args):
    """root: the install prefix, or /usr inside the package."""
    for program in args.programs:
        path = os.path.join(root, "bin", program)
        built = os.path.join(args.build_dir, program)
        if not os.access(path, os.X_OK) or not filecmp.cmp(path, built, shallow=False):
            sys.exit(f"bin/{program} missing, not executable or not as built")
    wanted = ["include/pelmo/protocol/frame.hpp", "lib/cmake/Pelmo/PelmoConfig.cmake",
              "lib/cmake/Pelmo/PelmoConfigVersion.cmake", "lib/cmake/Pelmo/PelmoTargets.cmake"]
    missing = [w for w in wanted if not os.path.isfile(os.path.join(root, w))]
    if missing or not glob.glob(os.path.join(root, "lib*/**/libpelmo.a"), recursive=True):
        sys.exit(f"missing: {missing or 'libpelmo.a'}")
    completion = os.path.join(root, "share", "bash-completion", "completions", "pelmo")
    if args.completion and not (os.path.isfile(completion) and filecmp.cmp(completion, args.completion, shallow=False)):
        sys.exit("share/bash-completion/completions/pelmo missing or not the source's")
    leaked = [d for d in ("app", "cli", "simulator", "tests") if os.path.exists(f"{root}/include/pelmo/{d}")]
    if leaked:
        sys.exit(f"headers of folders outside the library installed: {leaked}")


def check_python_module(prefix, args):
    """The pelmo package imports from the tree with Debian's python3 and is the one built."""
    if not args.python_dir:
        return
    folder = os.path.join(prefix, args.python_dir)
    done = subprocess.run([args.python, "-c", "import pelmo; print(pelmo.__version__); print(pelmo._pelmo.__file__)"],
                          env={**os.environ, "PYTHONPATH": folder}, capture_output=True, text=True)
    lines = done.stdout.splitlines()
    if done.returncode != 0 or len(lines) != 2 or lines[0] != args.version or not lines[1].startswith(folder):
        sys.exit(f"import pelmo from {folder} failed:\n{done.stdout}{done.stderr}")
    print(f"import pelmo: {lines[0]} from {lines[1]}")


def build_consumer(prefix, args, work):
    build = os.path.join(work, "consumer-build")
    # A sanitized library needs its runtime in whatever links it.
    flags = [f"-DCMAKE_{kind}_FLAGS=-fsanitize={args.sanitize}" for kind in ("CXX", "EXE_LINKER")]
    run([args.cmake, "-S", args.consumer, "-B", build, "-G", args.generator,
         f"-DCMAKE_CXX_COMPILER={args.cxx}", f"-DCMAKE_PREFIX_PATH={prefix}",
         "-DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF", *(flags if args.sanitize else [])])
    run([args.cmake, "--build", build])
    if "consumer: frame ok, link ok" not in run([os.path.join(build, "pelmo-consumer")]):
        sys.exit("the consumer did not report success")


def install(args, work):
    prefix = os.path.join(work, "prefix")
    run([args.cmake, "--install", args.build_dir, "--prefix", prefix])
    check_tree(prefix, args)
    check_python_module(prefix, args)
    build_consumer(prefix, args, work)


def deb(args, work):
    run([args.cpack, "-G", "DEB", "--config", os.path.join(args.build_dir, "CPackConfig.cmake"),
         "-B", work])
    debs = glob.glob(os.path.join(work, "*.deb"))
    if len(debs) != 1:
        sys.exit(f"expected one .deb, found {debs}")
    fields = {k: run(["dpkg-deb", "-f", debs[0], k]).strip() for k in ("Package", "Version")}
    if fields != {"Package": "pelmowin", "Version": args.version}:
        sys.exit(f"control fields: {fields}")
    run(["dpkg-deb", "-x", debs[0], os.path.join(work, "root")])
    check_tree(os.path.join(work, "root", "usr"), args)
    check_python_module(os.path.join(work, "root", "usr"), args)
    build_consumer(os.path.join(work, "root", "usr"), args, work)


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("mode", choices=["install", "deb"])
    ap.add_argument("--build-dir", required=True)
    ap.add_argument("--programs", nargs="+", required=True)
    # The consumer's source folder, the build's tools and sanitizers, the package version, the
    # completion script the package must hold.
    for name in ("cmake", "consumer", "generator", "cxx", "sanitize", "cpack", "version", "completion"):
        ap.add_argument(f"--{name}", default="")
    # The Python package's folder under the prefix (none: not built) and the interpreter to import it.
    ap.add_argument("--python-dir", default="")
    ap.add_argument("--python", default="/usr/bin/python3")
    args = ap.parse_args()
    with tempfile.TemporaryDirectory(prefix=f"pelmo-{args.mode}-") as work:
        (install if args.mode == "install" else deb)(args, work)
    print(f"{args.mode}: ok")


if __name__ == "__main__":
    main()

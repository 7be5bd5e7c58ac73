#!/usr/bin/env bash
# Installs the Debian packages that building PelmoWin and running its tests need, only those
# that are missing. Needs root (or sudo) when something is missing; does nothing elsewhere.
#   bash tools/install-deps.sh
set -euo pipefail

packages=(
  cmake g++ ninja-build libgtest-dev  # build and unit tests
  python3 binutils iproute2           # end-to-end tests and tools: scripts, objcopy, namespaces
  tshark                              # capture dissector test
  g++-mingw-w64-x86-64 googletest     # Windows cross build and its test framework (tools/wine)
  wine wine64                         # Windows programs run under Wine (tools/wine/check.sh)
  libcli11-dev nlohmann-json3-dev     # the pelmo command line (header-only)
  pybind11-dev python3-dev python3-pytest  # the Python module and its tests
  srecord binutils-arm-none-eabi      # real S-record and ELF files for the format tests
)

if ! command -v dpkg-query >/dev/null 2>&1; then
  echo "Not a Debian system: make sure these (or their equivalents) are installed: ${packages[*]}"
  exit 0
fi

missing=()
for package in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$package")
  fi
done
((${#missing[@]})) || exit 0

sudo=()
if [[ "$(id -u)" -ne 0 ]]; then
  if ! command -v sudo >/dev/null 2>&1; then
    echo "Missing packages: ${missing[*]}. As root: apt-get install ${missing[*]}" >&2
    exit 1
  fi
  sudo=(sudo)
fi
echo "Installing: ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
"${sudo[@]}" apt-get update
"${sudo[@]}" apt-get install -y --no-install-recommends "${missing[@]}"

#!/usr/bin/env bash
# Builds everything, starts the bundled device simulator on its own address and runs real sessions
# against it. First `pelmo`: device information, a flash of a generated sample image from Intel HEX,
# the same flash again with --skip-identical (nothing written), a read-back and a JSON record.
# Then the classic PelmoWin: bootloader information, erase-write-verify of the raw image, firmware
# information, verify of the same image as Intel HEX, read-back and comparison.
#
#   bash tools/demo.sh [--serial] [BUILD_DIR]      default BUILD_DIR: build
#
# Over UDP the simulator listens on 127.0.0.2:57998 and PelmoWin binds port 57998 on the
# loopback address the host name resolves to. When the host name does not resolve to a loopback
# address (PelmoWin would then bind every interface and collide with the simulator's port), or
# with --serial, the session runs over a pseudo-terminal that PelmoWin opens as COM3.
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
link_kind=udp
build=""
for arg in "$@"; do
  case "$arg" in
    --serial) link_kind=serial ;;
    -h | --help) sed -n '2,14p' "${BASH_SOURCE[0]}"; exit 0 ;;
    *) build="$arg" ;;
  esac
done
build="${build:-$root/build}"
[[ "$build" == /* ]] || build="$PWD/$build"
jobs="${PELMO_JOBS:-2}"

if [[ "$link_kind" == udp ]]; then
  host_address="$(getent hosts "$(hostname)" | awk '{print $1; exit}')"
  if [[ "$host_address" != 127.* ]]; then
    echo "The host name resolves to '${host_address:-nothing}', not to a loopback address: using the serial link."
    link_kind=serial
  fi
fi

bash "$root/tools/install-deps.sh"
echo "== Building into $build"
generator=()
if command -v ninja >/dev/null 2>&1 && [[ ! -f "$build/CMakeCache.txt" ]]; then
  generator=(-G Ninja)
fi
# The same settings as tools/test.sh, so that both share one build tree.
cmake -S "$root" -B "$build" "${generator[@]}" -DPELMO_WERROR=ON >/dev/null
cmake --build "$build" -j "$jobs"

work="$(mktemp -d "${TMPDIR:-/tmp}/pelmo-demo.XXXXXX")"
device_pid=""
cleanup() {
  if [[ -n "$device_pid" ]] && kill -0 "$device_pid" 2>/dev/null; then
    kill "$device_pid"
    wait "$device_pid" 2>/dev/null || true
  fi
  rm -rf "$work"
}
trap cleanup EXIT

echo "== Making a sample firmware image (8 KiB, raw and Intel HEX at 0x08000000)"
python3 "$root/tools/sample_image.py" "$work/sample.bin" --size 8192 --name SampleFW \
  --version 1.4.7 --hex "$work/sample.hex" --address 0x08000000

if [[ "$link_kind" == udp ]]; then
  device_args=(--udp 127.0.0.2)
  ready="listening udp"
  connection="#127.0.0.2"
  target=(--udp 127.0.0.2)
else
  device_args=(--pty --pty-link "$work/com3")
  ready="pty "
  connection="@3"
  target=(--serial COM3)
  export PELMO_COM3="$work/com3"
fi

echo "== Starting pelmo-device ${device_args[*]}"
"$build/pelmo-device" "${device_args[@]}" --log "$work/device.log" >"$work/device.out" 2>&1 &
device_pid=$!
for _ in $(seq 1 200); do
  grep -q "^$ready" "$work/device.out" 2>/dev/null && break
  kill -0 "$device_pid" 2>/dev/null || { cat "$work/device.out"; exit 1; }
  sleep 0.05
done
grep -q "^$ready" "$work/device.out" || { echo "pelmo-device did not get ready"; cat "$work/device.out"; exit 1; }
cat "$work/device.out"

pelmo() {
  echo
  echo "== pelmo ${target[*]} $*"
  (cd "$work" && "$build/pelmo" "${target[@]}" "$@")
}

pelmo info
pelmo flash sample.hex
pelmo flash --skip-identical sample.hex
pelmo read pelmo-readback.bin
pelmo --json verify sample.bin

pelmowin() {
  echo
  echo "== PelmoWin $connection $*"
  (cd "$work" && "$build/PelmoWin" "$connection" "$@")
}

pelmowin -io
pelmowin -ewv sample.bin
pelmowin -i
pelmowin -v sample.hex
pelmowin -r readback.bin

echo
# The device keeps the image's length and CRC in its first 8 bytes; everything after them must match.
for readback in pelmo-readback.bin readback.bin; do
  if cmp -s -i 8 "$work/sample.bin" "$work/$readback" &&
    [[ "$(stat -c %s "$work/sample.bin")" == "$(stat -c %s "$work/$readback")" ]]; then
    echo "== $readback matches the sample image (bytes 8 onwards; bytes 0-7 hold the size and CRC the device stored)"
  else
    echo "== $readback differs from the sample image"
    exit 1
  fi
done
echo "== The device received $(grep -c '^rx ' "$work/device.log") requests"

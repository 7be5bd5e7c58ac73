#!/usr/bin/env bash
# Builds everything with warnings as errors and runs every test (unit, end-to-end, tooling).
#   bash tools/test.sh [BUILD_DIR]        default BUILD_DIR: build
# PELMO_JOBS sets the parallel build and test jobs (default 2).
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
bash "$root/tools/install-deps.sh"
build="${1:-$root/build}"
jobs="${PELMO_JOBS:-2}"

generator=()
if command -v ninja >/dev/null 2>&1; then
  generator=(-G Ninja)
fi
if [[ -f "$build/CMakeCache.txt" ]]; then
  generator=()  # an existing build tree keeps its generator
fi

cmake -S "$root" -B "$build" "${generator[@]}" -DPELMO_WERROR=ON -DPELMO_BUILD_TESTS=ON
cmake --build "$build" -j "$jobs"
ctest --test-dir "$build" --output-on-failure --no-tests=error -j "$jobs"

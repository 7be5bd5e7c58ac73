#!/usr/bin/env bash
# Builds everything with AddressSanitizer and UndefinedBehaviorSanitizer in a build folder of its
# own and runs the whole ctest suite there: the unit tests, and the end-to-end suites, which run
# the sanitized PelmoWin and pelmo-device. Every sanitizer report is also written to
# BUILD_DIR/sanitizer-reports/, so a report from a process whose exit status a test does not see
# (a device that was stopped, for example) still fails the script.
#   bash tools/sanitize.sh [BUILD_DIR]      default BUILD_DIR: build-sanitize
# PELMO_JOBS sets the parallel build and test jobs (default 2); extra ctest arguments can be
# given in PELMO_CTEST_ARGS (e.g. "-L e2e").
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
bash "$root/tools/install-deps.sh"
build="${1:-$root/build-sanitize}"
jobs="${PELMO_JOBS:-2}"

generator=()
command -v ninja >/dev/null 2>&1 && [[ ! -f "$build/CMakeCache.txt" ]] && generator=(-G Ninja)
# Warnings are the main build's business: with sanitizer instrumentation GCC's flow analysis
# reports uninitialised values inside the standard library (std::regex) that are not there.
cmake -S "$root" -B "$build" "${generator[@]}" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DPELMO_WERROR=OFF \
  -DPELMO_SANITIZE=address,undefined -DPELMO_BUILD_TESTS=ON >/dev/null
cmake --build "$build" -j "$jobs"

reports="$build/sanitizer-reports"
rm -rf "$reports"
mkdir -p "$reports"
export ASAN_OPTIONS="log_path=$reports/asan:detect_stack_use_after_return=1:strict_string_checks=1:${ASAN_OPTIONS:-}"
export UBSAN_OPTIONS="log_path=$reports/ubsan:print_stacktrace=1:halt_on_error=1:${UBSAN_OPTIONS:-}"
status=0
# shellcheck disable=SC2086  # PELMO_CTEST_ARGS is a list of arguments
ctest --test-dir "$build" --output-on-failure --no-tests=error -j "$jobs" ${PELMO_CTEST_ARGS:-} || status=$?

if compgen -G "$reports/*" >/dev/null; then
  echo "sanitizer reports:" >&2
  for report in "$reports"/*; do
    echo "== $report" >&2
    head -40 "$report" >&2
  done
  status=1
fi
((status == 0)) && echo "sanitize.sh: every test passed under address,undefined, no sanitizer reports"
exit "$status"

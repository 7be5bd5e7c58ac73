#!/usr/bin/env bash
# Builds the libFuzzer harnesses (fuzz/) with clang, AddressSanitizer and UndefinedBehaviorSanitizer,
# then runs each one for a bounded time from its seed corpus. Any crash, sanitizer report, broken
# property, time-out (an input that runs longer than -timeout) or memory blow-up fails the script.
#   bash tools/fuzz.sh [BUILD_DIR]      default BUILD_DIR: build-fuzz
# PELMO_FUZZ_SECONDS: seconds per harness (default 40); PELMO_JOBS: build jobs (default 2).
# Per harness it reports the executions and the findings; the summary is also written to
# BUILD_DIR/fuzz-summary.txt, and the inputs that failed to BUILD_DIR/findings/.
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build="${1:-$root/build-fuzz}"
seconds="${PELMO_FUZZ_SECONDS:-40}"
jobs="${PELMO_JOBS:-2}"

if ! command -v clang++ >/dev/null 2>&1 || ! compgen -G "/usr/lib/llvm-*/lib/clang/*/lib/linux/libclang_rt.fuzzer-x86_64.a" >/dev/null; then
  if [[ "$(id -u)" -eq 0 ]] && command -v apt-get >/dev/null 2>&1; then
    export DEBIAN_FRONTEND=noninteractive
    apt-get update
    apt-get install -y --no-install-recommends clang libclang-rt-14-dev
  else
    echo "fuzz.sh needs clang and libFuzzer (apt-get install clang libclang-rt-14-dev)" >&2
    exit 1
  fi
fi

generator=()
command -v ninja >/dev/null 2>&1 && [[ ! -f "$build/CMakeCache.txt" ]] && generator=(-G Ninja)
CXX=clang++ cmake -S "$root" -B "$build" "${generator[@]}" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DPELMO_WERROR=ON -DPELMO_BUILD_FUZZERS=ON -DPELMO_SANITIZE=address,undefined \
  -DPELMO_BUILD_TESTS=OFF -DPELMO_BUILD_SIMULATOR=OFF >/dev/null
cmake --build "$build" -j "$jobs"

# Harness, longest input, and its dictionary if any.
harnesses=(frame:2100 hex:8192 factory_table:4096 command_line:1024 hostile_device:16384
           srecord:8192 elf:8192)
mkdir -p "$build/findings"
summary="$build/fuzz-summary.txt"
printf '%-16s %12s %10s %s\n' harness executions "execs/s" findings | tee "$summary"
failed=0
for entry in "${harnesses[@]}"; do
  name="${entry%%:*}"
  max_len="${entry##*:}"
  corpus="$build/corpus/$name"  # grows here; the seeds in fuzz/corpus stay as they are
  mkdir -p "$corpus"
  options=(-max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -max_len="$max_len"
           -print_final_stats=1 -artifact_prefix="$build/findings/$name-")
  [[ -f "$root/fuzz/$name.dict" ]] && options+=(-dict="$root/fuzz/$name.dict")
  rm -f "$build/findings/$name-"*  # what an earlier run found
  log="$build/findings/$name.log"
  status=0
  UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
    "$build/fuzz/${name}_fuzzer" "${options[@]}" "$corpus" "$root/fuzz/corpus/$name" >"$log" 2>&1 || status=$?
  runs="$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1)"
  rate="$(sed -n 's/^stat::average_exec_per_sec: *//p' "$log" | tail -1)"
  findings=0
  if ((status != 0)); then
    findings="$(find "$build/findings" -name "$name-*" ! -name '*.log' | wc -l)"
    ((findings > 0)) || findings=1
    failed=1
    echo "== $name: exit status $status, see $log" >&2
    grep -m 20 -E 'ERROR|SUMMARY|property failed|runtime error|Test unit written' "$log" >&2 || true
  fi
  printf '%-16s %12s %10s %s\n' "$name" "${runs:-?}" "${rate:-?}" "$findings" | tee -a "$summary"
done
echo "fuzz summary (${seconds} s per harness): $summary"
exit "$failed"

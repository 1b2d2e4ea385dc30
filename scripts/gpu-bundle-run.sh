#!/bin/bash
# run.sh [OUTDIR]: the Lumora GPU check, run from the bundle that `make gpu-bundle` makes (docs/gpu-check.md).
#   1. `lumora devices` against the machine's driver;
#   2. the pixel tests on every qualified device, and the CUDA ones again under compute-sanitizer's memcheck
#      where that tool is present;
#   3. the bandwidth benchmarks;
#   4. a summary: each device with its driver version and its tests passed and failed, and each operation's
#      bytes per second with its ratio to the device's reference.
# Writes run.log (as it goes), devices.txt, tests.json and bench.json into OUTDIR (default ./lumora-gpu-check).
# Exits 0 when every test passed and no benchmark failed, 1 otherwise; on a machine without a CUDA device the
# OpenCL part runs alone, but a GPU that nvidia-smi lists and that gives no qualified CUDA device fails.
set -u
here=$(cd "$(dirname "$0")" && pwd)
out=${1:-$PWD/lumora-gpu-check}
mkdir -p "$out" || exit 2
log=$out/run.log
: >"$log"

say() { printf '%s\n' "$*" | tee -a "$log"; }
# Runs a command with its output going to the log line by line as it comes; returns the command's status.
step() {
  say "\$ ${*#"$here/"}"
  if command -v stdbuf >/dev/null; then
    stdbuf -oL -eL "$@" 2>&1 | tee -a "$log"
  else
    "$@" 2>&1 | tee -a "$log"
  fi
  return "${PIPESTATUS[0]}"
}

export LD_LIBRARY_PATH="$here/lib${LD_LIBRARY_PATH:+:$LD_LIBRARY_PATH}"
if ! "$here/bin/lumora" --help >/dev/null 2>&1; then
  export LD_LIBRARY_PATH="$here/lib/compat:$LD_LIBRARY_PATH"
  "$here/bin/lumora" --help >/dev/null 2>&1 || { say "The programs do not start here:"; "$here/bin/lumora" --help 2>&1 | tee -a "$log"; exit 1; }
  say "This machine's libstdc++ is older than the build's: using the bundled one."
fi
# PoCL, where it is the OpenCL runtime, keeps its kernel cache under HOME, which a bare environment lacks.
export POCL_CACHE_DIR=${POCL_CACHE_DIR:-${TMPDIR:-/tmp}/lumora-pocl-cache}

say "Lumora GPU check on $(uname -n), $(date -u '+%Y-%m-%d %H:%M UTC')"
if command -v nvidia-smi >/dev/null; then
  say "GPU: $(nvidia-smi --query-gpu=name,driver_version,memory.total --format=csv,noheader 2>&1 | head -1)"
fi

say "\$ bin/lumora devices"
"$here/bin/lumora" devices >"$out/devices.txt" 2>&1
devices=$?
tee -a "$log" <"$out/devices.txt"
cuda=$(grep -cE '^[0-9]+ +CUDA +.* yes$' "$out/devices.txt")
# A GPU that the driver lists but that gives no qualified CUDA device is a failure, not an OpenCL-only run.
gpus=0
if command -v nvidia-smi >/dev/null; then gpus=$(nvidia-smi -L 2>/dev/null | grep -c '^GPU ' || true); fi
if [ "$devices" -ne 0 ]; then
  say "lumora devices FAILED (status $devices)"
elif [ "$cuda" -eq 0 ] && [ "$gpus" -gt 0 ]; then
  say "nvidia-smi lists $gpus GPU(s), but no CUDA device qualified: see devices.txt."
  devices=1
elif [ "$cuda" -eq 0 ]; then
  say "No CUDA device is present: the OpenCL part runs alone."
fi

step "$here/bin/lumora_device_tests" --gtest_output="json:$out/tests.json"
tests=$?
testLines=$(grep '^SUMMARY tests' "$log" | sed 's/^SUMMARY //')

memcheck=0
memcheckLine="memcheck: not run (no CUDA device)"
if [ "$cuda" -gt 0 ]; then
  sanitizer=$(command -v compute-sanitizer || ls /usr/local/cuda/bin/compute-sanitizer 2>/dev/null || true)
  if [ -n "$sanitizer" ]; then
    # CUDA alone: the OpenCL runtime has no place under the CUDA sanitizer.
    LUMORA_DEBUG="LM.EnableOpenCL=0" step "$sanitizer" --tool memcheck --error-exitcode 3 \
      "$here/bin/lumora_device_tests" --gtest_filter='*CUDA*'
    memcheck=$?
    memcheckLine="memcheck: $([ "$memcheck" -eq 0 ] && echo "no error in the CUDA pixel tests" || echo "FAILED (status $memcheck)")"
  else
    memcheckLine="memcheck: not run (compute-sanitizer not found)"
  fi
fi

step "$here/bin/lumora_bench" --benchmark_min_time=0.5 --benchmark_out="$out/bench.json" --benchmark_out_format=json
bench=$?
benchLines=$(grep '^SUMMARY bandwidth' "$log" | sed 's/^SUMMARY //')

say ""
say "== Summary"
grep -E '^(#|[0-9]+ )' "$out/devices.txt" | tee -a "$log"
say "${testLines:-tests: no result (the test program failed to run)}"
say "$memcheckLine"
say "${benchLines:-bandwidth: no result}"
[ "$bench" -eq 0 ] || say "the benchmarks FAILED (status $bench)"

if [ "$devices" -ne 0 ] || [ "$tests" -ne 0 ] || [ "$memcheck" -ne 0 ] || [ "$bench" -ne 0 ]; then
  say "RESULT: FAILED"
  exit 1
fi
say "RESULT: passed"
exit 0

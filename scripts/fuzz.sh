#!/usr/bin/env bash
# Builds the libFuzzer harnesses (clang, AddressSanitizer and
# UndefinedBehaviorSanitizer) and runs each for a bounded time from the seed
# corpus in fuzz/corpus/. New inputs go to a scratch folder, never into the
# repository. A crash, leak or sanitizer report fails the run and leaves the
# input in the scratch folder's artifacts; save it in fuzz/regressions/ so
# that the unit tests replay it.
#
# usage: scripts/fuzz.sh [BUILD_DIR [SECONDS_PER_HARNESS]]
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build-fuzz}
seconds=${2:-60}
jobs=$(nproc)

CC=clang CXX=clang++ cmake -S . -B "$build" -DKV2_BUILD_FUZZ=ON \
  -DKV2_SANITIZE=fuzzer-no-link,address,undefined \
  -DKV2_BUILD_TESTS=OFF -DKV2_BUILD_TOOLS=ON -DKV2_BUILD_BENCH=OFF -DKV2_BUILD_WINDOWS=OFF
cmake --build "$build" -j"$jobs" --target param_parser_fuzzer ami_lifecycle_fuzzer \
  ibis_text_fuzzer touchstone_fuzzer ami_sweep_fuzzer waveform_fuzzer

# The parameter tree that AMI_Init keeps on purpose is the one allowed leak.
export LSAN_OPTIONS="suppressions=$PWD/tests/lsan.supp:print_suppressions=0"
export UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

run() {
  local harness=$1
  shift
  mkdir -p "$scratch/$harness"
  echo "== $harness: $seconds s"
  # stderr of the model (block diagnostics, one line per failing sample) is
  # closed; sanitizer and libFuzzer reports still get through.
  local rc=0
  "$build/fuzz/$harness" -max_total_time="$seconds" -timeout=30 -close_fd_mask=2 \
    -print_final_stats=1 -artifact_prefix="$scratch/$harness-" \
    "$scratch/$harness" "$@" > "$scratch/$harness.log" 2>&1 || rc=$?
  grep -v -e '^#[0-9]' -e '# Uses: ' "$scratch/$harness.log" | tail -n 60
  if ((rc != 0)) || compgen -G "$scratch/$harness-*" > /dev/null; then
    echo "$harness failed (exit $rc); inputs (base64):"
    for f in "$scratch/$harness"-*; do
      [ -e "$f" ] && echo "$(basename "$f"): $(base64 -w0 "$f")"
    done
    return 1
  fi
}

status=0
run param_parser_fuzzer fuzz/corpus/params fuzz/regressions/params || status=1
run ami_lifecycle_fuzzer fuzz/corpus/lifecycle fuzz/corpus/params fuzz/regressions/lifecycle || status=1
# The tools' readers; each seeds from its own files and the model's .ami ones.
run ibis_text_fuzzer fuzz/corpus/ibis || status=1
run touchstone_fuzzer fuzz/corpus/touchstone || status=1
run ami_sweep_fuzzer fuzz/corpus/ami fuzz/corpus/params || status=1
run waveform_fuzzer fuzz/corpus/waveform || status=1
exit $status

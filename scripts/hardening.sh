#!/usr/bin/env bash
# The hardening checks that CI runs after the normal build and tests:
#   1. the whole test suite built with AddressSanitizer and
#      UndefinedBehaviorSanitizer (build-asan/);
#   2. the sixteen-thread concurrency test under ThreadSanitizer (build-tsan/);
#   3. valgrind memcheck over whole sessions and the C host (scripts/memcheck.sh);
#   4. 10^8 samples through one instance with flat memory (scripts/longrun.sh);
#   5. each libFuzzer harness for KV2_FUZZ_SECONDS (default 60) seconds
#      (scripts/fuzz.sh, build-fuzz/).
# Checks 3 and 4 use the normal build in build/, which scripts/test makes
# first. KV2_BUILD_PREFIX replaces "build" in all four folder names.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps clang libclang-rt-14-dev valgrind
jobs=$(nproc)
prefix=${KV2_BUILD_PREFIX:-build}

echo "== AddressSanitizer + UndefinedBehaviorSanitizer: all tests"
cmake -S . -B "$prefix-asan" -DKV2_SANITIZE=address,undefined,float-cast-overflow
cmake --build "$prefix-asan" -j"$jobs"
LSAN_OPTIONS="suppressions=$PWD/tests/lsan.supp:print_suppressions=0" \
UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1 \
  ctest --test-dir "$prefix-asan" --output-on-failure -j"$jobs"

echo "== ThreadSanitizer: sixteen instances on sixteen threads"
cmake -S . -B "$prefix-tsan" -DKV2_SANITIZE=thread -DKV2_BUILD_TOOLS=OFF
cmake --build "$prefix-tsan" -j"$jobs" --target ami_concurrency_tests
tsan_test="$prefix-tsan"/tests/ami/ami_concurrency_tests
if ! TSAN_OPTIONS=halt_on_error=1 "$tsan_test" > "$prefix-tsan"/tsan.log 2>&1; then
  # Kernels with a wide mmap randomisation break ThreadSanitizer's memory
  # layout; it runs without address randomisation then.
  if grep -q "unexpected memory mapping" "$prefix-tsan"/tsan.log; then
    TSAN_OPTIONS=halt_on_error=1 setarch "$(uname -m)" -R "$tsan_test"
  else
    cat "$prefix-tsan"/tsan.log
    exit 1
  fi
else
  tail -n 3 "$prefix-tsan"/tsan.log
fi

scripts/memcheck.sh "$prefix"
scripts/longrun.sh "$prefix"
scripts/fuzz.sh "$prefix-fuzz" "${KV2_FUZZ_SECONDS:-60}"

#!/usr/bin/env bash
# valgrind memcheck over the built KV2_RX_x64.so: a thousand whole sessions
# (every equalizer setting and every way a session can fail), one long
# session, and the C host's loads, side-by-side copies and unloads. Any
# invalid access or leak fails, except the parameter tree that the model
# keeps on purpose (tests/valgrind.supp says why).
#
# usage: scripts/memcheck.sh [BUILD_DIR]   (a normal build, e.g. build)
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build}
library="$build/KV2_RX_x64.so"

memcheck() {
  valgrind --tool=memcheck --error-exitcode=1 --leak-check=full \
    --show-leak-kinds=definite,indirect,possible --errors-for-leak-kinds=definite,indirect,possible \
    --keep-debuginfo=yes --num-callers=40 --suppressions=tests/valgrind.supp --quiet --log-fd=9 "$@"
}

echo "== memcheck: 1000 sessions of 3000 samples"
# valgrind reports on fd 9 (stderr); the model's block diagnostics are dropped.
memcheck "$build/tools/soak/ami_soak" "$library" cycles 1000 3000 257 9>&2 2> /dev/null
echo "== memcheck: one session of 1000000 samples"
memcheck "$build/tools/soak/ami_soak" "$library" cycles 1 1000000 4096 9>&2 2> /dev/null
echo "== memcheck: C host, two copies side by side"
memcheck "$build/tests/ami/ami_c_host_test" "$library" static-runtime 9>&2

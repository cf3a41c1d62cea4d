#!/usr/bin/env bash
# Mutation check of the test suite: applies each one-line fault of
# scripts/mutations.txt in turn to a copy of the tracked tree, rebuilds and
# runs ctest, and prints which tests catch it. A fault that no test catches
# is a hole in the suite; one whose build fails counts as caught by the
# compiler. The copy and its build live in build-mut/ and are reused, so a
# rerun only recompiles what the faults touch.
#
# usage: scripts/mutations.sh              every fault
#        KV2_MUT_ONLY="M03 M17" scripts/mutations.sh
# Result table: build-mut/results.txt (also printed).
set -uo pipefail
cd "$(dirname "$0")/.."
root=$PWD
work=$root/build-mut
src=$work/src
build=$work/build
jobs=${KV2_MUT_JOBS:-2}
mkdir -p "$src" "$build"

# Refresh the copy; files whose contents did not change keep their times.
git ls-files | while IFS= read -r f; do
  if ! cmp -s "$f" "$src/$f" 2>/dev/null; then
    mkdir -p "$src/$(dirname "$f")" && cp "$f" "$src/$f"
  fi
done

cmake -S "$src" -B "$build" -DKV2_BUILD_TESTS=ON -DKV2_BUILD_BENCH=OFF > "$work/cmake.log" 2>&1 ||
  { echo "cmake failed: $work/cmake.log"; exit 2; }
if ! cmake --build "$build" -j"$jobs" > "$work/build.log" 2>&1; then
  echo "the unmutated tree does not build: $work/build.log"; exit 2
fi
if ! ctest --test-dir "$build" -j"$jobs" --timeout 300 > "$work/ctest.log" 2>&1; then
  echo "the unmutated tree fails its tests: $work/ctest.log"; exit 2
fi

# Replaces the first occurrence of $3 by $4 in file $2 (python for exact text).
apply() {
  python3 - "$1" "$2" "$3" <<'PY'
import sys
path, old, new = sys.argv[1:]
text = open(path).read()
if old not in text:
    sys.exit(1)
open(path, "w").write(text.replace(old, new, 1))
PY
}

results=$work/results.txt
: > "$results"
caught=0; total=0
while IFS=$'\t' read -r id file anchor replacement description; do
  [[ -z "$id" || "$id" == \#* ]] && continue
  if [[ -n "${KV2_MUT_ONLY:-}" && " $KV2_MUT_ONLY " != *" $id "* ]]; then continue; fi
  total=$((total + 1))
  cp -p "$src/$file" "$work/original"
  if ! apply "$src/$file" "$anchor" "$replacement"; then
    verdict="NO-ANCHOR"; by="-"
  elif ! cmake --build "$build" -j"$jobs" > "$work/$id.build.log" 2>&1; then
    verdict="caught"; by="(build)"
  else
    ctest --test-dir "$build" -j"$jobs" --timeout 120 > "$work/$id.ctest.log" 2>&1
    by=$(sed -n '/The following tests FAILED/,$p' "$work/$id.ctest.log" |
         sed -nE 's/^\s*[0-9]+ - ([^ ]+) .*/\1/p' | sort | tr '\n' ' ')
    if [[ -n "$by" ]]; then verdict="caught"; else verdict="UNCAUGHT"; by="-"; fi
  fi
  # Restore with a new time stamp so the next build recompiles the file.
  cp "$work/original" "$src/$file"; touch "$src/$file"
  [[ "$verdict" == caught ]] && caught=$((caught + 1))
  printf '%s\t%s\t%s\t%s\n' "$id" "$verdict" "$description" "$by" | tee -a "$results"
done < scripts/mutations.txt
# Leave the build matching the tree again.
cmake --build "$build" -j"$jobs" > "$work/build.log" 2>&1
echo "caught $caught of $total (table: $results)"

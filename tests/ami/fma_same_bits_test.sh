#!/usr/bin/env bash
# The ten sample-rate cases whose CTLE design once depended on the CPU's pow:
# the same bytes with glibc's FMA and AVX2 code paths switched off.
set -euo pipefail
host=$1 lib=$2 dir=$3
mkdir -p "$dir"
"$host" "$lib" "$dir/ten_default.bin" ten
GLIBC_TUNABLES=glibc.cpu.hwcaps=-FMA,-AVX2 "$host" "$lib" "$dir/ten_no_fma.bin" ten
cmp "$dir/ten_default.bin" "$dir/ten_no_fma.bin"
echo "ten cases: the same bytes with and without FMA"

#!/usr/bin/env bash
# The library must load on glibc 2.17: no symbol version newer than
# GLIBC_2.17 in its dynamic symbol table, and no library beyond libc, libm,
# libpthread, libdl and the loader among what it needs.
set -euo pipefail
lib=$1
symbols=$(objdump -T "$lib")
newer=$(grep -oE '\(GLIBC_[0-9.]+\) +[^ ]+$' <<<"$symbols" |
  awk '{v=$1; gsub(/[()GLIBC_]/,"",v); split(v,p,"."); if (p[1] > 2 || (p[1] == 2 && p[2] > 17)) print}' || true)
needed=$(objdump -p "$lib" | awk '$1 == "NEEDED" {print $2}')
others=$(grep -vxE 'libc\.so\.6|libm\.so\.6|libpthread\.so\.0|libdl\.so\.2|ld-linux-x86-64\.so\.2' <<<"$needed" || true)
status=0
if [[ -n "$newer" ]]; then echo "symbols newer than GLIBC_2.17:"; echo "$newer"; status=1; fi
if [[ -n "$others" ]]; then echo "libraries outside libc/libm/libpthread/libdl/ld-linux:"; echo "$others"; status=1; fi
if ! grep -q 'GLIBC_2\.' <<<"$symbols"; then echo "no GLIBC version at all: not the table of a glibc build"; status=1; fi
echo "newest: $(grep -oE 'GLIBC_[0-9.]+' <<<"$symbols" | sort -uV | tail -1); needed: $(echo $needed)"
exit $status

#!/usr/bin/env bash
# The case host built for Windows runs KV2_RX_x64.dll under Wine; its record
# of every case must equal, byte for byte, the Linux host's with the .so.
# Exit 77 (skipped, said loudly) when Wine is not installed.
set -euo pipefail
linux_host=$1 so=$2 windows_host=$3 dll=$4 dir=$5
if ! command -v wine > /dev/null; then
  echo "SKIPPED: wine is not installed (Debian packages wine and wine64); the Windows DLL was not run"
  exit 77
fi
mkdir -p "$dir"
export WINEPREFIX="$dir/prefix" WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml="
"$linux_host" "$so" "$dir/linux.bin" > "$dir/linux.log" 2>&1 || { cat "$dir/linux.log"; exit 1; }
if ! wine "$windows_host" "$(winepath -w "$dll" 2>/dev/null || echo "$dll")" "$dir/windows.bin" > "$dir/windows.log" 2>&1; then
  cat "$dir/windows.log"
  exit 1
fi
tail -1 "$dir/windows.log"
cmp "$dir/linux.bin" "$dir/windows.bin"
echo "Windows DLL under $(wine --version): $(grep -ac '^case ' "$dir/windows.bin") cases, the same bytes as the .so"

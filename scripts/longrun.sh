#!/usr/bin/env bash
# Long run: 10^8 samples through one KV2_RX instance in blocks of 4096; the
# resident set size is sampled along the way and must stay flat (less than
# 1 MiB of growth after the first tenth).
#
# usage: scripts/longrun.sh [BUILD_DIR [SAMPLES]]   (a normal build, e.g. build)
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build}
samples=${2:-100000000}
"$build/tools/soak/ami_soak" "$build/KV2_RX_x64.so" long "$samples" 4096

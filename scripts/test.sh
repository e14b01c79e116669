#!/usr/bin/env bash
# Builds everything and runs the whole test suite. Extra arguments go to cmake
# at configure time, e.g. scripts/test.sh -DSANITIZE=ON.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
build=${BUILD_DIR:-build}
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release "$@" >/dev/null
cmake --build "$build" -j "$(nproc)"
ctest --test-dir "$build" --output-on-failure -j "$(nproc)"

#!/usr/bin/env bash
# Builds the tools and runs every test: unit tests, command-line cases and
# fuzz seed replays. With --asan, the same in the sanitizer build.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh
preset=default
[ "${1:-}" = "--asan" ] && preset=asan
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset" -j"$(nproc)"
ctest --preset "$preset"

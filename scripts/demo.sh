#!/usr/bin/env bash
# Builds the tools and takes a tour of the commands on the bundled sample snapshot.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh
cmake --preset default >/dev/null
cmake --build --preset default -j"$(nproc)"
scripts/tour.sh build/bin/zlcziftools build/samples/sample-host.zifc

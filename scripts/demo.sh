#!/usr/bin/env bash
# Builds what the tour runs (zlcziftools, zifcache and the sample snapshot;
# the ID files are laid out when the build is configured) and takes the tour
# of the commands on the bundled sample snapshot. scripts/test.sh builds the
# rest.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh
cmake --preset default >/dev/null
cmake --build --preset default --target tour -j"$(nproc)"
scripts/tour.sh build/bin/zlcziftools build/samples/sample-host.zifc

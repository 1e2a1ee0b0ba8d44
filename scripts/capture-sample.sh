#!/bin/sh
# Captures this machine and prints the capture in its JSON form, the starting
# point of a sample host made from a real machine:
#
#    scripts/capture-sample.sh [BUILD_DIR] [capture options...] > host.json
#
# The bundled sample host starts from such a capture, taken as root while the
# machine is quiet and scrubbed before it is committed:
#
#    scripts/capture-sample.sh build | scripts/make-sample.py scrub - > samples/source/capture.json
#    scripts/make-sample.py        (remakes samples/host from samples/source)
set -eu
build=${1:-build}
[ $# -gt 0 ] && shift
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
"$build/bin/zifcache" capture "$@" "$tmp/host.zifc"
"$build/bin/zifcache" dump "$tmp/host.zifc"

#!/usr/bin/env bash
# Runs every command line of samples/tour/*.txt against a snapshot and shows
# each with its output: tour.sh ZLCZIFTOOLS SNAPSHOT
set -uo pipefail
tool=$1 snapshot=$2
cd "$(dirname "$0")/.."
export ZLC_HWDATA_DIR=${ZLC_HWDATA_DIR:-$PWD/build/hwdata}
for list in samples/tour/*.txt; do
  while IFS= read -r line; do
    case "$line" in ''|'#'*) continue ;; esac
    printf '\n$ zlcziftools -c %s %s\n' "$(basename "$snapshot")" "$line"
    read -r -a words <<<"$line"
    "$tool" -c "$snapshot" "${words[@]}"
    status=$?
    [ $status -eq 0 ] || printf '(exit status %d)\n' "$status"
  done <"$list"
done

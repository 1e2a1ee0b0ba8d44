#!/usr/bin/env bash
# Runs every command line of samples/tour/*.txt against a snapshot and shows
# each with its output: tour.sh ZLCZIFTOOLS SNAPSHOT
#
# A line is a command and its arguments, run as `zlcziftools -c SNAPSHOT ...`.
# A line starting with "simulator:" runs the rest with the snapshot as the live
# host instead (ZLC_SIMULATOR on a scratch copy, so writes never reach the
# snapshot). A trailing "# status N" says the command is expected to end with
# status N (0 otherwise). Commands run in a scratch directory that is removed
# at the end: the files a command writes there (amldump's tables) are listed,
# and nothing is written into the source tree or the caller's directory.
# The tour ends with status 1 when a command ends with a status other than the
# one its line expects, else 0.
set -uo pipefail
[ $# -eq 2 ] || { echo "usage: tour.sh ZLCZIFTOOLS SNAPSHOT" >&2; exit 2; }
tool=$(realpath "$1") snapshot=$(realpath "$2")
source=$(realpath "$(dirname "$0")/..")
export ZLC_HWDATA_DIR=${ZLC_HWDATA_DIR:-$source/build/hwdata}
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
mkdir "$scratch/run"
cd "$scratch/run" || exit 1
name=$(basename "$snapshot")
unexpected=0
for list in "$source"/samples/tour/*.txt; do
   while IFS= read -r line; do
      case "$line" in '' | '#'*) continue ;; esac
      expected=0
      if [[ $line =~ ^(.*[^[:space:]])[[:space:]]+#[[:space:]]*status[[:space:]]+([0-9]+)[[:space:]]*$ ]]; then
         line=${BASH_REMATCH[1]} expected=${BASH_REMATCH[2]}
      fi
      if [[ $line == simulator:* ]]; then
         line=${line#simulator:}
         read -r -a words <<<"$line"
         cp "$snapshot" "$scratch/$name"
         printf '\n$ ZLC_SIMULATOR=%s zlcziftools %s\n' "$name" "${words[*]}"
         ZLC_SIMULATOR="$scratch/$name" "$tool" "${words[@]}"
      else
         read -r -a words <<<"$line"
         printf '\n$ zlcziftools -c %s %s\n' "$name" "${words[*]}"
         "$tool" -c "$snapshot" "${words[@]}"
      fi
      status=$?
      [ $status -eq 0 ] || printf '(exit status %d)\n' "$status"
      if [ $status -ne "$expected" ]; then
         printf 'tour.sh: expected exit status %d\n' "$expected" >&2
         unexpected=1
      fi
      for file in *; do
         [ -e "$file" ] || continue
         printf '(wrote %s, %d bytes)\n' "$file" "$(stat -c %s "$file")"
         rm -f -- "$file"
      done
   done <"$list"
done
exit $unexpected

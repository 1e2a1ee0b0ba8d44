#!/usr/bin/env bash
# Runs every command line of samples/tour/*.txt against a snapshot and shows
# each with its output: tour.sh ZLCZIFTOOLS SNAPSHOT
#
# A line is a command and its arguments, run as `zlcziftools -c SNAPSHOT ...`.
# A line starting with "simulator:" runs the rest with the snapshot as the live
# host instead (ZLC_SIMULATOR on a scratch copy, so writes never reach the
# snapshot). A line starting with "#" is narration, printed as it stands. A
# trailing "# status N: WHY" says the command is expected to end with status N
# (0 otherwise) and why; the reason is printed with the status, so that a
# refusal reads as one. Commands run in a scratch directory that is removed at
# the end: the files a command writes there (amldump's tables) are listed, and
# nothing is written into the source tree or the caller's directory.
#
# The ID files: ZLC_HWDATA_DIR when it is set, else the directory "hwdata"
# beside the snapshot when there is one (the build lays out the system's
# pci.ids, our ACPI ID files and the sample's drop-in PCI ID directories
# there), else wherever the program finds them by itself.
#
# The tour ends with status 1 when a command ends with a status other than the
# one its line expects, or a line expects a failure without saying why; else 0.
set -uo pipefail
[ $# -eq 2 ] || { echo "usage: tour.sh ZLCZIFTOOLS SNAPSHOT" >&2; exit 2; }
tool=$(realpath "$1") snapshot=$(realpath "$2")
source=$(realpath "$(dirname "$0")/..")
if [ -z "${ZLC_HWDATA_DIR:-}" ] && [ -d "$(dirname "$snapshot")/hwdata" ]; then
   export ZLC_HWDATA_DIR=$(dirname "$snapshot")/hwdata
fi
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
mkdir "$scratch/run"
cd "$scratch/run" || exit 1
name=$(basename "$snapshot")
unexpected=0
for list in "$source"/samples/tour/*.txt; do
   narrating=0
   while IFS= read -r line; do
      case "$line" in
         '') continue ;;
         '#'*)
            [ $narrating -eq 1 ] || printf '\n'
            printf '%s\n' "$line"
            narrating=1
            continue
            ;;
      esac
      narrating=0
      expected=0 why=""
      if [[ $line =~ ^(.*[^[:space:]])[[:space:]]+#[[:space:]]*status[[:space:]]+([0-9]+):?[[:space:]]*(.*)$ ]]; then
         line=${BASH_REMATCH[1]} expected=${BASH_REMATCH[2]} why=${BASH_REMATCH[3]}
      fi
      if [ "$expected" -ne 0 ] && [ -z "$why" ]; then
         printf 'tour.sh: %s: a line that expects status %d says why\n' "$line" "$expected" >&2
         unexpected=1
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
      if [ $status -ne 0 ] && [ $status -eq "$expected" ]; then
         printf '(exit status %d, as expected: %s)\n' "$status" "$why"
      elif [ $status -ne 0 ]; then
         printf '(exit status %d)\n' "$status"
      fi
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

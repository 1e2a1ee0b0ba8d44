#!/usr/bin/env bash
# Builds the libFuzzer targets (clang, cmake --preset fuzz) and runs each one
# from its committed corpus for FUZZ_SECONDS (default 20) seconds. Fails when
# any target finds a crash, leak, time-out, memory blow-up or sanitizer report;
# the input that caused it is kept under build-fuzz/fuzz-artifacts/NAME/ and
# named in the log. New inputs go to a scratch folder: the corpus stays as is.
#
#   scripts/fuzz.sh [NAME...]      only the named targets
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${FUZZ_SECONDS:-20}
build=build-fuzz
artifacts=$PWD/$build/fuzz-artifacts

cmake --preset fuzz >/dev/null
cmake --build "$build" --target fuzz_targets
manifest=$build/fuzz-targets.txt
for name in "$@"; do
  if ! cut -f1 "$manifest" | grep -qx -- "$name"; then
    echo "fuzz: no target $name (names: $(cut -f1 "$manifest" | tr '\n' ' '))" >&2
    exit 2
  fi
done

# UBSan reports only print unless told to stop; every report counts.
export UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1}

rm -rf "$artifacts"
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
failed=()
ran=0
while IFS=$'\t' read -r name binary corpus; do
  if [ $# -gt 0 ] && [[ " $* " != *" $name "* ]]; then
    continue
  fi
  ran=$((ran + 1))
  mkdir -p "$artifacts/$name" "$scratch/$name"
  log=$artifacts/$name/fuzz.log
  echo "fuzz_$name: ${seconds} s from $corpus"
  status=0
  "$binary" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -print_final_stats=1 \
    -artifact_prefix="$artifacts/$name/" "$scratch/$name" "$corpus" >"$log" 2>&1 || status=$?
  if [ $status -ne 0 ] || grep -qE 'runtime error:|ERROR: (Address|Leak|Undefined)Sanitizer|ERROR: libFuzzer' "$log"; then
    failed+=("$name")
    echo "fuzz_$name: FAILED (status $status); from $log:"
    awk '/ERROR: |runtime error:/ { shown = 40 } shown-- > 0' "$log" | sed 's/^/  /'
    for input in "$artifacts/$name"/*; do
      [ "$input" = "$log" ] || echo "fuzz_$name: input saved as $input"
    done
  else
    grep -E '^(Done|#[0-9]+[[:space:]]+DONE)' "$log" | sed "s/^/  /" || true
  fi
done <"$manifest"

if [ $ran -eq 0 ]; then
  echo "fuzz: no target ran" >&2
  exit 2
fi
if [ ${#failed[@]} -gt 0 ]; then
  echo "fuzz: failed: ${failed[*]}; inputs and logs in $artifacts" >&2
  exit 1
fi
echo "fuzz: $ran targets, no findings"

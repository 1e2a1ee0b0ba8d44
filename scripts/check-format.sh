#!/usr/bin/env bash
# Fails when a C or C++ file of the tree differs from the style in .clang-format.
set -euo pipefail
cd "$(dirname "$0")/.."
git ls-files -z '*.c' '*.cpp' '*.h' | xargs -0 clang-format --dry-run -Werror

#!/usr/bin/env bash
# Installs the Debian packages the build and the tests need, if any is missing:
# scdoc builds the man pages, man-db renders them in the tests, and dpkg-dev
# gives cpack's Debian package its shared-library dependencies; procps and
# pciutils are what the capture's differential tests compare against; clang,
# its sanitizer and libFuzzer runtimes (libclang-rt-14-dev) and llvm's
# symbolizer make the fuzz build (scripts/fuzz.sh); valgrind runs the
# optional ctest -L valgrind.
set -euo pipefail
packages=(cmake ninja-build g++ pkg-config python3 libgtest-dev libgmock-dev libbenchmark-dev
          nlohmann-json3-dev libcli11-dev libxxhash-dev hwdata
          scdoc man-db dpkg-dev procps pciutils clang-format
          clang libclang-rt-14-dev llvm-14 valgrind "$@")
missing=()
for package in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "ok installed" || missing+=("$package")
done
if [ ${#missing[@]} -gt 0 ]; then
  sudo=""
  [ "$(id -u)" -eq 0 ] || sudo=sudo
  echo "Installing: ${missing[*]}"
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

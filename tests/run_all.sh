#!/usr/bin/env bash
# The whole test suite from a fresh Debian machine: installs what it needs, builds the Windows
# program, and runs the unit and end-to-end tests on the plain build (with every end-to-end case
# also against the Windows build under Wine) and on the sanitizer build (Linux only: the Windows
# program is the same for both), then every fuzz target briefly on its seeds. CTest runs the
# tests in parallel (see CMakePresets.json).
set -euo pipefail
cd "$(dirname "$0")/.."

SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq g++ cmake nlohmann-json3-dev libssl-dev libgtest-dev python3 \
  uuid-dev pkg-config libbenchmark-dev g++-mingw-w64-x86-64-posix wine64 osslsigncode openssl \
  libxml2-dev libcli11-dev clang >/dev/null

# The Windows build first: the Linux configure step looks for it and, with Wine present, runs
# every end-to-end case against it too.
cmake --preset windows
cmake --build --preset windows

for preset in default sanitize; do
  cmake --preset "$preset"
  cmake --build --preset "$preset"
  ctest --preset "$preset"
done

cmake --preset fuzz
cmake --build --preset fuzz
tests/fuzz/run_briefly.sh 30

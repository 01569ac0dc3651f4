#!/usr/bin/env bash
# The whole test suite from a fresh Debian machine: installs what it needs, builds, and runs the
# unit and end-to-end tests on the plain build and on the sanitizer build.
set -euo pipefail
cd "$(dirname "$0")/.."

SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq g++ cmake nlohmann-json3-dev libssl-dev libgtest-dev python3 >/dev/null

for preset in default sanitize; do
  cmake --preset "$preset"
  cmake --build --preset "$preset"
  ctest --preset "$preset"
done

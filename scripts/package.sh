#!/bin/sh
# Builds the Debian package into build/release.
set -eu
cd "$(dirname "$0")/.."
scripts/deps.sh
cmake --preset release
cmake --build --preset release --target morvane
cd build/release
cpack -G DEB

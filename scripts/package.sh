#!/bin/sh
# Builds the two Debian packages into build/release. Two builds of the same commit are equal byte by
# byte: all times in the packages are that of the commit.
set -eu
cd "$(dirname "$0")/.."
scripts/deps.sh
SOURCE_DATE_EPOCH=${SOURCE_DATE_EPOCH:-$(git log -1 --format=%ct 2>/dev/null || stat -c %Y CHANGELOG.md)}
export SOURCE_DATE_EPOCH
# The resource compiler writes the times of the files that it takes in.
export QT_RCC_SOURCE_DATE_OVERRIDE="$SOURCE_DATE_EPOCH"
cmake --preset release ${MORVANE_WERROR:+"-DMORVANE_WERROR=$MORVANE_WERROR"}
cmake --build --preset release --target morvane morvane_cli morvane-extract \
    morvane_recoveryd morvane_vaultd morvane-guard
cd build/release
rm -rf _CPack_Packages morvane*.deb
umask 022
cpack -G DEB

#!/bin/bash
# Installs the two packages over this machine's own tree, with all changes in memory, and runs the
# services there: a minute, without a network. Needs root. Builds the packages if they are not there.
set -euo pipefail
cd "$(dirname "$0")/.."
[ -n "$(find build/release -maxdepth 1 -name 'morvane-services_*.deb' 2>/dev/null)" ] || scripts/package.sh
exec python3 tests/system/overlaid.py build/release "$PWD/build/installtest"

#!/bin/sh
# Applies small faults to a copy of the tree, one at a time, and tells how many the tests find.
# Hours for the whole list; see tests/mutation/mutate.py for its parts.
#
#   scripts/mutate.sh run --only src/share
set -eu
cd "$(dirname "$0")/.."
command -v rsync >/dev/null || scripts/deps.sh test
exec python3 tests/mutation/mutate.py "$@"

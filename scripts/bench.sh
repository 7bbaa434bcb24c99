#!/bin/sh
# Builds the benchmarks optimised and runs them. Each prints ratios against a baseline measured in
# the same run; none of them fails for being slow.
set -eu
cd "$(dirname "$0")/.."
scripts/deps.sh bench
cmake --preset release
cmake --build --preset release --target benchmarks
for program in build/release/benchmarks/morvane_bench_*; do
    echo "== $(basename "$program")"
    QT_QPA_PLATFORM=${QT_QPA_PLATFORM:-offscreen} "$program" "$@"
done

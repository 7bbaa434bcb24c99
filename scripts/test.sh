#!/bin/sh
# Sets up, builds and runs all tests.
#
#   scripts/test.sh [release|dev|asan|tsan] [ctest arguments]
#
# Without a preset, what is shipped is tested: the release build. tsan runs the tests of the threaded
# parts. MORVANE_WERROR=ON or OFF in the environment takes the place of what the preset says about
# warnings.
set -eu
cd "$(dirname "$0")/.."
preset=release
case "${1:-}" in
dev | release | asan | tsan)
    preset=$1
    shift
    ;;
esac

scripts/deps.sh test
cmake --preset "$preset" ${MORVANE_WERROR:+"-DMORVANE_WERROR=$MORVANE_WERROR"}
cmake --build --preset "$preset"
if [ "$preset" = tsan ]; then
    set -- -L threads "$@"
fi
ctest --test-dir "build/$preset" --output-on-failure -j "$(nproc)" "$@"

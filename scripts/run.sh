#!/bin/sh
# Sets up, builds and starts the program. Without a display it runs the guided tour instead: the
# real window under a virtual display, over real documents, with pictures of each page.
#
#   scripts/run.sh [--mode=normal|--mode=livecd]
#   scripts/run.sh --tour [--out DIR] [--size WxH] [--font-scale X]
set -eu
cd "$(dirname "$0")/.."
scripts/deps.sh
cmake --preset release

tour=no
if [ "${1:-}" = --tour ]; then
    tour=yes
    shift
elif [ -z "${DISPLAY:-}${WAYLAND_DISPLAY:-}" ]; then
    echo "No display here: running the guided tour."
    tour=yes
fi

if [ "$tour" = no ]; then
    cmake --build --preset release --target morvane
    exec build/release/src/app/morvane "$@"
fi
cmake --build --preset release --target morvane morvane_recoveryd morvane_vaultd morvane_tour
exec scripts/tour.sh "$@"

#!/bin/sh
# Runs the guided tour of both run modes with the programs of build/release (or of the folder in
# MORVANE_BUILD). Exits 0 only if every step found what it looked for.
#
#   scripts/tour.sh [--out DIR] [--size WxH] [--font-scale X]
set -eu
cd "$(dirname "$0")/.."
program=${MORVANE_BUILD:-build/release}/tour/morvane_tour
status=0
for mode in normal livecd; do
    # A display of its own, so that the tour is the same on every machine. The platform is named,
    # since a shell for tests may ask for another.
    env -u WAYLAND_DISPLAY QT_QPA_PLATFORM=xcb LC_ALL=C.UTF-8 \
        xvfb-run -a -s "-screen 0 1920x1080x24" "$program" --mode "$mode" "$@" || status=1
done
exit $status

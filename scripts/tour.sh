#!/bin/sh
# Runs the guided tour of both run modes with the programs of build/release (or of the folder in
# MORVANE_BUILD). Exits 0 only if every step found what it looked for.
#
#   scripts/tour.sh [--out DIR] [--size WxH] [--font-scale X]
set -eu
cd "$(dirname "$0")/.."
build=${MORVANE_BUILD:-build/release}

# The protection changes the preload list: the tour has a system of its own with a private /etc,
# /run and list of processes. All of them load the library, as after a restart of the machine.
# Where there is no right to make one, the protection is shown without its library.
own=
[ "$(id -u)" = 0 ] || own=--map-root-user
# shellcheck disable=SC2086 # no word if it is empty
if [ -z "${MORVANE_TOUR_HOOK:-}" ] && unshare $own -m -p -f --mount-proc true 2>/dev/null; then
    export MORVANE_TOUR_HOOK=/run/lib/libmorvane-guard.so
    exec unshare $own -m -p -f --mount-proc -- scripts/tour.sh "$@"
fi
# The first process is the one in the system of its own: the variable alone, set by somebody else, must
# not cover the folders of the machine.
if [ -n "${MORVANE_TOUR_HOOK:-}" ] && [ $$ = 1 ] && [ "${LD_PRELOAD:-}" != "$MORVANE_TOUR_HOOK" ]; then
    mount -t tmpfs -o mode=755 none /run
    mkdir /run/etc /run/lib
    cp -a /etc/. /run/etc
    rm -f /run/etc/ld.so.preload
    mount --bind /run/etc /etc
    cp "$build/services/libmorvane-guard.so" "$MORVANE_TOUR_HOOK"
    chmod 755 "$MORVANE_TOUR_HOOK"
    LD_PRELOAD=$MORVANE_TOUR_HOOK exec scripts/tour.sh "$@"
fi

program=$build/tour/morvane_tour
status=0
for mode in normal livecd; do
    # A display of its own, so that the tour is the same on every machine. The platform is named,
    # since a shell for tests may ask for another.
    env -u WAYLAND_DISPLAY QT_QPA_PLATFORM=xcb LC_ALL=C.UTF-8 \
        xvfb-run -a -s "-screen 0 1920x1080x24" "$program" --mode "$mode" "$@" || status=1
done
exit $status

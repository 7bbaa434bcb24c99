#!/bin/sh
# Runs one test program in a home and a temporary folder of its own and removes both afterwards.
set -eu
sandbox=$(mktemp -d /tmp/mvt.XXXXXX)
trap 'chmod -R u+rwX "$sandbox" 2>/dev/null || true; rm -rf "$sandbox"' EXIT
mkdir "$sandbox/home" "$sandbox/run"
chmod 700 "$sandbox/run"
export HOME="$sandbox/home"
export XDG_CONFIG_HOME="$sandbox/home/.config"
export XDG_CACHE_HOME="$sandbox/home/.cache"
export XDG_DATA_HOME="$sandbox/home/.local/share"
export XDG_RUNTIME_DIR="$sandbox/run"
export TMPDIR="$sandbox"
"$@"

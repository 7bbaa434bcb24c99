#!/bin/sh
# Renews the pictures of the documentation from the guided tour.
set -eu
cd "$(dirname "$0")/.."
scripts/run.sh --tour --out docs/screenshots --size 1280x800 --font-scale 1.15

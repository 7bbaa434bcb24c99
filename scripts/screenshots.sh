#!/bin/sh
# Renews the pictures that the documentation shows, from the guided tour.
set -eu
cd "$(dirname "$0")/.."
pictures=$(mktemp -d)
trap 'rm -rf "$pictures"' EXIT
scripts/run.sh --tour --out "$pictures" --size 1280x800 --font-scale 1.15
for shown in $(grep -oh 'docs/screenshots/[a-z0-9-]*\.png' README.md docs/*.md | sort -u); do
    cp "$pictures/$(basename "$shown")" "$shown"
done

#!/bin/sh
# Draws the PNG images of the resources and the application icons from their SVG sources.
# Needs rsvg-convert (package librsvg2-bin). The results are kept in the repository.
set -eu
cd "$(dirname "$0")/.."
rsvg-convert -w 256 -h 256 resources/img/logo.svg -o resources/img/logo.png
for name in min zoom close; do
    rsvg-convert -w 32 -h 32 "resources/img/$name.svg" -o "resources/img/$name.png"
done
for size in 32 48 64 128 256; do
    rsvg-convert -w "$size" -h "$size" resources/img/logo.svg -o "packaging/icons/morvane-$size.png"
done

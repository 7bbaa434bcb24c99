#!/bin/sh
# Formats all sources, or with --check only tells whether they are formatted.
set -eu
cd "$(dirname "$0")/.."
if [ "${1:-}" = --check ]; then
    git ls-files -z '*.h' '*.cpp' | xargs -0 clang-format --dry-run --Werror
else
    git ls-files -z '*.h' '*.cpp' | xargs -0 clang-format -i
fi

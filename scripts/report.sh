#!/bin/bash
# Prints a table of the project's size: lines by folder, the share of the tests, the largest files,
# and of what is built in build/release: sizes of the programs and the time that each takes to start.
#
#   scripts/report.sh            as Markdown
#
# The ratios of the benchmarks come from scripts/bench.sh.
set -euo pipefail
cd "$(dirname "$0")/.."

lines() { # git path patterns...
    git ls-files -z -- "$@" | xargs -0 -r cat | wc -l
}
files() {
    git ls-files -- "$@" | wc -l
}

sources=('*.cpp' '*.h' '*.c' '*.py' '*.sh')
of() { # folder: the patterns of its sources
    for pattern in "${sources[@]}"; do
        printf ':(glob)%s/**/%s\n' "$1" "$pattern"
    done
}

echo "| Folder | Files | Lines |"
echo "|---|---|---|"
total=0
tests=0
for folder in src/core src/search src/extract src/cli src/analyzer src/wechat src/share src/vault \
    src/ui/common src/ui/pages src/app services/common services/recoveryd services/vaultd \
    services/guard tour benchmarks fuzz medium packaging scripts tests; do
    mapfile -t patterns < <(of "$folder")
    count=$(lines "${patterns[@]}")
    [ "$count" -gt 0 ] || continue
    echo "| \`$folder\` | $(files "${patterns[@]}") | $count |"
    total=$((total + count))
    [ "$folder" != tests ] || tests=$count
done
echo "| all | | $total |"
echo
echo "Tests: $((tests * 1000 / total / 10)).$((tests * 1000 / total % 10)) % of all lines."
echo
echo "Files over 600 lines:"
git ls-files -z -- '*.cpp' '*.h' '*.c' | xargs -0 wc -l | awk '$2 != "total" && $1 > 600 { print "- `" $2 "`: " $1 }'

release=build/release
if [ -d "$release" ]; then
    echo
    echo "| Program | Size, stripped (KiB) | Start with --version (ms, best of 5) |"
    echo "|---|---|---|"
    find "$release/src" "$release/services" -type f -perm -u+x -name 'morvane*' ! -name '*.so*' | sort |
        while read -r program; do
            copy=$(mktemp)
            strip -o "$copy" "$program"
            best=999999
            for _ in 1 2 3 4 5; do
                begin=$(date +%s%N)
                QT_QPA_PLATFORM=offscreen timeout 10 "$program" --version >/dev/null 2>&1 || true
                took=$((($(date +%s%N) - begin) / 100000))
                [ "$took" -ge "$best" ] || best=$took
            done
            echo "| ${program##*/} | $(($(stat -c %s "$copy") / 1024)) | $((best / 10)).$((best % 10)) |"
            rm -f "$copy"
        done
fi

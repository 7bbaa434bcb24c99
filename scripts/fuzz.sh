#!/bin/bash
# Feeds every parser of foreign bytes with mutated input, under AddressSanitizer and
# UndefinedBehaviorSanitizer. Ends with an error at the first crash, hang or leak, whose input stays
# in build/fuzz/found.
#
#   scripts/fuzz.sh [seconds a target, 60 by default | --short] [pattern of targets]
#
# --short runs what is stored and 100 mutations that are always the same, for a look at every
# change: what it finds is the change's doing.
#
# What is stored in fuzz/corpus runs first. With MORVANE_FUZZ_KEEP=1 the corpus is renewed from what
# the run has found.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}
limits=("-max_total_time=$seconds")
[ "$seconds" = --short ] && limits=(-seed=1 -runs=100)
pattern=${2:-*}

scripts/deps.sh fuzz
cmake -S . -B build/fuzz -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    "-DCMAKE_CXX_FLAGS_RELWITHDEBINFO=-O1 -g1" -DCMAKE_C_COMPILER=clang \
    -DCMAKE_CXX_COMPILER=clang++ -DMORVANE_FUZZ=ON \
    "-DMORVANE_SANITIZE=fuzzer-no-link,address,undefined" -DBUILD_TESTING=OFF
ninja -C build/fuzz fuzz_scanner fuzz_carve fuzz_disk fuzz_records fuzz_guard \
    fuzz_binarytext fuzz_ziptext fuzz_markuptext

images=build/fuzz/images
found=build/fuzz/found
mkdir -p "$images" "$found"

# --- The base images: a few files in folders, some of them deleted.

tree=$images/tree
if [ ! -d "$tree" ]; then
    mkdir -p "$tree/folder/below"
    for i in $(seq 1 24); do
        head -c $((i * 700)) /dev/zero | tr '\0' "$(printf '%x' $((i % 16)))" >"$tree/folder/file $i.txt"
    done
    head -c 70000 /dev/urandom >"$tree/folder/below/数据.bin"
    # The prototypes of XFS take no blanks.
    cp "$tree/folder/file 3.txt" "$tree/folder/below/plain"
fi

blank() {
    rm -f "$1"
    truncate -s "$2" "$1"
}

make_ext() {
    blank "$2" 8M
    mke2fs -q -F -t "$1" -b 1024 -U 00000000-0000-0000-0000-000000000001 -d "$tree" "$2"
    debugfs -w -R "rm \"/folder/file 7.txt\"" "$2" 2>/dev/null
    debugfs -w -R "rm \"/folder/below/数据.bin\"" "$2" 2>/dev/null
}

make_ntfs() {
    blank "$1" 6M
    mkntfs -q -F -Q "$1" >/dev/null
    for i in 3 9 20; do
        ntfscp -q "$1" "$tree/folder/file $i.txt" "file $i.txt" >/dev/null
    done
}

make_fat() {
    blank "$2" 6M
    mkfs.fat -s "$([ "$1" = 12 ] && echo 4 || echo 1)" -F "$1" "$2" >/dev/null
    mcopy -i "$2" -s "$tree/folder" :: && mdel -i "$2" "::folder/file 7.txt" && mdeltree -i "$2" ::folder/below
}

make_exfat() {
    blank "$1" 6M
    mkfs.exfat "$1" >/dev/null
}

make_xfs() {
    blank "$1" 24M
    printf '/dev/null\n0 0\nd--755 0 0\nfile ---644 0 0 %s\nd d--755 0 0\nfile ---644 0 0 %s\n$\n$\n' \
        "$tree/folder/below/plain" "$tree/folder/below/数据.bin" >"$images/prototype"
    # So small a volume is allowed in its makers' own tests only.
    TEST_DIR=/ TEST_DEV=/ QA_CHECK_FS=/ mkfs.xfs -q -f -p "$images/prototype" "$1"
}

make_btrfs() {
    blank "$1" 24M
    mkfs.btrfs -q -f --mixed --rootdir "$tree" "$1"
}

make_disk() {
    blank "$1" 16M
    printf 'label: gpt\nstart=2048,size=8192\nstart=12288,size=8192\n' | sfdisk -q "$1"
    dd if="$images/ext4" of="$1" bs=1M seek=1 count=4 conv=notrunc status=none
    dd if="$images/fat16" of="$1" bs=1M seek=6 count=4 conv=notrunc status=none
}

[ -f "$images/ext4" ] || make_ext ext4 "$images/ext4"
[ -f "$images/ext3" ] || make_ext ext3 "$images/ext3"
[ -f "$images/ntfs" ] || make_ntfs "$images/ntfs"
[ -f "$images/fat12" ] || make_fat 12 "$images/fat12"
[ -f "$images/fat16" ] || make_fat 16 "$images/fat16"
[ -f "$images/exfat" ] || make_exfat "$images/exfat"
[ -f "$images/xfs" ] || make_xfs "$images/xfs"
[ -f "$images/btrfs" ] || make_btrfs "$images/btrfs"
[ -f "$images/disk" ] || make_disk "$images/disk"

# --- The runs.

export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
run() { # name, program, base image, largest input
    # shellcheck disable=SC2254
    case $1 in $pattern) ;; *) return 0 ;; esac
    local stored=fuzz/corpus/$1 work=build/fuzz/inputs/$1
    mkdir -p "$work" "$stored"
    echo "== $1: $(find "$stored" -type f | wc -l) stored inputs, ${limits[*]}"
    if ! MORVANE_FUZZ_BASE=$3 "build/fuzz/fuzz/$2" "$work" "$stored" "${limits[@]}" \
        -max_len="$4" -len_control=0 -timeout=20 -rss_limit_mb=1024 -artifact_prefix="$found/$1-" \
        -print_final_stats=1 >"$found/$1.log" 2>&1; then
        tail -60 "$found/$1.log"
        echo "FAILED: $1" >&2
        return 1
    fi
    grep -a -E 'stat::number_of_executed_units|cov:' "$found/$1.log" | tail -2
    if [ "${MORVANE_FUZZ_KEEP:-}" = 1 ]; then
        local kept=build/fuzz/kept/$1
        rm -rf "$kept"
        mkdir -p "$kept"
        MORVANE_FUZZ_BASE=$3 "build/fuzz/fuzz/$2" -merge=1 "$kept" "$work" "$stored" >/dev/null 2>&1
        rm -rf "$stored"
        mkdir -p "$stored"
        find "$kept" -type f -size -1025c -printf '%s %p\n' | sort -n | tail -24 | cut -d' ' -f2 |
            xargs -r -I{} cp {} "$stored/"
        find "$kept" -type f -size -3073c | sort | head -12 | xargs -r -I{} cp {} "$stored/"
    fi
}

failed=0
for family in ext4 ext3 ntfs fat12 fat16 exfat xfs btrfs; do
    run "$family" fuzz_scanner "$images/$family" 512 || failed=1
done
run disk fuzz_disk "$images/disk" 512 || failed=1
run carve fuzz_carve "" 65536 || failed=1
run records fuzz_records "" 4096 || failed=1
run guard fuzz_guard "" 2048 || failed=1
for family in binary zip markup; do
    run "${family}text" "fuzz_${family}text" "" 65536 || failed=1
done
exit $failed

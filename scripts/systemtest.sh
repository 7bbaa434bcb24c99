#!/bin/bash
# Proves the packages and the recovery medium in booted machines under plain emulation: two machines
# side by side. Needs root and about 8 GiB of disk; keeps the trees between runs.
#
#   scripts/systemtest.sh [installed] [bios] [uefi] [secureboot] [usb]
#
# Without words: installed uefi usb. The first way of the medium is tried in full, the others as far as
# the window.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh systemtest
ways=("$@")
[ ${#ways[@]} -gt 0 ] || ways=(installed uefi usb)

work=build/systemtest
mkdir -p "$work"
[ -n "$(find build/release -maxdepth 1 -name 'morvane-services_*.deb' 2>/dev/null)" ] || scripts/package.sh

media=()
for way in "${ways[@]}"; do
    [ "$way" = installed ] || media+=("$way")
done

failed=0
jobs_running=()
if [[ " ${ways[*]} " == *" installed "* ]]; then
    tree=$work/installed.tar
    if [ ! -f "$tree" ]; then
        # A small initial RAM file system: the packages make it anew inside the slow machine.
        # shellcheck disable=SC2016
        mmdebstrap --variant=minbase --components=main --dpkgopt=force-unsafe-io \
            --include="$(grep -v '^#' tests/system/packages.txt | tr -s ' \n' ',,' | sed 's/,$//')" \
            --essential-hook='mkdir -p "$1/etc/initramfs-tools/conf.d" "$1/etc/initramfs-tools/hooks"' \
            --essential-hook='printf "MODULES=list\nCOMPRESS=zstd\n" >"$1/etc/initramfs-tools/conf.d/machine"' \
            --essential-hook='install -m 755 tests/system/initramfs-modules "$1/etc/initramfs-tools/hooks/machine"' \
            --customize-hook='chroot "$1" passwd --quiet -d root' \
            --customize-hook='echo machine >"$1/etc/hostname"' \
            bookworm "$work/part.tar"
        mv "$work/part.tar" "$tree"
    fi
    python3 tests/system/installed.py "$tree" build/release "$work/installed" &
    jobs_running+=($!)
fi
if [ ${#media[@]} -gt 0 ]; then
    # The medium itself if it holds the packages as they are now, else one that is compressed less.
    iso=build/medium/morvane-recovery.iso
    if [ ! -f "$iso" ] || [ -n "$(find build/release -maxdepth 1 -name 'morvane*.deb' -newer "$iso")" ]; then
        scripts/medium.sh --fast
    fi
    # All that is added is a console on the serial line, and no waiting at the menu.
    words=$(cd tests/system && python3 -c "import machine; print(machine.PATIENT)")
    # shellcheck disable=SC2016
    printf 'set options="$options %s"\nset timeout=0\n' "$words" >"$work/serial.cfg"
    rm -f "$work/test.iso"
    xorriso -indev "$iso" -outdev "$work/test.iso" -boot_image any replay \
        -map "$work/serial.cfg" /boot/grub/serial.cfg >/dev/null 2>&1
    python3 tests/system/medium.py "$work/test.iso" "$work/medium" "${media[@]}" &
    jobs_running+=($!)
fi
for job in "${jobs_running[@]}"; do
    wait "$job" || failed=1
done
exit $failed

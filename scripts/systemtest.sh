#!/bin/bash
# Proves the packages and the recovery medium in booted machines under plain emulation: two machines
# side by side. Needs root and about 8 GiB of disk; keeps the trees between runs.
#
#   scripts/systemtest.sh [installed] [bios] [uefi] [secureboot] [usb]     all by default
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh systemtest
ways=("$@")
[ ${#ways[@]} -gt 0 ] || ways=(installed bios uefi secureboot usb)

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
        # shellcheck disable=SC2016
        mmdebstrap --variant=minbase --components=main --include="linux-image-amd64,systemd-sysv,udev,dbus,sudo,python3-minimal,libpam-runtime,libpam-modules,libpam-systemd,passwd,login,procps,kmod,initramfs-tools,init-system-helpers,polkitd,nftables,acl,attr,e2fsprogs,libqt5core5a,libqt5network5,libqt5sql5-sqlite,libqt5dbus5,libblkid1,libzstd1,libjpeg62-turbo,libpng16-16,libbz2-1.0,liblzma5" \
            --customize-hook='chroot "$1" passwd --quiet -d root' \
            --customize-hook='echo machine >"$1/etc/hostname"' \
            bookworm "$work/part.tar"
        mv "$work/part.tar" "$tree"
    fi
    python3 tests/system/installed.py "$tree" build/release "$work/installed" &
    jobs_running+=($!)
fi
if [ ${#media[@]} -gt 0 ]; then
    MORVANE_MEDIUM_OPTIONS="console=ttyS0,115200" scripts/medium.sh --fast
    mv build/medium/morvane-recovery.iso "$work/test.iso"
    python3 tests/system/medium.py "$work/test.iso" "$work/medium" "${media[@]}" &
    jobs_running+=($!)
fi
for job in "${jobs_running[@]}"; do
    wait "$job" || failed=1
done
exit $failed

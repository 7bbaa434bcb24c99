#!/bin/sh
# Installs what the program needs to be built, run and tested on Debian 12, and fetches the icon
# font. Does nothing where all of it is there. Needs root, or sudo.
#
#   scripts/deps.sh          to build and run
#   scripts/deps.sh test     to test as well
#   scripts/deps.sh bench    to measure as well
#   scripts/deps.sh medium   to build the recovery medium
#   scripts/deps.sh systemtest  to prove packages and medium in booted machines; brings a file server
#                            and an SSH server, which Debian starts: for a machine that only tests
#   scripts/deps.sh fuzz     to feed the parsers with mutated input
#   scripts/deps.sh lint     to check the sources
set -eu
cd "$(dirname "$0")/.."

build="g++ cmake ninja-build ccache qtbase5-dev libqt5sql5-sqlite libqt5svg5 qttranslations5-l10n nodejs npm
       pkg-config zlib1g-dev libzstd-dev libext2fs-dev libblkid-dev libudev-dev
       libjpeg62-turbo-dev libpng-dev libbz2-dev liblzma-dev libpam0g-dev libsqlite3-dev unicode-data"
extraction="poppler-utils catdoc antiword unrtf unzip"
# Disk images for the tour and the tests: mke2fs, debugfs.
images="e2fsprogs"
# Programs that delete, for the tests of the protection, and what these look at.
deleters="rsync busybox-static gvfs dbus nftables acl attr"
# Images of other file systems, for the tests alone; without them these say so and are skipped.
other_images="ntfs-3g btrfs-progs xfsprogs dosfstools exfatprogs mtools"
display="fonts-noto-cjk libglib2.0-bin xvfb xauth"
packages="$build $extraction $images $display"
case ${1:-} in
test | bench)
    packages="$packages $deleters clang-format python3 file desktop-file-utils appstream
              openssl $other_images libreoffice-writer-nogui libreoffice-calc-nogui
              libreoffice-impress-nogui curl chromium chromium-driver"
    ;;
esac
[ "${1:-}" != fuzz ] || packages="$packages $other_images clang libclang-rt-14-dev fdisk"
case ${1:-} in
medium | systemtest)
    packages="$packages mmdebstrap squashfs-tools xorriso grub-pc-bin grub-common
              grub-efi-amd64-signed shim-signed dosfstools mtools"
    ;;
esac
case ${1:-} in
systemtest)
    packages="$packages $other_images python3 qemu-system-x86 qemu-utils ovmf lvm2
              samba openssh-server openssl"
    ;;
esac
[ "${1:-}" != lint ] || packages="$packages clang clang-format clang-tidy codespell shellcheck python3"
# A server to measure the share server against.
[ "${1:-}" != bench ] || packages="$packages nginx-light"

missing=""
for package in $packages; do
    case $package in
    # A Node.js from elsewhere will do as well.
    nodejs | npm)
        command -v npm >/dev/null && continue
        ;;
    esac
    dpkg-query -W -f '${Status}' "$package" 2>/dev/null | grep -q ' installed$' ||
        missing="$missing $package"
done

if [ -n "$missing" ]; then
    echo "Installing:$missing"
    as_root=""
    if [ "$(id -u)" != 0 ]; then
        command -v sudo >/dev/null || {
            echo "These packages are missing and sudo is not there:$missing" >&2
            exit 1
        }
        as_root=sudo
    fi
    $as_root apt-get update
    # shellcheck disable=SC2086
    $as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends $missing
fi

font=resources/node_modules/@fortawesome/fontawesome-free/webfonts/fa-solid-900.ttf
if [ ! -f "$font" ]; then
    npm install --prefix resources --no-package-lock --no-audit --no-fund --ignore-scripts
fi

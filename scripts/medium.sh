#!/bin/bash
# Builds the recovery medium, build/medium/morvane-recovery.iso, from Debian packages and the two
# packages of this tree. Needs root. The system without our packages is kept between runs.
#
#   scripts/medium.sh [--fast]
#
# --fast compresses less: a minute instead of ten, for tests.
set -euo pipefail
cd "$(dirname "$0")/.."
level=15
[ "${1:-}" != --fast ] || level=3

scripts/deps.sh medium
[ -n "$(find build/release -maxdepth 1 -name 'morvane-services_*.deb' 2>/dev/null)" ] || scripts/package.sh

out=build/medium
mkdir -p "$out"
packages=$(grep -v '^#' medium/packages.txt | tr -s ' \n' ',,' | sed 's/,$//')
base=$out/base-$(echo "$packages" | sha256sum | cut -c1-16).tar

if [ ! -f "$base" ]; then
    rm -f "$out"/base-*.tar
    mmdebstrap --variant=minbase --components=main --include="$packages" \
        --dpkgopt=force-unsafe-io bookworm "$out/part.tar"
    mv "$out/part.tar" "$base"
fi

root=$out/root
rm -rf "$root"
mkdir -p "$root"
tar -C "$root" -xf "$base"
mkdir -p "$root/packages"
cp build/release/morvane_*.deb build/release/morvane-services_*.deb "$root/packages/"
cp -a --no-preserve=ownership medium/tree/. "$root/"
cp medium/configure.sh medium/install.sh "$root/"
cp /etc/resolv.conf "$root/etc/resolv.conf"
cp -a /etc/apt/sources.list* "$root/etc/apt/" 2>/dev/null || true
# No service is started in there. The initial RAM file system, which takes in files of our tree, is
# made anew once, by the trigger that installing the services causes.
printf '#!/bin/sh\nexit 101\n' >"$root/usr/sbin/policy-rc.d"
chmod +x "$root/usr/sbin/policy-rc.d"
unshare --mount --pid --fork --kill-child bash -ec "
    mount -t proc proc '$root/proc'
    mount --bind /dev '$root/dev'
    chroot '$root' apt-get update -q
    chroot '$root' sh /configure.sh
    chroot '$root' sh /install.sh"
rm -f "$root/configure.sh" "$root/install.sh" "$root/usr/sbin/policy-rc.d" "$root/etc/resolv.conf"
ln -sf ../run/NetworkManager/resolv.conf "$root/etc/resolv.conf"
: >"$root/etc/machine-id"

iso=$out/iso
rm -rf "$iso"
mkdir -p "$iso/live" "$iso/boot/grub/fonts" "$iso/.disk" "$iso/EFI/BOOT"
cp "$root"/boot/vmlinuz-* "$iso/live/vmlinuz"
cp "$root"/boot/initrd.img-* "$iso/live/initrd.img"
rm -f "$root"/boot/vmlinuz-* "$root"/boot/initrd.img-*
rm -f "$iso/live/filesystem.squashfs"
mksquashfs "$root" "$iso/live/filesystem.squashfs" -comp zstd -Xcompression-level $level \
    -noappend -quiet -no-progress
cp medium/boot/grub.cfg "$iso/boot/grub/grub.cfg"
cp /usr/share/grub/unicode.pf2 "$iso/boot/grub/fonts/"
echo "Morvane recovery" >"$iso/.disk/info"

# BIOS: GRUB's image for CDs, which a stick starts through the hybrid boot record.
mkdir -p "$iso/boot/grub/i386-pc"
cp /usr/lib/grub/i386-pc/*.mod /usr/lib/grub/i386-pc/*.lst "$iso/boot/grub/i386-pc/"
grub-mkimage -O i386-pc-eltorito -p /boot/grub -o "$iso/boot/grub/i386-pc/eltorito.img" biosdisk iso9660

# UEFI: Debian's signed shim, and its signed GRUB that looks for the menu on the medium.
cp /usr/lib/shim/shimx64.efi.signed "$iso/EFI/BOOT/BOOTX64.EFI"
cp /usr/lib/shim/mmx64.efi.signed "$iso/EFI/BOOT/mmx64.efi"
cp /usr/lib/grub/x86_64-efi-signed/gcdx64.efi.signed "$iso/EFI/BOOT/grubx64.efi"
efi=$out/efi.img
rm -f "$efi"
truncate -s 8M "$efi"
mkfs.fat -n MORVANE_EFI "$efi" >/dev/null
mmd -i "$efi" ::EFI ::EFI/BOOT
mcopy -i "$efi" "$iso"/EFI/BOOT/* ::EFI/BOOT/

xorriso -as mkisofs -quiet -iso-level 3 -r -V MORVANE -o "$out/morvane-recovery.iso.part" \
    -b boot/grub/i386-pc/eltorito.img -no-emul-boot -boot-load-size 4 -boot-info-table \
    --grub2-boot-info --grub2-mbr /usr/lib/grub/i386-pc/boot_hybrid.img \
    -append_partition 2 0xef "$efi" \
    -eltorito-alt-boot -e --interval:appended_partition_2:all:: -no-emul-boot \
    -partition_offset 16 "$iso"
mv "$out/morvane-recovery.iso.part" "$out/morvane-recovery.iso"
rm -rf "$root" "$iso"
ls -l "$out/morvane-recovery.iso"

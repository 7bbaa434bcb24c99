# Read by the programs that mount disks to look at them.
# shellcheck shell=bash

# Mounts so that nothing is written, not even the replay of a journal. Further options may follow.
mount_readonly() { # device, type, folder, [options]
    local type=$2 options=ro
    mkdir -p "$3"
    case $type in
    ext3 | ext4) options=$options,noload ;;
    xfs) options=$options,norecovery,nouuid ;;
    btrfs) options=$options,rescue=nologreplay ;;
    ntfs) type=ntfs-3g ;;
    ext2 | vfat | exfat) ;;
    *) return 1 ;;
    esac
    mount -t "$type" -o "$options${4:+,$4}" "$1" "$3" 2>/dev/null
}

"""Disks with installed systems that do not lie in a plain partition. They are made without the kernel's
device mapper, which the machine that runs the test may not have."""

import os
import re
import shutil
import struct
import subprocess
import tempfile

from disks import digest, run

MIB = 1 << 20
SECTOR = 512
# Where a member of an array has its description and its data, in sectors.
RAID_HEAD = 8
RAID_DATA = 2048
PASS_PHRASE = "secret"
VOLUME = """
    logical_volumes {
        root {
            id = "aaaaaa-bbbb-cccc-dddd-eeee-ffff-gggggg"
            status = ["READ", "WRITE", "VISIBLE"]
            flags = []
            segment_count = 1
            segment1 {
                start_extent = 0
                extent_count = %s
                type = "striped"
                stripe_count = 1
                stripes = ["pv0", 0]
            }
        }
    }
}
"""


class System:
    """An image; `name` is what the medium is to find on it."""

    def __init__(self, path, name):
        self.path = path
        self.name = name
        self.before = digest(path)


def make_linux(path, name, size):
    """An ext4 file system with a system of that name."""
    with tempfile.TemporaryDirectory() as tree:
        os.makedirs(os.path.join(tree, "etc"))
        with open(os.path.join(tree, "etc", "os-release"), "w") as file:
            file.write('PRETTY_NAME="%s"\n' % name)
        with open(path, "wb") as image:
            image.truncate(size)
        run("mkfs.ext4", "-q", "-F", "-d", tree, path)


def on_lvm(folder):
    path, inner = os.path.join(folder, "lvm.img"), os.path.join(folder, "lvm.inner")
    with open(path, "wb") as image:
        image.truncate(48 * MIB)
    device = subprocess.run(["losetup", "--find", "--show", path], check=True, capture_output=True, text=True).stdout.strip()
    settings = os.path.join(folder, "lvm")
    shutil.rmtree(settings, ignore_errors=True)
    os.makedirs(settings)
    group = os.path.join(settings, "group")
    environment = dict(os.environ, LVM_SYSTEM_DIR=settings, DM_DISABLE_UDEV="1", LVM_SUPPRESS_FD_WARNINGS="1")
    try:
        run("pvcreate", "-qy", device, env=environment)
        run("vgcreate", "-qy", "system", device, env=environment)
        # The volume is written into the description of the group, since creating it would need the kernel.
        run("vgcfgbackup", "-q", "-f", group, "system", env=environment)
        with open(group) as file:
            text = file.read()
        extents = re.search(r"pe_count = (\d+)", text).group(1)
        with open(group, "w") as file:
            file.write(text[:text.rindex("}")] + VOLUME % extents)
        run("vgcfgrestore", "-f", group, "system", env=environment)
    finally:
        run("losetup", "-d", device)
    make_linux(inner, "System on LVM", 40 * MIB)
    run("dd", "if=" + inner, "of=" + path, "bs=1M", "seek=1", "conv=notrunc")
    os.unlink(inner)
    return System(path, "System on LVM")


def raid_head(member, sectors):
    """The superblock (version 1.2) of a mirror that was not closed: its members are to be compared."""
    most = 128  # members that the table of roles has room for
    head = bytearray(256 + 2 * most)
    struct.pack_into("<II", head, 0, 0xA92B4EFC, 1)
    head[16:32] = b"morvane-raid-set"
    head[32:45] = b"machine:array"
    struct.pack_into("<QIIQII", head, 64, 1700000000, 1, 0, sectors, 0, 2)
    struct.pack_into("<QQQ", head, 128, RAID_DATA, sectors, RAID_HEAD)
    struct.pack_into("<I", head, 160, member)
    head[168:184] = b"morvane-member-%d" % member
    struct.pack_into("<QQQ", head, 192, 1700000000, 7, 0)
    struct.pack_into("<I", head, 220, most)
    struct.pack_into("<%dH" % most, head, 256, 0, 1, *[0xFFFE] * (most - 2))
    total = sum(struct.unpack("<%dI" % (len(head) // 4), head))
    struct.pack_into("<I", head, 216, ((total & 0xFFFFFFFF) + (total >> 32)) & 0xFFFFFFFF)
    return head


def on_raid(folder):
    """The two members of a mirror with a system."""
    inner = os.path.join(folder, "raid.inner")
    make_linux(inner, "System on RAID", 16 * MIB)
    with open(inner, "rb") as file:
        content = file.read()
    os.unlink(inner)
    paths = [os.path.join(folder, "raid-%d.img" % member) for member in (0, 1)]
    for member, path in enumerate(paths):
        with open(path, "wb") as image:
            image.seek(RAID_HEAD * SECTOR)
            image.write(raid_head(member, len(content) // SECTOR))
            image.seek(RAID_DATA * SECTOR)
            image.write(content)
    return [System(path, "System on RAID") for path in paths]


def encrypted(folder):
    path, inner = os.path.join(folder, "luks.img"), os.path.join(folder, "luks.inner")
    make_linux(inner, "Encrypted system", 16 * MIB)
    run("qemu-img", "convert", "-f", "raw", "-O", "luks", "--object", "secret,id=key,data=" + PASS_PHRASE,
        "-o", "key-secret=key,iter-time=50", inner, path)
    os.unlink(inner)
    return System(path, "Encrypted system")


def windows(folder):
    path, point = os.path.join(folder, "windows.img"), os.path.join(folder, "mnt-windows")
    os.makedirs(point, exist_ok=True)
    with open(path, "wb") as image:
        image.truncate(16 * MIB)
    run("mkfs.ntfs", "-F", "-Q", "-q", path)
    run("mount", "-t", "ntfs-3g", "-o", "loop", path, point)
    try:
        os.makedirs(os.path.join(point, "Windows", "System32"))
    finally:
        run("umount", point)
    return System(path, "Windows")


def swap(folder):
    path = os.path.join(folder, "swap.img")
    with open(path, "wb") as image:
        image.truncate(16 * MIB)
    run("mkswap", path)
    return System(path, "")

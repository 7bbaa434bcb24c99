"""Disk images with deleted files and the state of a pulled plug, and what is expected of them."""

import hashlib
import os
import random
import re
import shutil
import subprocess

HERE = os.path.dirname(os.path.abspath(__file__))


def run(*command, **options):
    options.setdefault("check", True)
    subprocess.run(command, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, **options)


def digest(path):
    value = hashlib.sha256()
    with open(path, "rb") as file:
        while True:
            data = file.read(1 << 20)
            if not data:
                return value.hexdigest()
            value.update(data)


class DirtyDisk:
    """A file system with deleted files, copied while it is mounted: its log waits to be replayed."""

    MKFS = {"ext4": ["mkfs.ext4", "-q", "-F"], "xfs": ["mkfs.xfs", "-q", "-f"], "btrfs": ["mkfs.btrfs", "-q", "-f"]}
    SIZE = {"ext4": 64, "xfs": 320, "btrfs": 160}

    def __init__(self, folder, kind):
        self.path = os.path.join(folder, "dirty-%s.img" % kind)
        self.lost = {}  # hash -> path below the root
        self.heads = {}  # hash -> its first bytes
        source = self.path + ".mounted"
        point = os.path.join(folder, "mnt-" + kind)
        os.makedirs(point, exist_ok=True)
        with open(source, "wb") as image:
            image.truncate(self.SIZE[kind] << 20)
        run(*self.MKFS[kind], source)
        run("mount", "-o", "loop", source, point)
        try:
            self.fill(point)
            run("sync")
            with open(os.path.join(point, "unfinished.txt"), "w") as file:
                file.write("written just before the plug was pulled")
                file.flush()
                os.fsync(file.fileno())
            run("cp", "--sparse=always", source, self.path)
        finally:
            run("umount", point)
            os.unlink(source)
        self.before = digest(self.path)

    def fill(self, root):
        dice = random.Random(3)
        # On Btrfs the system is in a subvolume, as installers make it.
        system = root
        if "btrfs" in os.path.basename(self.path):
            system = os.path.join(root, "@")
            run("btrfs", "subvolume", "create", system)
        os.makedirs(os.path.join(system, "etc"))
        with open(os.path.join(system, "etc", "os-release"), "w") as file:
            file.write('PRETTY_NAME="Dirty system"\n')
        folder = os.path.join(root, "照片", "2024")
        os.makedirs(folder)
        for number in range(24):
            data = b"%PDF-1.4\n" + dice.randbytes(dice.randrange(3000, 90000)) + b"\n%%EOF\n"
            with open(os.path.join(folder, "文件 %02d.pdf" % number), "wb") as file:
                file.write(data)
        os.sync()
        for number in range(0, 24, 2):
            path = os.path.join(folder, "文件 %02d.pdf" % number)
            value = digest(path)
            self.lost[value] = os.path.relpath(path, root)
            with open(path, "rb") as file:
                self.heads[value] = file.read(2048)
            os.unlink(path)
        os.sync()


class DamagedDisk(DirtyDisk):
    """An ext4 one some of whose sectors cannot be read: in two deleted files, and in the bitmaps."""

    DAMAGED_FILES = 2
    SECTOR = 512

    def __init__(self, folder):
        super().__init__(folder, "ext4")
        with open(self.path, "rb") as file:
            image = file.read()
        # Behind the first block of the files, and where the first group's block bitmap may lie.
        self.damaged = sorted(self.lost)[:self.DAMAGED_FILES]
        places = [image.index(self.heads[value]) + 2048 for value in self.damaged]
        report = subprocess.run(["dumpe2fs", self.path], check=True, capture_output=True, text=True).stdout
        block = int(re.search(r"Block size: +(\d+)", report).group(1))
        places.append(int(re.search(r"Block bitmap at (\d+)", report).group(1)) * block)
        self.errors = self.path + ".errors"
        with open(self.errors, "w") as file:
            for place in places:
                file.write('[inject-error]\nevent = "none"\niotype = "read"\nerrno = "5"\nsector = "%d"\nonce = "off"\n\n'
                           % (place // self.SECTOR))


def target_disk(folder):
    path = os.path.join(folder, "target.img")
    with open(path, "wb") as image:
        image.truncate(96 << 20)
    run("mkfs.ext4", "-q", "-F", "-L", "TARGET", path)
    return path


def files_of(image, folder):
    """Hash -> path below the root, of all files in an image."""
    point = os.path.join(folder, "mnt-look")
    os.makedirs(point, exist_ok=True)
    run("mount", "-o", "loop", image, point)
    try:
        return {digest(os.path.join(root, name)): os.path.relpath(os.path.join(root, name), point)
                for root, _, names in os.walk(point) for name in names}
    finally:
        run("umount", point)
        shutil.rmtree(point, ignore_errors=True)


def tools_disk(folder, files):
    """A small disk with files for the guest, as an ISO image."""
    path = os.path.join(folder, "tools.iso")
    run("xorriso", "-as", "mkisofs", "-quiet", "-r", "-J", "-V", "TOOLS", "-o", path, *files)
    return path

"""Disk images with deleted files and the state of a pulled plug, and what is expected of them."""

import hashlib
import os
import random
import shutil
import subprocess

HERE = os.path.dirname(os.path.abspath(__file__))


def run(*command, **options):
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, **options)


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
        os.makedirs(os.path.join(root, "etc"))
        with open(os.path.join(root, "etc", "os-release"), "w") as file:
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
            self.lost[digest(path)] = os.path.relpath(path, root)
            os.unlink(path)
        os.sync()


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

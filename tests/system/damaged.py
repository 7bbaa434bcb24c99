#!/usr/bin/env python3
"""Recovers from a disk image some of whose sectors cannot be read.

    damaged.py RECOVERYD

Ends with 77 where this machine cannot make such an image: root, loop mounts, FUSE and
qemu-storage-daemon are needed.
"""

import os
import shutil
import subprocess
import sys
import tempfile
import time

from disks import HERE, DamagedDisk, digest
from machine import Report

SKIPPED = 77
PATIENCE = 60


def wait_for(is_there, process):
    until = time.time() + PATIENCE
    while not is_there():
        if time.time() > until or process.poll() is not None:
            sys.exit("%s did not start" % process.args[0])
        time.sleep(0.1)


def damage(disk, path):
    """The disk as a file at `path`, its bad sectors included; the process that serves it."""
    open(path, "w").close()
    process = subprocess.Popen([
        "qemu-storage-daemon", "--blockdev", "driver=file,node-name=disk,read-only=on,filename=" + disk.path,
        "--blockdev", "driver=blkdebug,node-name=bad,read-only=on,image=disk,config=" + disk.errors,
        "--export", "type=fuse,id=export,node-name=bad,mountpoint=%s,writable=off" % path])
    wait_for(lambda: os.path.getsize(path) > 0, process)
    return process


def test(recoveryd, folder, processes):
    report = Report("damaged disk")
    disk = DamagedDisk(folder)
    path, out, place = (os.path.join(folder, name) for name in ("damaged.img", "out", "socket"))
    processes.append(damage(disk, path))
    processes.append(subprocess.Popen([recoveryd, "--image", path, "--state", os.path.join(folder, "state"),
                                       "--socket", place]))
    wait_for(lambda: os.path.exists(place), processes[-1])
    client = subprocess.run([sys.executable, os.path.join(HERE, "guest_client.py"), place, "recover", "/dev/image0", out],
                            stdout=subprocess.PIPE, text=True, timeout=PATIENCE)
    report.check("the scan and the recovery end", client.returncode == 0, client.stdout)
    files = [os.path.join(root, name) for root, _, names in os.walk(out) for name in names]
    whole = {digest(file) for file in files}
    missing = [name for value, name in disk.lost.items() if value not in disk.damaged and value not in whole]
    report.check("what can be read comes back", not missing, missing)
    names = [disk.lost[value] for value in disk.damaged]
    report.check("the damaged ones come with gaps", all(any(file.endswith(name) for file in files) for name in names), files)
    told = [line for line in client.stdout.splitlines() if line.startswith("partial") and "无法读取" in line]
    report.check("and the gaps are told", len(told) == len(disk.damaged), client.stdout)
    return report.failures


def main():
    if os.geteuid() != 0 or not os.path.exists("/dev/fuse") or not shutil.which("qemu-storage-daemon"):
        print("needs root, FUSE and qemu-storage-daemon")
        sys.exit(SKIPPED)
    folder = tempfile.mkdtemp(prefix="morvane-damaged-")
    processes = []
    try:
        failures = test(sys.argv[1], folder, processes)
    finally:
        for process in reversed(processes):
            process.terminate()
            process.wait()
        shutil.rmtree(folder, ignore_errors=True)
    sys.exit(1 if failures else 0)


if __name__ == "__main__":
    main()

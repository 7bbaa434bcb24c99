#!/usr/bin/env python3
"""Boots the recovery medium with disks whose plug was pulled, and checks what it promises.

    medium.py ISO WORKFOLDER [bios|uefi|secureboot|usb]...
"""

import os
import re
import shutil
import sys

from disks import HERE, DirtyDisk, digest, files_of, target_disk, tools_disk
from machine import Failure, Machine, Report

SOCKET = "/run/morvane/morvane-service-v1"
BOOT = 900
FIRMWARE = "/usr/share/OVMF/"


def firmware(way, folder):
    if way not in ("uefi", "secureboot"):
        return []
    secure = way == "secureboot"
    code = FIRMWARE + ("OVMF_CODE_4M.ms.fd" if secure else "OVMF_CODE_4M.fd")
    variables = os.path.join(folder, way + ".vars")
    shutil.copy(FIRMWARE + ("OVMF_VARS_4M.ms.fd" if secure else "OVMF_VARS_4M.fd"), variables)
    machine = ["-machine", "q35,smm=on", "-global", "driver=cfi.pflash01,property=secure,value=on"] if secure else []
    return machine + ["-drive", "if=pflash,format=raw,unit=0,readonly=on,file=" + code,
                      "-drive", "if=pflash,format=raw,unit=1,file=" + variables]


def medium(way, iso):
    if way == "usb":
        return ["-device", "qemu-xhci", "-drive", "if=none,id=stick,format=raw,readonly=on,file=" + iso,
                "-device", "usb-storage,drive=stick,bootindex=0"]
    return ["-cdrom", iso, "-boot", "d"]


def disk(path, number, kind="virtio-blk-pci"):
    return ["-drive", "if=none,id=d%d,format=raw,file=%s" % (number, path), "-device", "%s,drive=d%d" % (kind, number)]


def written_sectors(machine):
    """Sectors written since the start, by disk."""
    lines = machine.run("for d in /sys/block/vd*; do echo $(basename $d) $(awk '{print $7}' $d/stat); done")
    return dict(line.split() for line in lines.splitlines() if re.match(r"vd\w+ \d+$", line))


def full_test(way, iso, folder):
    report = Report("medium " + way)
    dirty = [DirtyDisk(folder, kind) for kind in ("ext4", "xfs", "btrfs")]
    target = target_disk(folder)
    tools = tools_disk(folder, [os.path.join(HERE, "guest_client.py")])
    arguments = firmware(way, folder) + medium(way, iso)
    for number, path in enumerate([each.path for each in dirty] + [target, tools]):
        arguments += disk(path, number)
    machine = Machine("medium-" + way, folder, arguments)
    try:
        machine.log_in("user", BOOT)
        report.check("boots to a log-in", True)
        report.attempt("the recovery service runs, the vault service does not", lambda: machine.run(
            "systemctl is-active morvane-recoveryd.socket && ! systemctl is-active morvane-vaultd.service", 120))
        report.attempt("the window of the program is shown", lambda: machine.run(
            "for i in $(seq 120); do pgrep -x morvane >/dev/null && break; sleep 2; done; pgrep -x morvane", 600))
        report.attempt("an installed system stands at /live_target", lambda: machine.run(
            "grep -q 'Dirty system' /live_target/etc/os-release", 120))
        memory = int(machine.run("awk '/MemAvailable/ {print int($2 / 1024)}' /proc/meminfo"))
        report.check("leaves memory (%d of 1024 MiB)" % memory, memory > 300, memory)
        machine.run("sudo mkdir -p /tools && sudo mount -o ro /dev/disk/by-label/TOOLS /tools")
        report.attempt("a target is mounted when it is chosen", lambda: machine.run(
            "sudo morvane-target mount /dev/vdd | grep -x /media/user/vdd", 120))
        for letter, each in zip("abc", dirty):
            report.attempt("scans and recovers " + each.path.rsplit("-", 1)[1], lambda: machine.run(
                "python3 /tools/guest_client.py %s recover /dev/vd%s /media/user/vdd/%s" % (SOCKET, letter, letter), 900))
        sectors = written_sectors(machine)
        report.check("the guest wrote nothing to the machine's disks",
                     all(sectors.get("vd" + letter) == "0" for letter in "abc"), sectors)
        picture = os.path.join(folder, "medium-%s.ppm" % way)
        machine.screen(picture)
        report.check("draws its screen", os.path.exists(picture))
        machine.run("sudo umount /media/user/vdd && sync", 120)
    except Failure as failure:
        report.check("goes through", False, failure)
    finally:
        machine.end()
    recovered = files_of(target, folder)
    for each in dirty:
        missing = [path for value, path in each.lost.items() if value not in recovered]
        report.check("deleted files of %s come back" % os.path.basename(each.path), not missing, missing)
        named = [path for value, path in each.lost.items() if recovered.get(value, "").endswith(path)]
        report.check("with their paths", len(named) == len(each.lost), "%d of %d" % (len(named), len(each.lost)))
        report.check("the disk is unchanged bit for bit", digest(each.path) == each.before)
    return report.failures


def boot_test(way, iso, folder):
    """Only as far as the window, one dirty disk beside it."""
    report = Report("medium " + way)
    dirty = DirtyDisk(folder, "ext4")
    machine = Machine("medium-" + way, folder, firmware(way, folder) + medium(way, iso) + disk(dirty.path, 0))
    try:
        machine.log_in("user", BOOT)
        report.check("boots to a log-in", True)
        report.attempt("the window of the program is shown", lambda: machine.run(
            "for i in $(seq 120); do pgrep -x morvane >/dev/null && break; sleep 2; done; pgrep -x morvane", 600))
    except Failure as failure:
        report.check("goes through", False, failure)
    finally:
        machine.end()
    report.check("the disk is unchanged bit for bit", digest(dirty.path) == dirty.before)
    return report.failures


def main():
    iso, folder = sys.argv[1], sys.argv[2]
    os.makedirs(folder, exist_ok=True)
    failures = 0
    for number, way in enumerate(sys.argv[3:] or ["bios"]):
        work = os.path.join(folder, way)
        os.makedirs(work, exist_ok=True)
        failures += (full_test if number == 0 else boot_test)(way, iso, work)
    sys.exit(1 if failures else 0)


if __name__ == "__main__":
    main()

#!/usr/bin/env python3
"""Boots the recovery medium with disks whose plug was pulled, and checks what it promises.

    medium.py ISO WORKFOLDER [bios|uefi|secureboot|usb]...
"""

import os
import re
import shutil
import string
import sys

from disks import HERE, DirtyDisk, digest, files_of, target_disk, tools_disk
from machine import Failure, Machine, Report
from desktop import looks_at_plugged_disk, recovers_to_shares, starts_otherwise
from shares import Share
from systems import PASS_PHRASE, encrypted, on_lvm, on_raid, swap, windows

SOCKET = "/run/morvane/morvane-service-v1"
BOOT = 900
# The bar with the tools has about a thousand, the program three times as many.
MANY_COLOURS = 2000
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


def boots_to_window(machine, report):
    machine.log_in("user", BOOT)
    report.check("boots to a log-in", True)
    report.attempt("the program runs", lambda: machine.run(
        "for i in $(seq 300); do pgrep -x morvane >/dev/null && break; sleep 2; done; pgrep -x morvane", 900))
    report.check("and its window is shown", machine.wait_for_screen(MANY_COLOURS, 600))


def picture(machine, folder, name):
    """Of the screen, as PNG."""
    image = machine.screen()
    image.save(os.path.join(folder, name + ".png"))
    return image.colours() > MANY_COLOURS


def looks_at_systems(machine, report, letters):
    """Of the disks with installed systems: those that are found, and what stays off until it is asked for."""
    report.attempt("no swap is used; arrays, volumes and their disks are read-only", lambda: machine.run(
        "[ $(wc -l </proc/swaps) = 1 ] && for a in /sys/block/md*; do [ $(cat $a/md/array_state) = readonly ] || "
        "{ cat /proc/mdstat; false; }; done && for a in /sys/block/dm-*; do [ $(cat $a/ro) = 1 ] || { echo $a; false; }; done"))
    report.attempt("all disks are read-only for the kernel", lambda: machine.run(
        "for d in /sys/block/vd*; do [ $(cat $d/ro) = 1 ] || { echo $d; false; }; done"))
    report.attempt("the first system in disk order stands at /live_target", lambda: machine.run(
        "grep -q 'Dirty system' /live_target/etc/os-release && findmnt -no SOURCE,OPTIONS /live_target | "
        "grep '/dev/vda.*\\bro\\b' || { systemctl status --no-pager morvane-live-target; findmnt /live_target; false; }", 120))
    listed = machine.run("sudo morvane-live-target list", 300)
    for name, kind in (("Dirty system", "linux"), ("System on LVM", "linux"), ("System on RAID", "linux"), ("Windows", "windows")):
        report.check("%s is found" % name, re.search(r"\t%s\t%s" % (kind, name), listed), listed)
    report.check("the system in a Btrfs subvolume is found", "/dev/vdc\tlinux" in listed, listed)
    report.attempt("the array that was not closed waits for its resync, read-only", lambda: machine.run(
        "grep -q '(read-only)' /proc/mdstat && grep -q resync=PENDING /proc/mdstat || ! cat /proc/mdstat"))
    mount = "morvane-live-target mount /dev/%s && findmnt -no OPTIONS /live_target | grep -E '^ro(,|$)' && "
    report.attempt("the encrypted system opens with its pass-phrase", lambda: machine.run(
        "printf %s | sudo " % PASS_PHRASE + mount % letters["luks"] +
        "grep 'Encrypted system' /live_target/etc/os-release", 300))
    report.attempt("and not with another", lambda: machine.run(
        "sudo umount /live_target; sudo cryptsetup close morvane-%s; ! printf wrong | sudo " % letters["luks"] +
        "morvane-live-target mount /dev/%s && sudo morvane-live-target mount /dev/vda" % letters["luks"], 300))
    report.attempt("Windows is mounted read-only", lambda: machine.run(
        "sudo " + mount % letters["windows"] + "[ -d /live_target/Windows/System32 ]", 120))


def full_test(way, iso, folder):
    report = Report("medium " + way)
    dirty = [DirtyDisk(folder, kind) for kind in ("ext4", "xfs", "btrfs")]
    systems = [on_lvm(folder), encrypted(folder), windows(folder), swap(folder)] + on_raid(folder)
    target = target_disk(folder)
    tools = tools_disk(folder, [os.path.join(HERE, "guest_client.py")])
    source = dirty + systems
    arguments = firmware(way, folder) + medium(way, iso)
    for number, path in enumerate([each.path for each in source] + [target, tools]):
        arguments += disk(path, number)
    names = dict(zip(("ext4", "xfs", "btrfs", "lvm", "luks", "windows", "swap", "raid0", "raid1", "target"),
                     ("vd" + letter for letter in string.ascii_lowercase)))
    if way != "usb":
        arguments += ["-device", "qemu-xhci"]
    shares = [Share(folder, kind) for kind in ("smb", "sftp")]
    machine = Machine("medium-" + way, folder, arguments, network="user")
    try:
        boots_to_window(machine, report)
        report.check("draws its screen", picture(machine, folder, "medium-%s-start" % way))
        report.attempt("the recovery service runs, the vault service does not", lambda: machine.run(
            "systemctl is-active morvane-recoveryd.socket && ! systemctl is-active morvane-vaultd.service", 120))
        memory = int(machine.run("awk '/MemAvailable/ {print int($2 / 1024)}' /proc/meminfo"))
        report.check("leaves memory (%d of 1024 MiB)" % memory, memory > 300, memory)
        looks_at_systems(machine, report, names)
        machine.run("sudo mkdir -p /tools && sudo mount -o ro /dev/disk/by-label/TOOLS /tools")
        place = "/media/user/%s/恢复的文件" % names["target"]
        offered = machine.run("sudo morvane-target list", 300)
        report.check("targets are offered with their free space",
                     re.search(r"/dev/%s\t96M\t\d+(\.\d)?M\text4\tTARGET" % names["target"], offered), offered)
        report.attempt("a target is mounted when it is chosen", lambda: machine.run(
            "sudo morvane-target mount /dev/%s | grep -x %s" % (names["target"], place), 120))
        for each, letter in zip(dirty, "abc"):
            report.attempt("scans and recovers " + each.path.rsplit("-", 1)[1], lambda: machine.run(
                "python3 /tools/guest_client.py %s recover /dev/vd%s %s/%s" % (SOCKET, letter, place, letter), 900))
        report.attempt("recovered files are the user's", lambda: machine.run(
            "[ -z \"$(find %s ! -user user -print)\" ]" % place))
        looks_at_plugged_disk(machine, report, folder, way)
        recovers_to_shares(machine, report, shares, dirty[0])
        sectors = written_sectors(machine)
        report.check("the guest wrote nothing to the machine's disks",
                     all(count == "0" for name, count in sectors.items() if name != names["target"]), sectors)
        report.check("draws its screen", picture(machine, folder, "medium-%s-end" % way))
        machine.run("sudo umount /media/user/%s && sync" % names["target"], 120)
        starts_otherwise(machine, report, folder, MANY_COLOURS)
    except Failure as failure:
        report.check("goes through", False, failure)
        picture(machine, folder, "medium-%s-failed" % way)
    finally:
        machine.end()
        for share in shares:
            share.end()
    recovered = files_of(target, folder)
    for each in dirty:
        missing = [path for value, path in each.lost.items() if value not in recovered]
        report.check("deleted files of %s come back" % os.path.basename(each.path), not missing, missing)
        named = [path for value, path in each.lost.items() if recovered.get(value, "").endswith(path)]
        report.check("with their paths", len(named) == len(each.lost), "%d of %d" % (len(named), len(each.lost)))
    for each in source:
        report.check("%s is unchanged bit for bit" % os.path.basename(each.path), digest(each.path) == each.before)
    return report.failures


def boot_test(way, iso, folder):
    """Only as far as the window, one dirty disk beside it."""
    report = Report("medium " + way)
    dirty = DirtyDisk(folder, "ext4")
    machine = Machine("medium-" + way, folder, firmware(way, folder) + medium(way, iso) + disk(dirty.path, 0))
    try:
        boots_to_window(machine, report)
        report.check("draws its screen", picture(machine, folder, "medium-" + way))
        sectors = written_sectors(machine)
        report.check("the guest wrote nothing to the disk", sectors and set(sectors.values()) == {"0"}, sectors)
    except Failure as failure:
        report.check("goes through", False, failure)
        picture(machine, folder, "medium-%s-failed" % way)
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

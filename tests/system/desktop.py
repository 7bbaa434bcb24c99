"""What the recovery medium offers beside the program: disks that are plugged in, shares in the
network, and other ways to start it."""

import os

from disks import digest, run
from shares import PASSWORD, USER

SOCKET = "/run/morvane/morvane-service-v1"
ON_SCREEN = "DISPLAY=:0 XAUTHORITY=/home/user/.Xauthority LANG=zh_CN.UTF-8 "


def waits_for(condition, tries):
    """Of the shell: the condition, tried every second."""
    return "for i in $(seq %d); do %s && break; sleep 1; done; %s" % (tries, condition, condition)


def looks_at_plugged_disk(machine, report, folder, way):
    """With the dialog for targets on the screen."""
    path = os.path.join(folder, "plugged.img")
    with open(path, "wb") as image:
        image.truncate(64 << 20)
    run("mkfs.vfat", "-n", "PLUGGED", path)
    machine.run("mkdir -p /tmp/log; %s setsid morvane-choose-target >/tmp/log/chooser 2>&1 &" % ON_SCREEN)
    report.attempt("the dialog for targets is open", lambda: machine.run(
        waits_for("pgrep -f morvane-choose-target >/dev/null", 60), 180))
    machine.tell("drive_add 0 if=none,id=plug,format=raw,file=" + path, "device_add usb-storage,drive=plug,id=plugged")
    report.attempt("a USB disk that is plugged in is offered, with its free space", lambda: machine.run(
        waits_for("sudo morvane-target list | grep -P '/dev/sd[a-z]\\t64M\\t6[0-9](\\.\\d)?M\\tvfat\\tPLUGGED'", 60), 600))
    report.attempt("and is read-only until it is chosen", lambda: machine.run(
        "[ $(cat /sys/block/$(basename $(readlink -f /dev/disk/by-label/PLUGGED))/ro) = 1 ]"))
    report.attempt("the dialog has read the list again, and stays up", lambda: machine.run(
        waits_for("! pgrep -f 'morvane-target list' >/dev/null", 60) +
        "; pgrep -f morvane-choose-target || ! cat /tmp/log/chooser", 300))
    machine.screen().save(os.path.join(folder, "medium-%s-target.png" % way))
    machine.run("pkill -f morvane-choose-target; true")


def recovers_to_shares(machine, report, shares, disk):
    report.attempt("the network starts when it is asked for", lambda: machine.run(
        "! systemctl is-active NetworkManager && sudo systemctl start NetworkManager && " +
        waits_for("ip -4 addr | grep -q 'inet 10\\.0\\.2\\.'", 120), 400))
    for share in shares:
        kind = share.address.partition(":")[0].upper()
        report.attempt("%s: a wrong password is refused" % kind, lambda: machine.run(
            "! echo wrong | sudo morvane-mount-share %s %s" % (share.address, USER), 120))
        report.attempt("%s: a share is mounted" % kind, lambda: machine.run(
            "echo %s | sudo morvane-mount-share %s %s | grep -x /media/user/network" % (PASSWORD, share.address, USER), 120))
        report.attempt("%s: the service recovers to it" % kind, lambda: machine.run(
            "python3 /tools/guest_client.py %s recover /dev/vda /media/user/network" % SOCKET, 900))
        report.attempt("%s: the user can read and remove what came" % kind, lambda: machine.run(
            "cat /media/user/network/*/* >/dev/null 2>&1; touch /media/user/network/x && rm /media/user/network/x", 120))
        machine.run("sudo umount /media/user/network", 120, check=False)
        came = {digest(os.path.join(root, name)) for root, _, names in os.walk(share.path) for name in names}
        missing = [path for value, path in disk.lost.items() if value not in came]
        report.check("%s: the deleted files are there" % kind, not missing, missing)


def starts_otherwise(machine, report, folder, many_colours):
    """As by the other entries of the menu, in the system that runs: its kernel's line is covered."""
    def restart(words):
        machine.run("sed 's/$/ %s/' /proc/cmdline >/tmp/words; sudo umount /proc/cmdline 2>/dev/null; "
                    "sudo mount --bind /tmp/words /proc/cmdline && sudo systemctl restart getty@tty1" % words, 120)

    restart("morvane.large=1 morvane.speech=1")
    report.attempt("the screen reader runs when it is chosen", lambda: machine.run(waits_for("pgrep -x orca >/dev/null", 200), 900))
    report.attempt("with the program and large letters", lambda: machine.run(
        waits_for("pgrep -x morvane >/dev/null", 100) + "; tr '\\0' '\\n' </proc/$(pgrep -x morvane)/environ | "
        "grep -x QT_FONT_DPI=134", 600))
    report.check("its window is shown", machine.wait_for_screen(many_colours, 600))
    machine.screen().save(os.path.join(folder, "medium-large.png"))
    # No graphics come up: there is no server for the screen.
    machine.run("sudo mv /usr/lib/xorg/Xorg /usr/lib/xorg/Xorg.away; sudo mount --bind /dev/null /usr/bin/Xorg; true")
    restart("quiet")
    report.attempt("without a screen the console has Chinese letters", lambda: machine.run(
        waits_for("pgrep -x fbterm >/dev/null", 100) + " || ! cat /tmp/startx.log", 400))
    # What is typed before the console is ready is lost.
    for _ in range(5):
        machine.type("morvane-cli recover list | tee /tmp/typed")
        if machine.run(waits_for("grep -q /dev/vda /tmp/typed 2>/dev/null", 20) + "; echo $?", 120).endswith("0"):
            break
    report.attempt("and recovers by the command line tool", lambda: machine.run("grep /dev/vda /tmp/typed", 60))
    machine.screen().save(os.path.join(folder, "medium-console.png"))

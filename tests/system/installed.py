#!/usr/bin/env python3
"""Installs the two packages in a booted Debian, and checks what they promise there.

    installed.py ROOT.tar DEBFOLDER WORKFOLDER

ROOT.tar: a Debian tree with a kernel, systemd, sudo, PAM and Python.
"""

import glob
import os
import shutil
import subprocess
import sys

from disks import HERE, run, tools_disk
from machine import PATIENT, Failure, Machine
from promises import CLIENT, Promises, compile_deleter, quoted, services_package, with_version

RECOVERY = "/run/morvane/morvane-service-v1"
BOOT = 600
LIBRARY = "/usr/lib/x86_64-linux-gnu/libmorvane-guard.so"
# How the library in $LIBRARY.new comes about. The loader dies of a cut one and complains about what is
# missing or no library; the constructor of the deadly one ends every process.
BROKEN = {
    "cut": "head -c 4000 %s >%s.new" % (LIBRARY, LIBRARY),
    "deadly": "cp /tools/deadly.so %s.new" % LIBRARY,
    "no library": "echo garbage >%s.new" % LIBRARY,
    "missing": None,
}


def make_disk(tar, folder):
    """The tree as a disk, and its kernel; booted without a boot loader."""
    tree = os.path.join(folder, "tree")
    shutil.rmtree(tree, ignore_errors=True)
    os.makedirs(tree)
    run("tar", "-C", tree, "-xf", tar)
    for kind in ("vmlinuz", "initrd.img"):
        shutil.copy(glob.glob(os.path.join(tree, "boot", kind + "-*"))[0], os.path.join(folder, kind))
    # The console may appear late on a slow machine.
    patience = os.path.join(tree, "etc/systemd/system/dev-ttyS0.device.d")
    os.makedirs(patience)
    with open(os.path.join(patience, "patience.conf"), "w") as file:
        file.write("[Unit]\nJobTimeoutSec=infinity\nJobRunningTimeoutSec=infinity\n")
    disk = os.path.join(folder, "system.img")
    with open(disk, "wb") as image:
        image.truncate(4 << 30)
    run("mkfs.ext4", "-q", "-F", "-d", tree, disk)
    shutil.rmtree(tree)
    return disk


def make_tools(folder, packages):
    """The client, the packages, a static program that deletes, and a deadly library."""
    library = os.path.join(folder, "deadly.so")
    source = os.path.join(folder, "deadly.c")
    with open(source, "w") as file:
        file.write("#include <unistd.h>\n__attribute__((constructor)) static void end(void) { _exit(1); }\n")
    run("gcc", "-O1", "-shared", "-fPIC", "-o", library, source)
    return tools_disk(folder, [os.path.join(HERE, "guest_client.py"), compile_deleter(folder), library] + packages)


class Installed(Promises):
    def __init__(self, tar, debs, folder):
        super().__init__("installed")
        self.folder = folder
        self.disk = make_disk(tar, folder)
        packages = [services_package(debs), with_version(services_package(debs), "9", folder)]
        self.tools = make_tools(folder, packages)
        self.boots = 0

    def boot(self):
        self.boots += 1
        self.machine = Machine("installed-%d" % self.boots, self.folder, [
            "-kernel", os.path.join(self.folder, "vmlinuz"), "-initrd", os.path.join(self.folder, "initrd.img"),
            "-append", "root=/dev/vda rw panic=5 quiet " + PATIENT, "-no-reboot",
            "-drive", "if=virtio,format=raw,file=" + self.disk,
            "-drive", "if=virtio,format=raw,readonly=on,file=" + self.tools])
        self.machine.log_in("root", BOOT)
        self.machine.run("mkdir -p /tools && mount -o ro /dev/vdb /tools")
        return self.machine

    def shut_down(self):
        """Brings the changed initial RAM file system out, too: the next boot uses it."""
        self.machine.run("cp /boot/initrd.img-* /root/initrd-now; sync", 120)
        self.machine.send("poweroff -f")
        self.machine.wait_for_end(180)
        self.machine.end()
        self.take_initrd()

    def take_initrd(self):
        with open(os.path.join(self.folder, "initrd.img"), "wb") as file:
            subprocess.run(["debugfs", "-R", "cat /root/initrd-now", self.disk], check=True, stdout=file,
                           stderr=subprocess.DEVNULL)

    def mend_from_outside(self):
        """For what does not boot: the list goes."""
        run("e2fsck", "-p", self.disk, check=False)
        run("debugfs", "-w", "-R", "rm /etc/ld.so.preload", self.disk)

    def install(self):
        self.promise("the packages go in", "DEBIAN_FRONTEND=noninteractive dpkg -i /tools/morvane-services*.deb", 900)
        self.promise("the sockets and the vault service are up",
                     "systemctl is-active morvane-recoveryd.socket morvane-vaultd.socket morvane-vaultd.service")
        self.make_users()

    def ask_for_administrator(self):
        """Nobody can answer the question in a session without a screen, so it is refused, in words."""
        enumerate_disks = "python3 /tools/guest_client.py %s disk.enumerate" % RECOVERY
        answer = self.machine.run("su - li -c '%s'" % enumerate_disks, 120, check=False)
        self.report.check("the recovery service wants an administrator", "403" in answer and "授权" in answer, answer)
        self.promise("and answers one", enumerate_disks + " | grep -q /dev/vda")
        self.machine.run("usermod -aG morvane-recovery wang")
        self.promise("and who is in its group", "su - wang -c '%s' | grep -q /dev/vda" % enumerate_disks)

    def tells_the_journal(self):
        """Each request with its id, and what became of it."""
        self.promise("the journal tells of requests with their ids",
                     "journalctl -u morvane-vaultd -o cat | grep -E "
                     "'^request [0-9a-f-]{36} vault.enable uid [0-9]+ pid [0-9]+: done' && "
                     "! journalctl -u morvane-vaultd | grep secret-li")
        self.promise("a service that hangs is started again",
                     "old=$(systemctl show -P MainPID morvane-vaultd); kill -STOP $old; for i in $(seq 120); do "
                     "new=$(systemctl show -P MainPID morvane-vaultd); [ $new != $old ] && [ $new != 0 ] && break; sleep 2; "
                     "done; [ $(systemctl show -P NRestarts morvane-vaultd) -ge 1 ]", 400)

    def change_versions(self):
        """Up by the service's own means, in a unit of its own; down by hand."""
        update = CLIENT + "vault.installPackage " + quoted(
            {"packagePath": "/tools/services-9.deb", "arch": "amd64", "launchEnv": {}})
        self.machine.run(update, 600, check=False)  # its answer may be lost with the service that is replaced
        version = "dpkg-query -W -f '${Version} ${db:Status-Status}' morvane-services | grep -x '%s installed'"
        self.promise("the service installs an upgrade", "for i in $(seq 100); do %s && break; sleep 2; done; %s"
                     % (version % "9", version % "9"), 400)
        self.promise("in a unit of its own", "journalctl -o cat | grep -E 'Started.*apt-get|run-r?[0-9a-f]+.service'")
        up = "for i in $(seq 60); do systemctl is-active morvane-vaultd.service && break; sleep 1; done; " \
             "systemctl is-active morvane-vaultd.service morvane-vaultd.socket"
        self.promise("and the new service runs", up, 200)
        self.stays_on("an upgrade")
        self.promise("a downgrade goes through", "dpkg -i /tools/morvane-services*.deb && %s && %s" % (version % "[0-9.]*", up), 400)
        self.stays_on("a downgrade")

    def boots_in_spite(self, kind):
        try:
            self.machine.run("[ -e /root/kept.so ] || cp %s /root/kept.so; "
                             "grep -q libmorvane-guard /etc/ld.so.preload || "
                             "echo '/usr/$LIB/libmorvane-guard.so' >>/etc/ld.so.preload" % LIBRARY)
            # One process changes and syncs: with a deadly library no other would start.
            self.machine.run("cp /boot/initrd.img-* /root/initrd-now; %s; sync" % (BROKEN[kind] or "true"), 120)
            change = "os.rename(library + '.new', library)" if BROKEN[kind] else "os.unlink(library)"
            self.machine.run("python3 -c \"import os; library = '%s'; %s; os.sync()\"" % (LIBRARY, change), 120)
            self.machine.end()
            self.take_initrd()
            self.boot()
            self.promise("boots with a hook that is " + kind, "! mountpoint -q /etc/ld.so.preload && "
                         "! grep -q libmorvane-guard /etc/ld.so.preload 2>/dev/null")
        except (Failure, subprocess.SubprocessError) as failure:
            self.report.check("boots with a hook that is " + kind, False, failure)
            self.machine.end()
            self.mend_from_outside()
            self.boot()
        self.machine.run("rm -f /etc/ld.so.preload %s.broken; cp /root/kept.so %s" % (LIBRARY, LIBRARY))

    def all(self):
        try:
            self.boot()
            self.install()
            self.protect()
            self.shut_down()
            self.boot()
            self.promise("protection is on after a reboot", "grep -q libmorvane-guard /etc/ld.so.preload && "
                         "su - li -c 'echo again > Documents/d.txt; rm Documents/d.txt'")
            self.report.check("and keeps files", "/home/li/Documents/d.txt" in self.listed("li"))
            self.second_net("systemctl stop morvane-vaultd.socket morvane-vaultd.service",
                            "systemctl start morvane-vaultd.socket morvane-vaultd.service")
            self.ask_for_administrator()
            self.tells_the_journal()
            self.change_versions()
            for kind in BROKEN:
                self.boots_in_spite(kind)
            self.purge()
        except (Failure, OSError, subprocess.SubprocessError, ValueError) as failure:
            self.report.check("goes through", False, failure)
        finally:
            if self.machine:
                self.machine.end()
        return self.report.failures


def main():
    tar, debs, folder = sys.argv[1:4]
    os.makedirs(folder, exist_ok=True)
    sys.exit(1 if Installed(tar, debs, folder).all() else 0)


if __name__ == "__main__":
    main()

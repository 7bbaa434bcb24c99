#!/usr/bin/env python3
"""Installs the two packages in a booted Debian, and checks what they promise there.

    installed.py ROOT.tar DEBFOLDER WORKFOLDER

ROOT.tar: a Debian tree with a kernel, systemd, sudo, PAM and Python.
"""

import glob
import json
import os
import shutil
import subprocess
import sys

from disks import run, tools_disk
from machine import Failure, Machine, Report

HERE = os.path.dirname(os.path.abspath(__file__))
SOCKET = "/run/morvane/morvane-vault-v1"
CLIENT = "python3 /tools/guest_client.py %s " % SOCKET
BOOT = 600
BROKEN = {
    # Cut, or no library at all: the loader complains and goes on.
    "cut": "head -c 4000 $LIBRARY >$LIBRARY.new",
    "no library": "echo garbage >$LIBRARY.new",
    # Its constructor ends every process: without a cure the first one, too.
    "deadly": "cp /tools/deadly.so $LIBRARY.new",
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
    disk = os.path.join(folder, "system.img")
    with open(disk, "wb") as image:
        image.truncate(4 << 30)
    run("mkfs.ext4", "-q", "-F", "-d", tree, disk)
    shutil.rmtree(tree)
    return disk


def make_tools(folder, packages):
    """The client, the packages, a static program that deletes, and a deadly library."""
    sources = {
        "static-rm.c": "#include <unistd.h>\nint main(int n, char **v){return n < 2 || unlink(v[1]);}\n",
        "deadly.c": "#include <unistd.h>\n__attribute__((constructor)) static void end(void){_exit(1);}\n",
    }
    for name, text in sources.items():
        with open(os.path.join(folder, name), "w") as file:
            file.write(text)
    program, library = os.path.join(folder, "static-rm"), os.path.join(folder, "deadly.so")
    run("gcc", "-O1", "-static", "-o", program, os.path.join(folder, "static-rm.c"))
    run("gcc", "-O1", "-shared", "-fPIC", "-o", library, os.path.join(folder, "deadly.c"))
    return tools_disk(folder, [os.path.join(HERE, "guest_client.py"), program, library] + packages)


class Installed:
    def __init__(self, tar, debs, folder):
        self.folder = folder
        self.report = Report("installed")
        self.disk = make_disk(tar, folder)
        packages = glob.glob(os.path.join(debs, "morvane*.deb"))
        self.tools = make_tools(folder, packages)
        self.boots = 0
        self.machine = None

    def boot(self):
        self.boots += 1
        self.machine = Machine("installed-%d" % self.boots, self.folder, [
            "-kernel", os.path.join(self.folder, "vmlinuz"), "-initrd", os.path.join(self.folder, "initrd.img"),
            "-append", "root=/dev/vda rw console=ttyS0 panic=5 quiet", "-no-reboot",
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
        self.machine.pull_plug()
        with open(os.path.join(self.folder, "initrd.img"), "wb") as file:
            subprocess.run(["debugfs", "-R", "cat /root/initrd-now", self.disk], check=True, stdout=file,
                           stderr=subprocess.DEVNULL)

    def as_user(self, user, command):
        return self.machine.run("su - %s -c '%s'" % (user, command), 120)

    def promise(self, text, command, limit=120):
        return self.report.attempt(text, lambda: self.machine.run(command, limit))

    def listed(self, user):
        """Original paths in the user's vault."""
        answer = self.as_user(user, CLIENT + "vault.listFiles " + json.dumps(json.dumps({"limit": 100, "offset": 0})))
        return {file["originalPath"]: file["id"] for file in json.loads(answer.splitlines()[-1])["files"]}

    def install(self):
        self.promise("the packages go in", "DEBIAN_FRONTEND=noninteractive dpkg -i --force-depends /tools/morvane-services*.deb",
                     900)
        self.promise("the sockets and the vault service are up",
                     "systemctl is-active morvane-recoveryd.socket morvane-vaultd.socket morvane-vaultd.service")
        for user in ("li", "wang"):
            self.machine.run("useradd -m -s /bin/bash %s && echo %s:secret-%s | chpasswd" % (user, user, user))
            self.machine.run("install -d -o %s /home/%s/Documents" % (user, user))

    def configure(self, user):
        config = {"protectedDirs": ["/home/%s/Documents" % user], "protectedExtensions": ["txt", "pdf"],
                  "retentionDays": 30, "maxSpaceBytes": 1 << 30, "emergencyThresholdBytes": 1 << 20}
        self.as_user(user, CLIENT + " ".join([
            "vault.authenticate", json.dumps(json.dumps({"username": user, "password": "secret-" + user})),
            "vault.setConfig", json.dumps(json.dumps(config)), "vault.enable"]))

    def protect(self):
        machine = self.machine
        self.report.attempt("enable deploys the hook for two users",
                            lambda: [self.configure(user) for user in ("li", "wang")])
        self.promise("the preload list has the line", "grep -c libmorvane-guard /etc/ld.so.preload | grep -x 1")
        for user in ("li", "wang"):
            self.as_user(user, "echo of-%s > Documents/a.txt; echo py > Documents/b.txt; echo s > Documents/c.txt" % user)
            self.as_user(user, "rm Documents/a.txt; python3 -c \"import os; os.unlink(\\\"Documents/b.txt\\\")\"")
            paths = self.listed(user)
            for name in ("a.txt", "b.txt"):
                self.report.check("%s of %s is kept" % (name, user), "/home/%s/Documents/%s" % (user, name) in paths, paths)
            others = [path for path in paths if not path.startswith("/home/%s/" % user)]
            self.report.check("%s sees nobody else's files" % user, not others, others)
        identity = self.listed("li").get("/home/li/Documents/a.txt", "")
        self.report.attempt("a kept file comes back", lambda: self.as_user("li", CLIENT + "vault.authenticate " + json.dumps(
            json.dumps({"username": "li", "password": "secret-li"})) + " vault.restoreFiles " + json.dumps(
                json.dumps({"fileIds": [identity], "targetDir": ""})) + "; sleep 2; grep of-li Documents/a.txt"))
        for user, other, password in (("li", "li", "wrong"), ("li", "wang", "secret-wang")):
            answer = self.as_user(user, CLIENT + "vault.authenticate " + json.dumps(
                json.dumps({"username": other, "password": password})))
            self.report.check("the password of %s, %r, is refused for %s" % (other, password, user),
                              not json.loads(answer.splitlines()[-1]).get("success"), answer)
        refused = machine.run("su - li -c '%s vault.clearAll'" % CLIENT.strip(), 120, check=False)
        self.report.check("emptying without a password is refused", "authenticate" in refused or "验证" in refused, refused)

    def boots_in_spite(self, kind):
        try:
            self.machine.run("LIBRARY=$(ls /usr/lib/*/libmorvane-guard.so 2>/dev/null); "
                             "[ -z \"$LIBRARY\" ] || [ -e /root/kept.so ] || cp $LIBRARY /root/kept.so; "
                             "grep -q libmorvane-guard /etc/ld.so.preload || "
                             "echo '/usr/$LIB/libmorvane-guard.so' >>/etc/ld.so.preload")
            command = BROKEN[kind]
            library = "LIBRARY=/usr/lib/x86_64-linux-gnu/libmorvane-guard.so; "
            self.machine.run("cp /boot/initrd.img-* /root/initrd-now; sync", 120)
            if command is None:
                self.machine.run(library + "rm -f $LIBRARY; sync")
            else:
                self.machine.run(library + command + "; sync")
                self.machine.send(library + "mv $LIBRARY.new $LIBRARY; echo 1 >/proc/sys/kernel/sysrq; "
                                            "echo s >/proc/sysrq-trigger; echo u >/proc/sysrq-trigger")
                self.machine.expect(r"(?i)emergency remount complete", 120)
            self.machine.pull_plug()
            with open(os.path.join(self.folder, "initrd.img"), "wb") as file:
                subprocess.run(["debugfs", "-R", "cat /root/initrd-now", self.disk], check=True, stdout=file,
                               stderr=subprocess.DEVNULL)
            self.boot()
            self.machine.run("! LD_PRELOAD= grep -q libmorvane-guard /etc/ld.so.preload || "
                             "LD_DEBUG=libs /bin/true 2>&1 | grep -q 'init:.*libmorvane-guard'")
            self.report.check("boots with a hook that is " + kind, True)
        except (Failure, subprocess.SubprocessError) as failure:
            self.report.check("boots with a hook that is " + kind, False, failure)
            self.machine.pull_plug()
            self.boot()
        finally:
            self.machine.run("umount /etc/ld.so.preload 2>/dev/null; rm -f /etc/ld.so.preload; "
                             "[ ! -e /root/kept.so ] || cp /root/kept.so /usr/lib/x86_64-linux-gnu/libmorvane-guard.so",
                             check=False)

    def purge(self):
        self.report.attempt("protection is on before the removal", lambda: self.configure("li"))
        self.promise("the packages are purged", "dpkg -P morvane-services", 600)
        self.promise("the preload list has no line", "! grep -q libmorvane-guard /etc/ld.so.preload 2>/dev/null")
        self.promise("nothing is left behind",
                     "! ls -d /usr/libexec/morvane /usr/lib/*/libmorvane-guard.so* /lib/systemd/system/morvane* "
                     "/etc/systemd/system/*.wants/morvane* /etc/pam.d/morvane* /var/lib/morvane* /run/morvane 2>/dev/null | grep .")
        self.promise("the vaults stay", "ls -d /home/li/.morvane_vault /home/wang/.morvane_vault")

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
            for kind in BROKEN:
                self.boots_in_spite(kind)
            self.purge()
        except (Failure, OSError, subprocess.SubprocessError, ValueError) as failure:
            self.report.check("goes through", False, failure)
        finally:
            if self.machine:
                self.machine.pull_plug()
        return self.report.failures


def main():
    tar, debs, folder = sys.argv[1:4]
    os.makedirs(folder, exist_ok=True)
    sys.exit(1 if Installed(tar, debs, folder).all() else 0)


if __name__ == "__main__":
    main()

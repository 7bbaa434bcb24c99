#!/usr/bin/env python3
"""Installs the two packages over this machine's own tree, with all changes in memory, and checks what
they promise without a service manager.

    overlaid.py DEBFOLDER WORKFOLDER
"""

import glob
import os
import shutil
import subprocess
import sys

from disks import HERE, DirtyDisk, digest, run
from machine import Chroot, Failure
from promises import Promises, compile_deleter, services_package, with_version

RECOVERY = "/run/morvane/morvane-service-v1"


class Overlaid(Promises):
    def __init__(self, debs, folder):
        super().__init__("overlaid")
        self.tools = os.path.join(folder, "tools")
        shutil.rmtree(self.tools, ignore_errors=True)
        os.makedirs(self.tools)
        for path in glob.glob(os.path.join(debs, "morvane*.deb")) + [os.path.join(HERE, "guest_client.py")]:
            shutil.copy(path, self.tools)
        compile_deleter(self.tools)
        with_version(services_package(debs), "9", os.path.join(folder, "tools"))
        self.dirty = DirtyDisk(self.tools, "ext4")
        homes = os.path.join(folder, "homes.img")
        with open(homes, "wb") as image:
            image.truncate(64 << 20)
        run("mkfs.ext4", "-q", "-F", homes)
        self.out = os.path.join(self.tools, "out")
        point = os.path.join(folder, "overlay")
        os.makedirs(point, exist_ok=True)
        self.machine = Chroot("overlaid", folder, [
            "unshare", "--mount", "--pid", "--net", "--fork", "--kill-child",
            "bash", os.path.join(HERE, "overlay.sh"), point, self.tools, homes])

    def start(self, command, socket):
        """A service without its manager: it is up when its socket is there."""
        self.machine.run("setsid %s >/tmp/service.log 2>&1 </dev/null &" % command)
        self.promise("%s answers" % command.split()[0].rsplit("/", 1)[1],
                     "for i in $(seq 300); do [ -S %s ] && break; sleep 0.1; done; [ -S %s ] || ! cat /tmp/service.log"
                     % (socket, socket))

    def recover(self):
        self.start("/usr/libexec/morvane/morvane-recoveryd --image /tools/%s --state /tmp/state --socket %s"
                   % (os.path.basename(self.dirty.path), RECOVERY), RECOVERY)
        self.promise("scans and recovers", "python3 /tools/guest_client.py %s recover /dev/image0 /tools/out" % RECOVERY)
        recovered = {digest(os.path.join(root, name)) for root, _, names in os.walk(self.out) for name in names}
        missing = [path for value, path in self.dirty.lost.items() if value not in recovered]
        self.report.check("deleted files come back", not missing, missing)
        self.report.check("the image is unchanged", digest(self.dirty.path) == self.dirty.before)

    def starts_in_spite(self):
        """The script of the initial RAM file system, with the few commands that there are in one."""
        self.machine.run("mkdir /early && for name in chroot mkdir mount sleep sh; do "
                         "ln -s $(command -v $name) /early/; done && gcc -shared -fPIC -o /tmp/deadly.so -x c - <<'END'\n"
                         "#include <unistd.h>\n__attribute__((constructor)) static void end(void) { _exit(1); }\nEND")
        library = "/next/usr/lib/$(basename $(dirname $(ls /usr/lib/*/libmorvane-guard.so)))/libmorvane-guard.so"
        broken = {"cut": "head -c 4000 /usr/lib/*/libmorvane-guard.so >%s", "deadly": "cp /tmp/deadly.so %s",
                  "no library": "echo garbage >%s", "missing": "rm -f %s"}
        for kind, command in broken.items():
            self.machine.run("printf '/usr/$LIB/libmorvane-guard.so\\n' >/next/etc/ld.so.preload; " + command % library)
            self.promise("a tree starts with a hook that is " + kind,
                         "env -i PATH=/early rootmnt=/next sh /usr/share/initramfs-tools/scripts/init-bottom/morvane-guard; "
                         "chroot /next /bin/true; result=$?; umount /next/etc/ld.so.preload 2>/dev/null; [ $result = 0 ]")

    def change_versions(self):
        """With a service manager that takes calls and never answers."""
        self.machine.run("printf '#!/bin/sh\\nexec sleep 10000\\n' >/usr/local/bin/systemctl && "
                         "chmod +x /usr/local/bin/systemctl && mkdir -p /run/systemd/system")
        self.promise("an upgrade ends though the service manager does not answer", "dpkg -i /tools/services-9.deb", 100)
        self.promise("root's links stand in the temporary folder",
                     "[ $(readlink /tmp/morvane-vault-v1) = /run/morvane/morvane-vault-v1 ] && "
                     "[ $(stat -c %U /tmp/morvane-vault-v1 /tmp/morvane-service-v1 | sort -u) = root ]")
        self.stays_on("an upgrade")
        self.machine.run("rm -r /usr/local/bin/systemctl /run/systemd/system")
        self.promise("a downgrade goes through", "dpkg -i /tools/morvane-services*.deb")
        self.stays_on("a downgrade")

    def all(self):
        try:
            self.promise("the packages go in", "DEBIAN_FRONTEND=noninteractive dpkg -i /tools/morvane*.deb")
            self.promise("the program finds its libraries", "! ldd /usr/bin/morvane | grep 'not found'")
            self.make_users()
            self.start("/usr/libexec/morvane/morvane-vaultd --system", "/run/morvane/morvane-vault-v1")
            self.protect()
            self.change_versions()
            self.second_net("kill $(pgrep -x morvane-vaultd); while pgrep -x morvane-vaultd; do sleep 0.1; done",
                            "setsid /usr/libexec/morvane/morvane-vaultd --system >/tmp/service.log 2>&1 </dev/null &")
            self.recover()
            self.starts_in_spite()
            self.purge()
        except (Failure, OSError, subprocess.SubprocessError, ValueError) as failure:
            self.report.check("goes through", False, failure)
        finally:
            self.machine.end()
        return self.report.failures


def main():
    debs, folder = sys.argv[1:3]
    os.makedirs(folder, exist_ok=True)
    sys.exit(1 if Overlaid(debs, folder).all() else 0)


if __name__ == "__main__":
    main()

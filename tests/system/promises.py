"""What the two packages promise wherever they are installed."""

import glob
import json
import os
import tempfile

from disks import run
from machine import Report

SOCKET = "/run/morvane/morvane-vault-v1"
CLIENT = "python3 /tools/guest_client.py %s " % SOCKET
USERS = ("li", "wang")


def quoted(value):
    """JSON as a word of the shell, within single quotes."""
    return json.dumps(json.dumps(value))


def compile_deleter(folder):
    """A static program there, which the hook does not reach; its path."""
    source, program = os.path.join(folder, "static-rm.c"), os.path.join(folder, "static-rm")
    with open(source, "w") as file:
        file.write("#include <unistd.h>\nint main(int n, char **v) { return n < 2 || unlink(v[1]); }\n")
    run("gcc", "-O1", "-static", "-o", program, source)
    return program


def with_version(package, version, folder):
    """The package of the services again, under another version; its path."""
    with tempfile.TemporaryDirectory() as work:
        tree = os.path.join(work, "tree")
        run("dpkg-deb", "--raw-extract", package, tree)
        control = os.path.join(tree, "DEBIAN", "control")
        run("sed", "-i", "s/^Version: .*/Version: %s/" % version, control)
        path = os.path.join(folder, "services-%s.deb" % version)
        run("dpkg-deb", "--root-owner-group", "-b", "-Znone", tree, path)
    return path


def services_package(debs):
    return glob.glob(os.path.join(debs, "morvane-services*.deb"))[0]


class Promises:
    """`machine` runs the commands, as root; /tools holds the client."""

    def __init__(self, title):
        self.report = Report(title)
        self.machine = None

    def as_user(self, user, command):
        return self.machine.run("su - %s -c '%s'" % (user, command), 120)

    def promise(self, text, command, limit=120):
        return self.report.attempt(text, lambda: self.machine.run(command, limit))

    def listed(self, user):
        """Original paths in the user's vault."""
        answer = self.as_user(user, CLIENT + "vault.listFiles " + quoted({"limit": 100, "offset": 0}))
        return {file["originalPath"]: file["id"] for file in json.loads(answer.splitlines()[-1])["files"]}

    def make_users(self):
        for user in USERS:
            self.machine.run("useradd -m -s /bin/bash %s && echo %s:secret-%s | chpasswd" % (user, user, user))
            self.machine.run("install -d -o %s /home/%s/Documents" % (user, user))

    def configure(self, user):
        config = {"protectedDirs": ["/home/%s/Documents" % user], "protectedExtensions": ["txt", "pdf"],
                  "retentionDays": 30, "maxSpaceBytes": 1 << 30, "emergencyThresholdBytes": 1 << 20}
        self.as_user(user, CLIENT + " ".join([
            "vault.authenticate", quoted({"username": user, "password": "secret-" + user}),
            "vault.setConfig", quoted(config), "vault.enable"]))

    def protect(self):
        machine = self.machine
        self.report.attempt("enable deploys the hook for two users",
                            lambda: [self.configure(user) for user in USERS])
        self.promise("the preload list has the line", "grep -c libmorvane-guard /etc/ld.so.preload | grep -x 1")
        for user in USERS:
            self.as_user(user, "echo of-%s > Documents/a.txt; echo py > Documents/b.txt; echo s > Documents/c.txt" % user)
            self.as_user(user, "rm Documents/a.txt; python3 -c \"import os; os.unlink(\\\"Documents/b.txt\\\")\"")
            paths = self.listed(user)
            for name in ("a.txt", "b.txt"):
                self.report.check("%s of %s is kept" % (name, user), "/home/%s/Documents/%s" % (user, name) in paths, paths)
            others = [path for path in paths if not path.startswith("/home/%s/" % user)]
            self.report.check("%s sees nobody else's files" % user, not others, others)
        identity = self.listed("li").get("/home/li/Documents/a.txt", "")
        self.report.attempt("a kept file comes back", lambda: self.as_user("li", CLIENT + " ".join([
            "vault.authenticate", quoted({"username": "li", "password": "secret-li"}),
            "vault.restoreFiles", quoted({"fileIds": [identity], "targetDir": ""})]) +
            "; for i in $(seq 100); do grep of-li Documents/a.txt && break; sleep 0.2; done; grep of-li Documents/a.txt"))
        for user, other, password in (("li", "li", "wrong"), ("li", "wang", "secret-wang")):
            answer = self.as_user(user, CLIENT + "vault.authenticate " + quoted({"username": other, "password": password}))
            self.report.check("the password of %s, %r, is refused for %s" % (other, password, user),
                              not json.loads(answer.splitlines()[-1]).get("success"), answer)
        refused = machine.run("su - li -c '%s vault.clearAll'" % CLIENT.strip(), 120, check=False)
        self.report.check("emptying without a password is refused", "authenticate" in refused or "验证" in refused, refused)

    def second_net(self, stop, start):
        """What a static program deletes is kept on ext4, too, once the second net may use hard links. `stop`
        and `start` are commands for the service."""
        config = "/var/lib/morvane-vaultd/users/$(id -u li)/config.json"
        self.machine.run(stop, 120)
        self.machine.run("sed -i 's/\"secondNet\": *\"auto\"/\"secondNet\": \"always\"/' %s && grep -q always %s" % (config, config))
        self.machine.run(start, 120)
        file = "/home/li/Documents/static.txt"
        self.as_user("li", "echo static > " + file)
        self.promise("the second net holds a protected file",
                     "for i in $(seq 150); do [ $(stat -c %%h %s) = 2 ] && break; sleep 0.2; done; [ $(stat -c %%h %s) = 2 ]"
                     % (file, file), 600)
        self.as_user("li", "/tools/static-rm " + file)
        is_kept = any(file in self.listed("li") for _ in range(50))
        self.report.check("what a static program deletes is kept", is_kept)

    def stays_on(self, change):
        """That protection, which is on, outlives a change of the packages."""
        self.promise("protection outlives " + change, "grep -c libmorvane-guard /etc/ld.so.preload | grep -x 1 && "
                     "su - wang -c 'echo x > Documents/e.txt; rm Documents/e.txt' && [ ! -e /home/wang/Documents/e.txt ]")
        file = "/home/wang/Documents/e.txt"
        self.report.check("and keeps files after " + change, any(file in self.listed("wang") for _ in range(50)))

    def purge(self):
        self.report.attempt("protection is on before the removal", lambda: self.configure("li"))
        self.promise("the packages are purged, and it is told that the vaults stay",
                     "dpkg -P $(dpkg-query -W -f '${Package} ' 'morvane*') >/tmp/purge.log 2>&1 && "
                     "grep -q 'protected files stay in the .morvane_vault' /tmp/purge.log || ! cat /tmp/purge.log", 600)
        self.promise("the preload list has no line", "! grep -q libmorvane-guard /etc/ld.so.preload 2>/dev/null")
        self.promise("nothing is left behind",
                     "! ls -d /usr/libexec/morvane /usr/lib/*/libmorvane-guard.so* /lib/systemd/system/morvane* "
                     "/etc/systemd/system/*.wants/morvane* /etc/pam.d/morvane* /var/lib/morvane* /run/morvane 2>/dev/null | grep .")
        self.promise("the vaults stay", "ls -d /home/li/.morvane_vault /home/wang/.morvane_vault")

"""Servers on this machine for the shares that a machine under test mounts: SMB and SFTP, each on a
port of its own, seen by the guest at 10.0.2.2. They change nothing of this machine: what they need
to see of /etc and /run they see in a name space of their own."""

import os
import socket
import subprocess
import time

from machine import Failure

USER = "nobody"
PASSWORD = "share-secret"
HOST = "10.0.2.2"
SMB = """[global]
smb ports = %(port)d
interfaces = 127.0.0.1/8
bind interfaces only = yes
passdb backend = tdbsam:%(state)s/passdb.tdb
load printers = no
disable spoolss = yes
log file = %(state)s/log
""" + "".join("%s = %%(state)s\n" % name for name in (
    "private dir", "lock directory", "state directory", "cache directory", "pid directory", "ncalrpc dir")) + """
[files]
path = %(path)s
read only = no
"""
SSH = """Port %(port)d
ListenAddress 127.0.0.1
HostKey %(state)s/key
PidFile none
UsePAM no
StrictModes no
Subsystem sftp internal-sftp
ForceCommand internal-sftp
"""


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def wait_for_port(port, process):
    until = time.time() + 30
    while True:
        try:
            socket.create_connection(("127.0.0.1", port), 1).close()
            return
        except OSError:
            if time.time() > until or process.poll() is not None:
                raise Failure("%s did not start" % process.args)
            time.sleep(0.1)


class Share:
    """A folder that the guest reaches at `address`; `path` is its place here."""

    def __init__(self, folder, kind):
        self.port = free_port()
        self.path = os.path.join(folder, kind + "-share")
        self.state = os.path.join(folder, kind + "-server")
        for place in (self.path, self.state):
            os.makedirs(place, exist_ok=True)
        subprocess.run(["chown", USER, self.path], check=True)
        command = self.smb() if kind == "smb" else self.sftp()
        self.process = subprocess.Popen(["unshare", "--mount", "--pid", "--fork", "--kill-child", "sh", "-ec", command],
                                        stdout=open(os.path.join(self.state, "output"), "w"), stderr=subprocess.STDOUT)
        wait_for_port(self.port, self.process)
        self.address = "%s://%s:%d" % (kind, HOST, self.port) + ("/files" if kind == "smb" else self.path)

    def write(self, name, text):
        path = os.path.join(self.state, name)
        with open(path, "w") as file:
            file.write(text % {"port": self.port, "state": self.state, "path": self.path})
        return path

    def smb(self):
        config = self.write("smb.conf", SMB)
        subprocess.run(["smbpasswd", "-c", config, "-s", "-a", USER], check=True, text=True,
                       input="%s\n%s\n" % (PASSWORD, PASSWORD), stdout=subprocess.DEVNULL)
        return "exec smbd --foreground --no-process-group --configfile=" + config

    def sftp(self):
        config = self.write("sshd.conf", SSH)
        key = os.path.join(self.state, "key")
        if not os.path.exists(key):
            subprocess.run(["ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-f", key], check=True)
        digest = subprocess.run(["openssl", "passwd", "-6", PASSWORD], check=True, capture_output=True, text=True).stdout
        accounts = self.write("shadow", "root:*:1::::::\nsshd:*:1::::::\n%s:%s:1::::::\n" % (USER, digest.strip()))
        return ("mount --bind %s /etc/shadow; mount -t tmpfs run /run; mkdir -m 755 /run/sshd; exec /usr/sbin/sshd -D -e -f %s"
                % (accounts, config))

    def end(self):
        self.process.kill()  # takes the server with it
        self.process.wait()

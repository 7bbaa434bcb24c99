"""Machines under test, driven by a shell: virtual ones, and a tree on this machine."""

import os
import re
import socket
import struct
import subprocess
import time
import zlib


class Failure(Exception):
    """A promise that the machine did not keep."""


class Console:
    """A shell at the other end of a socket. Limits are in seconds and wide: emulation is slow, and
    two machines may run side by side."""

    def __init__(self, name, log):
        self.name = name
        self.log = open(log, "wb")
        self.text = ""
        self.process = None
        self.connection = None

    def read(self):
        try:
            data = self.connection.recv(65536)
        except socket.timeout:
            return
        if not data and self.process.poll() is not None:
            raise Failure("%s: the machine has ended:\n%s" % (self.name, self.text[-2000:]))
        self.log.write(data)
        self.log.flush()
        self.text += data.decode("utf-8", "replace").replace("\r", "")

    def expect(self, pattern, limit):
        """Waits for the pattern behind what was matched last; the match."""
        until = time.time() + limit
        while True:
            match = re.search(pattern, self.text)
            if match:
                self.text = self.text[match.end():]
                return match
            if time.time() > until:
                raise Failure("%s: no %r within %d s; last lines:\n%s" % (self.name, pattern, limit, self.text[-3000:]))
            self.read()

    def send(self, line):
        self.connection.sendall(line.encode() + b"\n")

    def log_in(self, user, limit, password=None):
        self.expect(r"login: ", limit)
        self.send(user)
        if password is not None:
            self.expect(r"(?i)password: ", 60)
            self.send(password)
        self.expect(r"[$#] ", 120)
        self.quieten()

    def quieten(self):
        """For a shell that waits for a line."""
        # No echo by the line editor or the terminal, no colours, and no prompts.
        self.send("exec bash --noediting --norc")
        self.send("stty -echo cols 500; export TERM=dumb PS1= PS2= PAGER=cat LC_ALL=C.UTF-8; echo re''ady")
        self.expect(r"ready\n", 60)

    def run(self, command, limit=60, check=True):
        """Runs one shell line; what it prints, and raises where it fails."""
        self.send("{ %s\n} 2>&1; echo \"<$?>e\"\"nd\"" % command)
        match = self.expect(r"(?s)(.*?)<(\d+)>end\n", limit)
        output, code = match.group(1).strip("\n"), int(match.group(2))
        if check and code != 0:
            raise Failure("%s: `%s` ended with %d:\n%s" % (self.name, command, code, output))
        return output

    def end(self):
        """At once, as if the plug were pulled."""
        self.process.kill()
        self.process.wait()
        self.connection.close()
        self.log.close()


# For the kernel's command line: a slow machine is not a broken one.
PATIENT = "console=ttyS0,115200 mitigations=off systemd.default_timeout_start_sec=900"


class Machine(Console):
    """A virtual machine under plain emulation, driven over its serial line. Starts at construction."""

    def __init__(self, name, folder, arguments, memory=1024, network="none"):
        super().__init__(name, os.path.join(folder, name + ".log"))
        self.place = os.path.join(folder, name + ".serial")
        if os.path.exists(self.place):
            os.unlink(self.place)
        self.monitor = os.path.join(folder, name + ".monitor")
        # No AVX: emulating it is slower than the code that does without.
        self.process = subprocess.Popen(
            ["qemu-system-x86_64", "-accel", "tcg,tb-size=512", "-cpu", "Nehalem", "-m", str(memory), "-nic", network,
             "-display", "none", "-vga", "std", "-serial", "unix:%s,server=on,wait=off" % self.place,
             "-monitor", "unix:%s,server=on,wait=off" % self.monitor] + arguments,
            stdin=subprocess.DEVNULL, stdout=self.log, stderr=self.log)
        self.connection = socket.socket(socket.AF_UNIX)
        until = time.time() + 30
        while True:
            try:
                self.connection.connect(self.place)
                break
            except OSError:
                if time.time() > until or self.process.poll() is not None:
                    raise Failure("%s: the machine did not start" % name)
                time.sleep(0.1)
        self.connection.settimeout(1)

    def screen(self):
        """What the screen shows."""
        path = self.monitor + ".ppm"
        if os.path.exists(path):
            os.unlink(path)
        self.tell("screendump " + path)
        until = time.time() + 60
        while time.time() < until:
            picture = Picture.load(path)
            if picture:
                return picture
            time.sleep(0.2)
        raise Failure("%s: no picture of the screen" % self.name)

    def tell(self, *commands):
        """Commands for the machine's monitor, one after the other; ends when all are done."""
        with socket.socket(socket.AF_UNIX) as monitor:
            monitor.connect(self.monitor)
            monitor.settimeout(60)
            answer = b""
            for count, command in enumerate(commands, 1):
                monitor.sendall(command.encode() + b"\n")
                # A prompt at the start, and one behind each command.
                while answer.count(b"(qemu)") < count + 1:
                    data = monitor.recv(65536)
                    if not data:
                        raise Failure("%s: the monitor has closed" % self.name)
                    answer += data

    def type(self, line):
        """At the keyboard of the screen; lower case letters, digits and a few signs."""
        names = {" ": "spc", "|": "shift-backslash", "-": "minus", "/": "slash", ".": "dot", "\n": "ret"}
        self.tell(*["sendkey " + names.get(letter, letter) for letter in line + "\n"])

    def wait_for_screen(self, colours, limit):
        """Whether the screen shows more colours than that within the time."""
        until = time.time() + limit
        while self.screen().colours() <= colours:
            if time.time() > until:
                return False
        return True

    def wait_for_end(self, limit):
        self.process.wait(limit)


class Chroot(Console):
    """A shell in a tree, in name spaces of its own, started by a script that ends in `exec bash`."""

    def __init__(self, name, folder, command):
        super().__init__(name, os.path.join(folder, name + ".log"))
        self.connection, inner = socket.socketpair()
        self.connection.settimeout(1)
        self.process = subprocess.Popen(command, stdin=inner, stdout=inner, stderr=inner)
        inner.close()
        self.send("export TERM=dumb PAGER=cat LC_ALL=C.UTF-8; echo re''ady")
        self.expect(r"ready\n", 120)


class Picture:
    """Pixels of three bytes each."""

    def __init__(self, width, height, pixels):
        self.width = width
        self.height = height
        self.pixels = pixels

    @staticmethod
    def load(path):
        """Of a PPM file; None while that is not complete."""
        try:
            with open(path, "rb") as file:
                data = file.read()
        except FileNotFoundError:
            return None
        head = re.match(rb"P6\s+(\d+)\s+(\d+)\s+255\s", data)
        if not head:
            return None
        width, height = int(head.group(1)), int(head.group(2))
        pixels = data[head.end():]
        return Picture(width, height, pixels) if len(pixels) == 3 * width * height else None

    def colours(self):
        return len({self.pixels[at:at + 3] for at in range(0, len(self.pixels), 3)})

    def save(self, path):
        """As PNG."""
        def chunk(kind, data):
            return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))

        line = 3 * self.width
        rows = b"".join(b"\0" + self.pixels[at:at + line] for at in range(0, len(self.pixels), line))
        with open(path, "wb") as file:
            file.write(b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", self.width, self.height, 8, 2, 0, 0, 0)) +
                       chunk(b"IDAT", zlib.compress(rows, 9)) + chunk(b"IEND", b""))


class Report:
    """One line a promise."""

    def __init__(self, title):
        self.title = title
        self.failures = 0
        self.start = time.time()

    def check(self, promise, is_kept, detail=""):
        print("%-4s %s: %s%s" % ("ok" if is_kept else "FAIL", self.title, promise, "" if is_kept else "  " + str(detail)),
              flush=True)
        self.failures += not is_kept

    def attempt(self, promise, work):
        """Runs a piece of work that raises where the promise is not kept."""
        try:
            work()
        except (Failure, OSError, subprocess.SubprocessError) as failure:
            self.check(promise, False, failure)
            return False
        self.check(promise, True)
        return True

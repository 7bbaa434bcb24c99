#!/usr/bin/env python3
"""Recall and speed of the recovery service beside photorec, ext4magic and tsk_recover, on images that
it makes itself; prints one line an image and tool, and ratios against the best other tool.

    undelete.py SERVICE [--size MIB] [--families ext4,xfs,...] [--keep FOLDER]

Needs root for loop mounts; a tool or file system that is missing is named and left out. Content: share
of the deleted files whose bytes came back somewhere. Path: those that came back under their own path.
"""

import argparse
import hashlib
import json
import os
import random
import shutil
import socket
import struct
import subprocess
import sys
import tempfile
import time
import uuid
import zlib

MKFS = {
    "ext4": ["mkfs.ext4", "-q", "-F"],
    "ext3": ["mkfs.ext3", "-q", "-F"],
    "ext2": ["mkfs.ext2", "-q", "-F"],
    "xfs": ["mkfs.xfs", "-q", "-f"],
    "btrfs": ["mkfs.btrfs", "-q", "-f"],
    "ntfs": ["mkntfs", "-q", "-F", "-Q"],
}
MOUNT_TYPE = {"ntfs": "ntfs-3g"}
TIME_LIMIT = 300  # seconds for one run of another tool


def run(command, **options):
    try:
        return subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                              stderr=subprocess.DEVNULL, check=False, **options).returncode == 0
    except subprocess.TimeoutExpired:
        return False


def png(random_bytes):
    """A real picture with noise, so that carvers have a structure to follow."""
    def chunk(kind, data):
        body = kind + data
        return struct.pack(">I", len(data)) + body + struct.pack(">I", zlib.crc32(body))
    side = max(8, int((len(random_bytes) / 3) ** 0.5))
    rows = b"".join(b"\0" + random_bytes[3 * side * y:3 * side * (y + 1)].ljust(3 * side, b"\0") for y in range(side))
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", side, side, 8, 2, 0, 0, 0)) +
            chunk(b"IDAT", zlib.compress(rows, 1)) + chunk(b"IEND", b""))


def text(dice, length):
    words = ["合同", "报告", "alpha", "beta", "甲方", "乙方", "total", "2024", "项目", "note"]
    return " ".join(dice.choice(words) for _ in range(length // 5)).encode()[:length]


class Image:
    """An image with known truth: what was deleted, by hash and path."""

    def __init__(self, folder, family, mib, seed=7):
        self.path = os.path.join(folder, family + ".img")
        self.family = family
        self.lost = {}  # path -> hash
        dice = random.Random(seed)
        with open(self.path, "wb") as image:
            image.truncate(mib << 20)
        if not run(MKFS[family] + [self.path]):
            raise RuntimeError("mkfs failed")
        self.mount_point = os.path.join(folder, "mnt")
        os.makedirs(self.mount_point, exist_ok=True)
        self.fill(dice, mib)
        self.delete(dice)

    def mounted(self):
        kind = MOUNT_TYPE.get(self.family, self.family)
        if not run(["mount", "-t", kind, "-o", "loop", self.path, self.mount_point]):
            raise RuntimeError("cannot mount " + self.family)
        return self.mount_point

    def unmount(self):
        subprocess.run(["umount", self.mount_point], check=True)

    def fill(self, dice, mib):
        root = self.mounted()
        try:
            budget = (mib << 20) * 6 // 10
            number = 0
            while budget > 0 and number < 4000:
                folder = os.path.join(root, "资料 %d" % (number % 17), "level-%d" % (number % 5))
                os.makedirs(folder, exist_ok=True)
                size = int(min(dice.lognormvariate(10, 1.5), 4 << 20))
                kind = number % 3
                name = "%s-%04d.%s" % (("报告", "photo", "note")[kind], number, ("txt", "png", "md")[kind])
                data = png(dice.randbytes(size)) if kind == 1 else text(dice, size)
                with open(os.path.join(folder, name), "wb") as file:
                    file.write(data)
                budget -= len(data)
                number += 1
            os.sync()
        finally:
            self.unmount()

    def delete(self, dice):
        root = self.mounted()
        try:
            for folder, _, names in os.walk(root):
                for name in names:
                    path = os.path.join(folder, name)
                    if name.startswith(".") or os.path.getsize(path) == 0 or dice.random() > 0.3:
                        continue
                    with open(path, "rb") as file:
                        self.lost[os.path.relpath(path, root)] = hashlib.sha256(file.read()).digest()
                    os.unlink(path)
            os.sync()
        finally:
            self.unmount()


class Service:
    """The recovery service over its socket."""

    def __init__(self, program, image, work):
        name = "bench-" + uuid.uuid4().hex[:8]
        self.process = subprocess.Popen(
            [program, "--image", image, "--state", os.path.join(work, "state"), "--socket", name, "--target",
             os.path.join(work, "none")], env=dict(os.environ, TMPDIR=work),
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.socket = socket.socket(socket.AF_UNIX)
        until = time.time() + 20
        while True:
            try:
                self.socket.connect(os.path.join(work, name))
                break
            except OSError:
                if time.time() > until:
                    raise
                time.sleep(0.02)
        self.buffer = b""
        self.events = []

    def frame(self):
        while True:
            if len(self.buffer) >= 8:
                length = struct.unpack(">I", self.buffer[4:8])[0]
                if len(self.buffer) >= 8 + length:
                    body = json.loads(self.buffer[8:8 + length])
                    self.buffer = self.buffer[8 + length:]
                    return body
            bytes_read = self.socket.recv(1 << 20)
            if not bytes_read:
                raise RuntimeError("the service has ended")
            self.buffer += bytes_read

    def ask(self, method, params=None):
        identity = str(uuid.uuid4())
        body = json.dumps({"type": "request", "requestId": identity, "method": method, "params": params or {}}).encode()
        self.socket.sendall(b"KVSF" + struct.pack(">I", len(body)) + body)
        while True:
            answer = self.frame()
            if answer.get("requestId") == identity:
                if not answer["success"]:
                    raise RuntimeError(method + ": " + str(answer.get("error")))
                return answer["data"]
            self.events.append(answer)

    def wait(self, *names):
        while True:
            for event in self.events:
                if event.get("event") in names:
                    self.events.remove(event)
                    return event["data"]
            self.events.append(self.frame())

    def close(self):
        self.socket.close()
        self.process.terminate()
        self.process.wait()


def by_service(program, image, out, mode):
    work = tempfile.mkdtemp(prefix="mb-")
    service = Service(program, image, work)
    try:
        groups = service.ask("disk.enumerate")["groups"]
        device, kind = groups[0]["partitions"][0]["pathAndFs"].split()[:2]
        service.ask("disk.prepareForScan", {"devicePath": device})
        session = service.ask("scan.start", {
            "devicePath": device, "fileSystem": kind, "scanMode": mode, "fileScope": "all",
            "deepResultSource": "metadataAndDeep", "deepScanScope": "unallocatedOnly"})["sessionId"]
        service.wait("scan.completed", "scan.error")
        files = service.ask("session.getFiles", {"sessionId": session})["files"]
        if not files:
            return
        service.ask("recovery.start", {"sessionId": session, "fileIds": [file["fileId"] for file in files],
                                       "outputDir": out, "conflictPolicy": "rename"})
        service.wait("recovery.completed", "recovery.error")
    finally:
        service.close()
        shutil.rmtree(work, ignore_errors=True)


def by_photorec(image, out):
    script = "partition_none,options,paranoid,fileopt,everything,enable,wholespace,search"
    run(["photorec", "/log", "/d", os.path.join(out, "r"), "/cmd", image, script], timeout=TIME_LIMIT, cwd=out)


def by_ext4magic(image, out):
    run(["ext4magic", image, "-M", "-d", out], timeout=TIME_LIMIT)


def by_tsk(image, out):
    run(["tsk_recover", image, out], timeout=TIME_LIMIT)


def judge(image, out):
    """Content and path, as shares of the lost files."""
    hashes, paths = set(), {}
    for folder, _, names in os.walk(out):
        for name in names:
            path = os.path.join(folder, name)
            if not os.path.isfile(path) or os.path.islink(path):
                continue
            with open(path, "rb") as file:
                value = hashlib.sha256(file.read()).digest()
            hashes.add(value)
            paths.setdefault(value, []).append(path)
    content = sum(value in hashes for value in image.lost.values())
    named = sum(any(found.endswith(os.sep + path) for found in paths.get(value, ()))
                for path, value in image.lost.items())
    return content / len(image.lost), named / len(image.lost)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("service")
    parser.add_argument("--size", type=int, default=320, help="MiB an image")
    parser.add_argument("--families", default=",".join(MKFS))
    parser.add_argument("--keep")
    arguments = parser.parse_args()
    if os.geteuid() != 0:
        sys.exit("undelete: loop mounts need root")
    folder = arguments.keep or tempfile.mkdtemp(prefix="undelete-")
    os.makedirs(folder, exist_ok=True)
    others = {"photorec": by_photorec, "tsk_recover": by_tsk, "ext4magic": by_ext4magic}
    for name in list(others):
        if not shutil.which(name):
            print("%s is not installed and left out" % name)
            del others[name]
    for family in arguments.families.split(","):
        if not shutil.which(MKFS[family][0]):
            print("%s is not installed, %s is left out" % (MKFS[family][0], family))
            continue
        try:
            image = Image(folder, family, arguments.size)
        except RuntimeError as error:
            print("%s is left out: %s" % (family, error))
            continue
        start = time.time()
        with open(image.path, "rb", buffering=0) as raw:
            while raw.read(1 << 20):
                pass
        reading = max(time.time() - start, 1e-3)
        tools = {"quick": lambda path, out: by_service(arguments.service, path, out, "quick"),
                 "deep": lambda path, out: by_service(arguments.service, path, out, "deep"), **others}
        results = {}
        for name, work in tools.items():
            if name == "ext4magic" and family not in ("ext3", "ext4"):
                continue
            out = os.path.join(folder, "out")
            shutil.rmtree(out, ignore_errors=True)
            os.makedirs(out)
            start = time.time()
            work(image.path, out)
            seconds = time.time() - start
            results[name] = judge(image, out) + (seconds,)
            print("%-5s %-11s content %5.1f %%  path %5.1f %%  %6.1f s  %5.1f times the reading" %
                  ((family, name) + tuple(100 * share for share in results[name][:2]) + (seconds, seconds / reading)),
                  flush=True)
        best = max((results[name][0] for name in others if name in results), default=0)
        if best:
            print("%-5s content of deep / best other tool: %.2f" % (family, results["deep"][0] / best), flush=True)
        os.unlink(image.path)
    if not arguments.keep:
        shutil.rmtree(folder, ignore_errors=True)


if __name__ == "__main__":
    main()

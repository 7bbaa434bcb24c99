#!/usr/bin/env python3
"""Speaks the services' protocol inside a machine under test.

    guest_client.py SOCKET METHOD [JSON] [METHOD JSON]...
                                               requests over one connection; prints each answer
    guest_client.py SOCKET recover DEVICE DIR  scans a device quickly and recovers all of it
"""

import json
import socket
import struct
import sys
import uuid


class Client:
    def __init__(self, place):
        self.socket = socket.socket(socket.AF_UNIX)
        self.socket.connect(place)
        self.buffer = b""
        self.events = []

    def frame(self):
        while len(self.buffer) < 8 or len(self.buffer) < 8 + struct.unpack(">I", self.buffer[4:8])[0]:
            data = self.socket.recv(1 << 16)
            if not data:
                sys.exit("the service has closed the connection")
            self.buffer += data
        end = 8 + struct.unpack(">I", self.buffer[4:8])[0]
        body, self.buffer = json.loads(self.buffer[8:end]), self.buffer[end:]
        return body

    def ask(self, method, params=None):
        identity = str(uuid.uuid4())
        body = json.dumps({"type": "request", "requestId": identity, "method": method, "params": params or {}}).encode()
        self.socket.sendall(b"KVSF" + struct.pack(">I", len(body)) + body)
        while True:
            answer = self.frame()
            if answer.get("requestId") == identity:
                if not answer["success"]:
                    sys.exit("%s: %s" % (method, json.dumps(answer.get("error"), ensure_ascii=False)))
                return answer["data"]
            self.events.append(answer)

    def wait(self, *names):
        while True:
            for event in self.events:
                if event.get("event") in names:
                    self.events.remove(event)
                    return event
            self.events.append(self.frame())


def recover(client, device, folder):
    client.ask("disk.prepareForScan", {"devicePath": device})
    session = client.ask("scan.start", {"devicePath": device, "scanMode": "quick", "fileScope": "all"})["sessionId"]
    end = client.wait("scan.completed", "scan.error")
    if end["event"] != "scan.completed":
        sys.exit(json.dumps(end, ensure_ascii=False))
    print("summary", json.dumps(end["data"]["summary"], ensure_ascii=False))
    files = client.ask("session.getFiles", {"sessionId": session})["files"]
    client.ask("recovery.start", {"sessionId": session, "fileIds": [file["fileId"] for file in files],
                                  "outputDir": folder, "conflictPolicy": "rename"})
    end = client.wait("recovery.completed", "recovery.error")
    for event in client.events:
        if event.get("event") == "recovery.fileStatus" and event["data"]["status"] not in ("running", "success"):
            print(event["data"]["status"], event["data"]["detail"])
    print("recovery", json.dumps(end["data"], ensure_ascii=False))


def main():
    client = Client(sys.argv[1])
    if sys.argv[2] == "recover":
        recover(client, sys.argv[3], sys.argv[4])
        return
    words = sys.argv[2:]
    for method, params in zip(words[::2], words[1::2] + ["{}"] * (len(words) % 2)):
        print(json.dumps(client.ask(method, json.loads(params)), ensure_ascii=False))


if __name__ == "__main__":
    main()

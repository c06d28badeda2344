"""A second, independent implementation of the message bytes and frames, for tests that speak to the real
programs from outside. docs/protocol.md is what both are written from."""
import fcntl
import os
import select
import socket
import struct
import subprocess
import sys
import time

FIXED = {"BOOL": "<B", "BYTE": "<b", "SHRT": "<h", "LONG": "<i", "LLNG": "<q", "FLOT": "<f", "DBLE": "<d",
         "TIME": "<I"}


def code(text):
    return int.from_bytes(text.encode(), "big")


def code_text(number):
    return number.to_bytes(4, "big").decode("latin-1")


class Message:
    """what: four characters; fields: name -> (type, [values])"""

    def __init__(self, what="\0\0\0\0", **fields):
        self.what = what
        self.fields = {}
        for name, value in fields.items():
            self.add(name, value)

    def add(self, name, value, kind=None):
        if kind is None:
            kind = {bool: "BOOL", int: "LONG", float: "FLOT", str: "CSTR", bytes: "CSTR"}.get(type(value))
            if isinstance(value, Message):
                kind = "MSGG"
            if isinstance(value, tuple):
                kind = "MSNG"
        if isinstance(value, str):
            value = value.encode()
        self.fields.setdefault(name, (kind, []))[1].append(value)
        return self

    def get(self, name, default=None, index=0):
        values = self.fields.get(name, (None, []))[1]
        return values[index] if index < len(values) else default

    def text(self, name, default="", index=0):
        value = self.get(name, None, index)
        return default if value is None else value.decode(errors="replace")

    def all(self, name):
        return self.fields.get(name, (None, []))[1]

    def flatten(self):
        body = b""
        for name, (kind, values) in self.fields.items():
            raw = [pack(kind, value) for value in values]
            encoded = name.encode()
            size = len(raw[0]) if kind in FIXED or kind in ("MSNG", "RECT", "RGBC", "NREF") else 0
            body += struct.pack("<IB", code(kind), len(encoded)) + encoded
            body += struct.pack("<II", len(raw), size)
            if size == 0:
                body += b"".join(struct.pack("<I", len(one)) for one in raw)
            body += b"".join(raw)
        return (b"VMS1" + struct.pack("<IQI", code(self.what), 20 + len(body), len(self.fields)) + body)

    @staticmethod
    def parse(data):
        assert data[:4] == b"VMS1", data[:4]
        what, size, count = struct.unpack_from("<IQI", data, 4)
        assert size == len(data), (size, len(data))
        message = Message(code_text(what))
        at = 20
        for _ in range(count):
            kind, length = struct.unpack_from("<IB", data, at)
            at += 5
            name = data[at:at + length].decode()
            at += length
            values, size = struct.unpack_from("<II", data, at)
            at += 8
            sizes = [size] * values
            if size == 0:
                sizes = list(struct.unpack_from(f"<{values}I", data, at))
                at += 4 * values
            kind = code_text(kind)
            assert name not in message.fields and values > 0
            found = []
            for one in sizes:
                assert at + one <= len(data)
                found.append(unpack(kind, data[at:at + one]))
                at += one
            message.fields[name] = (kind, found)
        assert at == len(data)
        return message

    def __repr__(self):
        return f"Message({self.what!r}, {self.fields!r})"


def pack(kind, value):
    if kind in FIXED:
        return struct.pack(FIXED[kind], value)
    if kind == "MSGG":
        return value.flatten()
    if kind == "MSNG":
        return struct.pack("<iiI", value[0], value[1], 0)
    return bytes(value)


def unpack(kind, data):
    if kind in FIXED:
        return struct.unpack(FIXED[kind], data)[0]
    if kind == "MSGG":
        return Message.parse(data)
    if kind == "MSNG":
        return struct.unpack("<iiI", data)[:2]
    return bytes(data)


def frame(kind, body, token=-1, request=0, sender=None):
    sender = os.getpid() if sender is None else sender
    return struct.pack("<IBBBBiiQ", 20 + len(body), kind, 0, 0, 0, sender, token, request) + body


class Peer:
    """One connection to a team's socket. Whatever arrives is kept in `arrived` in order; requests of the
    other side are answered by `on_request(message) -> Message or None`."""

    def __init__(self, run_directory, team, on_request=None):
        connection = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        connection.connect(os.path.join(run_directory, f"team-{team}.sock"))
        self.adopt(connection, on_request)

    def adopt(self, connection, on_request=None, team=None):
        self.socket = connection
        self.team = team or os.getpid()
        self.buffer = b""
        self.arrived = []
        self.answers = {}
        self.next_request = 1
        self.closed = False
        self.on_request = on_request or (lambda message: None)

    def close(self):
        self.socket.close()

    def send(self, message):
        self.socket.sendall(frame(1, message.flatten(), sender=self.team))

    def ask(self, message, seconds=10):
        request = self.next_request
        self.next_request += 1
        self.socket.sendall(frame(2, message.flatten(), request=request, sender=self.team))
        self.wait(lambda: request in self.answers, seconds, f"an answer to {message.what}")
        return self.answers.pop(request)

    def pump(self, seconds):
        if self.closed or not select.select([self.socket], [], [], seconds)[0]:
            return
        data = self.socket.recv(1 << 20)
        if not data:
            self.closed = True
            return
        self.buffer += data
        while len(self.buffer) >= 4:
            length = struct.unpack_from("<I", self.buffer)[0]
            if len(self.buffer) < 4 + length:
                break
            kind, z1, z2, z3, sender, _, request = struct.unpack_from("<BBBBiiQ", self.buffer, 4)
            assert (z1, z2, z3) == (0, 0, 0)
            message = Message.parse(self.buffer[24:4 + length])
            self.buffer = self.buffer[4 + length:]
            if kind == 3:
                self.answers[request] = message
                continue
            message.sender = sender
            self.arrived.append(message)
            if kind == 2:
                reply = self.on_request(message) or Message()
                self.socket.sendall(frame(3, reply.flatten(), token=0, request=request, sender=self.team))

    def wait(self, condition, seconds, what):
        end = time.monotonic() + seconds
        while not condition():
            if self.closed:
                raise AssertionError(f"connection closed while waiting for {what}")
            left = end - time.monotonic()
            if left <= 0:
                raise AssertionError(f"waited {seconds} s in vain for {what}; arrived: "
                                     f"{[message.what for message in self.arrived]}")
            self.pump(min(left, 0.2))

    def wait_for(self, what, seconds=20, where=lambda message: True):
        """The first arrived message of a code that fits, taken out of the list."""
        def find():
            return next((m for m in self.arrived if m.what == what and where(m)), None)
        self.wait(lambda: find() is not None, seconds, f"'{what}'")
        message = find()
        self.arrived.remove(message)
        return message


class Stranger(Peer):
    """A connection made by another process: to the other side a program of its own, `team`, that can be stopped
    by itself. The process only connects and stays; its connection is used from here."""

    PROGRAM = """
import socket, sys
made = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
made.connect(sys.argv[1])
home = socket.socket(fileno=0)
socket.send_fds(home, [b"x"], [made.fileno()])
made.close()
home.recv(1)
"""

    def __init__(self, run_directory, team, on_request=None):
        self.home, theirs = socket.socketpair()
        self.process = subprocess.Popen([sys.executable, "-c", self.PROGRAM, f"{run_directory}/team-{team}.sock"],
                                        stdin=theirs)
        theirs.close()
        _, descriptors, _, _ = socket.recv_fds(self.home, 1, 1)
        self.adopt(socket.socket(fileno=descriptors[0]), on_request, self.process.pid)

    def close(self):
        super().close()
        self.home.close()
        self.process.wait()


class Team:
    """A whole program as others see it: it holds a signature's lock and listens as this process's team.
    Connections that come in are Peers in `peers`."""

    def __init__(self, run_directory, signature, on_request=None):
        os.makedirs(run_directory, mode=0o700, exist_ok=True)
        self.lock = open(os.path.join(run_directory, signature.replace("/", "_") + ".lock"), "w")
        fcntl.flock(self.lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
        self.path = os.path.join(run_directory, f"team-{os.getpid()}.sock")
        self.listener = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self.listener.bind(self.path)
        self.listener.listen()
        self.lock.write(f"{os.getpid()}\n")
        self.lock.flush()
        self.on_request = on_request or (lambda message: None)
        self.peers = []

    def close(self):
        for peer in self.peers:
            peer.close()
        self.listener.close()
        self.lock.close()
        if os.path.exists(self.path):
            os.unlink(self.path)

    def pump(self, seconds=0.05):
        if select.select([self.listener], [], [], seconds)[0]:
            peer = Peer.__new__(Peer)
            peer.adopt(self.listener.accept()[0], lambda message: self.on_request(message))
            self.peers.append(peer)
        for peer in self.peers:
            peer.pump(0)

    def wait_for(self, what, seconds=20):
        """The first message of a code on any connection, with the peer it came from."""
        end = time.monotonic() + seconds
        while True:
            for peer in self.peers:
                for message in peer.arrived:
                    if message.what == what:
                        peer.arrived.remove(message)
                        return message, peer
            if time.monotonic() > end:
                raise AssertionError(f"waited {seconds} s in vain for '{what}'; arrived: "
                                     f"{[m.what for p in self.peers for m in p.arrived]}")
            self.pump()

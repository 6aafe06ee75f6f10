"""A producer that shares no code with the camera: written from Documentation/WireFormat.md.

Sends frames of one colour while the camera wants them, and writes what it hears to standard output, one JSON
object a line. Ends when the camera has gone, or with SIGTERM.

    producer.py WIDTH HEIGHT Y CB CR [FRAMES_PER_SECOND]
"""

import array
import ctypes
import fcntl
import json
import mmap
import os
import select
import signal
import socket
import stat
import struct
import sys
import time

import jeepney
from jeepney.auth import BEGIN, Authenticator
from jeepney.wrappers import new_header

SERVICE = "com.tarnwell.macos.cam.avextension"
PATH = "/com/tarnwell/macos/cam/Object"
CONSUMER = "CMIOExtensionSupport.VideoFrameConsumerService"
PRODUCER = "CMIOExtensionSupport.VideoFrameProducerService"
REPORTS = "CMIOExtensionSupport.VideoFrameProducerServiceReportReceiving"

PAGE = 4096
USE_COUNT_OFFSET = 260
SEED_OFFSET = 256
UYVY = 0x32767579
RING_SIZE = 8
FRAMES_UNDER_WAY = 3
PATIENCE_SECONDS = 20
NANOSECONDS = 1_000_000_000


def say(event, **details):
    print(json.dumps({"event": event, **details}), flush=True)


# Finding the camera


def is_safe_folder(path, owners):
    status = os.lstat(path)
    return stat.S_ISDIR(status.st_mode) and status.st_uid in owners and not status.st_mode & 0o022


def is_safe_way(path):
    """Whether root alone decides what the path leads to."""
    parents = [path[:end] or "/" for end, letter in enumerate(path) if letter == "/"]
    return all(is_safe_folder(parent, (0,)) for parent in parents)


def user_folder():
    runtime = os.environ.get("XDG_RUNTIME_DIR", "")
    own = f"/run/user/{os.geteuid()}"
    for folder in (runtime, own):
        if folder.startswith("/") and os.path.isdir(folder) and os.stat(folder).st_uid == os.geteuid():
            return folder + "/pavo"
    return f"/tmp/pavo-{os.geteuid()}"


def target_of(path):
    return os.path.join(os.path.dirname(path), os.readlink(path)) if os.path.islink(path) else path


def namespaces():
    """Each folder, with the users whose files count in it."""
    both = (os.geteuid(), 0)
    moved = os.environ.get("PAVO_BOOTSTRAP_DIR")
    if moved:
        return [(moved + "/user", both), (moved + "/system", both)]
    return [(user_folder(), both), ("/run/pavo", (0,))]


def connect_in(folder, owners):
    """A socket, or None where the folder leads to no camera."""
    path = f"{folder}/{SERVICE}"
    try:
        if not is_safe_folder(folder, owners):
            return None
        if folder == "/run/pavo" and not all(map(is_safe_way, (path, target_of(path)))):
            return None
        target = os.stat(path)
        if not stat.S_ISSOCK(target.st_mode):
            return None
        if os.lstat(path).st_uid not in owners or target.st_uid not in owners:
            return None
        connection = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        connection.settimeout(PATIENCE_SECONDS)
        # The socket's path may be longer than an address can be; one by way of a descriptor is not.
        descriptor = os.open(path, os.O_PATH)
        try:
            connection.connect(f"/proc/self/fd/{descriptor}")
        finally:
            os.close(descriptor)
    except OSError:
        return None
    _, owner, _ = struct.unpack("iii", connection.getsockopt(socket.SOL_SOCKET, socket.SO_PEERCRED, 12))
    return connection if owner in owners else None


def dial():
    deadline = time.monotonic() + PATIENCE_SECONDS
    while time.monotonic() < deadline:
        for folder, owners in namespaces():
            connection = connect_in(folder, owners)
            if connection:
                return connection
        select.select([], [], [], 0.25)
    sys.exit("there is no camera")


# Messages


class Connection:
    def __init__(self, connected):
        self.socket = connected
        self.parser = jeepney.Parser()
        self.serial = 0
        authentication = Authenticator(enable_fds=True)
        for line in authentication:
            self.socket.sendall(line)
            answer = self.socket.recv(512)
            if not answer:
                sys.exit("the camera does not want us")
            authentication.feed(answer)
        self.socket.sendall(BEGIN)
        self.socket.setblocking(False)

    def send(self, member, signature, body):
        header = new_header(jeepney.MessageType.method_call)
        header.flags = jeepney.MessageFlag.no_reply_expected
        header.fields = {
            jeepney.HeaderFields.path: PATH,
            jeepney.HeaderFields.interface: CONSUMER,
            jeepney.HeaderFields.member: member,
            jeepney.HeaderFields.signature: signature,
        }
        self.serial += 1
        descriptors = array.array("i")  # serialise() adds those of the body
        data = jeepney.Message(header, body).serialise(self.serial, fds=descriptors)
        rights = [(socket.SOL_SOCKET, socket.SCM_RIGHTS, descriptors)] if descriptors else []
        if self.socket.sendmsg([data], rights) != len(data):
            sys.exit("the camera does not read")

    def receive(self):
        """Messages that have come; None once the camera has gone."""
        try:
            data = self.socket.recv(65536)
        except BlockingIOError:
            return []
        except ConnectionResetError:
            return None
        if not data:
            return None
        self.parser.add_data(data)
        return list(iter(self.parser.get_next_message, None))


# Surfaces


class Surface:
    def __init__(self, width, height):
        row = (width + 1) // 2 * 4
        size = row * height
        pages = (size + PAGE - 1) // PAGE * PAGE
        self.descriptor = os.memfd_create("picture", os.MFD_CLOEXEC | os.MFD_ALLOW_SEALING)
        os.ftruncate(self.descriptor, pages + PAGE)
        seals = fcntl.F_SEAL_SHRINK | fcntl.F_SEAL_GROW | fcntl.F_SEAL_SEAL
        fcntl.fcntl(self.descriptor, fcntl.F_ADD_SEALS, seals)
        self.memory = mmap.mmap(self.descriptor, pages + PAGE)
        self.size = size
        trailer = struct.pack("<8sIIIIIIQII", b"PAVOSURF", 1, UYVY, width, height, 2, row, size, 0, 0)
        self.memory[pages : pages + len(trailer)] = trailer
        self.use_count = ctypes.c_int32.from_buffer(self.memory, pages + USE_COUNT_OFFSET)
        self.seed = ctypes.c_uint32.from_buffer(self.memory, pages + SEED_OFFSET)

    def fill(self, y, cb, cr):
        self.memory[: self.size] = bytes((cb, y, cr, y)) * (self.size // 4)
        self.seed.value += 1  # no other process draws here


def time_of(nanoseconds):
    return (nanoseconds, NANOSECONDS, 1, 0)


NO_TIME = (0, 0, 0, 0)


# The session


class Producer:
    def __init__(self, width, height, colour, rate):
        self.connection = Connection(dial())
        self.ring = [Surface(width, height) for _ in range(RING_SIZE)]
        self.under_way = []
        self.colour = colour
        self.rate = rate
        self.is_wanted = False
        self.sent = 0
        say("connected")
        self.connection.send("targetFPSChangedTo_", "d", (rate,))

    def hear(self, message):
        fields = message.header.fields
        interface = fields.get(jeepney.HeaderFields.interface)
        member = fields.get(jeepney.HeaderFields.member)
        if fields.get(jeepney.HeaderFields.path) != PATH:
            sys.exit(f"a message to another object: {message}")
        if (interface, member) == (PRODUCER, "subscribeToVideoFrames"):
            self.is_wanted = True
            say("subscribed")
        elif (interface, member) == (PRODUCER, "unsubscribeFromVideoFrames"):
            self.is_wanted = False
            say("unsubscribed", sent=self.sent)
        elif (interface, member) == (REPORTS, "subconsumerSubscriptionWithPID_isSubscribedChangedTo_"):
            pid, is_watching = message.body
            say("watching" if is_watching else "stopped watching", pid=pid)
        else:
            sys.exit(f"an unknown message: {message}")

    def send_frame(self):
        for surface in self.ring:
            if surface.use_count.value <= 0 and surface not in self.under_way:
                break
        else:
            return  # all of them are in use: this frame is left out
        surface.fill(*self.colour)
        now = time.clock_gettime_ns(time.CLOCK_MONOTONIC)
        timing = (time_of(int(NANOSECONDS / self.rate)), time_of(now), NO_TIME)
        body = (surface.descriptor, timing)
        self.connection.send("didRecieveRawFrame_timingInfo_", "h((xiux)(xiux)(xiux))", body)
        self.under_way = (self.under_way + [surface])[-FRAMES_UNDER_WAY:]
        self.sent += 1

    def run(self):
        due = time.monotonic()
        while True:
            wait = max(0.0, due - time.monotonic()) if self.is_wanted else None
            select.select([self.connection.socket], [], [], wait)
            messages = self.connection.receive()
            if messages is None:
                say("lost")
                return
            for message in messages:
                self.hear(message)
            if self.is_wanted and time.monotonic() >= due:
                due = max(due + 1 / self.rate, time.monotonic())
                self.send_frame()


def main():
    signal.signal(signal.SIGTERM, lambda *_: os._exit(0))
    width, height, y, cb, cr = (int(text) for text in sys.argv[1:6])
    rate = float(sys.argv[6]) if len(sys.argv) > 6 else 30.0
    Producer(width, height, (y, cb, cr), rate).run()


main()

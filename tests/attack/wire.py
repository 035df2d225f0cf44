"""A bare client of the rendering service: it sees every answer, a second one to the same request, too."""

import os
import socket
import subprocess
import time

import gi

gi.require_version("Gio", "2.0")
from gi.repository import Gio, GLib  # noqa: E402

import stillora  # noqa: E402

PEER = "org.freedesktop.DBus.Peer"


class Service:
    """A service on a socket that listens; a context, which ends it."""

    def __init__(self, program, folder, environment):
        self.path = folder / "socket"
        self.log = folder / "log"
        with socket.socket(socket.AF_UNIX) as listener, self.log.open("wb") as log:
            listener.bind(str(self.path))
            listener.listen(300)
            script = 'exec 3<&"$1"; LISTEN_FDS=1 LISTEN_PID=$$ exec "$0"'
            self.process = subprocess.Popen(["bash", "-c", script, program, str(listener.fileno())],
                                            pass_fds=[listener.fileno()], stdin=subprocess.DEVNULL, stdout=log, stderr=log,
                                            env=environment)

    def __enter__(self):
        return self

    def __exit__(self, kind, value, trace):
        self.process.kill()
        self.process.wait()

    def resident(self):
        """Bytes of memory in use."""
        with open(f"/proc/{self.process.pid}/statm", encoding="ascii") as file:
            return int(file.read().split()[1]) * os.sysconf("SC_PAGE_SIZE")

    def last_said(self):
        return self.log.read_text(errors="replace").strip().split("\n")[-1]


class Client:
    """A connection that has said who it is; a context, which hangs up."""

    def __init__(self, service, seconds=30):
        self.seconds = seconds
        self.serial = 0
        # By serial of what is answered, as often as it is.
        self.answers = {}
        self.received = b""
        self.socket = socket.socket(socket.AF_UNIX)
        self.socket.settimeout(seconds)
        self.socket.connect(str(service.path))
        self.socket.sendall(b"\0AUTH EXTERNAL " + str(os.getuid()).encode().hex().encode() + b"\r\n")
        if not self.socket.recv(200).startswith(b"OK "):
            raise ConnectionError("the handshake was refused")
        self.socket.sendall(b"BEGIN\r\n")

    def __enter__(self):
        return self

    def __exit__(self, kind, value, trace):
        self.socket.close()

    def send(self, member, body=None, interface=stillora.INTERFACE):
        """Sends a call; gives its serial."""
        message = Gio.DBusMessage.new_method_call(None, stillora.PATH, interface, member)
        if body is not None:
            message.set_body(body)
        self.serial += 1
        message.set_serial(self.serial)
        self.socket.sendall(message.to_blob(Gio.DBusCapabilityFlags.NONE))
        return self.serial

    def ping(self):
        return self.send("Ping", interface=PEER)

    def request(self, photos, save, temporary, **settings):
        return self.send("createStillMotionVideoWithPhotos", stillora.request(photos, save, temporary, **settings))

    def wait_for(self, serials):
        """Reads until all of these are answered; gives those that were not in time."""
        deadline = time.monotonic() + self.seconds
        missing = set(serials) - self.answers.keys()
        while missing and time.monotonic() < deadline:
            self._read(deadline)
            missing -= self.answers.keys()
        return missing

    def _read(self, deadline):
        self.socket.settimeout(max(0.001, deadline - time.monotonic()))
        try:
            part = self.socket.recv(1 << 16)
        except TimeoutError:
            return
        if not part:
            raise ConnectionError("the service has hung up")
        self.received += part
        while len(self.received) >= 16:
            length = Gio.DBusMessage.bytes_needed(self.received)
            if len(self.received) < length:
                return
            message = Gio.DBusMessage.new_from_blob(self.received[:length], Gio.DBusCapabilityFlags.NONE)
            self.received = self.received[length:]
            if message.get_message_type() in (Gio.DBusMessageType.METHOD_RETURN, Gio.DBusMessageType.ERROR):
                self.answers.setdefault(message.get_reply_serial(), []).append(message)


def movie_of(answer):
    """The three values of an answer to a request: bookmark, error, cancelled; None for an error of the wire."""
    body = answer.get_body()
    return body.unpack() if body and answer.get_message_type() == Gio.DBusMessageType.METHOD_RETURN else None


def broken_request():
    """One that is refused by its signature."""
    return GLib.Variant("(s)", ("no photos",))

"""VLC, told what to do over a message bus of its own."""

import os
import shutil
import subprocess
import tempfile
import time
from pathlib import Path

import gi

gi.require_version("Gio", "2.0")
from gi.repository import Gio, GLib  # noqa: E402

from screen import Screen  # noqa: E402

OPTIONS = ["--aout=pulse", "--vout=xcb_x11", "--avcodec-hw=none", "--no-osd", "--no-video-title-show", "--no-video-deco",
           "--video-x=0", "--video-y=0", "--no-metadata-network-access", "--no-snapshot-preview"]
# A bus that this program may talk to as well, if VLC runs as another user.
BUS = """<busconfig><listen>unix:path={path}</listen><auth>EXTERNAL</auth><policy context="default">
<allow user="*"/><allow own="*"/><allow send_destination="*" eavesdrop="true"/><allow eavesdrop="true"/></policy></busconfig>"""
PLAYER = "org.mpris.MediaPlayer2.Player"


class Vlc:
    name = "VLC"
    codecs = ("avc1", "hvc1", "jpeg")
    may_be_early = False
    # A folder for pictures of the screen.
    kept = None

    def __init__(self, folder, loudspeaker):
        self.folder = Path(tempfile.mkdtemp(prefix="vlc-", dir=folder))
        self.prefix = []
        # VLC refuses to run as root.
        if os.geteuid() == 0:
            shutil.chown(self.folder, "nobody", "nogroup")
            self.prefix = ["setpriv", "--reuid=nobody", "--regid=nogroup", "--clear-groups"]
        self.screen = Screen(folder)
        self.environment = dict(os.environ, **loudspeaker.environment, DISPLAY=self.screen.display, HOME=str(self.folder))

    def close(self):
        self.screen.close()

    def run(self, *command, **changes):
        return subprocess.Popen([*self.prefix, *command], env={**self.environment, **changes}, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                stderr=subprocess.DEVNULL, text=True, cwd=self.folder)

    def play(self, movie):
        """Plays as `vlc MOVIE` does, until it ends by itself."""
        process = self.run("vlc", "-I", "dummy", *OPTIONS, "--play-and-exit", str(movie.path))
        try:
            return self.screen.watch(lambda: process.poll() is not None, movie.length + 20,
                                     self.kept and self.kept / movie.name)
        finally:
            process.kill()
            process.wait()

    def seek(self, movie, places):
        """Goes to places of (seconds, mark), and gives for each None or what is wrong."""
        settings = self.folder / "bus.conf"
        settings.write_text(BUS.format(path=self.folder / "bus"))
        bus = self.run("dbus-daemon", f"--config-file={settings}", "--nofork", "--print-address")
        process = None
        try:
            address = bus.stdout.readline().strip()
            process = self.run("vlc", "-I", "dummy", "--extraintf=dbus", *OPTIONS, "--play-and-pause", str(movie.path),
                               DBUS_SESSION_BUS_ADDRESS=address)
            control = Control(address)
            yield self.screen.shows(movie.marks[0], None, deadline=20)
            control.pause()
            for seconds, mark in places:
                before = self.screen.mark()
                control.go_to(seconds)
                yield self.screen.shows(mark, before)
        finally:
            for each in (process, bus):
                if each:
                    each.kill()
                    each.wait()


class Control:
    def __init__(self, address):
        flags = Gio.DBusConnectionFlags.AUTHENTICATION_CLIENT | Gio.DBusConnectionFlags.MESSAGE_BUS_CONNECTION
        self.bus = Gio.DBusConnection.new_for_address_sync(address, flags, None, None)
        end = time.monotonic() + 20
        while True:
            try:
                self.track = self.property("Metadata")["mpris:trackid"]
                break
            except (GLib.Error, KeyError):
                if time.monotonic() > end:
                    raise
                time.sleep(0.05)

    def call(self, interface, method, arguments):
        return self.bus.call_sync("org.mpris.MediaPlayer2.vlc", "/org/mpris/MediaPlayer2", interface, method, arguments, None,
                                  Gio.DBusCallFlags.NONE, 5000, None)

    def property(self, name):
        return self.call("org.freedesktop.DBus.Properties", "Get", GLib.Variant("(ss)", (PLAYER, name))).unpack()[0]

    def pause(self):
        self.call(PLAYER, "Pause", None)

    def go_to(self, seconds):
        self.call(PLAYER, "SetPosition", GLib.Variant("(ox)", (self.track, round(seconds * 1e6))))

"""mpv, told what to do over its socket."""

import json
import os
import socket
import subprocess
import tempfile
import time
from pathlib import Path

import timeline
from screen import HEIGHT, WIDTH, Screen

# Its plainest output, x11, may leave the picture of a seek undrawn while it is paused.
OPTIONS = ["--no-config", "--no-terminal", "--vo=sdl", "--ao=pulse", "--hwdec=no", "--no-osc", "--osd-level=0", "--no-border",
           f"--geometry={WIDTH}x{HEIGHT}+0+0"]


class Mpv:
    name = "mpv"
    codecs = ("avc1", "hvc1", "jpeg")
    may_be_early = False
    # A folder for pictures of the screen.
    kept = None

    def __init__(self, folder, loudspeaker):
        self.folder = Path(tempfile.mkdtemp(prefix="mpv-", dir=folder))
        self.screen = Screen(folder)
        self.environment = dict(os.environ, **loudspeaker.environment, DISPLAY=self.screen.display, HOME=str(self.folder))

    def close(self):
        self.screen.close()

    def start(self, movie, *options):
        return subprocess.Popen(["mpv", *OPTIONS, *options, str(movie)], env=self.environment, stdin=subprocess.DEVNULL,
                                stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

    def play(self, movie):
        """Plays as `mpv MOVIE` does, until it ends by itself."""
        path = self.folder / "clock"
        process = self.start(movie.path, f"--input-ipc-server={path}")
        try:
            control = Control(path)
            # Where its sound is, by which it shows pictures; without sound it does not tell so exactly.
            with timeline.Asker(lambda: control.command("get_property", "audio-pts")) as asker:
                watched = self.screen.watch(lambda: process.poll() is not None, movie.length + 20,
                                            self.kept and self.kept / movie.name)
            return asker.clock.told(*watched)
        finally:
            process.kill()
            process.wait()

    def seek(self, movie, places):
        """Goes to places of (seconds, mark), and gives for each None or what is wrong."""
        path = self.folder / "socket"
        process = self.start(movie.path, "--pause", "--keep-open", f"--input-ipc-server={path}")
        try:
            control = Control(path)
            yield self.screen.shows(movie.marks[0], None, deadline=20)
            for seconds, mark in places:
                before = self.screen.mark()
                # As the arrow keys and the bar do. mpv's exact seeks show the first picture that begins at the place or after
                # it, which is the next photo.
                control.command("seek", seconds, "absolute+keyframes")
                yield self.screen.shows(mark, before)
        finally:
            process.kill()
            process.wait()


class Control:
    def __init__(self, path):
        self.socket = socket.socket(socket.AF_UNIX)
        self.socket.settimeout(20)
        end = time.monotonic() + 20
        while True:
            try:
                self.socket.connect(str(path))
                break
            except OSError:
                if time.monotonic() > end:
                    raise
                time.sleep(0.02)
        self.lines = self.socket.makefile()
        self.number = 0

    def command(self, *words):
        self.number += 1
        self.socket.sendall(json.dumps({"command": words, "request_id": self.number}).encode() + b"\n")
        for line in self.lines:
            answer = json.loads(line)
            if answer.get("request_id") == self.number and "error" in answer:
                if answer["error"] != "success":
                    raise RuntimeError(f"mpv: {words[0]}: {answer['error']}")
                return answer.get("data")
        raise RuntimeError("mpv has gone")

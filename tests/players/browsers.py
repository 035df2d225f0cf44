"""Chromium and Firefox, remote-controlled, on a page of ours that plays the movie."""

import base64
import http.server
import json
import os
import re
import shutil
import socket
import subprocess
import tempfile
import threading
import time
import urllib.parse
import urllib.request
from pathlib import Path

import gi

gi.require_version("GdkPixbuf", "2.0")
from gi.repository import GdkPixbuf  # noqa: E402

import mark as marks  # noqa: E402
import timeline  # noqa: E402
from screen import HEIGHT, WIDTH, Screen  # noqa: E402

PAGE = Path(__file__).with_name("page.html")
# Of Firefox's window. The page gives the movie the size of a screen and puts it in the upper left corner.
WINDOW = ("800", "600")


class Site:
    """Serves the page and movies to this machine alone; parts of movies too, as players ask for when they seek."""

    def __init__(self):
        self.files = {"/": PAGE}
        site = self

        class Handler(http.server.BaseHTTPRequestHandler):
            protocol_version = "HTTP/1.1"

            def do_GET(self):
                file = site.files.get(self.path)
                if file is None:
                    return self.send_error(404)
                data = file.read_bytes()
                first, last = 0, len(data) - 1
                part = re.fullmatch(r"bytes=(\d+)-(\d*)", self.headers.get("Range", ""))
                if part:
                    first, last = int(part[1]), min(int(part[2] or last), last)
                    if first > last:
                        return self.send_error(416)
                self.send_response(206 if part else 200)
                if part:
                    self.send_header("Content-Range", f"bytes {first}-{last}/{len(data)}")
                self.send_header("Accept-Ranges", "bytes")
                self.send_header("Content-Type", "text/html; charset=utf-8" if file == PAGE else "video/mp4")
                self.send_header("Content-Length", str(last + 1 - first))
                self.end_headers()
                try:
                    self.wfile.write(data[first:last + 1])
                except OSError:
                    pass

            def log_message(self, *words):
                pass

        self.server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
        self.server.daemon_threads = True
        threading.Thread(target=self.server.serve_forever, daemon=True).start()
        self.address = f"http://127.0.0.1:{self.server.server_port}"

    def add(self, file):
        path = f"/{len(self.files)}.mov"
        self.files[path] = file
        return path

    def close(self):
        self.server.shutdown()
        self.server.server_close()


class Browser:
    """What both have in common. `command(name, arguments)` of each sends one WebDriver command."""

    may_be_early = False
    # A folder for pictures of the screen.
    kept = None

    def __init__(self, folder, loudspeaker):
        self.folder = Path(tempfile.mkdtemp(prefix=f"{self.name}-", dir=folder))
        self.environment = dict(os.environ, **loudspeaker.environment, HOME=str(self.folder))
        self.site = Site()
        self.process = None
        try:
            self.begin()
        except BaseException:
            self.close()
            raise

    def close(self):
        if self.process:
            self.stop()
        self.site.close()

    def stop(self):
        self.process.terminate()
        try:
            self.process.wait(10)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()

    def spawn(self, *command):
        self.process = subprocess.Popen(command, env=self.environment, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                        stderr=subprocess.DEVNULL, cwd=self.folder, text=True)

    def run(self, script, *arguments):
        return self.command("ExecuteScript", {"script": script, "args": arguments})

    def screenshot(self):
        return base64.b64decode(self.command("TakeScreenshot", {}))

    def screen_mark(self, name):
        """The mark in what the browser draws, page and all."""
        data = self.screenshot()
        if self.kept:
            (self.kept / f"{name}.png").write_bytes(data)
        loader = GdkPixbuf.PixbufLoader()
        loader.write(data)
        loader.close()
        picture = loader.get_pixbuf()
        pixels, row_bytes, channels = picture.get_pixels(), picture.get_rowstride(), picture.get_n_channels()
        scale = picture.get_width() / self.run("return innerWidth")
        return marks.mark_in_picture(lambda x, y: pixels[y * row_bytes + x * channels + 1], 0, 0, WIDTH * scale,
                                     HEIGHT * scale)

    def open(self, movie):
        self.command("Navigate", {"url": self.site.address + "/"})
        self.run("player.load(arguments[0])", self.site.add(movie.path))
        self.wait_for("return player.record.error || player.video.readyState >= 2", 30)

    def wait_for(self, script, deadline):
        end = time.monotonic() + deadline
        while not self.run(script):
            if time.monotonic() > end:
                raise TimeoutError(f"{self.name}: not within {deadline} s: {script}")
            time.sleep(0.02)
        error = self.run("return player.record.error")
        if error:
            raise RuntimeError(error)

    def play(self, movie):
        """Plays the movie in the page until it ends by itself."""
        self.open(movie)
        length = self.run("return player.video.duration")
        if abs(length - movie.length) > 0.001:
            raise RuntimeError(f"the length is {length} s instead of {movie.length}")
        self.run("player.play()")
        samples, end = self.watch(movie)
        seen = self.screen_mark(f"{movie.name}, its end")
        if seen != movie.marks[-1]:
            raise RuntimeError(f"after the end the screen shows photo {seen}")
        return samples, end

    def watch(self, movie):
        """Samples of (seconds, mark) while it plays, and the time of its end; as the page sees its own picture."""
        self.wait_for("return player.record.error || player.record.ended !== null", movie.length + 30)
        record = self.run("return player.record")
        return timeline.Clock(map(tuple, record["clock"])).told(record["samples"], record["ended"])

    def seek(self, movie, places):
        """Goes to places of (seconds, mark), and gives for each None or what is wrong."""
        self.open(movie)
        yield self.fault(0, movie.marks[0], self.run("return player.mark()"))
        for seconds, mark in places:
            there = self.command("ExecuteAsyncScript", {"script": "player.goTo(...arguments)", "args": [seconds]})
            fault = self.fault(seconds, mark, there["mark"])
            if not fault and abs(there["time"] - seconds) > 0.001:
                fault = f"it says it went to {there['time']} s"
            yield fault

    def fault(self, seconds, mark, seen):
        if seen != mark:
            return f"photo {seen} is shown"
        seen = self.screen_mark(f"at {seconds:g} s")
        return None if seen == mark else f"the screen shows photo {seen}"


class Chromium(Browser):
    """In a window that fills a screen of its own, which tells more than a canvas that nobody looks at."""

    name = "Chromium"
    # Where pictures last a second or more, it now and then shows the third one for half a second, and is ahead of its own
    # clock for some pictures more. It does so with movies of other makers too, and not with shorter pictures.
    may_be_early = True
    codecs = ("avc1",)
    screen = None

    def begin(self):
        self.screen = Screen(self.folder)
        self.environment["DISPLAY"] = self.screen.display
        self.spawn("chromedriver", "--port=0")
        for line in self.process.stdout:
            started = re.search(r"started successfully on port (\d+)", line)
            if started:
                break
        else:
            raise RuntimeError("chromedriver did not start")
        self.address = f"http://127.0.0.1:{started[1]}/session"
        options = ["--ozone-platform=x11", "--kiosk", "--window-position=0,0", f"--window-size={WIDTH},{HEIGHT}", f"--user-data-dir={self.folder}/profile",
                   "--autoplay-policy=no-user-gesture-required", "--hide-scrollbars", "--force-device-scale-factor=1",
                   "--no-first-run", "--disable-background-networking", "--disable-component-update", "--disable-sync",
                   "--disable-quic", "--disable-default-apps", "--disable-extensions",
                   # It looks up no name and reaches nothing but this machine.
                   "--host-resolver-rules=MAP * ~NOTFOUND, EXCLUDE 127.0.0.1"]
        if os.geteuid() == 0:
            options.append("--no-sandbox")
        # Without a bar that says who controls it.
        wanted = {"browserName": "chrome", "goog:chromeOptions": {"binary": shutil.which("chromium"), "args": options,
                                                                  "excludeSwitches": ["enable-automation"]}}
        answer = self.request("POST", "", {"capabilities": {"alwaysMatch": wanted}})
        self.address += "/" + answer["sessionId"]

    def stop(self):
        try:
            self.request("DELETE", "")
        except OSError:
            pass
        super().stop()

    def close(self):
        super().close()
        if self.screen:
            self.screen.close()

    def watch(self, movie):
        """As it stands on the screen."""
        self.wait_for("return player.record.error || player.record.samples.length", 30)
        is_over = lambda: self.run("return player.record.error || player.record.ended !== null")
        samples, _ = self.screen.watch(is_over, movie.length + 30, self.kept and self.kept / movie.name)
        record = self.run("return player.record")
        # From the page's time to that of the screen's samples.
        origin = record["origin"] + time.monotonic() - time.time()
        clock = timeline.Clock((origin + there, position) for there, position in record["clock"])
        return clock.told(samples, origin + record["ended"])

    def request(self, method, path, body=None):
        data = json.dumps(body).encode() if body is not None else None
        request = urllib.request.Request(self.address + path, data, {"Content-Type": "application/json"}, method=method)
        with urllib.request.build_opener(urllib.request.ProxyHandler({})).open(request, timeout=120) as answer:
            return json.load(answer)["value"]

    def command(self, name, arguments):
        path = {"Navigate": "/url", "ExecuteScript": "/execute/sync", "ExecuteAsyncScript": "/execute/async",
                "TakeScreenshot": "/screenshot"}[name]
        return self.request("GET", path) if name == "TakeScreenshot" else self.request("POST", path, arguments)


class Firefox(Browser):
    """Without a window; it plays there as it does in one."""

    name = "Firefox"
    codecs = ("avc1",)

    SETTINGS = {
        "marionette.port": 0,
        "media.autoplay.default": 0,
        # It reaches nothing but this machine.
        "network.proxy.type": 1,
        "network.proxy.http": "127.0.0.1",
        "network.proxy.http_port": 9,
        "network.proxy.ssl": "127.0.0.1",
        "network.proxy.ssl_port": 9,
        "app.update.enabled": False,
        "datareporting.policy.dataSubmissionEnabled": False,
        "browser.shell.checkDefaultBrowser": False,
    }

    def begin(self):
        profile = self.folder / "profile"
        profile.mkdir()
        lines = (f"user_pref({json.dumps(name)}, {json.dumps(value)});\n" for name, value in self.SETTINGS.items())
        (profile / "user.js").write_text("".join(lines))
        self.spawn("firefox-esr", "--headless", "--marionette", "--no-remote", "--width", WINDOW[0], "--height", WINDOW[1],
                   "--profile", str(profile))
        chosen = profile / "MarionetteActivePort"
        end = time.monotonic() + 60
        while not chosen.exists() or not chosen.read_text():
            if time.monotonic() > end or self.process.poll() is not None:
                raise RuntimeError("Firefox did not start")
            time.sleep(0.1)
        self.socket = socket.create_connection(("127.0.0.1", int(chosen.read_text())), timeout=120)
        self.answers = self.socket.makefile("rb")
        self.number = 0
        self.answer()
        self.command("NewSession", {})

    def answer(self):
        """Messages are JSON, each after its length and a colon."""
        length = b""
        while not length.endswith(b":"):
            byte = self.answers.read(1)
            if not byte:
                raise RuntimeError("Firefox has gone")
            length += byte
        return json.loads(self.answers.read(int(length[:-1])))

    def command(self, name, arguments):
        self.number += 1
        if name == "TakeScreenshot":
            arguments = {"full": False}
        message = json.dumps([0, self.number, f"WebDriver:{name}", arguments]).encode()
        self.socket.sendall(b"%d:%s" % (len(message), message))
        while True:
            kind, number, error, result = self.answer()
            if (kind, number) == (1, self.number):
                break
        if error:
            raise RuntimeError(f"{name}: {error.get('message')}")
        return result["value"] if isinstance(result, dict) and set(result) == {"value"} else result

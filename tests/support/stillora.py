"""What the end-to-end tests share: photos, the service as a process of its own, a client, and reading movies back.

The programs under test are those of the folder that the environment variable STILLORA_BIN names, or of the release build.
"""

import contextlib
import ctypes
import fcntl
import json
import os
import plistlib
import re
import shutil
import socket
import subprocess
import tempfile
import time
import unittest
from pathlib import Path

import gi

gi.require_version("Gio", "2.0")
from gi.repository import Gio, GLib  # noqa: E402

BIN = Path(os.environ.get("STILLORA_BIN", Path(__file__).resolve().parents[2] / "build/release/bin"))
SERVICE = BIN / "stillora-video-creator"
STILLORA = BIN / "stillora"

PATH = "/app/stillora/VideoCreator"
INTERFACE = "app.stillora.morStilloraVideoCreatorProtocol"
RECEIVER_PATH = "/app/stillora/ProgressReceiver"
RECEIVER_INTERFACE = "app.stillora.morStilloraXPCCreatorUpdateProtocol"
REQUEST = "(a(sa{sv})a(sa{sv})ddbdsxbayayay)"
REPLY = "(aya(sxs)b)"

# Generous, as sanitizers on a busy machine are slow; nothing waits as long as this unless it fails.
DEADLINE = 240

RECEIVER_XML = f"""
<node><interface name="{RECEIVER_INTERFACE}"><method name="updateProgressWithTitle">
<arg type="s" direction="in"/><arg type="ay" direction="in"/><arg type="b" direction="in"/>
<arg type="d" direction="in"/><arg type="d" direction="in"/><arg type="d" direction="in"/>
</method></interface></node>"""


def wait_until(condition, what, deadline=DEADLINE):
    """Runs the main loop until `condition` gives something true, and returns that."""
    end = time.monotonic() + deadline
    context = GLib.MainContext.default()
    # A tick, so that a condition outside the main loop is looked at as well.
    tick = GLib.timeout_add(20, lambda: True)
    try:
        while True:
            result = condition()
            if result:
                return result
            if time.monotonic() > end:
                raise AssertionError(f"not within {deadline} s: {what}")
            context.iteration(True)
    finally:
        GLib.source_remove(tick)


def private_environment(home, **changes):
    """This process's environment, for programs that are to have `home` and to find nothing of the user's."""
    values = {name: value for name, value in os.environ.items() if not name.startswith(("XDG_", "LC_", "LANG"))}
    values.update(
        HOME=str(home),
        LC_ALL="C.UTF-8",
        XDG_RUNTIME_DIR=str(home),
        # No logind unless a test mocks one: the machine's own is none of our business.
        DBUS_SYSTEM_BUS_ADDRESS=f"unix:path={home}/no-bus",
    )
    values.update({name: str(value) for name, value in changes.items()})
    return values


class TestCase(unittest.TestCase):
    """Each test has a folder of its own, and in it a home, so that it neither sees nor changes the user's."""

    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory(prefix="stillora-")
        cls.addClassCleanup(folder.cleanup)
        cls.shared = Path(folder.name)

    def setUp(self):
        # Not cleaned up by TemporaryDirectory alone: a test may have taken away its own permissions.
        self.folder = Path(tempfile.mkdtemp(prefix="test-", dir=self.shared))
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)
        self.home = self.folder / "home"
        self.home.mkdir()
        self.save = self.folder / "save"
        self.save.mkdir()
        self.temporary = self.folder / "temporary"
        self.temporary.mkdir()
        self.findings = self.folder / "findings"
        self.findings.mkdir()
        self.addCleanup(self.assertNoFindings)

    def assertNoFindings(self):
        """What a sanitizer found in any process of this test, whoever read that process's standard error."""
        for report in sorted(self.findings.iterdir()):
            self.fail(report.read_text(errors="replace"))

    def environment(self, **changes):
        values = private_environment(self.home)
        for name in ("ASAN_OPTIONS", "TSAN_OPTIONS"):
            values[name] = f"{values.get(name, '')}:log_path='{self.findings}/report'"
        values.update({name: str(value) for name, value in changes.items()})
        return values

    def leftovers(self, folder=None):
        """Everything below a folder, hidden files too; to be compared with what should be there."""
        folder = folder or self.folder
        return sorted(str(p.relative_to(folder)) for p in folder.rglob("*") if not p.is_dir())

    def run_stillora(self, *arguments, expect=0, environment=None, prefix=(), **options):
        """Runs the command line, and shows what it said if the exit code is another than expected."""
        result = subprocess.run(
            [*prefix, str(STILLORA), *map(os.fspath, arguments)],
            stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE,
            stderr=subprocess.PIPE,
            env=environment or self.environment(),
            timeout=DEADLINE,
            **options,
        )
        result.out = result.stdout.decode("utf-8", "surrogateescape")
        result.err = result.stderr.decode("utf-8", "surrogateescape")
        if expect is not None:
            codes = expect if isinstance(expect, (tuple, list)) else (expect,)
            self.assertIn(result.returncode, codes, f"\nsaid: {result.out}\nand: {result.err}")
        return result

    def create(self, *arguments, **options):
        """`stillora create` into the test's save folder."""
        return self.run_stillora("create", "--save", self.save, *arguments, **options)

    def made_movie(self, result):
        """The one movie that a successful run named on standard output."""
        lines = result.out.splitlines()
        self.assertEqual(len(lines), 1, result.out + result.err)
        movie = Path(lines[0])
        self.assertTrue(movie.is_file(), f"{movie} is no file")
        self.assertEqual(movie.parent, self.save)
        return movie


def build_setting(name):
    """What the build was configured with; empty where it was not."""
    text = (Path(os.environ["STILLORA_BUILD"]) / "CMakeCache.txt").read_text()
    found = re.search(rf"^{name}:\w+=(.*)$", text, re.MULTILINE)
    return found.group(1) if found else ""


def sanitizer_flags():
    """What a program has to be compiled with to use the build's libraries."""
    sanitizers = build_setting("STILLORA_SANITIZE")
    return [f"-fsanitize={sanitizers}"] if sanitizers else []


def is_sanitized(program):
    """Whether a sanitizer watches a program, for which it takes terabytes of addresses."""
    code = program.read_bytes()
    return b"__asan_init" in code or b"__tsan_init" in code


def knows_landlock():
    """Whether the kernel can keep a process from files, as it tells whoever asks."""
    create_ruleset, asks_for_version, first_version = 444, 1, 2
    return ctypes.CDLL(None).syscall(create_ruleset, None, 0, asks_for_version) >= first_version


def run(*command):
    """Runs a tool that must succeed, and returns what it prints."""
    result = subprocess.run([os.fspath(part) for part in command], stdin=subprocess.DEVNULL, capture_output=True)
    if result.returncode != 0:
        raise AssertionError(f"{command[0]} failed: {result.stderr.decode(errors='replace')}")
    return result.stdout


# Pictures

def picture(file, width=320, height=240, number=0, *options):
    """One picture that looks like no other `number`, in the format of the file's extension."""
    file = Path(file)
    source = ["-f", "lavfi", "-i", f"testsrc2=size={width}x{height}:rate=1,hue=h={number * 37}", "-frames:v", "1"]
    if file.suffix in (".heic", ".avif"):
        plain = file.with_suffix(".plain.png")
        run("ffmpeg", "-v", "error", "-y", *source, plain)
        # Slow enough as it is.
        encoder = ["-A"] if file.suffix == ".avif" else ["-p", "preset=ultrafast"]
        run("heif-enc", *encoder, *options, "-o", file, plain)
        plain.unlink()
    else:
        if file.suffix in (".jpg", ".jpeg"):
            source += ["-q:v", "3", "-pix_fmt", "yuvj420p"]
        elif file.suffix == ".tiff":
            source += ["-pix_fmt", "rgb24"]
        run("ffmpeg", "-v", "error", "-y", *source, *options, file)
    return file


def pictures(folder, count, width=320, height=240, extension="jpg"):
    """`count` pictures in one go."""
    folder.mkdir(parents=True, exist_ok=True)
    source = f"testsrc2=size={width}x{height}:rate=1:duration={count}"
    quality = ["-q:v", "3", "-pix_fmt", "yuvj420p"] if extension == "jpg" else []
    run("ffmpeg", "-v", "error", "-y", "-f", "lavfi", "-i", source, *quality, folder / f"photo %03d.{extension}")
    return sorted(folder.glob(f"*.{extension}"))


# Movies

def probe(movie):
    """What ffprobe reads: streams by kind, and the picture's packets."""
    text = run("ffprobe", "-v", "error", "-of", "json", "-show_format", "-show_streams", "-show_packets", movie)
    facts = json.loads(text)
    facts["video"] = [s for s in facts["streams"] if s["codec_type"] == "video"]
    facts["audio"] = [s for s in facts["streams"] if s["codec_type"] == "audio"]
    indexes = {s["index"] for s in facts["video"]}
    facts["pictures"] = [p for p in facts["packets"] if p["stream_index"] in indexes]
    return facts


def hold_times(movie):
    """(start, duration) in seconds of each picture, in the order in which they are stored."""
    return [(float(p["pts_time"]), float(p["duration_time"])) for p in probe(movie)["pictures"]]


def packet_hashes(movie, kind):
    """A hash of each packet's bytes of the tracks of one kind ("v" or "a"), in the order in which they are stored."""
    return run("ffprobe", "-v", "error", "-select_streams", kind, "-show_data_hash", "MD5", "-show_entries",
               "packet=data_hash", "-of", "csv=p=0", movie).decode().split()


def frame(movie, number, width=32, height=18):
    """One frame in small, as bytes of red, green and blue."""
    return run("ffmpeg", "-v", "error", "-i", movie, "-vf", f"select=eq(n\\,{number}),scale={width}:{height}", "-frames:v",
               "1", "-f", "rawvideo", "-pix_fmt", "rgb24", "-")


def decoded_frames(movie):
    """How many frames a player gets to show."""
    text = run("ffprobe", "-v", "error", "-count_frames", "-select_streams", "v:0", "-show_entries", "stream=nb_read_frames",
               "-of", "csv=p=0", movie)
    return int(text)


def decoded_frames_of(movies):
    """The same of several movies, by one program: starting it takes longer than what it does."""
    inputs = [word for movie in movies for word in ("-i", movie)]
    maps = [word for number in range(len(movies)) for word in ("-map", f"{number}:v")]
    text = run("ffmpeg", "-v", "error", *inputs, *maps, "-fps_mode", "passthrough", "-f", "framecrc", "-").decode()
    streams = [line.split(",")[0] for line in text.splitlines() if not line.startswith("#")]
    return [streams.count(str(number)) for number in range(len(movies))]


# The service and a client

def connect_when_listened(path):
    """A socket connected to `path`, once somebody listens there: the file is there a moment before that."""
    def attempt():
        connection = socket.socket(socket.AF_UNIX)
        try:
            connection.connect(str(path))
        except (FileNotFoundError, ConnectionRefusedError):
            connection.close()
            return None
        return connection

    return wait_until(attempt, f"somebody listens at {path}")


def file_list(readable, writable):
    """The descriptor of a list of files for a service, out of the way of those that every service has."""
    with open(os.memfd_create("files"), "wb") as file:
        file.write(b"".join(b"r%s\0" % os.fsencode(path) for path in readable))
        file.write(b"".join(b"w%s\0" % os.fsencode(path) for path in writable))
        file.flush()
        return fcntl.fcntl(file.fileno(), fcntl.F_DUPFD_CLOEXEC, 10)


class Service:
    """The service as a process of its own, started with a socket as its descriptor 3."""

    def __init__(self, descriptor, environment, log, prefix=(), files=None):
        self.log = Path(log)
        # The shell's process number becomes the service's, which is what LISTEN_PID has to name.
        script = 'exec 3<&"$1"; shift; LISTEN_PID=$$ LISTEN_FDS=1 exec "$@"'
        options = [] if files is None else ["--files", str(files)]
        with open(self.log, "wb") as out:
            self.process = subprocess.Popen(
                ["bash", "-c", script, "bash", str(descriptor), *prefix, str(SERVICE), *options],
                stdin=subprocess.DEVNULL, stdout=out, stderr=out, env=environment,
                pass_fds=[descriptor] + ([] if files is None else [files]),
            )

    @classmethod
    @contextlib.contextmanager
    def listening(cls, test, **environment):
        """A service that accepts connections at `service.address`."""
        path = test.folder / "service.socket"
        with socket.socket(socket.AF_UNIX) as listener:
            listener.bind(str(path))
            listener.listen(16)
            service = cls(listener.fileno(), test.environment(**environment), test.folder / "service.log")
        service.path = path
        service.address = f"unix:path={path}"
        with service:
            yield service

    @classmethod
    @contextlib.contextmanager
    def connected(cls, test, files=None, **environment):
        """A service whose only client is `service.client`; `files` is the descriptor of a list of files, which is closed."""
        ours, theirs = socket.socketpair(socket.AF_UNIX)
        with theirs:
            service = cls(theirs.fileno(), test.environment(**environment), test.folder / "service.log", files=files)
        if files is not None:
            os.close(files)
        with service:
            service.client = Client.on_socket(ours)
            yield service

    def __enter__(self):
        return self

    def __exit__(self, kind, value, trace):
        if self.process.poll() is None:
            self.process.terminate()
            try:
                self.process.wait(10)
            except subprocess.TimeoutExpired:
                self.process.kill()
                self.process.wait()
        text = self.said()
        if value is not None and text:
            print("the service said:", text, sep="\n")

    def said(self):
        return self.log.read_text(errors="replace")

    def is_running(self):
        return self.process.poll() is None

    def wait(self):
        """The exit code, once the process has ended."""
        wait_until(lambda: self.process.poll() is not None, "the service ends")
        return self.process.returncode

    def connect(self):
        connection = socket.socket(socket.AF_UNIX)
        connection.connect(str(self.path))
        return Client.on_socket(connection)

    def peak_memory(self):
        """Bytes of the largest resident set so far."""
        status = Path(f"/proc/{self.process.pid}/status").read_text()
        return int(next(line for line in status.splitlines() if line.startswith("VmHWM")).split()[1]) * 1024


class Client:
    """One connection, with the object that receives progress."""

    def __init__(self, connection):
        self.connection = connection
        self.updates = []
        connection.set_exit_on_close(False)
        interface = Gio.DBusNodeInfo.new_for_xml(RECEIVER_XML).interfaces[0]
        connection.register_object(RECEIVER_PATH, interface, self._called, None, None)

    @classmethod
    def on_socket(cls, connected):
        wrapped = Gio.Socket.new_from_fd(connected.detach())
        stream = wrapped.connection_factory_create_connection()
        return cls(Gio.DBusConnection.new_sync(stream, None, Gio.DBusConnectionFlags.AUTHENTICATION_CLIENT, None, None))

    def _called(self, connection, sender, path, interface, method, parameters, invocation):
        self.updates.append(Update(*parameters.unpack()))
        invocation.return_value(None)

    def call(self, method, parameters=None, interface=INTERFACE, path=PATH, reply=None):
        """Calls, and returns the pending answer."""
        return Answer(self.connection, path, interface, method, parameters, reply)

    def request(self, photos, save, temporary, **settings):
        """Sends a creation request, and returns the pending answer."""
        return self.call("createStillMotionVideoWithPhotos", request(photos, save, temporary, **settings),
                         reply=GLib.VariantType.new(REPLY))

    def cancel(self):
        return self.call("cancelCreation").result()

    def close(self):
        self.connection.close_sync(None)


class Update:
    def __init__(self, title, image, determinate, progress, total, seconds):
        self.title = title
        self.image = bytes(image)
        self.determinate = determinate
        self.progress = progress
        self.total = total
        self.seconds = seconds


class Answer:
    """The answer of a call, maybe not there yet."""

    def __init__(self, connection, path, interface, method, parameters, reply):
        self.count = 0
        self.value = None
        self.error = None
        connection.call(None, path, interface, method, parameters, reply, Gio.DBusCallFlags.NONE, GLib.MAXINT, None,
                        self._arrived)

    def _arrived(self, connection, result):
        self.count += 1
        try:
            self.value = connection.call_finish(result).unpack()
        except GLib.Error as error:
            self.error = error

    def is_there(self):
        return self.count > 0

    def result(self, deadline=DEADLINE):
        wait_until(self.is_there, "the answer", deadline)
        if self.error is not None:
            raise self.error
        return self.value

    def movie(self):
        """The movie of a request that succeeded."""
        data, errors, cancelled = self.result()
        assert not errors and not cancelled and data, (data, errors, cancelled)
        return Path(plistlib.loads(bytes(data))["path"])

    def error_name(self):
        """The name of the D-Bus error that the call was answered with, and its text."""
        wait_until(self.is_there, "the answer")
        assert self.error is not None, f"answered with {self.value}"
        return Gio.DBusError.get_remote_error(self.error), self.error.message


def bookmark(path):
    return plistlib.dumps({"path": os.fspath(path)}, fmt=plistlib.FMT_BINARY)


def photo(path, width=320, height=240, **changes):
    """A photo as it crosses the wire; `changes` replace or add keyed values, None takes one away."""
    path = Path(path)
    values = {
        "photoURL": GLib.Variant("ay", bookmark(path)),
        "title": GLib.Variant("s", path.stem),
        "size": GLib.Variant("s", f"{{{width}, {height}}}"),
        "fileSize": GLib.Variant("x", path.stat().st_size if path.exists() else 0),
        "isFeatured": GLib.Variant("b", False),
    }
    values.update(changes)
    return "MORPhoto", {key: value for key, value in values.items() if value is not None}


def soundtrack(path):
    """A whole sound file as it crosses the wire."""
    return "MORSoundtrack", {
        "soundtrackURL": GLib.Variant("ay", bookmark(path)),
        "selection": GLib.Variant("s", "{0.000000, 0.000000}"),
        "originalPath": GLib.Variant("s", os.fspath(path)),
    }


def request(photos, save, temporary, soundtracks=(), seconds=1.0, sound_seconds=0.0, loop=False, codec="avc1", quality=240,
            reduce_borders=False, document=None):
    items = [item if isinstance(item, tuple) else photo(item) for item in photos]
    return GLib.Variant(REQUEST, (
        items, list(soundtracks), seconds * len(items), sound_seconds, loop, seconds, codec, quality, reduce_borders,
        bookmark(document) if document else b"", bookmark(save), bookmark(temporary),
    ))

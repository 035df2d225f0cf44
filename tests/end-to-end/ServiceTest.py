"""The service as a process: its socket, what it answers on the wire, and what becomes of a job whose client goes."""

import os
import socket
import subprocess
import unittest

import dbusmock
import stillora
from gi.repository import GLib
from stillora import Service, file_list, hold_times, photo, wait_until

# The message that every client of a bus begins with: org.freedesktop.DBus.Hello, serial 1, no arguments.
HELLO = (b"l\1\0\1" + bytes(4) + b"\1\0\0\0" + b"\x4e\0\0\0" +
         b"\1\1o\0\x15\0\0\0/org/freedesktop/DBus\0\0\0" +
         b"\2\1s\0\x14\0\0\0org.freedesktop.DBus\0\0\0\0" + b"\3\1s\0\5\0\0\0Hello\0\0\0")

INVALID = "org.freedesktop.DBus.Error.InvalidArgs"


def tool(*command):
    """A command of the desktop's own tools; returns what it prints, whatever way it ends."""
    return subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=stillora.DEADLINE)


def is_rendering(client):
    """Whether frames are being written: from then on a cancel is answered."""
    return any(update.title == "VideoCreationTitleRenderingVideo" for update in client.updates)


class ServiceTest(stillora.TestCase):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.photos = stillora.pictures(cls.shared / "photos", 6)
        # A photo that cannot be shown is waited for, so a job of these runs until it is cancelled, however fast it is.
        cls.endless = [*cls.photos, cls.shared / "notes.jpg"]
        cls.endless[-1].write_bytes(b"these are no pixels\n" * 50)

    def silent_movies(self):
        """What jobs are writing: one file each, from before the first frame until the job ends."""
        return [p for p in self.leftovers(self.temporary) if p.endswith(".mov")]

    # The socket

    def test_without_a_socket_it_says_so_and_exits_with_1(self):
        result = subprocess.run([stillora.SERVICE], stdin=subprocess.DEVNULL, capture_output=True, text=True,
                                env=self.environment(), timeout=stillora.DEADLINE)
        self.assertEqual(result.returncode, 1)
        self.assertIn("socket", result.stderr.lower())

    def test_arguments_that_it_does_not_know_are_refused(self):
        def say(*arguments):
            return subprocess.run([stillora.SERVICE, *arguments], stdin=subprocess.DEVNULL, capture_output=True, text=True,
                                  env=self.environment(), timeout=stillora.DEADLINE)

        result = say("--no-watermarks")
        self.assertEqual((result.returncode, result.stdout), (2, ""))
        self.assertIn("there is no option --no-watermarks\nUsage: stillora-video-creator", result.stderr)
        for option, text in (("--help", "--no-watermark"), ("--version", "stillora-video-creator 0.")):
            result = say(option)
            self.assertEqual((result.returncode, result.stderr), (0, ""))
            self.assertIn(text, result.stdout)

    def test_a_socket_that_was_meant_for_another_process_is_not_taken(self):
        result = subprocess.run([stillora.SERVICE], stdin=subprocess.DEVNULL, capture_output=True, text=True,
                                env=self.environment(LISTEN_FDS="1", LISTEN_PID=str(os.getpid())), timeout=stillora.DEADLINE)
        self.assertEqual(result.returncode, 1)

    def test_a_descriptor_that_is_no_socket_is_refused(self):
        with open(os.devnull, "rb") as null:
            service = Service(null.fileno(), self.environment(), self.folder / "log")
        self.assertEqual(service.wait(), 1)
        self.assertNotEqual(service.said(), "")

    def test_a_movie_is_made_over_a_connected_socket(self):
        with Service.connected(self) as service:
            movie = service.client.request(self.photos, self.save, self.temporary).movie()
            self.assertEqual(len(hold_times(movie)), 6)

    def test_the_process_of_a_connected_socket_ends_with_its_client(self):
        with Service.connected(self) as service:
            service.client.call("Ping", interface="org.freedesktop.DBus.Peer").result()
            service.client.close()
            self.assertEqual(service.wait(), 0)

    def test_a_listening_socket_serves_one_client_after_another(self):
        with Service.listening(self) as service:
            for number in range(3):
                client = service.connect()
                client.call("Ping", interface="org.freedesktop.DBus.Peer").result()
                client.close()
            self.assertTrue(service.is_running())

    def test_cancelling_on_one_connection_leaves_the_job_of_another(self):
        document = self.folder / "other.slides"
        document.touch()
        with Service.listening(self) as service:
            one, other = service.connect(), service.connect()
            cancelled = one.request(self.endless, self.save, self.temporary, quality=720)
            wait_until(lambda: is_rendering(one), "the first job writes frames")
            kept = other.request(self.photos, self.save, self.temporary, document=document)
            # Not its updates: these may wait for the writing queue, which both jobs share and the first one holds.
            wait_until(lambda: len(self.silent_movies()) == 2, "the second job runs")
            one.cancel()
            self.assertEqual(cancelled.result(), ([], [], True))
            movie = kept.movie()
            self.assertEqual(movie.name, "other.mov")
            self.assertEqual(len(hold_times(movie)), 6)
            self.assertEqual(sorted(p.name for p in self.save.iterdir()), ["other.mov"])

    @unittest.skipUnless(os.geteuid() == 0, "only root can be another user")
    def test_another_users_process_is_refused(self):
        os.chmod(self.shared, 0o711)
        os.chmod(self.folder, 0o711)
        with Service.listening(self) as service:
            os.chmod(service.path, 0o777)
            ping = ["gdbus", "call", "--address", service.address, "--dest", "app.stillora.VideoCreator", "--object-path", stillora.PATH, "--method",
                    "org.freedesktop.DBus.Peer.Ping", "--timeout", "20"]
            other = tool("setpriv", "--reuid=65534", "--regid=65534", "--clear-groups", *ping)
            self.assertNotEqual(other.returncode, 0)
            self.assertEqual(tool(*ping).returncode, 0)

    # Ordinary bus tools

    def test_gdbus_pings_and_introspects(self):
        with Service.listening(self) as service:
            ping = tool("gdbus", "call", "--address", service.address, "--dest", "app.stillora.VideoCreator", "--object-path", stillora.PATH, "--method",
                        "org.freedesktop.DBus.Peer.Ping")
            self.assertEqual((ping.returncode, ping.stdout.strip()), (0, "()"), ping.stderr)
            shown = tool("gdbus", "call", "--address", service.address, "--dest", "app.stillora.VideoCreator", "--object-path", stillora.PATH, "--method",
                         "org.freedesktop.DBus.Introspectable.Introspect")
            self.assertEqual(shown.returncode, 0, shown.stderr)
            self.assertIn(stillora.INTERFACE, shown.stdout)
            for name in ("createStillMotionVideoWithPhotos", "cancelCreation", "a(sa{sv})", "a(sxs)"):
                self.assertIn(name, shown.stdout)

    def test_busctl_connects_as_to_a_bus_and_introspects(self):
        with Service.listening(self) as service:
            shown = tool("busctl", f"--address={service.address}", "introspect", "app.stillora.VideoCreator", stillora.PATH)
            self.assertEqual(shown.returncode, 0, shown.stderr)
            self.assertRegex(shown.stdout, r"\.cancelCreation\s+method\s+-\s+-")
            self.assertRegex(shown.stdout, r"\.createStillMotionVideoWithPhotos\s+method\s+a\(sa\{sv\}\)a\(sa\{sv\}\)ddbdsxbayayay")

    def test_dbus_send_pings_the_peer(self):
        with Service.listening(self) as service:
            answer = tool("dbus-send", f"--peer={service.address}", "--print-reply", "--type=method_call", stillora.PATH,
                          "org.freedesktop.DBus.Peer.Ping")
            self.assertEqual(answer.returncode, 0, answer.stderr)
            self.assertIn("method return", answer.stdout)

    def test_hello_gives_a_unique_name(self):
        with Service.connected(self) as service:
            answer = service.client.call("Hello", interface="org.freedesktop.DBus", path="/org/freedesktop/DBus").result()
            self.assertRegex(answer[0], r"^:\d+\.\d+$")

    # Requests

    def test_a_request_without_photos_is_answered_at_once(self):
        with Service.connected(self) as service:
            self.assertEqual(service.client.request([], self.save, self.temporary).result(deadline=60), ([], [], False))
            self.assertEqual(list(self.save.iterdir()), [])

    def test_each_stage_reports_in_its_turn(self):
        with Service.connected(self) as service:
            client = service.client
            client.request(self.photos, self.save, self.temporary).movie()
            wait_until(lambda: client.updates, "updates")
            known = ["VideoCreationTitleCalculatingVideoSize", "VideoCreationTitleRenderingVideo",
                     "VideoCreationTitleWritingVideo"]
            places = [known.index(update.title) for update in client.updates]
            self.assertEqual(places, sorted(places))
            for update in client.updates:
                if update.determinate:
                    self.assertGreater(update.progress, 0)
                    self.assertLessEqual(update.progress, update.total)
                    self.assertEqual(update.total, 6)
                self.assertIn(update.image[:8], (b"", b"\x89PNG\r\n\x1a\n"))

    def test_a_second_request_on_a_connection_makes_a_second_movie(self):
        with Service.connected(self) as service:
            document = self.folder / "Holiday.slides"
            document.touch()
            first = service.client.request(self.photos, self.save, self.temporary, document=document).movie()
            second = service.client.request(self.photos, self.save, self.temporary, document=document).movie()
            self.assertEqual(first.name, "Holiday.mov")
            self.assertNotEqual(first, second)
            self.assertEqual(hold_times(first), hold_times(second))

    def test_a_request_after_a_cancel_is_answered_as_cancelled(self):
        with Service.connected(self) as service:
            service.client.cancel()
            self.assertEqual(service.client.request(self.photos, self.save, self.temporary).result(), ([], [], True))
            self.assertEqual(self.leftovers(self.save), [])

    def test_a_cancelled_job_leaves_no_movie(self):
        with Service.connected(self) as service:
            answer = service.client.request(self.endless, self.save, self.temporary, quality=1080)
            wait_until(lambda: is_rendering(service.client), "frames are written")
            self.assertEqual(answer.count, 0)
            service.client.cancel()
            self.assertEqual(answer.result(), ([], [], True))
            # Whatever else there is to come has come before the answer to a later call.
            service.client.call("Ping", interface="org.freedesktop.DBus.Peer").result()
            self.assertEqual(answer.count, 1)
            self.assertEqual(self.leftovers(self.save), [])
            self.assertEqual(self.silent_movies(), [])

    def test_an_argument_of_another_class_is_refused_and_named(self):
        good = photo(self.photos[0])
        cases = {
            "a class that is not allowed": [("MORSoundtrack", good[1])],
            "a class that nobody knows": [("NSObject", {})],
            "a value of another class than its key's": [photo(self.photos[0], title=GLib.Variant("x", 5))],
            "the third of five": [good, good, ("NSString", {}), good, good],
        }
        with Service.connected(self) as service:
            for name, items in cases.items():
                with self.subTest(name):
                    error, text = service.client.request(items, self.save, self.temporary).error_name()
                    self.assertEqual(error, INVALID)
                    self.assertIn("photos", text)
            # The connection is as good as before.
            self.assertEqual(service.client.request([], self.save, self.temporary).result(), ([], [], False))
            self.assertEqual(service.client.updates, [])

    def test_a_message_of_another_signature_is_refused(self):
        with Service.connected(self) as service:
            for parameters in (None, GLib.Variant("(s)", ("photos",)), GLib.Variant("(a(sa{sv}))", ([],))):
                error, _ = service.client.call("createStillMotionVideoWithPhotos", parameters).error_name()
                self.assertEqual(error, INVALID)
            error, _ = service.client.call("cancelCreation", GLib.Variant("(i)", (1,))).error_name()
            self.assertEqual(error, INVALID)
            error, _ = service.client.call("noSuchOperation").error_name()
            self.assertEqual(error, "org.freedesktop.DBus.Error.UnknownMethod")
            service.client.call("Ping", interface="org.freedesktop.DBus.Peer").result()

    # Clients that misbehave

    def test_garbage_on_the_socket_ends_that_connection_alone(self):
        with Service.listening(self) as service:
            for garbage in (b"\0\xff" * 300, b"GET / HTTP/1.1\r\n\r\n", b"\0AUTH EXTERNAL zz\r\n" + bytes(range(256)) * 64,
                            b"\0" + b"A" * 100_000):
                with socket.socket(socket.AF_UNIX) as stranger:
                    stranger.settimeout(stillora.DEADLINE)
                    stranger.connect(str(service.path))
                    try:
                        stranger.sendall(garbage)
                        stranger.shutdown(socket.SHUT_WR)
                        # Whatever it answers, it hangs up in the end.
                        while stranger.recv(4096):
                            pass
                    except (BrokenPipeError, ConnectionResetError):
                        pass
            self.assertTrue(service.is_running())
            service.connect().call("Ping", interface="org.freedesktop.DBus.Peer").result()

    def test_garbage_after_the_handshake_ends_that_connection_alone(self):
        def handshaken(path):
            peer = socket.socket(socket.AF_UNIX)
            peer.settimeout(stillora.DEADLINE)
            peer.connect(str(path))
            identity = str(os.getuid()).encode().hex().encode()
            peer.sendall(b"\0AUTH EXTERNAL " + identity + b"\r\n")
            self.assertTrue(peer.recv(4096).startswith(b"OK "))
            # A greeting that is answered shows that the connection is up.
            peer.sendall(b"BEGIN\r\n" + HELLO)
            self.assertIn(b":1.", peer.recv(4096))
            return peer

        nonsense = {
            "no message at all": b"\xde\xad\xbe\xef" * 64,
            "a header that promises more than there can be": b"l\1\0\1\xff\xff\xff\xff\1\0\0\0\xff\xff\xff\xff",
        }
        unfinished = {
            "a header that promises 128 MB": b"l\1\0\1" + (0x07FFFFF0).to_bytes(4, "little") + b"\1\0\0\0" + b"\0" * 4,
            "half a header": b"l\1\0\1\x10\0\0\0\1\0\0\0\x20",
        }
        with Service.listening(self) as service:
            service.connect().call("Ping", interface="org.freedesktop.DBus.Peer").result()
            descriptors = lambda: len(os.listdir(f"/proc/{service.process.pid}/fd"))
            before = descriptors()
            for name, message in nonsense.items():
                with self.subTest(name), handshaken(service.path) as peer:
                    peer.sendall(message)
                    try:
                        while peer.recv(4096):
                            pass
                    except ConnectionResetError:
                        pass
            for name, message in unfinished.items():
                with self.subTest(name), handshaken(service.path) as peer:
                    peer.sendall(message)
            wait_until(lambda: descriptors() <= before, "nothing is left of these connections")
            self.assertTrue(service.is_running())
            self.assertLess(service.peak_memory(), 100e6 if "ASAN_OPTIONS" not in os.environ else 1e9)
            service.connect().call("Ping", interface="org.freedesktop.DBus.Peer").result()

    def test_a_client_that_says_nothing_keeps_nobody_waiting(self):
        with Service.listening(self) as service, socket.socket(socket.AF_UNIX) as silent:
            silent.connect(str(service.path))
            service.connect().call("Ping", interface="org.freedesktop.DBus.Peer").result(deadline=60)

    def test_a_client_that_vanishes_takes_its_job_with_it(self):
        with Service.listening(self) as service:
            client = service.connect()
            client.request(self.endless, self.save, self.temporary, quality=1080)
            wait_until(lambda: is_rendering(client), "frames are written")
            self.assertEqual(len(self.silent_movies()), 1)
            client.close()
            wait_until(lambda: self.silent_movies() == [], "the job's file is gone")
            self.assertEqual(self.leftovers(self.save), [])
            # The service lives on for others.
            movie = service.connect().request(self.photos, self.save, self.temporary).movie()
            self.assertEqual(len(hold_times(movie)), 6)

    def test_a_process_of_one_client_ends_when_that_client_vanishes_in_the_middle(self):
        with Service.connected(self) as service:
            service.client.request(self.endless, self.save, self.temporary, quality=1080)
            wait_until(lambda: is_rendering(service.client), "frames are written")
            service.client.close()
            self.assertEqual(service.wait(), 0)
            self.assertEqual(self.leftovers(self.save), [])


class PowerTest(stillora.TestCase):
    """Idle sleep is held off through logind; here through a mock of it on a private system bus."""

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.photos = stillora.pictures(cls.shared / "photos", 6)
        dbusmock.DBusTestCase.start_system_bus()
        cls.addClassCleanup(dbusmock.DBusTestCase.tearDownClass)
        cls.bus = os.environ["DBUS_SYSTEM_BUS_ADDRESS"]
        cls.logind, cls.manager = dbusmock.DBusTestCase.spawn_server_template("logind", stdout=subprocess.DEVNULL)
        cls.addClassCleanup(cls.stop_logind)

    @classmethod
    def stop_logind(cls):
        cls.logind.terminate()
        cls.logind.wait()

    def inhibitors(self):
        return [tuple(map(str, entry[:4])) for entry in self.manager.ListInhibitors(dbus_interface="org.freedesktop.login1.Manager")]

    def test_a_job_holds_off_idle_sleep_until_its_process_ends(self):
        with Service.connected(self, DBUS_SYSTEM_BUS_ADDRESS=self.bus) as service:
            self.assertEqual(self.inhibitors(), [])
            service.client.request(self.photos, self.save, self.temporary).movie()
            held = self.inhibitors()
            self.assertEqual(len(held), 1, held)
            what, who, why, mode = held[0]
            self.assertIn("idle", what.split(":"))
            self.assertEqual(mode, "block")
            self.assertNotEqual(who, "")
            self.assertNotEqual(why, "")
            service.client.close()
            service.wait()
        wait_until(lambda: self.inhibitors() == [], "the inhibitor ends with the process")

    def test_a_service_that_makes_no_connections_holds_it_off_too(self):
        files = file_list(self.photos, [self.save, self.temporary])
        with Service.connected(self, files=files, DBUS_SYSTEM_BUS_ADDRESS=self.bus) as service:
            service.client.request(self.photos, self.save, self.temporary).movie()
            self.assertEqual(len(self.inhibitors()), 1, service.said())
            service.client.close()
            service.wait()
        wait_until(lambda: self.inhibitors() == [], "the inhibitor ends with the process")

    def test_a_request_without_photos_takes_no_inhibitor(self):
        with Service.connected(self, DBUS_SYSTEM_BUS_ADDRESS=self.bus) as service:
            service.client.request([], self.save, self.temporary).result()
            self.assertEqual(self.inhibitors(), [])

    def test_a_machine_without_logind_makes_its_movie_all_the_same(self):
        with Service.connected(self) as service:
            movie = service.client.request(self.photos, self.save, self.temporary).movie()
            self.assertEqual(len(hold_times(movie)), 6)


if __name__ == "__main__":
    unittest.main(verbosity=2)

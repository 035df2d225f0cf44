"""The entries of file managers' menus, and what a click on them does, against a pretended desktop."""

import configparser
import json
import os
import re
import signal
import subprocess
import unittest
from pathlib import Path

import stillora
from gi.repository import Gio, GLib
from stillora import hold_times, run, wait_until

BUILD = os.environ["STILLORA_BUILD"]
SOURCE = Path(__file__).resolve().parents[2]

NOTIFICATIONS = """
<node><interface name="org.freedesktop.Notifications">
<method name="GetCapabilities"><arg type="as" direction="out"/></method>
<method name="Notify"><arg type="s" direction="in"/><arg type="u" direction="in"/><arg type="s" direction="in"/>
<arg type="s" direction="in"/><arg type="s" direction="in"/><arg type="as" direction="in"/><arg type="a{sv}" direction="in"/>
<arg type="i" direction="in"/><arg type="u" direction="out"/></method>
<signal name="ActionInvoked"><arg type="u"/><arg type="s"/></signal>
<signal name="NotificationClosed"><arg type="u"/><arg type="u"/></signal>
</interface></node>"""

# Names that a shell, a menu or an address could take for something else.
AWKWARD = ["-o", "a b.jpg", "it's \"q\".jpg", "$(touch gone).jpg", "100% %U.jpg", "line\nbreak.jpg", "Ä 写真.jpg", "#1?.jpg"]

# Runs an extension as its file manager does, which gives it a class to fill in; shows what it offers for each selection,
# and chooses the entry of the last one.
HOST = """
import json, runpy, sys
import gi, gi.repository
from gi.repository import GLib, GObject

class Item(GObject.GObject):
    __gsignals__ = {"activate": (GObject.SignalFlags.RUN_FIRST, None, ())}
    def __init__(self, **values):
        super().__init__()
        self.values = values

class Module:
    # An interface there.
    MenuProvider = type("MenuProvider", (), {})
    MenuItem = Item

class File:
    def __init__(self, address, kind):
        self.address, self.kind = address, kind
    def get_uri(self): return self.address
    def get_uri_scheme(self): return self.address.split(":")[0]
    def get_mime_type(self): return self.kind
    def is_directory(self): return self.kind == "inode/directory"

setattr(gi.repository, sys.argv[1], Module)
extension = runpy.run_path(sys.argv[2], run_name="stillora")["StilloraMenu"]()
for selection in json.loads(sys.argv[3]):
    files = [File(*file) for file in selection]
    items = extension.get_file_items(files) if sys.argv[1] == "Nautilus" else extension.get_file_menu_items(None, files)
    print(json.dumps([item.values["label"] for item in items]))
if len(sys.argv) > 4:
    items[0].emit("activate")
"""


class Desktop:
    """A session bus of its own, on which notifications are taken as a desktop takes them."""

    def __init__(self, test, capabilities=("actions", "body", "body-markup")):
        self.capabilities = list(capabilities)
        self.shown = []
        self._next = 1
        address = f"unix:dir={test.folder}"
        self._daemon = subprocess.Popen(["dbus-daemon", "--session", "--nofork", "--nopidfile", f"--address={address}",
                                         "--print-address"], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE)
        test.addCleanup(self._end)
        self.address = self._daemon.stdout.readline().decode().strip()
        flags = Gio.DBusConnectionFlags.AUTHENTICATION_CLIENT | Gio.DBusConnectionFlags.MESSAGE_BUS_CONNECTION
        self.bus = Gio.DBusConnection.new_for_address_sync(self.address, flags, None, None)
        self.bus.set_exit_on_close(False)

    def serve(self):
        interface = Gio.DBusNodeInfo.new_for_xml(NOTIFICATIONS).interfaces[0]
        self.bus.register_object("/org/freedesktop/Notifications", interface, self._called, None, None)
        self.bus.call_sync("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "RequestName",
                           GLib.Variant("(su)", ("org.freedesktop.Notifications", 0)), None, Gio.DBusCallFlags.NONE, -1, None)
        return self

    def _end(self):
        self.bus.close_sync(None)
        self._daemon.terminate()
        self._daemon.communicate()

    def _called(self, bus, sender, path, interface, method, values, invocation):
        if method == "GetCapabilities":
            invocation.return_value(GLib.Variant("(as)", (self.capabilities,)))
            return
        name, replaced, icon, summary, body, actions, hints, timeout = values.unpack()
        identity = replaced or self._next
        self._next = max(self._next, identity + 1)
        self.shown.append({"id": identity, "summary": summary, "body": body, "icon": icon, "actions": actions[::2],
                           "buttons": actions[1::2], "value": hints.get("value")})
        invocation.return_value(GLib.Variant("(u)", (identity,)))

    def click(self, identity, action):
        self._emit("ActionInvoked", GLib.Variant("(us)", (identity, action)))

    def close(self, identity):
        self._emit("NotificationClosed", GLib.Variant("(uu)", (identity, 2)))

    def _emit(self, name, values):
        self.bus.emit_signal(None, "/org/freedesktop/Notifications", "org.freedesktop.Notifications", name, values)

    def wait_for(self, summary, identity=None):
        """The newest notification, once it is of this summary."""
        def newest():
            shown = [one for one in self.shown if identity in (None, one["id"])]
            return shown[-1] if shown and shown[-1]["summary"] == summary else None

        return wait_until(newest, f"{summary}; there were {[(one['summary'], one['body']) for one in self.shown]}")


class FileManagersTest(stillora.TestCase):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.prefix = cls.shared / "prefix"
        run("cmake", "--install", BUILD, "--prefix", cls.prefix)
        cls.program = cls.prefix / "libexec/stillora/stillora-make-movie"
        cls.photos = stillora.pictures(cls.shared / "photos", 4)
        cls.large = stillora.picture(cls.shared / "large.jpg", 4000, 3000)

    def setUp(self):
        super().setUp()
        self.movies = self.home / "Movies/Stillora"

    def click_on(self, *chosen, desktop=None, program=None, **environment):
        address = desktop.address if desktop else f"unix:path={self.folder}/no-session-bus"
        environment.setdefault("LC_ALL", "C.UTF-8")
        process = subprocess.Popen([program or self.program, *chosen], stdin=subprocess.DEVNULL, stderr=subprocess.PIPE,
                                   env=self.environment(DBUS_SESSION_BUS_ADDRESS=address, **environment))
        self.addCleanup(process.communicate)
        self.addCleanup(process.kill)
        return process

    def ended(self, process):
        wait_until(lambda: process.poll() is not None, "the program ends")
        return process.returncode

    def made(self, count=1):
        movies = sorted(self.movies.glob("*.mov"))
        self.assertEqual(len(movies), count, self.leftovers(self.home))
        return movies

    def awkward_folder(self):
        folder = self.folder / "-it's \"my\" $(touch gone) 100%\nÄ"
        folder.mkdir()
        for name in AWKWARD:
            os.link(self.photos[0], folder / (name if "." in name else name + ".jpg"))
        os.link(self.photos[0], os.path.join(os.fsencode(folder), b"not \xff utf-8.jpg"))
        return folder

    def test_a_folder_becomes_a_movie_and_the_desktop_is_told(self):
        desktop = Desktop(self).serve()
        folder = self.awkward_folder()
        process = self.click_on(folder.as_uri(), desktop=desktop)
        last = desktop.wait_for("The movie is ready")
        movie, = self.made()
        self.assertEqual(len(hold_times(movie)), len(AWKWARD) + 1)
        self.assertEqual(last["body"], GLib.markup_escape_text(movie.name))
        self.assertEqual((last["actions"], last["icon"]), (["default", "show"], "app.stillora.Stillora"))
        # One notification that changes, and that can be used to cancel.
        self.assertEqual({one["id"] for one in desktop.shown}, {last["id"]})
        self.assertEqual({(one["summary"], *one["actions"]) for one in desktop.shown[:-1]}, {("Making a movie", "cancel")})
        self.assertIsNone(process.poll())
        desktop.close(last["id"])
        self.assertEqual(self.ended(process), 0)
        self.assertEqual([path for path in self.folder.rglob("gone*")], [])

    def test_it_tells_how_far_it_is(self):
        desktop = Desktop(self).serve()
        process = self.click_on(*[self.large] * 30, desktop=desktop)
        last = desktop.wait_for("The movie is ready")
        values = [one["value"] for one in desktop.shown if one["value"] is not None]
        self.assertGreater(len(values), 0)
        self.assertTrue(all(0 <= value <= 100 for value in values), values)
        told = [one for one in desktop.shown if one["value"] is not None]
        for one in told:
            self.assertTrue(one["body"].endswith(f": {one['value']} %"), one)
        desktop.close(last["id"])
        self.assertEqual(self.ended(process), 0)

    def test_the_movie_is_opened_with_the_users_player(self):
        applications = self.home / ".local/share/applications"
        applications.mkdir(parents=True)
        played = self.folder / "played"
        (applications / "player.desktop").write_text(
            f'[Desktop Entry]\nType=Application\nName=Player\nExec=cp %f {played}\n')
        settings = self.home / ".config/mimeapps.list"
        settings.parent.mkdir(parents=True, exist_ok=True)
        # The second where no package tells what kind of file it is.
        settings.write_text("[Default Applications]\n"
                            "video/quicktime=player.desktop\napplication/octet-stream=player.desktop\n")
        desktop = Desktop(self).serve()
        process = self.click_on(self.photos[0], desktop=desktop)
        last = desktop.wait_for("The movie is ready")
        desktop.click(last["id"], "default")
        self.assertEqual(self.ended(process), 0)
        movie, = self.made()
        wait_until(lambda: played.exists() and played.read_bytes() == movie.read_bytes(), "it is handed to the player")

    def test_names_are_chosen_one_by_one(self):
        desktop = Desktop(self).serve()
        folder = self.awkward_folder()
        chosen = [Gio.File.new_for_path(os.fsdecode(os.path.join(os.fsencode(folder), name))).get_uri()
                  for name in os.listdir(os.fsencode(folder))]
        process = self.click_on(*chosen, desktop=desktop)
        last = desktop.wait_for("The movie is ready")
        self.assertEqual(len(hold_times(self.made()[0])), len(chosen))
        desktop.close(last["id"])
        self.assertEqual(self.ended(process), 0)

    def test_the_movie_is_shown_in_its_folder(self):
        desktop = Desktop(self).serve()
        asked = []
        interface = Gio.DBusNodeInfo.new_for_xml(
            '<node><interface name="org.freedesktop.FileManager1"><method name="ShowItems"><arg type="as" direction="in"/>'
            '<arg type="s" direction="in"/></method></interface></node>').interfaces[0]

        def called(bus, sender, path, interface, method, values, invocation):
            asked.append(values.unpack()[0])
            invocation.return_value(None)

        desktop.bus.register_object("/org/freedesktop/FileManager1", interface, called, None, None)
        desktop.bus.call_sync("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "RequestName",
                              GLib.Variant("(su)", ("org.freedesktop.FileManager1", 0)), None, Gio.DBusCallFlags.NONE, -1, None)
        process = self.click_on(*self.photos, desktop=desktop)
        desktop.click(desktop.wait_for("The movie is ready")["id"], "show")
        self.assertEqual(self.ended(process), 0)
        self.assertEqual(asked, [[self.made()[0].as_uri()]])

    def test_it_is_told_in_the_users_language(self):
        for language, ready, buttons in (("de", "Der Film ist fertig", ["Öffnen", "Im Ordner anzeigen"]),
                                         ("fr", "Le film est prêt", ["Ouvrir", "Afficher dans le dossier"])):
            with self.subTest(language):
                desktop = Desktop(self).serve()
                process = self.click_on(*self.photos, desktop=desktop, LANGUAGE=language)
                last = desktop.wait_for(ready)
                self.assertEqual(last["buttons"], buttons)
                desktop.close(last["id"])
                self.assertEqual(self.ended(process), 0)

    def test_files_that_cannot_be_used_are_named_and_left_out_if_wanted(self):
        desktop = Desktop(self).serve()
        bad = []
        for number in range(5):
            bad.append(self.folder / f"<bad & {number}>.jpg")
            bad[-1].write_text("no picture")
        process = self.click_on(*self.photos, *bad, desktop=desktop)
        told = desktop.wait_for("Some files cannot be used")
        lines = told["body"].splitlines()
        self.assertEqual(len(lines), 4, told)
        for number, line in enumerate(lines[:3]):
            self.assertTrue(line.startswith(f"&lt;bad &amp; {number}&gt;.jpg: "), line)
        self.assertEqual(lines[3], "and 2 more files")
        self.assertEqual(told["actions"], ["leave-out"])
        self.made(0)
        desktop.click(told["id"], "leave-out")
        last = desktop.wait_for("The movie is ready")
        self.assertEqual(sum(length for _, length in hold_times(self.made()[0])), 4 * 4.0)
        desktop.close(last["id"])
        self.assertEqual(self.ended(process), 0)

    def test_files_that_cannot_be_used_are_let_be(self):
        desktop = Desktop(self).serve()
        bad = self.folder / "bad.jpg"
        bad.write_text("no picture")
        process = self.click_on(bad, desktop=desktop)
        desktop.close(desktop.wait_for("Some files cannot be used")["id"])
        self.assertEqual(self.ended(process), 3)
        self.assertIn(b"bad.jpg", process.stderr.read())
        self.made(0)

    def test_it_is_told_why_there_is_no_movie(self):
        desktop = Desktop(self).serve()
        self.home.joinpath("Movies").write_text("a file in the way")
        process = self.click_on(*self.photos, desktop=desktop)
        told = desktop.wait_for("There is no movie")
        self.assertIn("Movies", told["body"])
        desktop.close(told["id"])
        self.assertNotEqual(self.ended(process), 0)

    def test_a_missing_program_is_told(self):
        desktop = Desktop(self).serve()
        # Alone in its prefix, without the program that makes movies.
        alone = self.folder / "alone/libexec/stillora/stillora-make-movie"
        alone.parent.mkdir(parents=True)
        alone.write_bytes(self.program.read_bytes())
        alone.chmod(0o755)
        process = self.click_on(*self.photos, desktop=desktop, program=alone)
        self.assertIn("stillora", desktop.wait_for("There is no movie")["body"])
        self.assertEqual(self.ended(process), 1)
        self.assertIn(b"stillora", process.stderr.read())

    def test_a_second_click_makes_a_second_movie(self):
        desktop = Desktop(self).serve()
        both = [self.click_on(*[self.large] * 10, desktop=desktop) for _ in range(2)]
        wait_until(lambda: len({one["id"] for one in desktop.shown}) == 2, "two notifications")
        self.assertEqual([process.poll() for process in both], [None, None])
        for identity in {one["id"] for one in desktop.shown}:
            desktop.wait_for("The movie is ready", identity)
            desktop.close(identity)
        self.assertEqual([self.ended(process) for process in both], [0, 0])
        for movie in self.made(2):
            self.assertEqual(len(hold_times(movie)), 10)

    def test_a_click_on_cancel_stops_it_and_leaves_nothing(self):
        desktop = Desktop(self).serve()
        process = self.click_on(*[self.large] * 60, desktop=desktop)
        desktop.click(desktop.wait_for("Making a movie")["id"], "cancel")
        self.assertEqual(self.ended(process), 130)
        self.assertEqual(desktop.shown[-1]["summary"], "The movie was cancelled")
        self.assertEqual(self.leftovers(self.home), [])

    def test_closing_the_notification_lets_the_movie_be_made(self):
        desktop = Desktop(self).serve()
        process = self.click_on(*[self.large] * 20, desktop=desktop)
        first = desktop.wait_for("Making a movie")["id"]
        desktop.close(first)
        last = desktop.wait_for("The movie is ready")
        self.assertLessEqual(len([one for one in desktop.shown if one["id"] != first and one["value"] is not None]), 0)
        self.made()
        desktop.close(last["id"])
        self.assertEqual(self.ended(process), 0)

    def test_the_end_of_the_session_stops_it(self):
        desktop = Desktop(self).serve()
        process = self.click_on(*[self.large] * 60, desktop=desktop)
        desktop.wait_for("Making a movie")
        process.send_signal(signal.SIGTERM)
        self.assertEqual(self.ended(process), 130)
        self.assertEqual(self.leftovers(self.home), [])

    def test_a_desktop_without_notifications_gets_its_movie(self):
        for desktop in (None, Desktop(self)):
            process = self.click_on(*self.photos, desktop=desktop)
            self.assertEqual(self.ended(process), 0)
        self.made(2)

    def test_a_desktop_without_actions_is_offered_none(self):
        desktop = Desktop(self, ["body"]).serve()
        process = self.click_on(*self.photos, desktop=desktop)
        self.assertEqual(self.ended(process), 0)
        self.assertEqual([one["actions"] for one in desktop.shown], [[]] * len(desktop.shown))
        self.assertEqual(desktop.shown[-1]["body"], self.made()[0].name)

    # Menus

    def test_extensions_offer_it_for_photos_and_folders_and_start_it(self):
        here, image = self.photos[0].as_uri(), "image/jpeg"
        selections = [
            ([(here, image)], True),
            ([(here, "inode/directory")], True),
            ([(here, image), (here, "audio/mpeg"), (here, "inode/directory")], True),
            ([(here, "audio/mpeg")], False),
            ([(here, image), (here, "text/plain")], False),
            ([("sftp://host/photo.jpg", image)], False),
            ([(here, None)], False),
            ([], False),
            ([(self.awkward_folder().as_uri(), "inode/directory")], True),
        ]
        for module, folder in (("Nautilus", "nautilus-python"), ("Thunarx", "thunarx-python")):
            with self.subTest(module):
                extension = self.prefix / "share" / folder / "extensions/stillora.py"
                result = subprocess.run(
                    ["/usr/bin/python3", "-B", "-c", HOST, module, extension,
                     json.dumps([files for files, _ in selections]), "start"],
                    stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True, timeout=stillora.DEADLINE,
                    env=self.environment(LANGUAGE="de", DBUS_SESSION_BUS_ADDRESS=f"unix:path={self.folder}/none"))
                self.assertEqual(result.stdout.splitlines(),
                                 ['["Film erstellen"]' if offered else "[]" for _, offered in selections])
                wait_until(lambda: list(self.movies.glob("*.mov")), "a movie")
                movie, = self.made()
                self.assertEqual(len(hold_times(movie)), len(AWKWARD) + 1)
                movie.unlink()

    def test_the_action_of_nemo_starts_it(self):
        action = configparser.ConfigParser(interpolation=None)
        action.optionxform = str
        action.read(self.prefix / "share/nemo/actions/stillora.nemo_action", encoding="utf-8")
        action = action["Nemo Action"]
        # What "stillora create" takes out of a folder is what the entry is offered for.
        listing = (SOURCE / "client/photos/PhotoListing.cpp").read_text()
        pictures = re.search(r"kPictureExtensions\{([^}]*)\}", listing)[1]
        names = set(action["Extensions"].rstrip(";").split(";"))
        self.assertEqual(names, {"dir"} | set(re.findall(r'"(\w+)"', pictures)))
        addresses = " ".join(f'"{address}"' for address in [self.awkward_folder().as_uri(), self.photos[0].as_uri()])
        self.assertEqual(action["Quote"], "double")
        command = GLib.shell_parse_argv(action["Exec"].replace("%U", addresses))[1]
        self.assertEqual(self.ended(self.click_on(*command[1:], program=command[0])), 0)
        self.assertEqual(len(hold_times(self.made()[0])), len(AWKWARD) + 2)

    def test_every_text_is_translated(self):
        template = self.folder / "texts.pot"
        sources = [SOURCE / "data/file-managers" / name for name in ("stillora-make-movie", "stillora_menu.py.in")]
        run("xgettext", "--language=Python", "--from-code=UTF-8", "--keyword=_", "-o", template, *sources)
        self.assertGreater(template.read_text().count("\nmsgid "), 15)
        for language in ("de", "fr"):
            with self.subTest(language):
                run("msgcmp", SOURCE / f"po/stillora-file-managers/{language}.po", template)
        texts = (self.prefix / "share/nemo/actions/stillora.nemo_action").read_text()
        for key in ("Name", "Comment"):
            text = re.search(rf"^{key}=(.*)$", texts, re.MULTILINE)[1]
            for language in ("de", "fr"):
                catalogue = (SOURCE / f"po/stillora-file-managers/{language}.po").read_text()
                translated = re.search(rf'^msgid "{text}"\nmsgstr "(.*)"$', catalogue, re.MULTILINE)[1]
                self.assertIn(f"\n{key}[{language}]={translated}\n", texts)


if __name__ == "__main__":
    unittest.main(verbosity=2)

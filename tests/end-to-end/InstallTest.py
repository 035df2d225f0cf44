"""What an installation holds, and that it works from wherever it was put."""

import gettext
import importlib.util
import json
import os
import shutil
import subprocess
import unittest
import xml.etree.ElementTree as ElementTree
from importlib.machinery import SourceFileLoader
from pathlib import Path

import stillora
from stillora import hold_times, run

BUILD = os.environ["STILLORA_BUILD"]
SOURCE = Path(__file__).resolve().parents[2]


class InstallTest(stillora.TestCase):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        # A blank and a per cent sign, as a user's folder may have.
        cls.prefix = cls.shared / "the 100% prefix"
        run("cmake", "--install", BUILD, "--prefix", cls.prefix)
        cls.photos = stillora.pictures(cls.shared / "photos", 6)

    def installed(self, *parts):
        place = self.prefix.joinpath(*parts)
        self.assertTrue(place.is_file(), f"{place} is not there; there are {self.leftovers(self.prefix)}")
        return place

    def installed_run(self, *arguments, **environment):
        return subprocess.run([self.prefix / "bin/stillora", *map(str, arguments)], stdin=subprocess.DEVNULL,
                              capture_output=True, text=True, env=self.environment(**environment), timeout=stillora.DEADLINE)

    def test_everything_is_in_its_place(self):
        for place in ("bin/stillora", "libexec/stillora/stillora-video-creator",
                      "libexec/stillora/stillora-file-reader",
                      "share/systemd/user/app.stillora.VideoCreator.socket",
                      "share/systemd/user/app.stillora.VideoCreator@.service",
                      "share/dbus-1/interfaces/app.stillora.morStilloraVideoCreatorProtocol.xml",
                      "share/dbus-1/interfaces/app.stillora.morStilloraXPCCreatorUpdateProtocol.xml",
                      "share/bash-completion/completions/stillora", "share/zsh/site-functions/_stillora", "share/fish/vendor_completions.d/stillora.fish",
                      "include/stillora/Movie.h", "lib/libstillora-client.so", "lib/pkgconfig/stillora-client.pc",
                      "lib/cmake/StilloraClient/StilloraClientConfig.cmake",
                      "share/doc/stillora/client-library.md", "share/doc/stillora/examples/client-library/MakeMovie.cpp",
                      "share/man/man1/stillora.1", "share/man/man8/stillora-video-creator.8",
                      "share/man/de/man1/stillora.1", "share/man/de/man8/stillora-video-creator.8",
                      "share/man/fr/man1/stillora.1", "share/man/fr/man8/stillora-video-creator.8", "share/locale/de/LC_MESSAGES/stillora.mo",
                      "share/doc/stillora/README.md", "share/doc/stillora/protocol.md", "share/doc/stillora/LICENSE"):
            with self.subTest(place):
                self.installed(place)

    def test_nothing_that_is_installed_names_the_build(self):
        for place in self.leftovers(self.prefix):
            data = (self.prefix / place).read_bytes()
            for folder in (BUILD, str(SOURCE)):
                if not data.startswith(b"\x7fELF"):
                    self.assertNotIn(os.fsencode(folder), data, place)

    def test_what_reads_strangers_files_is_built_to_be_hard_to_lead_astray(self):
        is_sanitized = "ASAN_OPTIONS" in os.environ
        programs = ["bin/stillora", "libexec/stillora/stillora-video-creator", "libexec/stillora/stillora-file-reader",
                    "lib/libstillora-client.so",
                    "lib/stillora/picture-formats.so", "lib/stillora/stillora-faces.so"]
        for program in map(self.installed, programs):
            with self.subTest(program.name):
                dynamic = run("readelf", "--dynamic", program).decode()
                self.assertIn("NOW", dynamic)
                self.assertIn("GNU_RELRO", run("readelf", "--program-headers", "--wide", program).decode())
                if program.parent.name in ("bin", "libexec"):
                    self.assertIn("PIE", dynamic)
                if not is_sanitized:
                    needed = run("nm", "--dynamic", "--undefined-only", program).decode()
                    self.assertIn("__stack_chk_fail", needed)
        if not is_sanitized:
            self.assertIn("__memcpy_chk", run("nm", "--dynamic", "--undefined-only", self.installed("bin/stillora")).decode())

    def test_the_installed_detector_finds_faces(self):
        self.installed("share/stillora/models/LICENSE-Apache-2.0.txt")
        photo = Path("/usr/lib/python3/dist-packages/skimage/data/astronaut.png")
        result = self.installed_run("frame", photo, "-o", self.folder / "frame.png", "--show-faces")
        self.assertEqual((result.returncode, result.stderr), (0, "stillora: 854 x 480, 1 face\n"))
        module, = (self.prefix / "lib").glob("**/stillora-faces.so")
        self.addCleanup(module.with_suffix(".off").rename, module)
        module.rename(module.with_suffix(".off"))
        result = self.installed_run("frame", photo, "-o", self.folder / "frame.png", "--show-faces")
        self.assertEqual(result.returncode, 0)
        self.assertTrue(result.stderr.endswith("stillora: 854 x 480, no faces\n"), result.stderr)
        self.assertIn("there is no face detector at ", result.stderr)

    def test_the_installed_library_of_pictures_is_needed_for_some(self):
        photos = [stillora.picture(self.folder / name) for name in ("a.jpg", "b.png")]
        module, = (self.prefix / "lib").glob("**/picture-formats.so")
        self.addCleanup(module.with_suffix(".off").rename, module)
        module.rename(module.with_suffix(".off"))
        for photo, status in zip(photos, (0, 3)):
            result = self.installed_run("frame", photo, "-o", photo.with_suffix(".frame.png"))
            self.assertEqual(result.returncode, status, result.stderr)
        self.assertIn("there is no library of pictures at ", result.stderr)
        self.assertIn("the image library does not start", result.stderr)

    def test_the_installed_programs_make_a_movie_without_the_build(self):
        # Moved once more, so that neither the build's folder nor the first prefix can be what it is found by.
        moved = self.folder / "moved"
        shutil.copytree(self.prefix, moved)
        result = subprocess.run([moved / "bin/stillora", "create", "--quality", "240", "--seconds", "1", "--save", self.save,
                                 *self.photos], stdin=subprocess.DEVNULL, capture_output=True, text=True,
                                env=self.environment(), timeout=stillora.DEADLINE)
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(hold_times(result.stdout.strip()), [(float(i), 1.0) for i in range(6)])

    def test_installed_for_everybody_all_of_it_is_found(self):
        """The line of the README without a prefix, in a machine whose /usr/local is empty."""
        script = r'''set -eu
            mount -t tmpfs none /usr/local
            cmake --install "$1" >"$HOME/install.log"
            PATH=/usr/local/bin:/usr/bin:/bin
            command -v stillora
            stillora create --quality 240 --seconds 1 --save "$2" "$3"
            man -w stillora; LANGUAGE=de man -w stillora-video-creator
            realpath "$(pkg-config --variable=prefix stillora-client)"
            printf '#include <stillora/Movie.h>\nint main() { return stillora::usualSaveFolder().empty(); }\n' >"$HOME/a.cpp"
            c++ -std=c++20 ${4-} "$HOME/a.cpp" -o "$HOME/a" $(pkg-config --cflags --libs stillora-client)
            LD_LIBRARY_PATH=$(pkg-config --variable=libdir stillora-client) "$HOME/a"
            bash -c ". /usr/local/share/bash-completion/completions/stillora; complete -p stillora"
            systemd-analyze --user unit-paths | grep -qx /usr/local/share/systemd/user
            ls /usr/local/share/systemd/user'''
        result = subprocess.run(["unshare", "--user", "--map-root-user", "--mount", "sh", "-c", script, "sh", BUILD, self.save,
                                 self.photos[0], *stillora.sanitizer_flags()], stdin=subprocess.DEVNULL, capture_output=True, text=True,
                                env=self.environment(), timeout=stillora.DEADLINE)
        self.assertEqual(result.returncode, 0, result.stdout + result.stderr)
        said = result.stdout.splitlines()
        self.assertEqual(said[0], "/usr/local/bin/stillora")
        self.assertEqual(len(hold_times(said[1])), 5)
        self.assertEqual(said[2], "/usr/local/share/man/man1/stillora.1")
        self.assertIn("/usr/local/", said[3])
        self.assertEqual(said[4], "/usr/local")
        self.assertIn("stillora", said[5])
        self.assertEqual(said[6:], ["app.stillora.VideoCreator.socket", "app.stillora.VideoCreator@.service"])

    def test_the_installed_translations_are_found(self):
        # Which stages report depends on how busy the machine is, so each is looked up by itself.
        shown = {}
        # A folder of programs has one of this name.
        program = self.prefix / "bin/locale"
        program.write_text("")
        self.addCleanup(program.unlink)
        for language in ("en", "de"):
            with open(self.installed(f"share/locale/{language}/LC_MESSAGES/stillora.mo"), "rb") as file:
                texts = gettext.GNUTranslations(file)
            result = self.installed_run("create", "--json", "--quality", "240", "--save", self.save, *self.photos,
                                        LANGUAGE=language)
            self.assertEqual(result.returncode, 0, result.stderr)
            updates = [json.loads(line) for line in result.stdout.splitlines()]
            shown[language] = {update["title"] for update in updates if update["event"] == "progress"}
            for update in updates:
                if update["event"] == "progress":
                    self.assertEqual(update["title"], texts.gettext(update["stage"]))
                    self.assertNotEqual(update["title"], update["stage"], "the key instead of a text")
        self.assertNotEqual(shown["en"], set())
        self.assertNotEqual(shown["de"], set())
        self.assertEqual(shown["en"] & shown["de"], set())

    def test_software_centres_understand_the_description(self):
        page = self.installed("share/metainfo/app.stillora.Stillora.metainfo.xml")
        run("appstreamcli", "validate", "--no-net", page)
        component = ElementTree.parse(page).getroot()
        self.assertEqual(component.get("type"), "console-application")
        version = run(self.prefix / "bin/stillora", "--version").decode().split()[-1]
        self.assertEqual(component.find("releases/release").get("version"), version)
        self.installed("bin", component.findtext("provides/binary"))
        self.installed("share/icons/hicolor/scalable/apps", component.findtext("icon") + ".svg")
        # Whoever speaks German or French reads all of it in that language.
        for path in ("summary", "description/p", "description/ul/li", "keywords/keyword"):
            languages = [element.get("{http://www.w3.org/XML/1998/namespace}lang") for element in component.findall(path)]
            for language in ("de", "fr"):
                self.assertEqual(languages.count(language), languages.count(None), path)

    def test_the_icon_is_the_drawing_in_every_size(self):
        loader = SourceFileLoader("render", str(SOURCE / "data/icons/render"))
        render = importlib.util.module_from_spec(importlib.util.spec_from_loader("render", loader))
        loader.exec_module(render)
        self.assertIn(48, render.SIZES)
        for size in render.SIZES:
            place = self.installed(f"share/icons/hicolor/{size}x{size}/apps/app.stillora.Stillora.png")
            icon = render.GdkPixbuf.Pixbuf.new_from_file(str(place))
            self.assertEqual((icon.get_width(), icon.get_height()), (size, size))
            values = zip(icon.get_pixels(), render.rendered(size).get_pixels(), strict=True)
            # Another version of the renderer may round an edge another way.
            self.assertLess(sum(abs(a - b) for a, b in values) / len(icon.get_pixels()), 2, size)

    def test_systemd_accepts_the_units(self):
        units = self.prefix / "share/systemd/user"
        result = subprocess.run(["systemd-analyze", "verify", "--user", "--man=no", *sorted(units.iterdir())],
                                stdin=subprocess.DEVNULL, capture_output=True, text=True, env=self.environment(),
                                timeout=stillora.DEADLINE)
        self.assertEqual((result.returncode, result.stdout, result.stderr), (0, "", ""))

    def test_the_socket_unit_keeps_others_out_and_starts_a_process_for_each_client(self):
        unit = self.installed("share/systemd/user/app.stillora.VideoCreator.socket").read_text().splitlines()
        for line in ("ListenStream=%t/app.stillora.VideoCreator", "Accept=yes", "SocketMode=0600"):
            self.assertIn(line, unit)
        service = self.installed("share/systemd/user/app.stillora.VideoCreator@.service").read_text()
        program = str(self.prefix / "libexec/stillora/stillora-video-creator").replace("%", "%%")
        self.assertIn(f'ExecStart="{program}"\n', service)

    def test_the_manual_pages_render_without_complaint(self):
        for folder, title, option in (("", "EXIT STATUS", "Leave out the watermark."),
                                      ("de/", "RÜCKGABEWERT", "Das Wasserzeichen weglassen."),
                                      ("fr/", "CODE DE RETOUR", "Omettre le filigrane.")):
            for name in ("man1/stillora.1", "man8/stillora-video-creator.8"):
                with self.subTest(f"{folder}{name}"):
                    page = self.installed(f"share/man/{folder}{name}")
                    result = subprocess.run(["man", "--warnings", "-l", str(page)], stdin=subprocess.DEVNULL,
                                            capture_output=True, text=True, env=self.environment(MANWIDTH="80"),
                                            timeout=stillora.DEADLINE)
                    self.assertEqual((result.returncode, result.stderr), (0, ""))
                    # Lines are filled with blanks.
                    text = " ".join(result.stdout.split())
                    self.assertIn(title, text)
                    if name == "man1/stillora.1":
                        self.assertIn(option, text)
                        self.assertNotIn("@OPTIONS", text)

    def test_the_socket_of_systemd_starts_the_installed_service(self):
        """As the unit does it: one process for each connection."""
        path = self.folder / "socket"
        program = self.prefix / "libexec/stillora/stillora-video-creator"
        activator = subprocess.Popen(["systemd-socket-activate", "-l", path, "--accept", program], stdin=subprocess.DEVNULL,
                                     stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, env=self.environment())
        try:
            clients = [stillora.Client.on_socket(stillora.connect_when_listened(path)) for _ in range(2)]
            clients[0].cancel()
            # Another process: the first one's cancel is none of its business.
            movie = clients[1].request(self.photos, self.save, self.temporary).movie()
            self.assertEqual(len(hold_times(movie)), 6)
        finally:
            activator.terminate()
            activator.communicate(timeout=stillora.DEADLINE)


if __name__ == "__main__":
    unittest.main(verbosity=2)

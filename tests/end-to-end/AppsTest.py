"""The applications that are offered for a file, from a desktop of the test's own."""

import json
import os
import subprocess
import unittest

import stillora


class AppsTest(stillora.TestCase):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.entries = cls.shared / "data/applications"
        cls.entries.mkdir(parents=True)
        cls.entry("Zeta.desktop", "Zeta", "Name[de]=Zett")
        cls.entry("alpha.desktop", "The First")
        cls.entry("Beta Tool.desktop", "Béta 道具")
        cls.entry("Beta.desktop", "Bad \x1b[31mname")
        cls.entry("gone.desktop", "Removed", program="/bin/no-such-program")
        cls.entry("Stillora.app.desktop", "Myself")
        cls.entry("words.desktop", "Words", kind="text/plain")
        (cls.entries / "mimeinfo.cache").write_text(
            "[MIME Cache]\nimage/jpeg=Zeta.desktop;alpha.desktop;Beta.desktop;Beta Tool.desktop;gone.desktop;"
            "Stillora.app.desktop;\ntext/plain=words.desktop;\n")
        cls.photo, = stillora.pictures(cls.shared / "photos", 1)

    @classmethod
    def entry(cls, file, name, more="", program="/bin/true", kind="image/jpeg"):
        (cls.entries / file).write_text(
            f"[Desktop Entry]\nType=Application\nName={name}\n{more}\nExec={program} %f\nMimeType={kind};\n")

    def environment(self, **changes):
        none = self.shared / "none"
        return super().environment(**{"XDG_DATA_HOME": self.shared / "data", "XDG_DATA_DIRS": none, "XDG_CONFIG_HOME": none,
                                      "XDG_CONFIG_DIRS": none, **changes})

    def apps(self, *arguments, **options):
        return self.run_stillora("apps", *arguments, **options)

    def test_applications_are_listed_with_their_entries_in_order(self):
        result = self.apps(self.photo)
        lines = result.out.splitlines()
        self.assertEqual([line.split("  ")[0] for line in lines], ["The First", "Béta 道具", "Bad ?[31mname", "Zeta"])
        paths = [self.entries / name for name in ("alpha.desktop", "Beta Tool.desktop", "Beta.desktop", "Zeta.desktop")]
        self.assertEqual([line[line.index("/"):] for line in lines], list(map(str, paths)))
        self.assertEqual(result.err, "")
        # Below one another on a terminal, where the Japanese characters take two columns each.
        self.assertEqual([line.index("/") for line in lines], [15, 13, 15, 15])

    def test_json_has_the_same_applications(self):
        result = self.apps("--json", self.photo)
        facts = json.loads(result.out)
        self.assertEqual(result.out.count("\n"), 1)
        self.assertEqual(facts["file"], str(self.photo))
        self.assertEqual([app["id"] for app in facts["applications"]],
                         ["alpha.desktop", "Beta Tool.desktop", "Beta.desktop", "Zeta.desktop"])
        self.assertEqual(facts["applications"][3], {"name": "Zeta", "id": "Zeta.desktop",
                                                    "path": str(self.entries / "Zeta.desktop")})

    def test_names_are_in_the_users_language(self):
        result = self.apps(self.photo, environment=self.environment(LANGUAGE="de", LC_ALL="C.UTF-8"))
        self.assertIn("Zett  ", result.out)

    def test_a_file_that_nothing_opens_is_told(self):
        other = self.folder / "data.bin"
        other.write_bytes(bytes(range(256)))
        result = self.apps(other, expect=1)
        self.assertEqual((result.out, result.err),
                         ("", f"stillora: {other}: the desktop knows no application that opens it\n"))
        result = self.apps("--json", other, expect=1)
        self.assertEqual(json.loads(result.out), {"file": str(other), "applications": []})

    def test_a_desktop_without_a_database_offers_nothing(self):
        result = self.apps(self.photo, expect=1, environment=self.environment(XDG_DATA_HOME=self.folder))
        self.assertEqual(result.out, "")

    def test_the_file_is_needed_and_must_be_there(self):
        missing = self.folder / "missing.mov"
        result = self.apps(missing, expect=3)
        self.assertEqual((result.out, result.err), ("", f"stillora: {missing}: No such file or directory\n"))
        for arguments in ((), ("",), ("one", "two"), ("--no-such", self.photo)):
            result = self.apps(*arguments, expect=2)
            self.assertIn("Try 'stillora apps --help'.", result.err)

    def test_a_full_disk_is_told(self):
        if not os.path.exists("/dev/full"):
            self.skipTest("there is no /dev/full")
        with open("/dev/full", "w") as full:
            result = subprocess.run([stillora.STILLORA, "apps", self.photo], stdout=full, stderr=subprocess.PIPE, text=True,
                                    stdin=subprocess.DEVNULL, env=self.environment(), timeout=stillora.DEADLINE)
        self.assertEqual((result.returncode, result.stderr),
                         (1, "stillora: the applications could not be written to standard output\n"))


if __name__ == "__main__":
    unittest.main(verbosity=2)

"""What people read, in their language and in the charset of their terminal."""

import json
import os
import subprocess
import unittest

import stillora

USAGE, BAD_INPUT = 2, 3


class LanguageTest(stillora.TestCase):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.photos = stillora.pictures(cls.shared / "photos", 3)
        # Few machines have these locales installed.
        cls.locales = cls.shared / "locales"
        cls.locales.mkdir()
        for language, charset in (("de_DE", "ISO-8859-1"), ("de_DE@euro", "ISO-8859-15"), ("fr_FR", "ISO-8859-1"),
                                  ("ja_JP", "EUC-JP")):
            # It warns, and ends with 1, where a charset lacks a sign of the locale.
            subprocess.run(["localedef", "-c", "-i", language, "-f", charset, cls.locales / f"{language}.{charset}"],
                           capture_output=True)

    def run_in(self, *arguments, expect=0, prefix=(), **environment):
        environment = {"LOCPATH": self.locales, **environment}
        if environment.get("LC_ALL", "C.UTF-8") == "C.UTF-8":
            environment.pop("LOCPATH")
        return self.run_stillora(*arguments, expect=expect, prefix=prefix, environment=self.environment(**environment))

    def test_texts_have_the_plural_of_their_number(self):
        bad = [self.folder / f"{number}.jpg" for number in range(2)]
        for file in bad:
            file.write_bytes(b"")
        for language, one, many in (("de", "1 Foto kann", "2 Fotos können"),
                                    ("fr", "1 photo ne peut", "2 photos ne peuvent")):
            self.assertIn(one, self.run_in("create", bad[0], expect=BAD_INPUT, LANGUAGE=language).err)
            self.assertIn(many, self.run_in("create", *bad, expect=BAD_INPUT, LANGUAGE=language).err)

    def test_the_service_tells_its_reasons_in_the_users_language(self):
        # Without silence, it is the service that comes to the limit.
        for language, sentence in (("de", r"\.mov kann nicht geschrieben werden: "),
                                   ("fr", r"\.mov ne peut pas être écrit\u00a0: ")):
            said = self.run_in("create", "--save", self.save, "--quality", "1080", "--no-silence", *self.photos, expect=1,
                               LANGUAGE=language, prefix=["prlimit", "--fsize=20000"]).err
            self.assertRegex(said, sentence)

    def test_the_service_answers_whoever_starts_it_in_the_users_language(self):
        def answer(language, *arguments):
            result = subprocess.run([stillora.SERVICE, *arguments], capture_output=True, text=True,
                                    env=self.environment(LANGUAGE=language))
            return result.stdout + result.stderr

        self.assertIn("Macht Filme für seine Clients.", answer("de", "--help"))
        self.assertIn("Crée des films pour ses clients.", answer("fr", "--help"))
        self.assertIn("es gibt keine Option --nichts\nAufruf: ", answer("de", "--nichts"))
        self.assertIn("diesem Prozess wurde kein Socket übergeben", answer("de"))

    def test_the_chosen_language_wins_over_the_environment(self):
        self.run_stillora("set", "language", "fr")
        for environment in ({"LANGUAGE": "de"}, {"LC_ALL": "C"}):
            plan = self.run_in("create", "--dry-run", "--json", self.photos[0], "/dev/null", expect=BAD_INPUT,
                               **environment)
            self.assertIn("ne peut pas", json.loads(plan.out.splitlines()[-1])["error"])
        apart = self.folder / "apart"
        apart.mkdir()
        other = stillora.picture(apart / "photo.jpg")
        plan = self.run_stillora("create", "--dry-run", "--json", self.photos[0], other)
        title = json.loads(plan.out.splitlines()[-1])["title"]
        self.assertEqual(title, "Diaporama")
        self.run_stillora("set", "language", "en")
        self.assertIn("Usage: stillora", self.run_in("--help", LANGUAGE="de").out)
        self.run_stillora("set", "language")
        self.assertIn("Aufruf: stillora", self.run_in("--help", LANGUAGE="de").out)
        self.assertIn("de, en, fr", self.run_stillora("set", "language", "it", expect=USAGE).err)

    def test_terminals_of_other_charsets_get_their_own_bytes(self):
        photo = self.folder / "Größe 日 €.jpg"
        photo.write_bytes(b"")
        rows = (("de_DE.ISO-8859-1", "iso-8859-1", "Größe \\u{65E5} \\u{20AC}.jpg: ist leer"),
                ("de_DE@euro.ISO-8859-15", "iso-8859-15", "Größe \\u{65E5} €.jpg: ist leer"),
                ("ja_JP.EUC-JP", "euc-jp", "日"),
                ("C", "ascii", "Groesse \\u{65E5} \\u{20AC}.jpg: is empty"))
        for locale, charset, text in rows:
            with self.subTest(locale):
                result = self.run_in("create", photo, expect=BAD_INPUT, LC_ALL=locale)
                self.assertIn(text, result.stderr.decode(charset))
                self.assertNotIn("?", result.stderr.decode(charset))

    def test_a_locale_that_is_not_installed_tells_its_charset(self):
        photo = self.folder / "Größe.jpg"
        photo.write_bytes(b"")
        for locale in ("de_XX.UTF-8", "de_XX.utf8"):
            self.assertIn("Größe.jpg: ist leer", self.run_in("create", photo, expect=BAD_INPUT, LC_ALL=locale).err)
        self.assertIn("Groesse.jpg: ist leer", self.run_in("create", photo, expect=BAD_INPUT, LC_ALL="de_XX").err)

    def test_help_and_listings_are_of_the_terminals_charset(self):
        for locale, charset, text in (("de_DE.ISO-8859-1", "iso-8859-1", 'oder "Diashow"'),
                                      ("fr_FR.ISO-8859-1", "iso-8859-1", "«\u00a0Diaporama\u00a0»")):
            result = self.run_in("create", "--help", LC_ALL=locale)
            self.assertIn(text, " ".join(result.stdout.decode(charset).split(" ")).replace("\n", " "))
            self.assertTrue(all(len(line) <= 80 for line in result.stdout.decode(charset).splitlines()))
        german = self.run_in("settings", LC_ALL="de_DE.ISO-8859-1").stdout.decode("iso-8859-1")
        self.assertIn("nicht gewählt", german)

    def test_json_and_paths_stay_as_they_are(self):
        photo = self.folder / "Größe.jpg"
        photo.write_bytes(b"")
        result = self.run_in("info", "--json", photo, expect=BAD_INPUT, LC_ALL="de_DE.ISO-8859-1")
        self.assertEqual(json.loads(result.stdout.decode("utf-8"))["path"], os.fspath(photo))
        stillora.picture(photo)
        frame = self.folder / "Bild für später.png"
        result = self.run_in("frame", photo, "-o", frame, LC_ALL="de_DE.ISO-8859-1")
        self.assertEqual(result.stdout, os.fsencode(frame) + b"\n")

    def test_names_that_are_no_text_are_shown_by_their_bytes(self):
        photo = os.fsencode(self.folder) + b"/gr\xf6sse.jpg"
        with open(photo, "wb"):
            pass
        for locale in ("C.UTF-8", "C", "de_DE.ISO-8859-1"):
            result = self.run_in("create", os.fsdecode(photo), expect=BAD_INPUT, LC_ALL=locale)
            self.assertIn(b"gr\\xF6sse.jpg", result.stderr, locale)


if __name__ == "__main__":
    unittest.main()

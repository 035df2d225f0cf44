"""What the shells offer while a command line is written, and that it is what the program takes."""

import os
import pty
import re
import select
import shlex
import shutil
import subprocess
import time
import unittest
from pathlib import Path

import stillora

BUILD = Path(os.environ["STILLORA_BUILD"])
BASH = BUILD / "described/stillora.bash"
ZSH = BUILD / "described/_stillora"
FISH = BUILD / "described/stillora.fish"
MANUAL = BUILD / "described/stillora.1"

OPTION = re.compile(r"(?<![\w-])(?:--[a-z][a-z-]*|-[a-zA-Z0-9])(?![\w-])")
ACTIONS = {"document": ["new", "add", "remove", "move", "sort", "set", "list", "render", "check"],
           "set": ["save", "quality", "seconds", "codec", "watermark", "language"]}

# Calls the function as bash does, and prints what it would offer.
CALL = """
source "$1"; shift
COMP_WORDS=("$@") COMP_CWORD=$(($# - 1)) COMP_LINE="$*" COMP_POINT=${#COMP_LINE} COMP_TYPE=9
_stillora
printf '%s\\n' "${COMPREPLY[@]}"
"""


class CompletionTest(stillora.TestCase):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.files = cls.shared / "files"
        (cls.files / "Folder of photos").mkdir(parents=True)
        (cls.files / "Trip.stillora").mkdir()
        for name in ("a.jpg", "B.HEIC", "my photo.png", "song.mp3", "Music.FLAC", "movie.mov", "notes.txt", "-odd.jpg", ".hidden"):
            (cls.files / name).touch()

    def offered(self, *words):
        """What bash offers for the last word."""
        result = subprocess.run(["bash", "--norc", "-c", CALL, "bash", BASH, "stillora", *words], cwd=self.files,
                                capture_output=True, text=True, env=self.environment(HOME=self.files),
                                timeout=stillora.DEADLINE)
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        return [line for line in result.stdout.splitlines() if line]

    def assertOffers(self, words, *names):
        self.assertEqual(sorted(self.offered(*words)), sorted(names), words)

    def help(self, *words):
        return self.run_stillora(*words, "--help").out

    def commands(self):
        part = self.help().split("Commands:\n")[1].split("\n\n")[0]
        return re.findall(r"^  (\w+)", part, re.MULTILINE)

    def options_of_help(self, command):
        lines = [line for line in self.help(command).splitlines() if line.startswith("  -")]
        return {option for line in lines for option in OPTION.findall(line)}

    def test_every_command_is_offered_and_no_other(self):
        self.assertOffers([""], *self.commands(), "-h", "--help", "--version")
        self.assertOffers(["c"], "create", "convert")
        self.assertOffers(["document", ""], *ACTIONS["document"], "-h", "--help")
        self.assertOffers(["document", "re"], "remove", "render")

    def test_the_options_of_every_command_are_those_of_its_help(self):
        self.assertGreaterEqual(len(self.commands()), 8)
        for command in self.commands():
            with self.subTest(command):
                offered = set()
                for action in ACTIONS.get(command, [None]):
                    words = [command] + ([action] if action else [])
                    offered |= set(self.offered(*words, "-"))
                    # The program knows each: it complains of something else.
                    for option in self.offered(*words, "--") + ["--no-such-option"]:
                        said = self.run_stillora(*words, option, expect=None).err
                        self.assertEqual("there is no option" in said, option == "--no-such-option", (words, option, said))
                self.assertEqual(offered, self.options_of_help(command))

    def test_the_actions_of_documents_are_those_of_its_help(self):
        text = self.help("document")
        for action in ACTIONS["document"]:
            self.assertRegex(text, rf"stillora document {action}\b")
        self.assertEqual(set(re.findall(r"stillora document (\w+)", text)), set(ACTIONS["document"]))

    def test_photos_and_folders_are_offered_where_photos_are_wanted(self):
        folders = ["Folder of photos", "Trip.stillora"]
        self.assertOffers(["create", ""], "a.jpg", "B.HEIC", "my photo.png", "-odd.jpg", "song.mp3", "Music.FLAC", *folders)
        self.assertOffers(["frame", "m"], "my photo.png")
        self.assertOffers(["create", "--loop", "a"], "a.jpg")
        self.assertOffers(["create", "~/a"], "~/a.jpg")
        self.assertOffers(["create", "~/F"], "~/Folder of photos")

    def test_sounds_are_offered_where_sounds_are_wanted(self):
        folders = ["Folder of photos", "Trip.stillora"]
        for words in (["create", "--soundtrack"], ["waveform"], ["convert"], ["trim", "--range", "1-2"],
                      ["document", "add", "Trip.stillora", "--soundtrack"]):
            self.assertOffers([*words, ""], "song.mp3", "Music.FLAC", *folders)
        self.assertOffers(["info", "m"], "my photo.png", "movie.mov")
        self.assertOffers(["info", "s"], "song.mp3")

    def test_any_file_is_offered_for_its_applications(self):
        self.assertOffers(["apps", "n"], "notes.txt")
        self.assertOffers(["apps", "--json", "mo"], "movie.mov")

    def test_documents_are_folders(self):
        for action in ACTIONS["document"]:
            self.assertOffers(["document", action, ""], "Folder of photos", "Trip.stillora")
        self.assertOffers(["document", "add", "Trip.stillora", "a"], "a.jpg")
        self.assertOffers(["document", "add", "--json", "Trip.stillora", "s"], "song.mp3")
        self.assertOffers(["document", "new", "--seconds", "2", "T"], "Trip.stillora")

    def test_values_of_options_are_offered(self):
        qualities = ["auto", "smallest", "240", "360", "480", "720", "1080", "1440", "2160"]
        self.assertOffers(["create", "--quality", ""], *qualities)
        self.assertOffers(["create", "--quality", "="], *qualities)
        self.assertOffers(["create", "--quality", "=", "14"], "1440")
        self.assertOffers(["frame", "--quality", "1"], "1080", "1440")
        self.assertOffers(["document", "render", "D", "--codec", "h"], "hvc1")
        self.assertOffers(["create", "--codec", ""], "avc1", "hvc1", "jpeg", "apcn", "ap4h", "apch", "apcs", "apco", "ap4x")
        for option in ("--seconds", "--title"):
            self.assertOffers(["create", option, ""])
        self.assertOffers(["waveform", "--size", ""])
        self.assertOffers(["create", "--save", ""], "Folder of photos", "Trip.stillora")
        self.assertOffers(["frame", "a.jpg", "-o", "m"], "my photo.png")
        self.assertOffers(["convert", "song.mp3", "-o", ""], "Folder of photos", "Trip.stillora")

    def test_the_values_that_are_offered_are_taken(self):
        for value in self.offered("create", "--quality", "") + ["x"]:
            said = self.run_stillora("create", "--quality", value, expect=(2, 3)).err
            self.assertEqual("--quality takes" in said, value == "x", said)
        for value in self.offered("create", "--codec", "") + ["x"]:
            said = self.run_stillora("create", "--codec", value, expect=(2, 3)).err
            self.assertEqual("--codec takes" in said, value == "x", said)

    def test_the_times_of_a_sound_are_left_to_the_user(self):
        self.assertOffers(["create", "--soundtrack", "song.mp3", "@", ""])
        self.assertOffers(["create", "--soundtrack", "song.mp3", "@", "1", ":", "0"])

    def test_only_files_are_offered_after_two_hyphens(self):
        self.assertOffers(["create", "--", "-"], "-odd.jpg")
        self.assertOffers(["create", "--", "--quality", "a"], "a.jpg")

    def test_nothing_is_offered_for_what_is_no_command(self):
        self.assertOffers(["destroy", ""])
        self.assertOffers(["document", "destroy", ""])

    def typed(self, shell, arguments, start, keys):
        """What stands on the command line of a shell on a terminal after these keys."""
        pid, terminal = pty.fork()
        if pid == 0:
            os.chdir(self.files)
            os.execvpe(shell, [shell, *arguments], self.environment(TERM="dumb", PS1="> ", HISTFILE="/dev/null",
                                                                    ZDOTDIR=self.folder))
        seen = b""

        def wait_for(pattern):
            nonlocal seen
            end = time.monotonic() + stillora.DEADLINE
            while not re.search(pattern, seen):
                self.assertLess(time.monotonic(), end, seen)
                if select.select([terminal], [], [], 0.1)[0]:
                    seen += os.read(terminal, 4096)

        try:
            os.write(terminal, (start + "; echo rea''dy\n").encode())
            wait_for(rb"ready\r?\n")
            seen = b""
            os.write(terminal, keys.encode())
            wait_for(rb"<<end>>")
            return seen.decode(errors="replace")
        finally:
            os.kill(pid, 9)
            os.waitpid(pid, 0)
            os.close(terminal)

    def test_names_with_blanks_are_completed_on_a_terminal(self):
        start = f"stillora() {{ printf '<%s>' \"$@\" '<end>'; }}; source {shlex.quote(str(BASH))}"
        for keys, name in (("frame my\t\n", "my photo.png"), ("frame \"my\t\n", "my photo.png"), ("frame my\\ p\t\n", "my photo.png"),
                           ("create Fold\t\n", "Folder of photos/"), ("create --no-s\t\n", "--no-silence")):
            with self.subTest(keys):
                seen = self.typed("bash", ["--norc", "--noprofile", "-i"], start, "stillora " + keys)
                self.assertIn(f"<{name}><<end>>", seen)

    def told_by_fish(self, line, **language):
        """What fish offers, and what it says of each."""
        script = f"source {shlex.quote(str(FISH))}; complete -C {shlex.quote('stillora ' + line)}"
        result = subprocess.run(["fish", "--no-config", "-c", script], cwd=self.files, capture_output=True, text=True,
                                env=self.environment(HOME=self.folder, XDG_CONFIG_HOME=self.folder, **language),
                                timeout=stillora.DEADLINE)
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        return [text.split("\t") for text in result.stdout.splitlines()]

    def offered_by_fish(self, line, **language):
        return [told[0] for told in self.told_by_fish(line, **language)]

    @unittest.skipUnless(shutil.which("fish"), "there is no fish")
    def test_fish_completes_as_bash_does(self):
        self.assertEqual(sorted(self.offered_by_fish("")), sorted(self.commands()))
        self.assertEqual(sorted(self.offered_by_fish("document ")), sorted(ACTIONS["document"]))
        self.assertEqual(self.offered_by_fish("create --codec hv"), ["hvc1"])
        self.assertEqual(self.offered_by_fish("waveform so"), ["song.mp3"])
        self.assertEqual(self.offered_by_fish("document check Tr"), ["Trip.stillora/"])
        self.assertEqual(self.offered_by_fish("create --save Fold"), ["Folder of photos/"])
        for command in self.commands():
            for action in ACTIONS.get(command, [None]):
                words = [command] + ([action] if action else [])
                options = {word for word in self.offered(*words, "--") if word.startswith("--")}
                self.assertEqual(set(self.offered_by_fish(" ".join(words) + " --")), options, words)

    @unittest.skipUnless(shutil.which("fish"), "there is no fish")
    def test_fish_says_in_the_users_language_what_it_offers(self):
        rows = (({}, "make a movie of photos"), ({"LC_ALL": "C", "LANGUAGE": "de"}, "make a movie of photos"),
                ({"LC_ALL": "C.UTF-8", "LANGUAGE": "de:fr"}, "einen Film aus Fotos machen"),
                ({"LC_ALL": "C.UTF-8", "LANGUAGE": "fr"}, "créer un film à partir de photos"))
        for language, text in rows:
            with self.subTest(language):
                told = dict(self.told_by_fish("", **language))
                self.assertEqual(told["create"], text)
                self.assertEqual(sorted(told), sorted(self.commands()))
        options = dict(self.told_by_fish("create --", LC_ALL="C.UTF-8", LANGUAGE="fr"))
        self.assertEqual(options["--quality"], "hauteur du film")
        self.assertEqual(set(options), set(self.offered_by_fish("create --")))

    @unittest.skipUnless(shutil.which("zsh"), "there is no zsh")
    def test_zsh_says_in_the_users_language_what_it_offers(self):
        # What the functions of zsh are handed, without a terminal.
        script = (f"_arguments() {{ print -rl -- $@ }}; _describe() {{ print -rl -- ${{(P)4}} }}; "
                  f"stillora() {{ local -a words=(stillora \"$@\"); integer CURRENT=$#words; source {shlex.quote(str(ZSH))} }}; ")
        rows = (("", "make a movie of photos", "height of the movie", "adds photos and sounds at the end"),
                ("de", "einen Film aus Fotos machen", "Höhe des Films", "fügt am Ende Fotos und Töne hinzu"),
                ("fr", "créer un film à partir de photos", "hauteur du film", "ajoute des photos et des sons à la fin"))
        for language, *texts in rows:
            for line, text in zip(("stillora ''", "stillora create ''", "stillora document ''"), texts):
                with self.subTest(language, line=line):
                    said = subprocess.run(["zsh", "-f", "-c", script + line], capture_output=True, text=True,
                                          env=self.environment(LC_ALL="C.UTF-8", LANGUAGE=language), timeout=stillora.DEADLINE)
                    self.assertEqual((said.returncode, said.stderr), (0, ""))
                    self.assertIn(text, said.stdout)

    def test_the_manual_tells_of_every_option_of_every_command(self):
        text = MANUAL.read_text().replace("\\-", "-")
        self.assertNotIn("@OPTIONS", text)
        for command in self.commands():
            for option in self.options_of_help(command) - {"-h", "--help"}:
                self.assertRegex(text, rf"\\fB{option}\\fR")

    @unittest.skipUnless(shutil.which("zsh"), "there is no zsh")
    def test_zsh_completes_as_bash_does(self):
        run = subprocess.run(["zsh", "-n", ZSH], capture_output=True, text=True, timeout=stillora.DEADLINE)
        self.assertEqual((run.returncode, run.stderr), (0, ""))
        start = (f"fpath=({shlex.quote(str(ZSH.parent))} $fpath); autoload -Uz compinit; compinit -u -d {shlex.quote(str(self.folder))}/dump; "
                 "stillora() { printf '<%s>' \"$@\" '<end>'; }")
        for keys, name in (("docu\t\n", "document"), ("frame my\t\n", "my photo.png"), ("create --no-s\t\n", "--no-silence"),
                           ("waveform so\t\n", "song.mp3"), ("create --codec hv\t\n", "hvc1"),
                           ("document rend\t\n", "render"), ("document check Tr\t\n", "Trip.stillora"),
                           ("info mov\t\n", "movie.mov"), ("info B\t\n", "B.HEIC")):
            with self.subTest(keys):
                seen = self.typed("zsh", ["-f", "-i"], start, "stillora " + keys)
                self.assertIn(f"<{name}><<end>>", seen)

    def test_zsh_has_the_options_of_bash(self):
        """Both files name the same options for each command, as far as the text of one can tell."""
        text = ZSH.read_text()
        for option in {option for command in self.commands() for option in self.options_of_help(command)}:
            self.assertRegex(text, rf"(?<![\w-]){re.escape(option)}(?![\w-])")


if __name__ == "__main__":
    unittest.main(verbosity=2)

"""What the attacks share: their options, programs run within limits, and the count of what was tried and what was bad.

An attack is a program of its own in this folder, without an ending to its name, that takes the options of `options` and
prints what its `Tally` counts. `run` and CTest find it there by themselves.
"""

import argparse
import contextlib
import ctypes
import json
import os
import random
import signal
import subprocess
import sys
import tempfile
import threading
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
# Its modules are for attacks as well.
sys.path.insert(0, str(ROOT / "tests/support"))
import spoiling  # noqa: E402
import stillora  # noqa: E402

# What one process may take for one file, whatever it holds.
MOST_BYTES = 512 << 20
# What commands say of a file whose reader ended.
READER_ENDED = "the program that reads it ended"


def parser(description):
    """The options that every attack has, and `run` too."""
    made = argparse.ArgumentParser(description=description.split("\n", maxsplit=1)[0])
    made.add_argument("--deep", action="store_true", help="try as much as a night allows, not as much as a change")
    made.add_argument("--build", type=Path, default=ROOT / "build/release", metavar="FOLDER",
                      help="the build whose programs are attacked (default build/release)")
    made.add_argument("--keep", type=Path, metavar="FOLDER", help="where what was bad is kept (default attack in the build)")
    return made


def options(description, gate, deep, add=None):
    """What the command line of an attack says, which tries `gate` times, or `deep` times with --deep.

    A sanitizer is slower by far: at the gate it tries a fifth. `add` may add options to the parser it is given.
    """
    made = parser(description)
    made.add_argument("--count", type=int, metavar="N", help=f"how many to try (default {gate}, with --deep {deep})")
    made.add_argument("--seed", type=int, default=1, help="what is tried follows from it (default 1)")
    if add:
        add(made)
    said = made.parse_args()
    said.build = said.build.resolve()
    said.keep = (said.keep or said.build / "attack").resolve()
    said.sanitized = is_sanitized(said.build)
    if said.count is None:
        said.count = deep if said.deep else gate // 5 if said.sanitized else gate
    return said


def is_sanitized(build):
    """Whether a build's programs carry a sanitizer, which keeps freed memory and is slow."""
    lines = (build / "CMakeCache.txt").read_text().splitlines()
    return any(line.startswith("STILLORA_SANITIZE:") and not line.endswith("=") for line in lines)


class Tally:
    """How many things of one name were tried, and how many were bad; these are told, and their files kept."""

    def __init__(self, name, keep):
        self.name, self.folder = name, keep
        self.tried = self.bad = 0

    def fault(self, reason, **files):
        """Counts a fault, and keeps the bytes of `files`, each under this name with its own after it."""
        self.bad += 1
        kept = []
        for ending, data in files.items():
            self.folder.mkdir(parents=True, exist_ok=True)
            kept.append(self.folder / f"{self.name}-{self.bad}.{ending}")
            kept[-1].write_bytes(data)
        where = f", kept in {', '.join(map(str, kept))}" if kept else ""
        print(f"  {self.name}: {reason}{where}", file=sys.stderr, flush=True)

    def told(self):
        """Prints the count; gives whether nothing was bad."""
        print(f"{self.name}: {self.tried} tried, {self.bad} bad", flush=True)
        return self.tried > 0 and self.bad == 0


class Ran:
    """How a program ended that was run within limits."""

    def __init__(self, status, seconds, usage, out, err, timed_out):
        # Exit status, or minus the signal.
        self.status = status
        # Of the clock until it ended, and of processors; these with all that it started.
        self.seconds, self.processor = seconds, sum(one.ru_utime + one.ru_stime for one in usage)
        # The largest resident set of it or of one of these.
        self.bytes = max(one.ru_maxrss for one in usage) << 10
        self.out, self.err, self.timed_out = out, err, timed_out

    def harm(self, most_bytes=None):
        """What is bad whatever was asked for: a crash, a hang, too much memory; None if nothing is."""
        if self.timed_out:
            return f"did not end within {self.seconds:.0f} s"
        if self.status < 0:
            return f"ended by {signal.Signals(-self.status).name}: {self.last_said()}"
        if "Sanitizer" in self.err or "runtime error:" in self.err:
            return f"a sanitizer's report: {self.err[:2000]}"
        if most_bytes and self.bytes > most_bytes:
            return f"took {self.bytes >> 20} MB"
        return None

    def last_said(self):
        return (self.err.strip().split("\n"))[-1]


def run(*command, seconds=60, environment=None, cwd=None, stdin=subprocess.DEVNULL):
    """Runs a program to its end, or ends it and all of its group after `seconds`."""
    with tempfile.TemporaryFile() as out, tempfile.TemporaryFile() as err:
        began = time.monotonic()
        process = subprocess.Popen([os.fspath(part) for part in command], stdin=stdin, stdout=out, stderr=err,
                                   env=environment, cwd=cwd, start_new_session=True)
        # Waiting that tells what was used knows no limit.
        alarm = _Alarm(process.pid, seconds)
        _, code, usage = os.wait4(process.pid, 0)
        ended = time.monotonic()
        process.returncode = os.waitstatus_to_exitcode(code)
        usage = [usage, *_usage_of_left(process.pid)]
        timed_out = alarm.stop()
        texts = []
        for file in (out, err):
            file.seek(0)
            texts.append(file.read().decode("utf-8", "surrogateescape"))
        return Ran(process.returncode, ended - began, usage, *texts, timed_out)


def _become_heir():
    """Has what programs leave running, when they end, become children of this process."""
    set_child_subreaper = 36
    if ctypes.CDLL(None, use_errno=True).prctl(set_child_subreaper, 1, 0, 0, 0) != 0:
        raise OSError(ctypes.get_errno(), "prctl")


_become_heir()


def _usage_of_left(group):
    """Waits for what a program has left in its group, and gives what each took."""
    with contextlib.suppress(ChildProcessError):
        while True:
            yield os.wait4(-group, 0)[2]


class _Alarm:
    """Kills a process group when its time is over."""

    def __init__(self, group, seconds):
        self.group, self.rang = group, False
        self.timer = threading.Timer(seconds, self._ring)
        self.timer.daemon = True
        self.timer.start()

    def _ring(self):
        self.rang = True
        try:
            os.killpg(self.group, signal.SIGKILL)
        except ProcessLookupError:
            self.rang = False

    def stop(self):
        self.timer.cancel()
        self.timer.join()
        return self.rang


class Programs:
    """The programs of a build, run in a folder of their own that holds all they are given and make."""

    def __init__(self, options, folder):
        self.stillora = options.build / "bin/stillora"
        self.folder = folder
        self.most_bytes = None if options.sanitized else MOST_BYTES
        self.readers_may_end = False
        # For one file; a machine may be busy with others.
        self.most_seconds = 60 if options.sanitized else 20
        home = folder / "home"
        home.mkdir(parents=True)
        self.environment = stillora.private_environment(home)

    def run(self, *arguments, count=1):
        """Runs a command that is given `count` files, for as long as that many may take."""
        return run(self.stillora, *arguments, seconds=self.most_seconds + 0.5 * count, environment=self.environment,
                   cwd=self.folder)

    def harm(self, ran):
        """What is bad about a command that was run, whatever it was given; None if nothing is."""
        known = (0, 1, 3, 5)
        # The program that reads a stranger's file for the command may not fail either, though the command bears it.
        if not self.readers_may_end and READER_ENDED in ran.err:
            return next(line for line in ran.err.splitlines() if READER_ENDED in line)
        return ran.harm(self.most_bytes) or (f"ended with {ran.status}: {ran.last_said()}" if ran.status not in known else None)

    def culprits(self, names, arguments):
        """Runs the command that `arguments` makes of several names, and again with fewer where harm is done.

        Gives how it ended with all of them, and (name, harm) for each that is harmful by itself.
        """
        ran = self.run(*arguments(names), count=len(names))
        harm = self.harm(ran)
        if not harm:
            return ran, []
        if len(names) <= 1:
            return ran, [(name, harm) for name in names]
        half = len(names) // 2
        found = self.culprits(names[:half], arguments)[1] + self.culprits(names[half:], arguments)[1]
        # Several at once take the memory of several; all else is bad also where none is so by itself.
        tolerated = harm.endswith(" MB")
        return ran, found or ([] if tolerated else [(" ".join(names), harm)])


class FileAttack:
    """Gives spoilt files to the commands; who inherits says what must hold of these."""

    def __init__(self, name, options, folder):
        self.programs = Programs(options, folder)
        self.folder = folder
        self.tally = Tally(name, options.keep)

    def fault(self, reason, names=()):
        some = ([name for name in names if name in reason] or names)[:3]
        self.tally.fault(f"{' '.join(some)}: {reason}", **{name: (self.folder / name).read_bytes() for name in some})

    def is_harmless(self, names, arguments):
        """Runs the command that `arguments` makes of names, and tells what was harmful; gives how it ended if nothing was."""
        ran, culprits = self.programs.culprits(names, arguments)
        for name, harm in culprits:
            self.fault(f"{arguments(['...'])[0]}: {harm}", name.split(" "))
        return ran if not culprits else None

    def tell(self, names):
        """Each file is told of, or refused by name and with a reason. Gives what was told of those that are told of."""
        ran = self.is_harmless(names, lambda some: ["info", "--json", *some])
        if not ran:
            return {}
        told = {answer["path"]: answer for answer in map(json.loads, ran.out.splitlines())}
        said = ran.err.splitlines()
        for name in names:
            if name not in told:
                self.fault("info told nothing of it", [name])
        for name, answer in told.items():
            is_named = any(line.startswith(f"stillora: {name}: ") for line in said)
            if not answer["ok"] and not (answer["error"] and is_named):
                self.fault("info refused it without naming it, or a reason", [name])
        if (ran.status == 0) != all(answer["ok"] for answer in told.values()):
            self.fault(f"info ended with {ran.status}", names)
        return {name: answer for name, answer in told.items() if answer["ok"]}

    def spoilt(self, whole, count, seed, batch):
        """Names of files in batches, each of which is there until the next is asked for; `whole` has files by format."""
        chance = random.Random(seed)
        every = [data for several in whole.values() for data in several]
        endings = list(whole)
        while self.tally.tried < count:
            names = []
            for number in range(self.tally.tried, min(count, self.tally.tried + batch)):
                ending = endings[number % len(endings)]
                names.append(f"{number}.{ending}")
                (self.folder / names[-1]).write_bytes(spoiling.spoilt(chance.choice(whole[ending]), every, chance))
            self.tally.tried += len(names)
            yield names
            for name in names:
                (self.folder / name).unlink()


def attack_files(kind, options):
    """Runs a FileAttack as a program: gives its exit status."""
    with tempfile.TemporaryDirectory() as folder:
        made = kind(options, Path(folder))
        made.run(options.count, options.seed)
        return 0 if made.tally.told() else 1

"""What the attacks share: their options, programs run within limits, and the count of what was tried and what was bad.

An attack is a program of its own in this folder, without an ending to its name, that takes the options of `options` and
prints what its `Tally` counts. `run` and CTest find it there by themselves.
"""

import argparse
import os
import resource
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

# What one process may take for one file, whatever it holds.
MOST_BYTES = 512 << 20


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
        # Of the clock, and of processors; these with what the program itself started and waited for.
        self.seconds, self.processor = seconds, usage.ru_utime + usage.ru_stime
        # The largest resident set of it or of one of these.
        self.bytes = usage.ru_maxrss << 10
        self.out, self.err, self.timed_out = out, err, timed_out

    def harm(self, most_seconds, most_bytes=None):
        """What is bad whatever was asked for: a crash, a hang, too much memory; None if nothing is."""
        if self.timed_out:
            return f"did not end within {self.seconds:.0f} s"
        if self.status < 0:
            return f"ended by {signal.Signals(-self.status).name}: {self.last_said()}"
        if "Sanitizer" in self.err or "runtime error:" in self.err:
            return f"a sanitizer's report: {self.err[:2000]}"
        if self.seconds > most_seconds:
            return f"took {self.seconds:.1f} s"
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
        process.returncode = os.waitstatus_to_exitcode(code)
        timed_out = alarm.stop()
        texts = []
        for file in (out, err):
            file.seek(0)
            texts.append(file.read().decode("utf-8", "surrogateescape"))
        return Ran(process.returncode, time.monotonic() - began, usage, *texts, timed_out)


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

"""Many movies of one list, each made once."""

import contextlib
import hashlib
import json
import os
import pty
import random
import re
import shutil
import signal
import subprocess
import time
import unittest
from pathlib import Path

import jsonschema
import slurm
import stillora

ROOT = Path(__file__).resolve().parents[2]
SCHEMA = json.loads((ROOT / "data/schemas/manifest-1.schema.json").read_text())
OUTPUT = jsonschema.Draft202012Validator(json.loads((ROOT / "data/schemas/output-1.schema.json").read_text()))


class ManifestTest(stillora.TestCase):
    """What a line may be, as the program, the schema and the page have it."""

    def setUp(self):
        super().setUp()
        self.photos = stillora.pictures(self.folder / "photos", 2)
        stillora.run("ffmpeg", "-v", "error", "-f", "lavfi", "-i", "sine=d=1", self.folder / "song.wav")
        self.run_stillora("document", "new", self.folder / "Small", *self.photos)

    def faults(self, *lines):
        """(line, field) of everything that is wrong."""
        manifest = self.folder / "list.jsonl"
        manifest.write_text("".join((line if isinstance(line, str) else json.dumps(line)) + "\n" for line in lines))
        said = self.run_stillora("batch", manifest, "--check", "--json", expect=(0, 3))
        events = [json.loads(line) for line in said.out.splitlines()]
        faults = [(event["line"], event["field"]) for event in events if event["event"] == "fault"]
        self.assertEqual(said.returncode, 3 if faults else 0)
        self.assertEqual(events[-1]["faults"], len(faults))
        return faults

    def test_the_program_and_the_schema_agree(self):
        jsonschema.Draft202012Validator.check_schema(SCHEMA)
        photos = {"photos": ["photos"]}
        document = {"document": "Small.stillora"}
        good = [
            {**photos}, {**document}, {**photos, "sounds": ["song.wav"]}, {**photos, "id": "a"}, {**photos, "seconds": 0.01},
            {**photos, "seconds": 3600}, {**photos, "sounds": ["song.wav@0-0.5"], "loop": True},
            {**photos, "sounds": ["song.wav"], "fitMusic": True}, {**photos, "silence": False}, {**photos, "web": True},
            {**photos, "reverse": True, "recursive": True, "reduceBorders": True, "watermark": True, "skipBad": True},
            {**photos, "title": "A", "save": "out"}, {**photos, "output": "out/A.mov"}, {**photos, "split": 1},
            {**document, "split": 1000},
            {**document, "seconds": 2, "quality": "auto", "codec": "avc1", "title": "A", "save": "out", "web": False,
             "watermark": False, "skipBad": False},
        ]
        good += [{**photos, "quality": value} for value in SCHEMA["properties"]["quality"]["enum"]]
        good += [{**photos, "codec": value} for value in SCHEMA["properties"]["codec"]["enum"]]
        good += [{**photos, "sort": value} for value in SCHEMA["properties"]["sort"]["enum"]]
        bad = [
            {}, [], 1, {**photos, **document}, {"photos": []}, {"photos": "photos"}, {"photos": [1]}, {"photos": [""]},
            {**photos, "seconds": 0}, {**photos, "seconds": 3601}, {**photos, "seconds": "4"}, {**photos, "quality": 1081},
            {**photos, "quality": True}, {**photos, "codec": "mp4"}, {**photos, "sort": "size"}, {**photos, "loop": "on"},
            {**photos, "id": ""}, {**photos, "id": 5}, {**photos, "title": "a/b"}, {**photos, "title": ".a"},
            {**photos, "output": "A.mov", "title": "A"}, {**photos, "output": "A.mov", "save": "out"},
            {**photos, "sounds": ["song.wav"], "fitMusic": True, "loop": True},
            {**photos, "sounds": ["song.wav"], "fitMusic": True, "seconds": 2}, {**photos, "more": 1},
            {**photos, "split": 0}, {**photos, "split": 1001}, {**photos, "split": 2.5}, {**photos, "split": "2"},
            *({**document, name: value} for name, value in (
                ("sounds", ["song.wav"]), ("loop", True), ("fitMusic", True), ("silence", False), ("sort", "name"),
                ("reduceBorders", True), ("reverse", True), ("recursive", True))),
        ]
        validator = jsonschema.Draft202012Validator(SCHEMA)
        for line in good:
            self.assertEqual(self.faults(line), [], line)
            self.assertTrue(validator.is_valid(line), line)
        for line in bad:
            self.assertNotEqual(self.faults(line), [], line)
            self.assertFalse(validator.is_valid(line), line)

    def test_the_page_has_every_field_and_no_other(self):
        page = (ROOT / "docs/batch.md").read_text()
        self.assertEqual(re.findall(r"^\| `(\w+)` \|", page, re.MULTILINE), list(SCHEMA["properties"]))

    def test_the_lines_of_the_page_are_good(self):
        page = (ROOT / "docs/batch.md").read_text()
        lines = re.search(r"```json\n(.*?)```", page, re.DOTALL)[1].splitlines()
        self.assertEqual(len(lines), 2)
        for line in lines:
            jsonschema.Draft202012Validator(SCHEMA).validate(json.loads(line))

    def test_every_line_that_is_wrong_is_named(self):
        found = self.faults({"photos": ["photos"], "id": "a"}, "no JSON", "", {"photos": ["photos", "none.jpg"], "id": "b"},
                            {"document": "photos"}, {"photos": ["photos"], "sounds": ["none.wav"]},
                            {"photos": ["photos"], "id": "a"})
        self.assertEqual(found, [(2, None), (4, "photos"), (5, "document"), (6, "sounds"), (7, "id")])

    def test_a_manifest_that_is_not_there_is_named(self):
        said = self.run_stillora("batch", self.folder / "none.jsonl", "--check", expect=3)
        self.assertIn(str(self.folder / "none.jsonl"), said.err)

    def test_nothing_is_left_of_a_check(self):
        before = self.leftovers()
        self.faults({"photos": ["photos"]})
        self.assertEqual(self.leftovers(), sorted(before + ["list.jsonl"]))

    def test_memory_does_not_grow_with_the_list(self):
        def peak(lines):
            manifest = self.folder / "long.jsonl"
            with open(manifest, "w") as file:
                for number in range(lines):
                    file.write(f'{{"id": "movie {number}", "photos": ["photos"], "title": "Movie {number}"}}\n')
            process = subprocess.Popen([stillora.STILLORA, "batch", manifest, "--check", "--quiet"], env=self.environment())
            _, status, used = os.wait4(process.pid, 0)
            process.returncode = os.waitstatus_to_exitcode(status)
            self.assertEqual(process.returncode, 0)
            return used.ru_maxrss

        if stillora.build_setting("STILLORA_SANITIZE"):
            self.skipTest("a sanitizer's own memory counts as well")
        few, many = peak(100), peak(100_000)
        self.assertLess(many, few + 12_000, f"{few} kB for 100 lines, {many} kB for 100000")


# How many movies, and how often something is killed. The whole sizes are STILLORA_BATCH_MOVIES=200 STILLORA_BATCH_KILLS=50.
MOVIES = int(os.environ.get("STILLORA_BATCH_MOVIES", 20))
KILLS = int(os.environ.get("STILLORA_BATCH_KILLS", 6))


class BatchTestCase(stillora.TestCase):
    """A list of small documents, each of which makes a movie of two photos."""

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.photos = stillora.pictures(cls.shared / "photos", 2, 427, 240)
        home = cls.shared / "home"
        home.mkdir()
        made = subprocess.run([stillora.STILLORA, "document", "new", cls.shared / "Small", *cls.photos, "--seconds", "0.5"],
                              env=stillora.private_environment(home), capture_output=True)
        assert made.returncode == 0, made.stderr
        cls.seed = random.randrange(1 << 30)

    def setUp(self):
        super().setUp()
        self.random = random.Random(self.seed)
        self.manifest = self.folder / "list.jsonl"
        self.state = self.folder / "list.jsonl.state"

    def write(self, *lines):
        self.manifest.write_text("".join(json.dumps(line) + "\n" for line in lines))

    def line(self, number, **more):
        return {"id": f"movie {number}", "photos": [os.path.relpath(self.photos[0].parent, self.folder)], "quality": 240,
                "seconds": 0.5, "title": f"Movie {number}", "save": "save", **more}

    def write_documents(self, count):
        for number in range(count):
            shutil.copytree(self.shared / "Small.stillora", self.folder / f"Movie {number:03}.stillora")
        self.write(*({"id": f"movie {number}", "document": f"Movie {number:03}.stillora", "save": "save"}
                     for number in range(count)))

    def batch(self, *arguments, **options):
        return self.run_stillora("batch", self.manifest, *map(str, arguments), **options)

    def events(self, *arguments, **options):
        lines = self.batch("--json", *arguments, **options).out.splitlines()
        events = [json.loads(line) for line in lines]
        for event in events:
            OUTPUT.validate(event)
        return events

    def states(self, *arguments, **options):
        return {event["id"]: event["state"] for event in self.events(*arguments, **options) if event["event"] == "movie"}

    def start(self, *arguments, **options):
        return subprocess.Popen([stillora.STILLORA, "batch", self.manifest, *map(str, arguments)], env=self.environment(),
                                stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE, **options)

    def receipts(self):
        return [json.loads(file.read_text()) for file in sorted(self.state.glob("movies/*/*.receipt"))]

    def log(self):
        return [json.loads(line) for file in self.state.glob("logs/*.jsonl") for line in file.read_text().splitlines()]

    def log_size(self):
        return sum(file.stat().st_size for file in self.state.glob("logs/*.jsonl"))

    def assertAllMade(self, count):
        """So many movies, each once, each whole, and nothing but these and their receipts."""
        receipts = self.receipts()
        self.assertEqual(len(receipts), count, f"seed {self.seed}")
        movies = sorted(self.folder / receipt["movie"] for receipt in receipts)
        self.assertEqual(sorted(path for path in self.save.rglob("*")), movies)
        for receipt in receipts:
            movie = self.folder / receipt["movie"]
            self.assertEqual(hashlib.sha256(movie.read_bytes()).hexdigest(), receipt["checksum"])
            self.assertEqual(movie.stat().st_nlink, 1)
        some = movies[:: max(1, count // 20)]
        self.assertEqual([number for number in stillora.decoded_frames_of(some) if number < 2] if some else [], [])
        self.assertEqual(list((self.state / "workers").iterdir()), [])
        left = [str(file.relative_to(self.state)) for file in self.state.rglob("*") if file.is_file()]
        self.assertEqual([name for name in left if not re.fullmatch(
            r"lines|summary\.json|(tasks|closing)\.sh|logs/.*\.jsonl|tasks/.*\.out|movies/.*\.receipt", name)], [])

    def wait_for_log(self, process, size, meanwhile=lambda: None):
        """Until the log has grown by so much, or the process has ended."""
        before = self.log_size()
        stillora.wait_until(lambda: meanwhile() or self.log_size() >= before + size or process.poll() is not None,
                            "the work goes on")


class BatchTest(BatchTestCase):
    def test_every_movie_is_made_once(self):
        self.write(*(self.line(number) for number in range(4)))
        events = self.events()
        result = events[-1]
        self.assertEqual((result["ok"], result["made"], result["failed"], result["left"]), (True, 4, 0, 0))
        self.assertEqual({event["state"] for event in events if event["event"] == "movie"}, {"made"})
        self.assertAllMade(4)
        before = {path: path.stat() for path in self.save.iterdir()}
        self.assertEqual(set(self.states().values()), {"unchanged"})
        self.assertEqual({path: path.stat() for path in self.save.iterdir()}, before)

    def test_each_path_has_a_line_of_its_own_on_a_terminal(self):
        self.write(*(self.line(number) for number in range(2)))
        process, terminal = pty.fork()
        if process == 0:
            os.execve(stillora.STILLORA, ["stillora", "batch", str(self.manifest)], self.environment(TERM="xterm"))
        said = b""
        with contextlib.suppress(OSError):
            while part := os.read(terminal, 4096):
                said += part
        os.close(terminal)
        self.assertEqual(os.waitstatus_to_exitcode(os.waitpid(process, 0)[1]), 0, said)
        self.assertIn("%", said.decode())
        # What is seen of a line is what follows its last erasure.
        seen = [line.rpartition("\r\x1b[K")[2].strip("\r") for line in said.decode().split("\n")]
        for number in range(2):
            self.assertIn(str(self.save / f"Movie {number}.mov"), seen)

    def test_what_has_changed_is_made_again_in_its_place(self):
        photos = shutil.copytree(self.photos[0].parent, self.folder / "mine")
        own = {"photos": ["mine"]}
        self.write(self.line(1), self.line(2, **own), self.line(3))
        self.batch()
        self.write(self.line(1), self.line(2, **own), self.line(3, seconds=1))
        shutil.copy(self.photos[0], photos / "photo 003.jpg")
        self.assertEqual(self.states(), {"movie 1": "unchanged", "movie 2": "made", "movie 3": "made"})
        self.assertAllMade(3)
        self.assertEqual(len(stillora.hold_times(self.save / "Movie 2.mov")) % 3, 0)

    def test_contents_decide_where_they_are_known(self):
        photos = shutil.copytree(self.photos[0].parent, self.folder / "mine")
        self.write(self.line(1, photos=["mine"]))
        self.batch("--hash")
        os.utime(photos / "photo 001.jpg")
        self.assertEqual(self.states("--hash"), {"movie 1": "unchanged"})
        self.assertEqual(self.states(), {"movie 1": "unchanged"})
        shutil.copy(photos / "photo 002.jpg", photos / "photo 001.jpg")
        self.assertEqual(self.states("--hash"), {"movie 1": "made"})

    def test_a_movie_that_was_moved_or_altered_is_told_and_kept(self):
        self.write(self.line(1), self.line(2), self.line(3))
        self.batch()
        (self.save / "Movie 1.mov").rename(self.folder / "mine.mov")
        (self.save / "Movie 2.mov").write_bytes(b"mine")
        os.utime(self.save / "Movie 3.mov")
        self.assertEqual(self.states(), {"movie 1": "moved", "movie 2": "altered", "movie 3": "unchanged"})
        self.assertFalse((self.save / "Movie 1.mov").exists())
        self.assertEqual(self.states("--again"), {"movie 1": "made", "movie 2": "made", "movie 3": "unchanged"})
        self.assertEqual((self.save / "Movie 2.mov").read_bytes(), b"mine")
        self.assertEqual(sorted(path.name for path in self.save.iterdir()),
                         ["Movie 1.mov", "Movie 2-2.mov", "Movie 2.mov", "Movie 3.mov"])

    def test_a_file_of_others_is_never_replaced(self):
        (self.save / "Movie 1.mov").write_bytes(b"mine")
        self.write(self.line(1))
        self.batch()
        self.assertEqual((self.save / "Movie 1.mov").read_bytes(), b"mine")
        self.assertEqual(self.receipts()[0]["movie"], "save/Movie 1-2.mov")

    def test_what_fails_does_not_keep_the_others(self):
        bad = self.folder / "bad.jpg"
        bad.write_bytes(b"no picture")
        self.write(self.line(1), self.line(2, photos=["bad.jpg"]), self.line(3))
        self.assertEqual(self.states(expect=1), {"movie 1": "made", "movie 2": "failed", "movie 3": "made"})
        status, = self.events("--status")
        self.assertEqual((status["movies"], status["made"], status["failed"], status["left"]), (3, 2, 1, 0))
        self.assertEqual(status["failures"][0]["line"], 2)
        self.assertIn("bad.jpg", status["failures"][0]["reason"])
        shutil.copy(self.photos[0], bad)
        self.assertEqual(self.states(), {"movie 1": "unchanged", "movie 2": "made", "movie 3": "unchanged"})
        self.assertAllMade(3)

    def test_stop_begins_nothing_after_a_failure(self):
        (self.folder / "bad.jpg").write_bytes(b"no picture")
        self.write(self.line(1, photos=["bad.jpg"]), self.line(2), self.line(3))
        self.assertEqual(self.states("--stop", "--jobs", "1", expect=1), {"movie 1": "failed"})

    def test_nothing_is_begun_where_a_line_is_wrong(self):
        self.write(self.line(1), self.line(2, seconds=0))
        self.assertEqual(self.states(expect=3), {})
        self.assertEqual(list(self.save.iterdir()), [])
        self.assertEqual(self.states("--keep-going", expect=1), {"movie 1": "made", "line 2": "failed"})

    def test_one_line_alone_is_made(self):
        self.write(*(self.line(number) for number in range(1, 8)))
        self.assertEqual(self.states("--index", 3), {"movie 3": "made"})
        self.assertEqual(self.states("--index", 2, "--tasks", 3), {"movie 3": "unchanged", "movie 4": "made"})
        told = self.states(environment=self.environment(SLURM_ARRAY_TASK_ID=7))
        self.assertEqual(told, {"movie 7": "made"})
        self.batch("--index", 8, expect=2)
        shares = [self.states("--index", index, "--tasks", 3) for index in (1, 2, 3)]
        self.assertEqual(sorted(name for share in shares for name in share), [f"movie {number}" for number in range(1, 8)])
        self.assertAllMade(7)

    def test_the_log_tells_what_was_done(self):
        self.write(self.line(1))
        self.batch()
        started, made = self.log()
        self.assertEqual((started["stage"], made["stage"], made["id"]), ("started", "made", "movie 1"))
        self.assertGreater(made["secondsToMake"], 0)
        self.assertGreater(made["peakBytes"], 1 << 20)

    def test_an_interruption_leaves_nothing_half_made(self):
        count = 6
        self.write_documents(count)
        process = self.start()
        self.wait_for_log(process, 1)
        process.send_signal(signal.SIGINT)
        began = time.monotonic()
        _, said = process.communicate(timeout=stillora.DEADLINE)
        seconds = time.monotonic() - began
        self.assertEqual(process.returncode, 130, said.decode())
        if not stillora.build_setting("STILLORA_SANITIZE"):
            self.assertLess(seconds, 2)
        self.assertAllMade(len(self.receipts()))
        self.batch("--quiet")
        self.assertAllMade(count)

    def claim(self, **owner):
        """Makes the movie of line 1, and puts a claim of another worker in the place of its receipt."""
        self.batch("--index", 1)
        receipt, = self.state.glob("movies/*/*.receipt")
        claim = receipt.with_suffix(".claim.1")
        receipt.unlink()
        (self.save / "Movie 1.mov").unlink()
        worker = self.state / "workers" / "other-1"
        worker.write_text(json.dumps({"name": "other-1", "machine": "other", "system": "another", "pid": 1, "start": "1",
                                      **owner}))
        os.link(worker, claim)
        return worker

    def test_a_worker_that_lives_keeps_its_claim(self):
        self.write(self.line(1), self.line(2))
        worker = self.claim()
        process = self.start("--json")
        stillora.wait_until(lambda: (self.save / "Movie 2.mov").exists(), "the other movie is made")
        self.assertFalse((self.save / "Movie 1.mov").exists())
        status = json.loads(self.batch("--status", "--json").out)
        self.assertEqual([each["machine"] for each in status["working"]], ["other"])
        # It gives up: its claim is there no more.
        next(self.state.glob("movies/*/*.claim.1")).unlink()
        worker.unlink()
        process.communicate(timeout=stillora.DEADLINE)
        self.assertEqual(process.returncode, 0)
        self.assertAllMade(2)

    def test_a_worker_that_is_silent_loses_its_claim(self):
        self.write(self.line(1))
        worker = self.claim()
        long_ago = time.time() - 1000
        os.utime(worker, (long_ago, long_ago))
        left = self.save / f".stillora-{next(self.state.glob('movies/*/*.claim.1')).name[:8]}-other-1"
        left.mkdir()
        (left / "half.mov").write_bytes(b"half")
        self.assertEqual(self.states(), {"movie 1": "made"})
        self.batch("--sum-up")
        self.assertAllMade(1)

    def test_a_movie_that_waits_for_its_place_is_not_made_anew(self):
        self.write(self.line(1))
        self.batch()
        receipt, = self.state.glob("movies/*/*.receipt")
        movie = self.save / "Movie 1.mov"
        for has_place in (False, True):
            told = json.loads(receipt.read_text())
            folder = self.save / f".stillora-{receipt.name[:8]}-{told['worker']}"
            folder.mkdir()
            waiting = folder / "Movie 1.mov"
            os.link(movie, waiting)
            number = waiting.stat().st_ino
            if not has_place:
                movie.unlink()
            receipt.with_suffix(".delivery").write_text(json.dumps(
                {**told, "movie": str(movie), "waitsAt": str(waiting), "replaced": "", "replacedBytes": 0,
                 "replacedModified": "0"}))
            receipt.unlink()
            self.batch()
            self.assertEqual(movie.stat().st_ino, number)
            self.assertAllMade(1)

    def test_a_disk_that_cannot_be_written_is_named(self):
        self.write(self.line(1))
        self.state.write_text("in the way")
        self.assertIn(str(self.state), self.batch(expect=1).err)


class BatchKillTest(BatchTestCase):
    def setUp(self):
        super().setUp()
        if stillora.build_setting("STILLORA_SANITIZE"):
            self.skipTest("takes long with a sanitizer, which has seen the same code in the other tests")

    def test_killed_and_run_again(self):
        self.write_documents(MOVIES)
        kills = 0
        while kills < KILLS:
            process = self.start("--quiet", "--jobs", "2")
            self.wait_for_log(process, self.random.randrange(1, 1500))
            time.sleep(self.random.random() * 0.1)
            process.kill()
            process.communicate()
            kills += 1
        self.batch("--quiet")
        self.assertAllMade(MOVIES)
        made = [event["id"] for event in self.log() if event["stage"] == "made"]
        print(f"{kills} kills, {MOVIES} movies, {len(self.log())} lines of log, {len(made)} told as made, seed {self.seed}")

    def test_two_batches_of_one_list(self):
        self.write_documents(MOVIES)
        processes = [self.start("--json", "--quiet", "--jobs", "2") for _ in range(2)]
        said = [process.communicate(timeout=stillora.DEADLINE) for process in processes]
        self.assertEqual([process.returncode for process in processes], [0, 0], said)
        # Who takes what another is at would take its files away as well.
        self.assertEqual([errors.decode() for _, errors in said], ["", ""])
        results = [json.loads(out.splitlines()[-1]) for out, _ in said]
        self.assertEqual(sum(result["made"] for result in results), MOVIES)
        self.assertAllMade(MOVIES)
        print("made by each:", [result["made"] for result in results])

    def test_gnu_parallel(self):
        self.write_documents(MOVIES)
        (self.folder / "logins").write_text("4/:\n")
        joblog = self.folder / "jobs.log"
        indexes = map(str, range(1, MOVIES + 1))
        command = ["parallel", "--will-cite", "--sshloginfile", self.folder / "logins", "--joblog", joblog]
        task = [str(stillora.STILLORA), "batch", str(self.manifest), "--quiet", "--index", "{}", ":::", *indexes]
        environment = self.environment(PARALLEL_HOME=self.folder / "parallel")
        process = subprocess.Popen([*command, *task], env=environment, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                   stderr=subprocess.DEVNULL)
        killed = 0
        while process.poll() is None and killed < KILLS:
            self.wait_for_log(process, self.random.randrange(1, 800))
            workers = self.workers()
            if workers:
                with contextlib.suppress(ProcessLookupError):
                    os.kill(self.random.choice(workers), signal.SIGKILL)
                    killed += 1
        process.wait()
        tries = 0
        while process.returncode != 0 and tries < 3:
            process = subprocess.run([*command, "--resume-failed", *task], env=environment, stdin=subprocess.DEVNULL,
                                     capture_output=True)
            tries += 1
        self.assertEqual(process.returncode, 0)
        self.batch("--sum-up")
        self.assertAllMade(MOVIES)
        print(f"{killed} workers killed, resumed {tries} times, seed {self.seed}")

    def workers(self):
        """Processes that make a line of this test's list."""
        found = []
        for process in Path("/proc").iterdir():
            with contextlib.suppress(OSError):
                words = (process / "cmdline").read_bytes().split(b"\0") if process.name.isdigit() else []
                if os.fsencode(self.manifest) in words and words[0] == os.fsencode(stillora.STILLORA):
                    found.append(int(process.name))
        return found


class BatchSplitTest(BatchTestCase):
    """A movie of many photos, of which several workers make pieces."""

    PHOTOS = 41

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        stillora.pictures(cls.shared / "many", cls.PHOTOS, 427, 240)
        stillora.run("ffmpeg", "-v", "error", "-f", "lavfi", "-i", "sine=d=3", cls.shared / "song.wav")

    def setUp(self):
        super().setUp()
        if stillora.build_setting("STILLORA_SANITIZE") and "the_same" not in self.id():
            self.skipTest("takes long with a sanitizer, which sees the same code in the other tests")

    def whole(self, **more):
        """With music, and with a watermark on the first photo, the last and some in the middle."""
        return {"photos": [os.path.relpath(self.shared / "many", self.folder)], "quality": 240, "seconds": 0.3,
                "sounds": [os.path.relpath(self.shared / "song.wav", self.folder)], "title": "Movie", "watermark": True,
                **more}

    def environment(self, **more):
        return super().environment(SOURCE_DATE_EPOCH=1, **more)

    def write_both(self, **more):
        """The same movie in one piece and in four."""
        self.write(self.whole(id="one", save="save/one", **more), self.whole(id="four", save="save/four", split=4, **more))

    def assertSameMovies(self, packets=True):
        one, four = (self.save / name / "Movie.mov" for name in ("one", "four"))
        if packets:
            hashes = [stillora.run("ffmpeg", "-v", "error", "-i", movie, "-map", "0", "-c", "copy", "-f", "framehash",
                                   "-").decode() for movie in (one, four)]
            self.assertGreater(hashes[0].count("\n0,"), self.PHOTOS - 1)
            self.assertEqual(*hashes)
        self.assertEqual(one.read_bytes(), four.read_bytes())
        self.assertEqual({path for path in self.save.rglob("*") if path.is_file()}, {one, four})

    def made_pieces(self):
        return [event["piece"] for event in self.log() if event["stage"] == "made" and "piece" in event]

    def assertNothingLeft(self):
        self.assertEqual(list(self.state.glob("movies/*/*-*")), [])
        self.assertEqual(list((self.state / "workers").iterdir()), [])
        self.assertEqual(list(self.save.rglob(".*")), [])

    def test_the_joined_movie_is_the_same(self):
        for codec in ("avc1", "jpeg"):
            self.write_both(codec=codec)
            self.assertEqual(self.states("--jobs", "2"), {"one": "made", "four": "made"})
            self.assertSameMovies()
            self.assertNothingLeft()
            self.assertEqual(sorted(self.made_pieces()), [1, 2, 3, 4])
            self.assertEqual(self.states(), {"one": "unchanged", "four": "unchanged"})
            shutil.rmtree(self.state)
            shutil.rmtree(self.save)

    def test_it_is_the_same_with_no_sound_and_for_browsers(self):
        for more in ({"sounds": ["none"]}, {"web": True, "seconds": 1.2}):
            self.write_both(**more)
            lines = [json.loads(line) for line in self.manifest.read_text().splitlines()]
            for line in lines:
                if line["sounds"] == ["none"]:
                    del line["sounds"]
            self.write(*lines)
            self.batch("--jobs", "2")
            self.assertSameMovies(packets=False)
            shutil.rmtree(self.state)
            shutil.rmtree(self.save)

    def test_a_piece_that_was_cut_off_is_made_again_and_no_other(self):
        self.write_both()
        self.batch("--index", 1)
        process = self.start("--quiet", "--index", "2", "--jobs", "1")
        started = lambda: [event["piece"] for event in self.log() if event["stage"] == "started" and "piece" in event]
        stillora.wait_until(lambda: 3 in started() or process.poll() is not None, "the third piece is begun")
        process.kill()
        process.communicate()
        done = self.made_pieces()
        self.assertIn(2, done)
        status, = self.events("--status")
        self.assertEqual((status["movies"], status["made"], status["left"]), (2, 1, 1))
        self.assertEqual(status["pieces"], len(list(self.state.glob("movies/*/*-*.receipt"))))
        self.assertGreaterEqual(status["pieces"], 2)
        self.assertEqual([(each["id"], each["piece"]) for each in status["working"]], [("four", started()[-1])])
        self.assertEqual(self.states(), {"one": "unchanged", "four": "made"})
        self.assertEqual(sorted(self.made_pieces())[:3], [1, 2, 3])
        self.assertEqual([piece for piece in done if self.made_pieces().count(piece) > 1], [])
        self.assertSameMovies(packets=False)
        self.assertNothingLeft()

    def test_tasks_share_the_pieces(self):
        self.write_both()
        self.batch("--check")
        # Of five tasks, four come to the line of four pieces.
        processes = [self.start("--quiet", "--index", str(index), "--tasks", "5") for index in range(1, 6)]
        said = [process.communicate(timeout=stillora.DEADLINE)[1].decode() for process in processes]
        self.assertEqual([process.returncode for process in processes], [0] * 5, said)
        self.assertEqual(sorted(self.made_pieces()), [1, 2, 3, 4])
        self.assertSameMovies(packets=False)
        self.assertNothingLeft()

    def test_one_that_cannot_be_made_is_told_once(self):
        bad = self.folder / "bad.jpg"
        bad.write_bytes(b"no picture")
        self.write(self.whole(id="four", save="save", split=4, photos=[*self.whole()["photos"], "bad.jpg"]))
        self.assertEqual(self.states("--jobs", "2", expect=1), {"four": "failed"})
        status, = self.events("--status")
        self.assertEqual((status["failed"], status["left"], status["pieces"]), (1, 0, 0))
        self.assertIn("bad.jpg", status["failures"][0]["reason"])

    def test_pieces_of_other_photos_are_not_used(self):
        photos = shutil.copytree(self.shared / "many", self.folder / "mine")
        self.write(self.whole(id="four", save="save/four", split=4, photos=["mine"]))
        process = self.start("--quiet", "--jobs", "1")
        stillora.wait_until(lambda: self.made_pieces() or process.poll() is not None, "a piece is made")
        process.kill()
        process.communicate()
        os.utime(photos / "photo 001.jpg")
        shutil.copy(photos / "photo 002.jpg", photos / "photo 001.jpg")
        self.batch()
        self.write(self.whole(id="one", save="save/one", photos=["mine"]),
                   self.whole(id="four", save="save/four", split=4, photos=["mine"]))
        self.assertEqual(self.states(), {"one": "made", "four": "unchanged"})
        self.assertSameMovies(packets=False)
        self.assertNothingLeft()

    def test_slurm_gets_a_task_for_each_piece(self):
        self.write_both()
        programs = self.folder / "programs"
        programs.mkdir()
        for name, said in (("sbatch", "12"), ("scontrol", "MaxArraySize = 1001")):
            (programs / name).write_text(f'#!/bin/sh\necho "$@" >>{self.folder}/asked\necho "{said}"\n')
            (programs / name).chmod(0o755)
        self.batch("--slurm", environment=self.environment(PATH=f"{programs}:{os.environ['PATH']}"))
        self.assertIn("--array=1-5\n", (self.folder / "asked").read_text().replace(" ", "\n"))


@unittest.skipUnless(slurm.is_installed(), "Slurm is not installed")
class BatchSlurmTest(BatchTestCase):
    def setUp(self):
        super().setUp()
        if stillora.build_setting("STILLORA_SANITIZE"):
            self.skipTest("takes long with a sanitizer, which has seen the same code in the other tests")

    def test_an_array_whose_daemons_are_killed(self):
        self.write_documents(MOVIES)
        environment = self.environment()
        with slurm.Cluster(self.folder / "slurm", environment) as cluster:
            # What a controller forgets that is killed soon after it has taken a job is submitted again, as people would.
            submissions = 0
            returned = None
            counts = {}
            while returned != 0 and submissions < 4:
                process = subprocess.Popen(
                    [stillora.STILLORA, "batch", self.manifest, "--slurm", "--wait", "--json", "--", "--partition=all"],
                    env=cluster.environment, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
                submissions += 1
                counts = counts or self.disturb(cluster, process)
                stillora.wait_until(lambda: cluster.hasten() or process.poll() is not None, "the jobs end", 600)
                out, said = process.communicate()
                returned = process.returncode
            log = (cluster.folder / "slurmctld.log").read_text(errors="replace")
            self.assertEqual(returned, 0, said.decode() + log[-3000:])
        result = json.loads(out.splitlines()[-1])
        self.assertEqual((result["made"], result["failed"], result["left"]), (MOVIES, 0, 0))
        self.assertAllMade(MOVIES)
        machines = sorted({receipt["machine"] for receipt in self.receipts()})
        print(f"{MOVIES} movies by {', '.join(machines)}; {counts}; submitted {submissions} times; seed {self.seed}")

    def disturb(self, cluster, process):
        """Kills daemons and starts tasks again, as long as there is work."""
        counts = {"slurmd killed": 0, "slurmctld killed": 0, "tasks requeued": 0}
        for turn in range(KILLS):
            self.wait_for_log(process, self.random.randrange(1, 1200), cluster.hasten)
            if process.poll() is not None:
                break
            if turn % 3 == 0:
                running = cluster.ask("squeue", "--noheader", "--states=RUNNING", "--array", "--format=%i").split()
                tasks = [task for task in running if "_" in task]
                if tasks:
                    cluster.ask("scontrol", "requeue", self.random.choice(tasks))
                    counts["tasks requeued"] += 1
                continue
            name = "slurmctld" if turn % 3 == 1 else self.random.choice(slurm.NODES)
            if name == "slurmctld":
                cluster.wait_until_saved()
            cluster.kill(name)
            cluster.start(name)
            counts["slurmctld killed" if name == "slurmctld" else "slurmd killed"] += 1
        return counts


if __name__ == "__main__":
    unittest.main()

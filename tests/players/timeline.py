"""What was seen while a movie played, and what is wrong with it."""

import bisect
import statistics
import threading
import time
from dataclasses import dataclass, field

# Seconds; nobody sees what lasts less than this.
SHORT = 0.1


@dataclass
class Run:
    """A mark, or None where none was to be read, that was seen from `start` to `end`, in seconds."""
    mark: int | None
    start: float
    end: float
    # When what was before it was seen last: it came at some time from then to `start`.
    since: float = field(default=None, compare=False)

    def __post_init__(self):
        if self.since is None:
            self.since = self.start

    @property
    def length(self):
        return self.end - self.start


def runs_of(samples, end):
    """The runs in samples of (seconds, mark), of which the last counts until `end`.

    What is seen more shortly than `SHORT` counts as the run before: a screen half drawn, a clock that trembles where one
    photo follows another.
    """
    runs = []
    before = None
    for time, mark in samples:
        if runs:
            runs[-1].end = time
        if not runs or runs[-1].mark != mark:
            runs.append(Run(mark, time, time, before))
        before = time
    if runs:
        runs[-1].end = end
    joined = []
    since = None
    for run in runs:
        if joined and (run.length < SHORT or run.mark == joined[-1].mark):
            # A change that took a moment began when the moment did.
            if since is None and run.mark != joined[-1].mark:
                since = run.since
            joined[-1].end = run.end
        else:
            run.since = run.since if since is None else since
            joined.append(run)
            since = None
        if run.mark == joined[-1].mark:
            since = None
    # Before the first photo and after the last one there is no movie.
    while joined and joined[0].mark is None:
        del joined[0]
    while joined and joined[-1].mark is None:
        del joined[-1]
    return joined


@dataclass
class Verdict:
    faults: list
    # The largest difference between a time seen and the one expected, in seconds; None if there is nothing to compare.
    deviation: float | None = None


def judge(runs, marks, seconds, tolerance, early=None):
    """Compares what was seen with the photos that were to be seen, each for `seconds`.

    Times count from where the photos' own times place the start on average, as players differ in how long they take to
    begin. A photo came at some time between two looks, of which the time that is nearest to its own counts.

    @param tolerance  seconds by which a photo may come late, and the last one go early or late, and between two looks
    @param early      seconds by which a photo may come early; as the tolerance if not given
    """
    faults = []
    for gap in (run for run in runs if run.mark is None):
        faults.append(f"{gap.length:.2f} s without a photo")
    shown = [run for run in runs if run.mark is not None]
    seen = [run.mark for run in shown]
    if seen != marks:
        faults.append(f"shown were {listed(seen)} instead of {listed(marks)}")
        return Verdict(faults)
    spans = [(run.since - index * seconds, run.start - index * seconds) for index, run in enumerate(shown)]
    # Before the first one nothing was to be seen.
    spans[0] = spans[0][1], spans[0][1]
    gone = shown[-1].end - len(shown) * seconds
    spans.append((gone, gone))
    start = statistics.median(last for _, last in spans)
    places = [min(max(start, first), last) for first, last in spans]
    for index, place in enumerate(places):
        is_photo = index < len(marks)
        what = f"photo {marks[index]} came" if is_photo else "the last photo went"
        if spans[index][1] - spans[index][0] > tolerance:
            faults.append(f"nobody looked for {spans[index][1] - spans[index][0]:.2f} s when {what}")
        allowed = early if early is not None and is_photo and place < start else tolerance
        if abs(place - start) > allowed:
            faults.append(f"{what} {abs(place - start):.2f} s too {'late' if place > start else 'early'}")
    return Verdict(faults, max(abs(place - start) for place in places))


class Clock:
    """What a player says of where it is, so that a busy machine's pauses are no pauses of the movie.

    Times that it was not asked at lie between those around them; outside, and with no answer at all, time goes by as ever.
    """

    def __init__(self, answers=()):
        # Pairs of (seconds of this machine, seconds of the movie). A clock that goes back has been set anew.
        self.answers = []
        for answer in sorted(answers):
            while self.answers and self.answers[-1][1] > answer[1]:
                self.answers.pop()
            self.answers.append(answer)

    def position(self, time):
        if not self.answers:
            return time
        after = bisect.bisect(self.answers, (time, float("inf")))
        if after == 0 or after == len(self.answers):
            known, position = self.answers[after - (after > 0)]
            return position + time - known
        (first, before), (last, behind) = self.answers[after - 1], self.answers[after]
        return before + (behind - before) * (time - first) / (last - first)

    def told(self, samples, end):
        """Samples of (seconds, mark) and an end, in seconds of the movie."""
        return [(self.position(time), mark) for time, mark in samples], self.position(end)


class Asker:
    """Asks a player where it is, again and again on a thread of its own, as long as the block lasts."""

    # Seconds between two questions, and the longest that an answer may take to be of use.
    INTERVAL, PATIENCE = 0.05, 0.02

    def __init__(self, ask):
        self.ask, self.answers, self.is_over = ask, [], threading.Event()
        self.thread = threading.Thread(target=self.run, daemon=True)

    def run(self):
        while not self.is_over.wait(self.INTERVAL):
            before = time.monotonic()
            try:
                position = self.ask()
            except (OSError, RuntimeError, ValueError):
                continue
            after = time.monotonic()
            # It begins to count at 0 while it gets ready, and stands where it ends.
            moves = position and (not self.answers or position > self.answers[-1][1])
            if moves and after - before < self.PATIENCE:
                self.answers.append(((before + after) / 2, position))

    def __enter__(self):
        self.thread.start()
        return self

    def __exit__(self, *fault):
        self.is_over.set()
        self.thread.join()

    @property
    def clock(self):
        return Clock(self.answers)


def listed(marks):
    return " ".join(map(str, marks)) or "none"

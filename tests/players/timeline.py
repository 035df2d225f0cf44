"""What was seen while a movie played, and what is wrong with it."""

import statistics
from dataclasses import dataclass

# Seconds; nobody sees what lasts less than this.
SHORT = 0.1


@dataclass
class Run:
    """A mark, or None where none was to be read, that was seen from `start` to `end`, in seconds."""
    mark: int | None
    start: float
    end: float

    @property
    def length(self):
        return self.end - self.start


def runs_of(samples, end):
    """The runs in samples of (seconds, mark), of which the last counts until `end`.

    What is seen more shortly than `SHORT` counts as the run before: a screen half drawn, a clock that trembles where one
    photo follows another.
    """
    runs = []
    for time, mark in samples:
        if runs:
            runs[-1].end = time
        if not runs or runs[-1].mark != mark:
            runs.append(Run(mark, time, time))
    if runs:
        runs[-1].end = end
    joined = []
    for run in runs:
        if joined and (run.length < SHORT or run.mark == joined[-1].mark):
            joined[-1].end = run.end
        else:
            joined.append(run)
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
    begin.

    @param tolerance  seconds by which a photo may come late, and the last one go early or late
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
    places = [run.start - index * seconds for index, run in enumerate(shown)]
    places.append(shown[-1].end - len(shown) * seconds)
    start = statistics.median(places)
    for index, place in enumerate(places):
        is_photo = index < len(marks)
        what = f"photo {marks[index]} came" if is_photo else "the last photo went"
        allowed = early if early is not None and is_photo and place < start else tolerance
        if abs(place - start) > allowed:
            faults.append(f"{what} {abs(place - start):.2f} s too {'late' if place > start else 'early'}")
    return Verdict(faults, max(abs(place - start) for place in places))


def listed(marks):
    return " ".join(map(str, marks)) or "none"

"""What is said of movies must be able to be bad: the judgement of the players' checks, and the marks on their photos."""

import threading
import unittest

import mark
import timeline
from timeline import Run


def judged(*runs, **options):
    return timeline.judge([Run(*run) for run in runs], [1, 2, 3], 2, 0.3, **options).faults


class TimelineTest(unittest.TestCase):
    def test_photos_at_their_times_are_no_fault(self):
        verdict = timeline.judge([Run(1, 7.0, 9.1), Run(2, 9.1, 11.0), Run(3, 11.0, 13.0)], [1, 2, 3], 2, 0.3)
        self.assertEqual(verdict.faults, [])
        self.assertAlmostEqual(verdict.deviation, 0.1)

    def test_a_photo_that_is_missing_is_a_fault(self):
        for runs in ([(1, 0, 2), (2, 2, 6)], [(2, 0, 2), (3, 2, 4)], [(1, 0, 2), (3, 2, 4)], []):
            self.assertNotEqual(judged(*runs), [], runs)

    def test_photos_in_another_order_are_a_fault(self):
        self.assertNotEqual(judged((1, 0, 2), (3, 2, 4), (2, 4, 6)), [])

    def test_a_photo_that_comes_twice_is_a_fault(self):
        self.assertNotEqual(judged((1, 0, 2), (2, 2, 3), (1, 3, 3.5), (2, 3.5, 4), (3, 4, 6)), [])

    def test_a_photo_that_comes_early_or_late_is_a_fault(self):
        self.assertEqual(judged((1, 0, 1.5), (2, 1.5, 4), (3, 4, 6)), ["photo 2 came 0.50 s too early"])
        self.assertEqual(judged((1, 0, 2.5), (2, 2.5, 4), (3, 4, 6)), ["photo 2 came 0.50 s too late"])

    def test_a_player_that_may_be_early_may_not_be_late(self):
        self.assertEqual(judged((1, 0, 1.5), (2, 1.5, 4), (3, 4, 6), early=2), [])
        self.assertEqual(judged((1, 0, 2.5), (2, 2.5, 4), (3, 4, 6), early=2), ["photo 2 came 0.50 s too late"])

    def test_a_last_photo_that_goes_too_soon_is_a_fault(self):
        for early in (None, 2):
            self.assertEqual(judged((1, 0, 2), (2, 2, 4), (3, 4, 4.5), early=early), ["the last photo went 1.50 s too early"])

    def test_a_gap_is_a_fault(self):
        self.assertEqual(judged((1, 0, 2), (None, 2, 2.25), (2, 2.25, 4), (3, 4, 6)), ["0.25 s without a photo"])

    def test_what_nobody_sees_counts_as_the_photo_before(self):
        samples = [(0, None), (0.5, 1), (1, 1), (1.99, 2), (2, 1), (2.04, 2), (3, None), (3.01, 2), (4, None)]
        self.assertEqual(timeline.runs_of(samples, 5), [Run(1, 0.5, 2.04), Run(2, 2.04, 4)])


    def test_a_change_between_two_looks_counts_from_the_look_before(self):
        # Nobody looked for a while, and the photo may well have come in its time.
        samples = [(0, 1), (1.99, 1), (2.2, 2), (3.98, 2), (3.99, 3), (5.9, 3)]
        runs = timeline.runs_of(samples, 6)
        self.assertEqual([run.since for run in runs], [0, 1.99, 3.98])
        verdict = timeline.judge(runs, [1, 2, 3], 2, 0.05 + 0.21)
        self.assertEqual(verdict.faults, [])
        self.assertLess(verdict.deviation, 0.02)
        # One that came too early did, however seldom somebody looked.
        early = timeline.runs_of([(0, 1), (1.4, 1), (1.5, 2), (3.98, 2), (3.99, 3), (5.9, 3)], 6)
        self.assertEqual(timeline.judge(early, [1, 2, 3], 2, 0.3).faults, ["photo 2 came 0.50 s too early"])

    def test_a_moment_without_a_photo_is_part_of_the_change(self):
        samples = [(0, 1), (1.9, 1), (1.95, None), (2.0, 2), (4.0, 2)]
        self.assertEqual([run.since for run in timeline.runs_of(samples, 4)], [0, 1.9])
        trembling = [(0, 1), (1.0, 2), (1.01, 1), (1.9, 1), (2.0, 2), (4.0, 2)]
        self.assertEqual([run.since for run in timeline.runs_of(trembling, 4)], [0, 1.9])

    def test_looks_that_are_too_far_apart_are_a_fault(self):
        runs = timeline.runs_of([(0, 1), (1.6, 1), (2.3, 2), (3.99, 2), (4, 3), (5.9, 3)], 6)
        self.assertEqual(timeline.judge(runs, [1, 2, 3], 2, 0.3).faults, ["nobody looked for 0.70 s when photo 2 came"])


class ClockTest(unittest.TestCase):
    def test_a_pause_of_the_player_is_none_of_the_movie(self):
        # It stood still for 3 seconds.
        clock = timeline.Clock([(10, 1), (11, 2), (14, 2), (15, 3)])
        self.assertEqual([clock.position(time) for time in (10.5, 12, 13.5, 14.5)], [1.5, 2, 2, 2.5])

    def test_before_and_after_time_goes_by_as_ever(self):
        clock = timeline.Clock([(11, 2), (10, 1)])
        self.assertEqual([clock.position(time) for time in (9, 10, 11, 14)], [0, 1, 2, 5])
        self.assertEqual(timeline.Clock().position(7), 7)
        self.assertEqual(clock.told([(10, 1), (10.5, 2)], 12), ([(1, 1), (1.5, 2)], 3))

    def test_a_clock_that_goes_back_counts_from_there(self):
        clock = timeline.Clock([(10, 5), (11, 6), (12, 1), (13, 2)])
        self.assertEqual([clock.position(time) for time in (11.5, 12, 12.5)], [0.5, 1, 1.5])

    def test_an_answer_that_takes_long_is_of_no_use(self):
        waiting = threading.Event()
        answers = iter([1.0, 2.0])

        def ask():
            position = next(answers, None)
            if position == 1.0:
                waiting.wait(0.1)
            elif position is None:
                waiting.set()
            return position

        with timeline.Asker(ask) as asker:
            self.assertTrue(waiting.wait(20))
        self.assertEqual([position for _, position in asker.answers], [2.0])


class MarkTest(unittest.TestCase):
    def test_every_mark_is_read_back_from_its_picture(self):
        width, height = 80, 44
        for number in range(1, 256):
            header, pixels = mark.picture_of(number, width, height).split(b"\n", 1)
            self.assertEqual(len(pixels), 3 * width * height)
            luminance = lambda x, y: pixels[3 * (y * width + x) + 1]
            self.assertEqual(mark.mark_in_picture(luminance, 0, 0, width, height), number)

    def test_what_is_no_mark_reads_as_none(self):
        light, dark = 240, 20
        self.assertIsNone(mark.mark_of([dark] * 32), "black")
        self.assertIsNone(mark.mark_of([light] * 32), "white")
        half = [light if bit else dark for bit in mark.bits_of(5)[:16] + mark.bits_of(6)[16:]]
        self.assertIsNone(mark.mark_of(half), "half one, half the other")
        pale = [140 if bit else 110 for bit in mark.bits_of(5)]
        self.assertIsNone(mark.mark_of(pale), "too little contrast, as between two photos")


if __name__ == "__main__":
    unittest.main(verbosity=2)

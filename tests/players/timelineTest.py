"""What is said of movies must be able to be bad: the judgement of the players' checks, and the marks on their photos."""

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

"""The client in another language that the documentation shows."""

import subprocess
import unittest
from pathlib import Path

import stillora
from stillora import Service, hold_times

EXAMPLE = Path(__file__).resolve().parents[2] / "docs/examples/make-movie.py"


class ExampleTest(stillora.TestCase):
    def example(self, *arguments):
        return subprocess.run(["/usr/bin/python3", "-B", EXAMPLE, *arguments], stdin=subprocess.DEVNULL, capture_output=True,
                              text=True, env=self.environment(), timeout=stillora.DEADLINE)

    def test_it_makes_a_movie_and_prints_its_progress(self):
        photos = stillora.pictures(self.folder / "photos", 7, 640, 480)
        with Service.listening(self) as service:
            result = self.example(service.path, self.save, *photos)
            self.assertEqual(result.returncode, 0, result.stderr)
        *progress, movie = result.stdout.splitlines()
        self.assertEqual(hold_times(movie), [(2.0 * i, 2.0) for i in range(7)])
        self.assertTrue(any(line.startswith("VideoCreationTitle") for line in progress), result.stdout)

    def test_it_fits_a_page(self):
        self.assertLessEqual(len(EXAMPLE.read_text().splitlines()), 100)

    def test_without_arguments_it_explains_itself(self):
        result = self.example()
        self.assertNotEqual(result.returncode, 0)
        self.assertIn("usage:", result.stderr)


if __name__ == "__main__":
    unittest.main(verbosity=2)

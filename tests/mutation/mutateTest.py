#!/usr/bin/env python3
"""Tries tests/mutate on a project of one file that is written for it."""

import subprocess
import sys
import tempfile
import textwrap
import unittest
from pathlib import Path

MUTATE = Path(__file__).resolve().parents[1] / "mutate"

PROJECT = """
    cmake_minimum_required(VERSION 3.25)
    project(tiny LANGUAGES CXX)
    set(CMAKE_CXX_STANDARD 20)
    set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
    add_subdirectory(util)
    add_executable(util_test util_test.cpp)
    target_link_libraries(util_test PRIVATE util)
"""

CODE = """
    #include "Sum.h"

    #include <array>

    constexpr int kSides = 4;

    int sum(int a, int b)
    {
        return a + b;
    }

    bool isSmall(int a)
    {
        return a < 10;
    }

    int downToNothing(int a)
    {
        while (a > 0)
            --a;
        return a;
    }

    int perimeter(int a)
    {
        std::array<int, kSides> sides;
        int total = 0;
        for (int& side : sides)
            total += side = a;
        return total;
    }

    int forgotten()
    {
        return 7;
    }
"""

# Understands what of GoogleTest's options is used.
TEST = """
    #include "util/Sum.h"
    #include <cstdio>
    #include <string>

    int main(int, char** arguments)
    {
        const std::string option = arguments[1];
        if (option == "--gtest_list_tests") {
            std::puts("Sum.\\n  Adds\\n  IsSmall\\n  ComesDown\\n  GoesAround");
            return 0;
        }
        const auto asked = [&](const char* name) { return option.find(name) != std::string::npos; };
        if (asked("Sum.Adds") && sum(2, 3) != 5)
            return 1;
        if (asked("Sum.IsSmall") && (!isSmall(3) || isSmall(30)))
            return 1;
        if (asked("Sum.ComesDown") && downToNothing(3) != 0)
            return 1;
        return asked("Sum.GoesAround") && perimeter(3) != 12;
    }
"""

HEADER = """
    int sum(int a, int b);
    bool isSmall(int a);
    int downToNothing(int a);
    int perimeter(int a);
    int forgotten();
"""


class Mutate(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory()
        cls.root = Path(cls.folder.name)
        (cls.root / "util").mkdir()
        for name, text in {
            "CMakeLists.txt": PROJECT,
            "util/CMakeLists.txt": "add_library(util STATIC Sum.cpp)\n"
                                   "target_include_directories(util PUBLIC ${PROJECT_SOURCE_DIR})\n",
            "util/Sum.cpp": CODE,
            "util/Sum.h": HEADER,
            "util_test.cpp": TEST,
        }.items():
            (cls.root / name).write_text(textwrap.dedent(text).lstrip())
        cls.status, cls.lines, cls.said = cls.mutate()

    @classmethod
    def tearDownClass(cls):
        cls.folder.cleanup()

    @classmethod
    def mutate(cls, *options):
        result = subprocess.run([sys.executable, "-B", MUTATE, "--root", cls.root, "--patience", "2", *options],
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        return result.returncode, result.stdout.splitlines(), result.stderr

    def lived(self, text):
        return [line for line in self.lines if text in line]

    def test_kills_a_mutant_that_a_test_notices(self):
        self.assertEqual(self.lived("a + b  ->  a - b"), [], self.said)
        self.assertEqual(self.lived("!(a < 10)"), [])

    def test_lists_a_survivor_with_its_place_and_its_change(self):
        self.assertIn("util/Sum.cpp:14: a < 10  ->  a <= 10", self.lines, self.said)
        self.assertEqual(self.status, 1)

    def test_says_where_no_test_comes(self):
        self.assertIn("util/Sum.cpp:35: 7  ->  8   (no test reaches it)", self.lines)

    def test_counts_a_hang_as_killed(self):
        self.assertEqual(self.lived("--a  ->  ++a"), [])

    def test_builds_anew_for_what_the_compiler_must_know(self):
        # The length of an array: neither more nor fewer sides go around, and neither can be chosen in a build of all.
        self.assertEqual(self.lived("4  ->"), [])

    def test_counts_in_a_table(self):
        columns = self.lines[-2].split()
        self.assertEqual(columns[0], "util")
        mutants, killed, survivors, explained = map(int, columns[1:])
        self.assertEqual(survivors, len(self.lines) - 3)
        self.assertEqual(mutants, killed + survivors)
        self.assertEqual(explained, 0)
        self.assertGreater(killed, survivors)

    def test_goes_on_where_it_ended(self):
        status, lines, said = self.mutate()
        self.assertEqual((status, lines), (self.status, self.lines))
        self.assertNotIn("running each test", said)
        self.assertNotIn("lived", said)

    def test_leaves_out_what_is_explained(self):
        explained = self.root / "explained"
        explained.write_text("file: util/Sum.cpp\nline: return a < 10;\nchange: a < 10  ->  a <= 10\nwhy: None asks.\n")
        status, lines, _ = self.mutate("--explained", explained)
        self.assertNotIn("util/Sum.cpp:14: a < 10  ->  a <= 10", lines)
        self.assertEqual(lines[-2].split()[-1], "1")

    def test_refuses_an_explanation_of_what_is_no_longer_there(self):
        explained = self.root / "explained"
        explained.write_text("file: util/Sum.cpp\nline: return a < 11;\nwhy: None asks.\n")
        status, lines, _ = self.mutate("--explained", explained)
        self.assertIn("explained, but no longer there: util/Sum.cpp: return a < 11;", lines)
        self.assertEqual(status, 1)

    def test_leaves_the_project_as_it_was(self):
        self.assertEqual((self.root / "util/Sum.cpp").read_text(), textwrap.dedent(CODE).lstrip())

    def test_takes_a_sample(self):
        _, lines, _ = self.mutate("--sample", "3")
        self.assertEqual(lines[-2].split()[1], "3")


if __name__ == "__main__":
    unittest.main()

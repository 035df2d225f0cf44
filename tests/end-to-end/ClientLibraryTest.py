"""The installed client library as a program of others uses it."""

import os
import re
import shutil
import subprocess
import unittest
from pathlib import Path

import stillora
from stillora import hold_times, run

BUILD = os.environ["STILLORA_BUILD"]
SOURCE = Path(__file__).resolve().parents[2]
EXAMPLE = SOURCE / "docs/examples/client-library"
WARNINGS = ["-Wall", "-Wextra", "-Wpedantic", "-Wshadow", "-Werror"]


SANITIZERS = stillora.sanitizer_flags()
COMPILER = stillora.build_setting("CMAKE_CXX_COMPILER")


class ClientLibraryTest(stillora.TestCase):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        # Moved after it was installed, so that neither the build nor the first place can be what it is found by.
        first = cls.shared / "first"
        run("cmake", "--install", BUILD, "--prefix", first)
        cls.prefix = cls.shared / "the moved prefix"
        first.rename(cls.prefix)
        cls.library = next((cls.prefix / "lib").glob("**/libstillora-client.so")).parent
        cls.photos = stillora.pictures(cls.shared / "photos/Rome", 6)

    def pkg_config(self, *arguments):
        result = subprocess.run(["pkg-config", *arguments, "stillora-client"], capture_output=True, text=True,
                                env={**os.environ, "PKG_CONFIG_PATH": str(self.library / "pkgconfig")})
        self.assertEqual(result.returncode, 0, result.stderr)
        # As a shell would read it: blanks of a folder's name are escaped.
        return re.findall(r"(?:\\.|\S)+", result.stdout.strip())

    def flags(self):
        return [flag.replace("\\ ", " ") for flag in self.pkg_config("--cflags", "--libs")]

    def process(self, program, *arguments):
        return subprocess.Popen([program, *arguments], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                stderr=subprocess.PIPE, text=True,
                                env=self.environment(LD_LIBRARY_PATH=self.library, LANGUAGE="de"))

    def assertMakesAMovie(self, program):
        movies = self.folder / "movies"
        with self.process(program, movies, *self.photos) as process:
            # Its input stays open: the end of it would stop the example with a main loop.
            process.wait(timeout=stillora.DEADLINE)
            out, err = process.stdout.read(), process.stderr.read()
        self.assertEqual((process.returncode, out), (0, f"{movies}/Rome.mov\n"), err)
        self.assertEqual(hold_times(movies / "Rome.mov"), [(2.0 * i, 2.0) for i in range(6)])
        # Which updates arrive depends on how busy the machine is: the last one need not be there.
        self.assertRegex(err, r" \d{1,3} %\n")
        # The service's keys would stand here if the translations had not been found.
        self.assertNotIn("VideoCreation", err)
        self.assertEqual(os.listdir(movies), ["Rome.mov"])

    def test_the_examples_build_by_cmake_and_run(self):
        build = self.folder / "build"
        run("cmake", "-G", "Ninja", "-S", EXAMPLE, "-B", build, f"-DCMAKE_PREFIX_PATH={self.prefix}", "-DCMAKE_BUILD_TYPE=Debug",
            f"-DCMAKE_CXX_COMPILER={COMPILER}", "-DCMAKE_CXX_FLAGS=" + " ".join(WARNINGS + SANITIZERS))
        run("cmake", "--build", build)
        self.assertMakesAMovie(build / "make-movie")
        shutil.rmtree(self.folder / "movies")
        self.assertMakesAMovie(build / "make-movie-in-a-loop")
        self.assertIsStopped(build / "make-movie-in-a-loop")
        self.assertDescribesASound(build / "describe-sound")

    def assertIsStopped(self, program):
        """The end of its input cancels the work of the example with a main loop."""
        movies = self.folder / "none"
        with self.process(program, movies, *self.photos) as process:
            process.stdin.close()
            self.assertEqual(process.wait(timeout=stillora.DEADLINE), 1)
            self.assertEqual(process.stdout.read(), "")
            self.assertTrue(process.stderr.read().endswith("abgebrochen\n"))
        self.assertFalse(movies.exists())

    def assertDescribesASound(self, program):
        sound = self.folder / "song.flac"
        run("ffmpeg", "-v", "error", "-f", "lavfi", "-i", "sine=duration=62", "-metadata", "title=Rome", "-metadata",
            "artist=Somebody", sound)
        with self.process(program, sound, self.folder / "wave.png") as process:
            out, err = process.communicate(timeout=stillora.DEADLINE)
        self.assertEqual((process.returncode, err), (0, ""))
        self.assertRegex(out, r"^Rome, Somebody, 1 .+2 .+\n$")
        size = run("ffprobe", "-v", "error", "-show_entries", "stream=codec_name,width,height", "-of", "csv=p=0",
                   self.folder / "wave.png").decode()
        self.assertEqual(size, "png,400,80\n")

    def test_the_example_builds_by_pkg_config_and_makes_a_movie(self):
        program = self.folder / "make-movie"
        run(COMPILER, "-std=c++20", *WARNINGS, *SANITIZERS, EXAMPLE / "MakeMovie.cpp", *self.flags(), "-o", program)
        self.assertMakesAMovie(program)

    def test_every_header_compiles_alone_without_other_libraries(self):
        headers = sorted((self.prefix / "include/stillora").rglob("*.h"))
        names = [header.relative_to(self.prefix / "include") for header in headers]
        self.assertIn(Path("stillora/Movie.h"), names)
        include = [flag for flag in self.flags() if flag.startswith("-I")]
        self.assertEqual(len(include), 1)
        for name in names:
            with self.subTest(name=name):
                source = self.folder / "alone.cpp"
                source.write_text(f"#include <{name}>\n#include <{name}>\n")
                for compiler in dict.fromkeys((COMPILER, "clang++")):
                    result = subprocess.run([compiler, "-std=c++20", "-fsyntax-only", *WARNINGS, *include, source],
                                            capture_output=True, text=True)
                    self.assertEqual(result.returncode, 0, result.stderr)

    def test_headers_show_standard_types_and_one_namespace_alone(self):
        for header in (self.prefix / "include").rglob("*.h"):
            text = header.read_text()
            for name in re.findall(r"^#include (.+)$", text, re.MULTILINE):
                own = re.fullmatch(r"<(stillora/\w+\.h)>", name)
                if own:
                    self.assertTrue((self.prefix / "include" / own[1]).is_file(), f"{header} includes {name}")
                else:
                    self.assertRegex(name, r"^<[a-z_]+>$", header)
            # Comments and the preprocessor's lines declare nothing.
            code = re.sub(r"^[ \t]*(//|#).*$", "", text, flags=re.MULTILINE).strip()
            self.assertEqual(code.count("namespace stillora {"), 1 if code else 0, header)
            self.assertTrue(not code or (code.startswith("namespace stillora {") and code.endswith("} // namespace stillora")),
                            header)

    def test_the_library_names_its_version_and_needs_nothing_of_the_build(self):
        name = run("readelf", "-d", self.library / "libstillora-client.so").decode()
        version = self.pkg_config("--modversion")[0]
        soname = "libstillora-client.so." + ".".join(version.split(".")[:2])
        self.assertIn(f"soname: [{soname}]", name)
        self.assertTrue((self.library / soname).exists())
        self.assertNotRegex(name, r"(?i)r(un)?path")

    def test_the_library_shows_what_its_list_says(self):
        library = self.library / "libstillora-client.so"
        run(SOURCE / "packaging/check-symbols", library)
        names = run("nm", "-D", "--defined-only", "-C", library).decode()
        for name in re.findall(r"^\S+ \S (.+)$", names, re.MULTILINE):
            self.assertRegex(name, r"^stillora::|^STILLORA_")
        # Another library shows other symbols.
        other = self.shared_library("other", "namespace stillora { int added() { return 1; } }")
        result = subprocess.run([SOURCE / "packaging/check-symbols", other], capture_output=True, text=True)
        self.assertEqual(result.returncode, 1)
        self.assertIn('+ (c++)"stillora::added()', result.stdout)

    def shared_library(self, name, code, soname="libstillora-client.so.0.1"):
        source = self.folder / f"{name}.cpp"
        source.write_text(code)
        run(COMPILER, "-g", "-shared", "-fPIC", f"-Wl,-soname,{soname}", source, "-o", self.folder / f"{name}.so")
        return self.folder / f"{name}.so"

    def test_a_library_that_would_break_programs_is_noticed(self):
        def compare(old, new):
            return subprocess.run([SOURCE / "packaging/check-abi", old, new], capture_output=True, text=True)

        struct = "struct S { int a; %s }; int first(S s) { return s.a; }"
        old = self.shared_library("old", struct % "" + " int second() { return 2; }")
        self.assertEqual(compare(old, old).returncode, 0)
        more = self.shared_library("more", struct % "" + " int second() { return 2; } int third() { return 3; }")
        self.assertEqual(compare(old, more).returncode, 0)
        less = compare(old, self.shared_library("less", struct % ""))
        self.assertNotEqual(less.returncode, 0)
        self.assertIn("second", less.stdout)
        wider = compare(old, self.shared_library("wider", struct % "int b;" + " int second() { return 2; }"))
        self.assertNotEqual(wider.returncode, 0)
        renamed = compare(old, self.shared_library("renamed", "int other() { return 1; }", "libstillora-client.so.0.2"))
        self.assertEqual((renamed.returncode, "another name" in renamed.stdout), (0, True), renamed.stdout)
        # Where nothing was released there is nothing to compare.
        (self.folder / "clone/packaging").mkdir(parents=True)
        script = shutil.copy(SOURCE / "packaging/check-abi", self.folder / "clone/packaging")
        run("git", "init", "-q", self.folder / "clone")
        result = subprocess.run([script], capture_output=True, text=True)
        self.assertEqual((result.returncode, "nothing was released" in result.stdout), (0, True), result.stderr)

    def test_the_reference_is_made_without_a_warning_and_has_everything(self):
        result = subprocess.run([SOURCE / "packaging/build-reference", self.folder], capture_output=True, text=True)
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        self.assertTrue((self.folder / "html/classstillora_1_1MovieJob.html").is_file())

    def test_the_page_names_every_header_class_and_function(self):
        page = (SOURCE / "docs/client-library.md").read_text()
        for header in sorted((self.prefix / "include/stillora").glob("*.h")):
            self.assertIn(f"`stillora/{header.name}`", page)
            text = header.read_text()
            names = re.findall(r"^class STILLORA_EXPORT (\w+)", text, re.MULTILINE)
            names += re.findall(r"^STILLORA_EXPORT [^;]*?(\w+)\(", text, re.MULTILINE)
            for name in names:
                self.assertRegex(page, rf"\b{name}\b", header)

    def test_another_minor_version_is_refused(self):
        project = self.folder / "project"
        project.mkdir()
        for wanted, accepted in (("0.1", True), ("0.2", False), ("1.0", False)):
            (project / "CMakeLists.txt").write_text(
                "cmake_minimum_required(VERSION 3.25)\nproject(other LANGUAGES CXX)\n"
                f"find_package(StilloraClient {wanted} REQUIRED)\n")
            result = subprocess.run(["cmake", "-G", "Ninja", "-S", project, "-B", self.folder / wanted,
                                     f"-DCMAKE_PREFIX_PATH={self.prefix}", f"-DCMAKE_CXX_COMPILER={COMPILER}"],
                                    capture_output=True, text=True)
            self.assertEqual(result.returncode == 0, accepted, result.stderr)


if __name__ == "__main__":
    unittest.main(verbosity=2)

"""The installed client library as a program of others uses it."""

import os
import re
import subprocess
import unittest
from pathlib import Path

import stillora
from stillora import hold_times, run

BUILD = os.environ["STILLORA_BUILD"]
SOURCE = Path(__file__).resolve().parents[2]
EXAMPLE = SOURCE / "docs/examples/client-library"
WARNINGS = ["-Wall", "-Wextra", "-Wpedantic", "-Wshadow", "-Werror"]


def cache(name):
    text = (Path(BUILD) / "CMakeCache.txt").read_text()
    found = re.search(rf"^{name}:\w+=(.*)$", text, re.MULTILINE)
    return found.group(1) if found else ""


SANITIZERS = [f"-fsanitize={cache('STILLORA_SANITIZE')}"] if cache("STILLORA_SANITIZE") else []
COMPILER = cache("CMAKE_CXX_COMPILER")


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

    def assertMakesAMovie(self, program):
        movies = self.folder / "movies"
        result = subprocess.run([program, movies, *self.photos], stdin=subprocess.DEVNULL, capture_output=True, text=True,
                                env=self.environment(LD_LIBRARY_PATH=self.library, LANGUAGE="de"),
                                timeout=stillora.DEADLINE)
        self.assertEqual((result.returncode, result.stdout), (0, f"{movies}/Rome.mov\n"), result.stderr)
        self.assertEqual(hold_times(movies / "Rome.mov"), [(2.0 * i, 2.0) for i in range(6)])
        # Which updates arrive depends on how busy the machine is: the last one need not be there.
        self.assertRegex(result.stderr, r" \d{1,3} %\n")
        # The service's keys would stand here if the translations had not been found.
        self.assertNotIn("VideoCreation", result.stderr)
        self.assertEqual(os.listdir(movies), ["Rome.mov"])

    def test_the_example_builds_by_cmake_and_makes_a_movie(self):
        build = self.folder / "build"
        run("cmake", "-G", "Ninja", "-S", EXAMPLE, "-B", build, f"-DCMAKE_PREFIX_PATH={self.prefix}", "-DCMAKE_BUILD_TYPE=Debug",
            f"-DCMAKE_CXX_COMPILER={COMPILER}", "-DCMAKE_CXX_FLAGS=" + " ".join(WARNINGS + SANITIZERS))
        run("cmake", "--build", build)
        self.assertMakesAMovie(build / "make-movie")

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

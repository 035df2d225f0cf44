"""`stillora doctor`: what it finds where something is missing or broken, each made so for one process alone."""

import json
import os
import subprocess
import unittest
from pathlib import Path

import stillora

FAILED, USAGE = 1, 2

AS_ANYBODY = ["setpriv", "--bounding-set=-dac_override,-dac_read_search"] if os.geteuid() == 0 else []


def can_mount():
    """Whether a small file system can be mounted for one process alone."""
    probe = ["unshare", "--user", "--map-root-user", "--mount", "mount", "-t", "tmpfs", "none", "/mnt"]
    return subprocess.run(probe, capture_output=True).returncode == 0


class DoctorTest(stillora.TestCase):
    def doctor(self, *arguments, expect=0, prefix=(), **changes):
        changes.setdefault("TMPDIR", self.temporary)
        return self.run_stillora("doctor", *arguments, expect=expect, prefix=prefix, environment=self.environment(**changes))

    def checks(self, **options):
        """What was found, by the names for programs."""
        result = self.doctor("--json", **options)
        found = json.loads(result.out)
        self.assertEqual(found["ok"], result.returncode == 0)
        by_name = {check["check"]: check for check in found["checks"]}
        self.assertEqual(len(by_name), len(found["checks"]))
        self.assertEqual(found["ok"], all(check["state"] == "ok" for check in found["checks"] if check["needed"]))
        return by_name

    def assertFound(self, name, state, *words, **options):
        check = self.checks(**options)[name]
        self.assertEqual(check["state"], state, check)
        for word in words:
            self.assertIn(word, check["detail"])
        return check

    def test_all_is_found_where_movies_can_be_made(self):
        checks = self.checks()
        for name in ("service", "encoder.h264", "encoder.hevc", "encoder.prores", "encoder.aac", "encoder.jpeg",
                     "decoders.sound", "font", "faces", "folder.save", "folder.temporary", "folder.settings", "disk",
                     "translations"):
            self.assertEqual(checks[name]["state"], "ok", checks[name])
        for picture in ("jpeg", "png", "webp", "heic", "avif", "tiff", "gif", "bmp", "jp2"):
            self.assertEqual(checks[f"picture.{picture}"]["state"], "ok", picture)
        self.assertEqual(checks["service"]["detail"], str(stillora.SERVICE))
        self.assertEqual(checks["reader"]["state"], "ok")
        self.assertFalse(checks["confinement"]["needed"])

    def test_a_reader_that_is_not_there_is_missing(self):
        check = self.assertFound("reader", "missing", "/nowhere/reader", expect=FAILED, STILLORA_FILE_READER="/nowhere/reader")
        self.assertEqual((check["needed"], check["package"]), (True, "stillora"))
        self.assertFound("reader", "broken", "ended with exit status 0", expect=FAILED, STILLORA_FILE_READER="/bin/true")

    def test_a_kernel_that_cannot_confine_is_told(self):
        prefix = [str(Path(stillora.__file__).with_name("without-landlock"))]
        check = self.assertFound("confinement", "missing", "Landlock is missing or too old", prefix=prefix)
        self.assertFalse(check["needed"])

    def test_nothing_is_made_that_stays(self):
        self.doctor()
        self.assertEqual([path.name for path in self.folder.rglob("*") if path.parent != self.folder], [])

    def test_each_line_tells_a_state_and_what_to_install(self):
        model = self.folder / "none.onnx"
        result = self.doctor(STILLORA_FACES_MODEL=model)
        self.assertEqual(result.err, "")
        lines = result.out.splitlines()
        self.assertGreater(len(lines), 20)
        for line in lines:
            self.assertIn(line.split()[0], ("ok", "missing", "broken"))
        line = next(line for line in lines if "face detector" in line)
        self.assertTrue(line.startswith("missing "), line)
        self.assertIn(f"{model} is not there", line)
        self.assertIn("install stillora-faces", line)

    def test_a_service_that_is_not_there_is_missing(self):
        check = self.assertFound("service", "missing", "/nowhere/service", expect=FAILED,
                                 STILLORA_VIDEO_CREATOR="/nowhere/service")
        self.assertEqual((check["needed"], check["package"]), (True, "stillora"))

    def test_a_program_that_is_no_service_is_broken(self):
        self.assertFound("service", "broken", "/bin/true", "it ended with exit status 0", expect=FAILED,
                         STILLORA_VIDEO_CREATOR="/bin/true")
        script = self.folder / "service"
        script.write_text("#!/bin/sh\necho 'the library is gone' >&2\nexit 3\n")
        script.chmod(0o755)
        self.assertFound("service", "broken", "exit status 3", "the library is gone", expect=FAILED,
                         STILLORA_VIDEO_CREATOR=script)

    def test_a_face_detector_is_not_needed(self):
        self.assertFound("faces", "missing", "/nowhere", STILLORA_FACES_MODEL="/nowhere")
        model = self.folder / "model.onnx"
        model.write_bytes(b"no model")
        check = self.assertFound("faces", "broken", STILLORA_FACES_MODEL=model)
        self.assertFalse(check["needed"])

    def test_a_save_folder_without_rights_is_broken(self):
        self.run_stillora("set", "save", self.save)
        self.assertFound("folder.save", "ok", str(self.save))
        self.save.chmod(0o555)
        self.addCleanup(self.save.chmod, 0o755)
        self.assertFound("folder.save", "broken", str(self.save), "Permission denied", expect=FAILED, prefix=AS_ANYBODY)

    def test_a_folder_that_will_be_made_is_judged_by_the_one_above(self):
        self.assertFound("folder.save", "ok", f"{self.home}/Movies/Stillora")
        (self.home / "Movies").mkdir(mode=0o555)
        self.assertFound("folder.save", "broken", f"{self.home}/Movies: ", expect=FAILED, prefix=AS_ANYBODY)

    def test_a_file_where_a_folder_should_be_is_broken(self):
        (self.home / "Movies").write_text("mine")
        self.assertFound("folder.save", "broken", f"{self.home}/Movies", "Not a directory", expect=FAILED)
        (self.home / ".config").write_text("mine")
        self.assertFound("folder.settings", "broken", f"{self.home}/.config", expect=FAILED)

    def test_temporary_files_need_a_folder(self):
        file = self.folder / "file"
        file.write_text("mine")
        self.assertFound("folder.temporary", "broken", str(file), expect=FAILED, TMPDIR=file)

    def test_watermarks_need_a_font(self):
        # Where a process that may read nothing of the user's finds it.
        configuration = self.home / ".config/fontconfig/fonts.conf"
        configuration.parent.mkdir(parents=True)
        configuration.write_text(f"<?xml version='1.0'?><fontconfig><dir>{self.folder}/none</dir>"
                                 f"<cachedir>{self.folder}/cache</cachedir></fontconfig>")
        check = self.assertFound("font", "missing", expect=FAILED, FONTCONFIG_FILE=configuration)
        self.assertEqual(check["package"], "fonts-liberation")

    @unittest.skipUnless(can_mount(), "no file system can be mounted here")
    def test_a_disk_that_is_nearly_full_is_told(self):
        self.run_stillora("set", "save", self.save)
        prefix = ["unshare", "--user", "--map-root-user", "--mount", "sh", "-c",
                  'mount -t tmpfs -o size="$1" none "$2" && shift 2 && exec "$@"', "sh"]
        self.assertFound("disk", "broken", "which is too little", expect=FAILED, prefix=[*prefix, "8m", str(self.save)])
        self.assertFound("disk", "ok", prefix=[*prefix, "200m", str(self.save)])

    def test_the_login_manager_and_the_units_are_not_needed(self):
        checks = self.checks()
        self.assertEqual((checks["sleep"]["state"], checks["sleep"]["needed"]), ("missing", False))
        self.assertFalse(checks["units"]["needed"])

    def test_units_are_found_where_the_user_has_them(self):
        folder = self.home / ".config/systemd/user"
        folder.mkdir(parents=True)
        (folder / "app.stillora.VideoCreator.socket").touch()
        self.assertFound("units", "ok", str(folder))

    def test_a_system_that_forbids_user_namespaces_needs_a_drop_in_for_the_units(self):
        folder = self.home / ".config/systemd/user"
        folder.mkdir(parents=True)
        (folder / "app.stillora.VideoCreator.socket").touch()
        without = [str(Path(stillora.__file__).with_name("without-user-namespaces"))]
        self.assertFound("units", "broken", "forbids user namespaces", prefix=without)
        check = self.assertFound("units", "broken", "without-user-namespaces.conf", prefix=without)
        self.assertIsNone(check["package"], "the units are there")
        (folder / "app.stillora.VideoCreator@.service.d").mkdir()
        self.assertFound("units", "ok", prefix=without)

    def test_a_wrong_command_line_is_told(self):
        result = self.doctor("x", expect=USAGE)
        self.assertIn("no argument is taken, and x is one", result.err)


if __name__ == "__main__":
    unittest.main(verbosity=2)

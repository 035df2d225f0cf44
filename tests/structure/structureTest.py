#!/usr/bin/env python3
"""Tests of the structure checks: each must find what it is there for, and let pass what is right."""

import tempfile
import unittest
from pathlib import Path

import structure


class StructureTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = Path(folder.name).resolve()
        self.write("platform/files/NSURL.h", "#pragma once\nclass NSURL;\n")
        self.write("platform/media/CMTime.h", "#pragma once\nstruct CMTime {};\n")
        self.write("util/Names.h", "#pragma once\nnamespace Names {}\n")
        self.write("items/MORPhoto.h", "#pragma once\nclass MORPhoto;\n")
        self.write("video/FrameList.h", "#pragma once\nclass FrameList;\n")
        self.write("audio/Waveform.h", "#pragma once\nclass Waveform;\n")
        self.write("service/Creator.h", "#pragma once\nclass Creator;\n")
        self.write("client/Plan.h", "#pragma once\nclass Plan;\n")

    def write(self, path, text):
        file = self.root / path
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_text(text)

    def faults(self, check):
        return list(structure.CHECKS[check](str(self.root)))

    def assertFault(self, check, *parts):
        faults = self.faults(check)
        self.assertEqual(len(faults), 1, faults)
        for part in parts:
            self.assertIn(part, faults[0])

    def test_a_right_tree_has_no_faults(self):
        self.write("video/FrameList.cpp", '#include "video/FrameList.h"\n\n#include "items/MORPhoto.h"\n#include <vector>\n')
        self.write("video/CMakeLists.txt", "add_library(video STATIC FrameList.cpp)\n")
        for check in structure.CHECKS:
            self.assertEqual(self.faults(check), [], check)

    def test_an_include_that_points_back_is_found(self):
        for path, name in [
            ("util/A.h", "items/MORPhoto.h"),
            ("items/A.h", "video/FrameList.h"),
            ("video/A.h", "service/Creator.h"),
            ("platform/foundation/A.h", "util/Names.h"),
            ("platform/foundation/A.h", "platform/media/CMTime.h"),
            ("platform/sound/A.h", "platform/media/CMTime.h"),
        ]:
            with self.subTest(path=path, name=name):
                self.write(path, f'// first line\n#include "{name}"\n')
                self.assertFault("include-direction", f"{path}:2:", name)
                (self.root / path).unlink()

    def test_the_clients_public_headers_show_nothing_of_the_project(self):
        self.write("include/stillora/Plan.h", "#pragma once\n#include <stillora/Types.h>\n")
        self.assertFault("include-direction", "include/stillora/Plan.h:2:", "<stillora/Types.h>")
        self.write("include/stillora/Types.h", '#pragma once\n#include "platform/files/NSURL.h"\n')
        self.assertFault("include-direction", "include/stillora/Types.h:2:", "platform/files/NSURL.h")
        self.write("include/stillora/Types.h", "#pragma once\n")
        self.assertEqual(self.faults("include-direction"), [])
        self.write("video/Plan.h", "#pragma once\n#include <stillora/Plan.h>\n")
        self.assertFault("third-party-headers", "video/Plan.h:2:", "<stillora/Plan.h>")

    def test_a_source_may_be_named_for_its_part_of_a_public_header(self):
        self.write("client/Reading.cpp", "#include <stillora/Plan.h>\n")
        self.assertEqual(self.faults("file-names"), [])
        self.write("client/Reading.cpp", '#include "client/Plan.h"\n')
        self.assertFault("file-names", "client/Reading.cpp:1:")

    def test_an_include_that_points_sideways_is_found(self):
        for path, name in [
            ("audio/A.cpp", "video/FrameList.h"),
            ("video/A.cpp", "audio/Waveform.h"),
            ("client/A.cpp", "service/Creator.h"),
            ("service/A.cpp", "client/Plan.h"),
            ("platform/faces/A.cpp", "platform/media/CMTime.h"),
        ]:
            with self.subTest(path=path, name=name):
                self.write(path, f'#include "{name}"\n')
                self.assertFault("include-direction", f"{path}:1:", "sideways")
                (self.root / path).unlink()

    def test_a_client_that_decodes_outside_of_its_reader_is_found(self):
        decoding = '#include "platform/media/CMTime.h"\n#include "platform/decoders/CGImageSource.h"\n'
        self.write("client/reader/Answers.cpp", decoding)
        self.assertEqual(self.faults("reader-alone"), [])
        self.write("client/Plan.cpp", decoding)
        self.assertFault("reader-alone", "client/Plan.cpp:2:", "CGImageSource")

    def test_a_window_that_reaches_behind_the_public_headers_is_found(self):
        self.write("window/A.cpp", '#include "client/text/LocalizedText.h"\n#include "client/questions/FileReader.h"\n')
        self.assertFault("window-public", "window/A.cpp:2:", "FileReader")
        self.write("window/A.cpp", '#include "client/text/LocalizedText.h"\n#include <stillora/Plan.h>\n')
        self.assertEqual(self.faults("window-public"), [])

    def test_a_room_may_use_only_rooms_that_stand_before_it(self):
        rooms = list(structure.ROOMS)
        for position, (room, uses) in enumerate(structure.ROOMS.items()):
            self.assertLessEqual(set(uses.split()), set(rooms[:position]), room)

    def test_a_library_that_links_a_room_it_may_not_use_is_found(self):
        self.write("platform/sound/CMakeLists.txt",
                   "add_library(sound STATIC A.cpp)\ntarget_link_libraries(sound PUBLIC libav\n    PRIVATE media aac)\n")
        self.assertFault("linked-rooms", "platform/sound/CMakeLists.txt:3:", "media")

    def test_a_room_that_is_too_long_is_found(self):
        header = "#pragma once\n"
        self.write("platform/media/AVAsset.h", header + "\n" * (structure.LONGEST_ROOM - 4))
        self.assertEqual(self.faults("room-size"), [])
        self.write("platform/media/AVAsset.cpp", "\n")
        self.assertEqual(self.faults("room-size"), [])
        self.write("platform/media/AVAsset.cpp", "\n\n")
        self.assertFault("room-size", "platform/media:1:", "3001")

    def test_rooms_inside_a_folder_are_counted_each(self):
        self.write("client/files/Copy.cpp", "\n" * structure.LONGEST_ROOM)
        self.write("client/text/Text.cpp", "\n" * structure.LONGEST_ROOM)
        self.assertEqual(self.faults("room-size"), [])
        self.write("client/text/Names.cpp", "\n")
        self.assertFault("room-size", "client/text:1:", "3001")

    def test_rooms_that_use_each_other_are_found(self):
        self.write("client/files/Copy.h", '#pragma once\n#include "client/text/Names.h"\n')
        self.write("client/text/Names.h", "#pragma once\n")
        self.assertEqual(self.faults("circles"), [])
        self.write("client/text/Names.h", '#pragma once\n#include "client/photos/Order.h"\n')
        self.write("client/photos/Order.h", "#pragma once\n")
        self.assertEqual(self.faults("circles"), [])
        self.write("client/photos/Order.cpp", '#include "client/files/Copy.h"\n')
        faults = self.faults("circles")
        self.assertEqual(len(faults), 3, faults)
        self.assertIn("client/photos/Order.cpp:1: client/photos uses client/files", "\n".join(faults))

    def test_an_include_not_written_from_the_root_is_found(self):
        self.write("video/A.cpp", '#include "FrameList.h"\n')
        self.assertFault("include-direction", "video/A.cpp:1:", "no file of the project")

    def test_a_test_may_include_only_what_its_folder_may(self):
        self.write("tests/items/MORPhotoTest.cpp", '#include "items/MORPhoto.h"\n#include "util/Names.h"\n')
        self.assertEqual(self.faults("include-direction"), [])
        self.write("tests/items/MORPhotoTest.cpp", '#include "video/FrameList.h"\n')
        self.assertFault("include-direction", "tests/items/MORPhotoTest.cpp:1:")

    def test_includes_in_comments_do_not_count(self):
        self.write("util/A.h", '/* like this:\n#include "video/FrameList.h"\n*/\n//#include "items/MORPhoto.h"\n')
        self.assertEqual(self.faults("include-direction"), [])

    def test_includes_that_are_indented_or_spaced_count(self):
        self.write("util/A.h", '#if 1\n #  include  "video/FrameList.h"\n#endif\n')
        self.assertFault("include-direction", "util/A.h:2:")

    def test_a_media_library_outside_platforms_sources_is_found(self):
        for path, name in [
            ("video/A.cpp", "libavformat/avformat.h"),
            ("platform/media/A.h", "libavcodec/avcodec.h"),
            ("util/A.h", "vips/vips.h"),
            ("client/A.h", "getopt.h"),
            ("service/A.cpp", "getopt.h"),
            ("items/A.h", "fmt/format.h"),
            ("video/A.cpp", "gio/gio.h"),
            ("service/A.cpp", "gtest/gtest.h"),
            ("platform/media/A.cpp", "somebody/else.h"),
        ]:
            with self.subTest(path=path, name=name):
                self.write(path, f"extern \"C\" {{\n#include <{name}>\n}}\n")
                self.assertFault("third-party-headers", f"{path}:2:", name)
                (self.root / path).unlink()

    def test_the_toolkit_is_for_widgets_alone(self):
        self.write("window/Button.cpp", "#include <gtkmm/button.h>\n")
        self.assertEqual(self.faults("third-party-headers"), [])
        self.write("window/state/Model.cpp", "#include <gtkmm/button.h>\n")
        self.assertFault("third-party-headers", "window/state/Model.cpp:1:", "gtkmm/button.h")
        (self.root / "window/state/Model.cpp").unlink()
        self.write("client/Model.cpp", "#include <adwaita.h>\n")
        self.assertFault("third-party-headers", "client/Model.cpp:1:", "adwaita.h")

    def test_a_media_library_in_platforms_sources_is_right(self):
        self.write("platform/media/CMTimeAv.cpp", "#include <libavutil/avutil.h>\n#include <sys/stat.h>\n#include <map>\n")
        self.assertEqual(self.faults("third-party-headers"), [])

    def test_a_header_without_guard_is_found(self):
        self.write("util/A.h", "// #pragma once is missing\n")
        self.assertFault("headers", "util/A.h:1:")

    def test_a_source_whose_own_header_is_not_first_is_found(self):
        self.write("video/FrameList.cpp", '#include <vector>\n#include "video/FrameList.h"\n')
        self.assertFault("headers", "video/FrameList.cpp:1:")

    def test_a_header_whose_one_class_has_another_name_is_found(self):
        self.write("util/Other.h", '#pragma once\nclass Forward;\nclass CAPABILITY("x") Other final : public A {\n};\n')
        self.write("util/Helpers.h", "#pragma once\nclass Forward;\nclass Other : public A {\npublic:\n    Other();\n};\n")
        self.assertFault("file-names", "util/Helpers.h")

    def test_a_source_named_for_no_header_is_found(self):
        self.write("util/Stray.cpp", "int stray;\n")
        self.write("util/NamesPosix.cpp", "int backed;\n")
        self.assertFault("file-names", "util/Stray.cpp")

    def test_a_source_that_is_not_built_is_found(self):
        self.write("util/NamesPosix.cpp", "int forgotten;\n")
        self.write("util/CMakeLists.txt", "add_library(util STATIC OtherNamesPosix.cpp)\n")
        self.assertFault("listed-sources", "util/NamesPosix.cpp")

    def test_a_file_that_a_page_names_and_that_is_gone_is_found(self):
        self.write("util/A.h", "#pragma once\n")
        self.write("docs/a.md", "see `util/A.h`\nand `util/Gone.cpp`, not `NAME/x.m4a`\n")
        self.assertEqual([fault.split(":")[:2] for fault in self.faults("documented-files")], [["docs/a.md", "2"]])

    def test_a_name_of_the_product_in_platform_is_found(self):
        for text in ("// like MORPhoto\n", "// MORURLCategory\n", 'const char* kName = "stillora";\n', "struct StilloraFace {};\n"):
            with self.subTest(text):
                self.write("platform/faces/A.h", f"#pragma once\n{text}")
                self.assertFault("product-names", "platform/faces/A.h:2:")
        self.write("platform/faces/A.h", "#pragma once\n// As kMORTAR, more, MORE and humor have none.\n")
        self.write("client/A.h", "#pragma once\n// MORPhoto of Stillora\n")
        self.assertEqual(self.faults("product-names"), [])

    def test_a_place_on_this_machine_is_found(self):
        self.write("docs/a.md", f"fine\nsee {self.root}/somewhere\n")
        self.assertFault("machine-paths", "docs/a.md:2:")
        self.write("docs/a.md", "see /home/" + "jane/movies\n")
        self.assertFault("machine-paths", "docs/a.md:1:")

    def test_places_that_every_machine_has_are_right(self):
        self.write("docs/a.md", "#!/usr/bin/env bash\n/tmp/x /home/user/Pictures ~/Movies/Stillora/ /var/lib\n")
        self.assertEqual(self.faults("machine-paths"), [])

    def test_a_function_whose_failure_can_be_overlooked_is_found(self):
        for declared, is_fault in [
            ("bool load(int a, NSError* error = nullptr);", True),
            ("class A final {\npublic:\n    static std::unique_ptr<A> create(platform::NSError* error);\n};", True),
            ("template <typename T>\nstd::optional<T> read(const std::function<bool(T)>& f, NSError* error);", True),
            ("[[nodiscard]] bool load(int a, NSError* error = nullptr);", False),
            ("// bool load(NSError* error);", False),
            ("bool failWithErrno(NSError* error, int number);", False),
            ("void tell(NSError* error);", False),
            ("using Load = std::function<bool(NSError* error)>;", False),
            ("struct A {\n    std::function<bool(NSError* error)> load;\n};", False),
        ]:
            with self.subTest(declared):
                self.write("util/A.h", f"#pragma once\n{declared}\n")
                self.assertEqual(len(self.faults("nodiscard")), is_fault)

    def test_a_source_that_is_not_spaced_as_the_others_is_found(self):
        self.write("util/Names.h", "#pragma once\nnamespace Names {}\nint  a;\nint  b;\n")
        self.assertFault("format", "util/Names.h:3:")

    def test_the_command_exits_with_one_for_a_fault_and_two_without_code(self):
        self.assertEqual(structure.main(["headers", str(self.root)]), 0)
        self.write("util/A.h", "\n")
        self.assertEqual(structure.main(["headers", str(self.root)]), 1)
        self.assertEqual(structure.main(["headers", str(self.root / "docs")]), 2)
        self.assertEqual(structure.main(["no-such-check", str(self.root)]), 2)

    def test_a_promise_whose_test_is_gone_is_found(self):
        self.write("tests/video/FrameListTest.cpp", "TEST(FrameList, KeepsOrder)\n{\n}\nTEST_F(FrameListTest, Ends)\n{\n}\n")
        self.write("tests/end-to-end/MovieTest.py", "class MovieTest:\n    def test_it_moves(self):\n        pass\n")
        self.write("tests/attack/messages", "")
        self.write("SECURITY.md", "| `FrameList.KeepsOrder`, `FrameListTest.Ends` | `test_it_moves`, `attack.messages` |\n")
        self.assertEqual(self.faults("documented-tests"), [])
        for name in ("FrameList.IsSafe", "test_it_stands", "attack.nobody"):
            self.write("SECURITY.md", f"# Security\n`{name}`\n")
            self.assertFault("documented-tests", "SECURITY.md:2:", name)

    def write_licences(self, own=("MIT", "Expat"), model=("Apache-2.0", "Apache-2.0")):
        for page, first, second in ((".reuse/dep5", own[0], model[0]), ("debian/copyright", own[1], model[1])):
            self.write(page, f"Format: 1.0\n\nFiles: *\nCopyright: 2026 We\nLicense: {first}\n\n"
                             f"Files: data/*.onnx\nCopyright: Others\n More\nLicense: {second}\n")
        self.write("data/model.onnx", "")
        for name in ("MIT", "Apache-2.0"):
            self.write(f"LICENSES/{name}.txt", name)

    def test_a_file_without_a_licence_is_found(self):
        self.write_licences()
        self.assertEqual(self.faults("licences"), [])
        for page in (".reuse/dep5", "debian/copyright"):
            with self.subTest(page):
                self.write_licences()
                text = (self.root / page).read_text().replace("Files: *", "Files: util/* items/* video/* audio/* service/* "
                                                              "client/* .reuse/* debian/*")
                self.write(page, text)
                faults = self.faults("licences")
                self.assertTrue(any(f"platform/files/NSURL.h:1: has no licence in {page}" == fault for fault in faults), faults)

    def test_a_stanza_without_a_holder_of_rights_does_not_count(self):
        self.write_licences()
        text = (self.root / ".reuse/dep5").read_text()
        self.write(".reuse/dep5", text.replace("Copyright: Others\n More\n", ""))
        self.assertFault("licences", "data/model.onnx:1:", "several licences")

    def test_licences_that_differ_between_the_lists_are_found(self):
        self.write_licences(model=("Apache-2.0", "Expat"))
        self.assertFault("licences", "data/model.onnx:1:", "Apache-2.0 in .reuse/dep5", "MIT in debian/copyright")

    def test_a_licence_without_text_or_use_is_found(self):
        self.write_licences()
        (self.root / "LICENSES/Apache-2.0.txt").rename(self.root / "LICENSES/BSD-3-Clause.txt")
        faults = self.faults("licences")
        self.assertEqual(len(faults), 2, faults)
        self.assertIn("data/model.onnx:1: is under Apache-2.0", faults[0])
        self.assertIn("LICENSES/BSD-3-Clause.txt:1:", faults[1])
        self.write_licences()
        (self.root / "LICENSES/BSD-3-Clause.txt").unlink()
        self.write("LICENSE", "another text")
        self.assertFault("licences", "LICENSE:1: differs from LICENSES/MIT.txt")


if __name__ == "__main__":
    unittest.main()

#!/usr/bin/python3
"""The window, used from outside as a person does: by what controls are called, by keys and by the pointer."""

import os
import re
import sys
import unittest
from pathlib import Path

sys.path.insert(0, str(Path(__file__).parent))
from case import Image, TestCase, photo, tone  # noqa: E402

import program  # noqa: E402
from person import wait_until  # noqa: E402
from program import SAMPLES, probe  # noqa: E402


class EmptyTest(TestCase):
    def test_it_invites(self):
        window = self.start()
        window.see("label", "Drop Photos Here")
        window.see("push button", contains="Add Photos…")


class PhotosTest(TestCase):
    def test_photos_come_in_order_and_move_by_keyboard(self):
        window = self.start(self.photos)
        window.see_photos("a", "b", "c", "d")
        self.select(window, "c")
        window.press("Alt+Left")
        window.see_photos("a", "c", "b", "d")
        window.press("Alt+Home")
        window.see_photos("c", "a", "b", "d")
        window.press("Control+z")
        window.see_photos("a", "c", "b", "d")
        window.press("Control+z")
        window.see_photos("a", "b", "c", "d")
        window.press("Control+Shift+z")
        window.see_photos("a", "c", "b", "d")

    def test_a_photo_is_dragged_to_a_new_place(self):
        window = self.start(self.photos)
        window.see_photos("a", "b", "c", "d")
        left, top, width, height = window.place(window.cell("d"))
        target = window.place(window.cell("a"))
        window.drag((left + width / 2, top + height / 2), (target[0] + 12, target[1] + target[3] / 2))
        window.see_photos("d", "a", "b", "c")

    def test_photos_are_removed_and_come_back(self):
        window = self.start(self.photos)
        window.see_photos("a", "b", "c", "d")
        self.select(window, "b")
        window.press("Delete")
        window.see_photos("a", "c", "d")
        window.press("Control+z")
        window.see_photos("a", "b", "c", "d")

    def test_photos_that_cannot_be_used_say_why_and_go_in_one_step(self):
        for name in ("bad", "worse"):
            (self.photos / f"{name}.jpg").write_bytes(b"no picture at all")
        window = self.start(self.photos)
        window.see_photos("a", "b", "bad", "c", "d", "worse")
        button = window.see("push button", "Remove 2 Unusable Photos")
        self.assertTrue(window.cell("bad").get_description())
        window.click(button)
        window.see_photos("a", "b", "c", "d")
        window.press("Control+z")
        window.see_photos("a", "b", "bad", "c", "d", "worse")

    def test_the_menu_sorts_reverses_and_shuffles(self):
        for name, day in (("a", 3), ("b", 1), ("c", 4), ("d", 2)):
            photo(self.photos / f"{name}.jpg", "gray", taken=f"2024:05:0{day} 12:00:00")
        window = self.start(self.photos)
        window.see_photos("a", "b", "c", "d")
        self.sort(window, "By Date Taken")
        window.see_photos("b", "d", "a", "c")
        self.sort(window, "Reverse")
        window.see_photos("c", "a", "d", "b")
        self.sort(window, "By Name")
        window.see_photos("a", "b", "c", "d")
        self.sort(window, "Shuffle")
        window.see("push button", "Undo: Shuffle")
        wait_until(lambda: (shown := window.photos()) != list("abcd") and sorted(shown) == list("abcd"), "another order")
        window.press("Control+z")
        window.see_photos("a", "b", "c", "d")

    def test_many_photos_stand_in_all_the_columns_that_fit_and_few_wait_beside_the_screen(self):
        for number in range(300):
            os.link(self.photos / "a.jpg", self.photos / f"e{number}.jpg")
        settings = Path(os.environ["XDG_STATE_HOME"], "stillora", "window.ini")
        settings.parent.mkdir(parents=True)
        settings.write_text("[Window]\nwidth=1240\nheight=800\nmaximized=true\n")
        window = self.start(self.photos)
        window.see("label", "304 photos")

        grid = window.see("table")

        def columns():
            """The number of those of the first row, of those that would fit, and of all that the toolkit has at hand."""
            cells = [grid.get_child_at_index(i) for i in range(grid.get_child_count())]
            boxes = [cell.get_component_iface().get_extents(program.people.Atspi.CoordType.WINDOW) for cell in cells if cell]
            drawn = [box for box in boxes if box.width > 0 and box.height > 0]
            first = [box for box in drawn if box.y == min(box.y for box in drawn)]
            return len(first), window.place(grid)[2] // first[0].width if first else 0, len(boxes)

        wait_until(lambda: (found := columns())[0] == found[1] > 4, lambda: f"a whole row, but {columns()}")
        self.assertLess(columns()[2], 33 * (columns()[1] + 1))

    def sort(self, window, label):
        window.click(window.see("push button", "Sort the photos"))
        window.choose(label)


class MovieTest(TestCase):
    def colors(self, movie):
        """The colour in the middle of each photo of a movie, as a word."""
        count = len(self.movie_photos)
        length = float(probe(movie, "-show_entries", "format=duration")["format"]["duration"])
        found = []
        for index in range(count):
            picture = self.folder / "frame.png"
            program.subprocess.run(["ffmpeg", "-v", "error", "-y", "-ss", str(length * (index + 0.5) / count), "-i", movie,
                                    "-frames:v", "1", picture], check=True)
            with Image.open(picture) as image:
                red, green, blue = image.convert("RGB").getpixel((image.width // 2, image.height // 2))
            found.append({(1, 0, 0): "red", (0, 1, 0): "lime", (0, 0, 1): "blue", (1, 1, 0): "yellow"}[
                (red // 128, green // 128, blue // 128)])
        return found

    def make(self, window):
        window.press("Control+Return")
        window.see("text", "Name")
        window.press("Enter")

    def test_a_movie_is_made_in_the_order_of_the_grid(self):
        window = self.start(self.photos, SAMPLES / "Music.m4a")
        window.see_photos("a", "b", "c", "d")
        self.select(window, "d")
        window.press("Alt+Home")
        window.see_photos("d", "a", "b", "c")
        self.make(window)
        window.see("push button", contains="Play Movie")
        movies = list(Path(os.environ["HOME"]).rglob("Summer.m*"))
        self.assertEqual(len(movies), 1, movies)
        self.movie_photos = "dabc"
        self.assertEqual(self.colors(movies[0]), ["yellow", "red", "lime", "blue"])
        kinds = {stream["codec_type"] for stream in probe(movies[0], "-show_streams")["streams"]}
        self.assertEqual(kinds, {"video", "audio"})


class PlayingTest(TestCase):
    def position(self, window):
        return window.see("slider", "Position").get_value_iface().get_current_value()

    def see_it_play_to_its_end(self, window):
        """Where the pictures last eight seconds and the music two: the player is not to end with the music."""
        window.see("push button", "Stop")
        wait_until(lambda: self.position(window) > 5, "the pictures to go on without music")
        wait_until(lambda: window.can("Play"), "the end")

    def start_with_two_photos(self):
        (self.photos / "c.jpg").unlink()
        (self.photos / "d.jpg").unlink()
        tone(self.folder / "one.wav", 2)
        window = self.start(self.photos, self.folder / "one.wav", XDG_DATA_DIRS=self.data_without_programs())
        window.see_photos("a", "b")
        window.see("label", contains="The pictures last 8 seconds")
        wait_until(lambda: window.can("Play"), "photos to play")
        return window

    def data_without_programs(self):
        data = self.folder / "share"
        data.mkdir()
        for each in Path("/usr/share").iterdir():
            if each.name != "applications":
                (data / each.name).symlink_to(each)
        return str(data)

    def test_a_draft_plays_to_its_end_and_once_more(self):
        window = self.start_with_two_photos()
        for _ in range(2):
            window.click(window.see("push button", "Play"))
            self.see_it_play_to_its_end(window)

    def test_a_movie_that_was_made_plays_in_the_window_where_no_other_program_plays_it(self):
        window = self.start_with_two_photos()
        window.press("Control+Return")
        window.see("text", "Name")
        window.press("Enter")
        window.click(window.see("push button", contains="Play Movie"))
        self.see_it_play_to_its_end(window)
        window.click(window.see("push button", contains="Play Movie"))
        window.see("push button", "Stop")


class MusicTest(TestCase):
    def test_a_part_is_chosen_by_a_handle_and_by_a_typed_time(self):
        window = self.start(self.photos, SAMPLES / "Music.m4a")
        window.see("label", "0:33")
        window.see("label", contains="The pictures last 16 seconds")
        left, top, width, height = window.place(window.see("slider", contains="begins"))
        last = window.place(window.see("slider", contains="ends"))
        window.drag((left + width / 2, top + height / 2), ((left + last[0] + last[2]) / 2, top + height / 2))
        half = window.see("label", contains=" of 0:33").get_name().split(" of ")[0]
        minutes, seconds = half.split(":")
        self.assertAlmostEqual(int(minutes) * 60 + float(seconds), 16.5, delta=1)
        window.press("Control+z")
        window.see("label", "0:33")
        window.click(window.see("text", contains="plays from"))
        window.press("Control+a")
        window.type("0:10.5")
        window.press("Return")
        window.see("label", "0:22.5 of 0:33")


class SoundsTest(TestCase):
    def test_sounds_are_dragged_and_fitted_and_repeated(self):
        for name, seconds in (("one", 2), ("two", 3)):
            tone(self.folder / f"{name}.wav", seconds)
        window = self.start(self.photos, self.folder / "one.wav", self.folder / "two.wav")
        wait_until(lambda: self.sounds(window) == ["one", "two"], "the sounds")
        window.see("label", contains="The pictures last 16 seconds")

        left, top, width, height = window.place(window.see("list item", "two"))
        target = window.place(window.see("list item", "one"))
        window.drag((left + width / 2, top + 20), (target[0] + target[2] / 2, target[1] + 6))
        wait_until(lambda: self.sounds(window) == ["two", "one"], lambda: f"another order, but {self.sounds(window)}")

        self.click_below(window, "Loop")
        wait_until(lambda: self.is_on(window, "Repeat the Music"), "the music to be repeated")
        wait_until(lambda: not window.find("push button", "Loop"), "the offer to go")
        window.press("Control+z")
        self.click_below(window, "Fit to Music")
        wait_until(lambda: self.is_on(window, "Fit to Music"), "the photos to share the length")
        window.see("label", contains="5 seconds")

    def click_below(self, window, label):
        """A button of the side that may have to be scrolled to."""
        left, top, width, height = window.place(window.see("push button", "Add Music"))
        window.move(left + width / 2, top + height / 2)
        bottom = window.window("Stillora").get_geometry().height

        def is_there():
            button = window.see("push button", label)
            box = button.get_component_iface().get_extents(program.people.Atspi.CoordType.WINDOW)
            if box.height > 0 and box.y + 2 * box.height < bottom:
                return button
            window.button(True, 5)
            window.button(False, 5)
            return None

        window.click(wait_until(is_there, f"{label} on the screen"))

    def sounds(self, window):
        return [node.get_name() for node in window.everything(window.find("list", "Music"))
                if node.get_role_name() == "list item"]

    def is_on(self, window, name):
        return window.find("check box", name).get_state_set().contains(program.people.Atspi.StateType.CHECKED)


class NamesTest(TestCase):
    CONTROLS = ("push button", "toggle button", "check box", "text", "entry", "slider", "spin button", "combo box",
                "table", "table cell", "progress bar", "switch", "menu item", "dialog", "frame")
    # What the toolkit calls controls that nobody has named.
    CLASS_NAME = re.compile(r"(Gtk|Adw|gtkmm__|Stillora)[A-Z]")

    def is_bad(self, node):
        name = node.get_name()
        words = name.split()
        half = len(words) // 2
        return not name or "_" in name or self.CLASS_NAME.match(name) or words[:half] == words[half:]

    def check(self, window):
        controls = [node for node in window.everything() if node.get_role_name() in self.CONTROLS]
        bad = [(node.get_role_name(), node.get_name()) for node in controls if self.is_bad(node)]
        self.assertEqual(bad, [])
        return len(controls)

    def test_every_control_is_called_something_once(self):
        window = self.start(self.photos, SAMPLES / "Music.m4a")
        window.see_photos("a", "b", "c", "d")
        window.see("slider", contains="begins")
        wait_until(lambda: window.can("Make Movie"), "photos to make a movie of")
        controls = self.check(window)
        window.press("Control+Return")
        window.see("dialog", "Make Movie")
        window.see_dialog_in_front()
        self.assertGreater(self.check(window), controls)

    def test_the_keys_are_shown(self):
        window = self.start(self.photos)
        window.see_photos("a", "b", "c", "d")
        window.press("Control+Shift+question")
        window.see("label", "Paste files")
        window.see_dialog_in_front()
        window.press("Escape")
        wait_until(lambda: not window.find("label", "Paste files"), "the keys to go")


class RecoveryTest(TestCase):
    def saved_order(self):
        """The names of the photos in the list that the window keeps, in its order."""
        for file in Path(os.environ["XDG_STATE_HOME"]).rglob("*.session"):
            if (found := re.findall(rb"Summer/([abcd])\.jpg", file.read_bytes())):
                return b"".join(found).decode()
        return None

    def test_after_a_kill_it_comes_back_as_it_was(self):
        window = self.start(self.photos)
        window.see_photos("a", "b", "c", "d")
        self.select(window, "d")
        window.press("Alt+Home")
        window.see_photos("d", "a", "b", "c")
        wait_until(lambda: self.saved_order() == "dabc", lambda: f"the new order on the disk, but {self.saved_order()}")
        window.kill()
        self.start().see_photos("d", "a", "b", "c")


if __name__ == "__main__":
    unittest.main()

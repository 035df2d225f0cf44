"""The window as a process of its own, and what a person does with it."""

import json
import os
import signal
import subprocess
from pathlib import Path

import person as people
from person import Atspi, X, wait_until

ROOT = Path(__file__).resolve().parents[2]
BIN = Path(os.environ.get("STILLORA_BIN", ROOT / "build/release/bin"))
SAMPLES = ROOT / "data/samples"


def probe(movie, *entries):
    """What ffprobe says of a movie."""
    told = subprocess.run(["ffprobe", "-v", "error", "-of", "json", *entries, str(movie)], check=True, capture_output=True)
    return json.loads(told.stdout)


class Program(people.Person):
    def __init__(self, *files, environment=None):
        super().__init__()
        self.log = Path(os.environ["HOME"]) / "window.log"
        with open(self.log, "ab") as log:
            self.process = subprocess.Popen([str(BIN / "stillora-window"), *map(str, files)], stdin=subprocess.DEVNULL,
                                            stdout=log, stderr=log, env={**os.environ, **(environment or {})})
        try:
            wait_until(self._is_there, self._why_not)
            self.focus()
        except AssertionError:
            # The next one is not to be taken for it.
            self.close()
            raise

    def _is_there(self):
        if self.process.poll() is not None:
            raise AssertionError(f"the window ended with {self.process.returncode}: {self.log.read_text()}")
        return self.application() and self.find("frame") and self.window("Stillora")

    def _why_not(self):
        return "the window; it said: " + self.log.read_text()

    def is_in_front(self):
        return self.application().get_child_at_index(0).get_state_set().contains(Atspi.StateType.ACTIVE)

    def see_dialog_in_front(self):
        """Waits until the next key is for a window that belongs to another one."""
        def is_dialog():
            told = self.root().get_full_property(self.atom("_NET_ACTIVE_WINDOW"), X.AnyPropertyType)
            window = told and told.value[0] and self.screen.create_resource_object("window", told.value[0])
            return window and window.get_wm_transient_for()

        wait_until(is_dialog, "a dialog in front")

    def focus(self):
        wait_until(self.is_in_front, "the window in front")

    def photos(self):
        """The names of the photos on the screen, in their order."""
        grid = self.find("table")
        if not grid:
            return []
        cells = [grid.get_child_at_index(i) for i in range(grid.get_child_count())]
        shown = [cell for cell in cells if cell and cell.get_role_name() == "table cell" and cell.get_name()]
        return [cell.get_name() for cell in sorted(shown, key=self._order)]

    def _order(self, cell):
        box = cell.get_component_iface().get_extents(Atspi.CoordType.WINDOW)
        return box.y, box.x

    def cell(self, name):
        return self.find("table cell", name)

    def see_photos(self, *names):
        wait_until(lambda: self.photos() == list(names), lambda: f"{list(names)}, but {self.photos()}")

    def can(self, label):
        """Whether a button can be pressed."""
        button = self.find("push button", label)
        return button and button.get_state_set().contains(Atspi.StateType.SENSITIVE)

    def focused(self):
        """What the next key is for; None where nothing is."""
        return next((node for node in self.everything() if node.get_state_set().contains(Atspi.StateType.FOCUSED)), None)

    def choose(self, *labels):
        """In a menu that is open, by keys: an item, or one of the menu that an item opens."""
        for label in labels:
            seen = []

            def is_there(label=label, seen=seen):
                item = self.focused()
                name = item and item.get_role_name() == "menu item" and item.get_name()
                if name == label:
                    return True
                if name != (seen[-1] if seen else None) or not seen:
                    seen.append(name)
                    self.press("Down")
                return False

            wait_until(is_there, lambda label=label, seen=seen: f"{label} in the menu, but {seen}")
            self.press("Return")

    def write(self, text):
        """Into the entry that has the focus, instead of what is there."""
        wait_until(lambda: (node := self.focused()) and node.get_role_name() == "text", "an entry that has the focus")
        self.press("Control+a")
        self.type(str(text))

    def kill(self):
        self.process.send_signal(signal.SIGKILL)
        self.process.wait()
        wait_until(lambda: not self.application(), "the end of the window")

    def see_end(self):
        wait_until(lambda: self.process.poll() is not None, "the end of the program")

    def close(self):
        """Ends it as a desktop does that ends itself. Where sanitizers look, they tell of leaks by the exit status."""
        if self.process.poll() is None:
            self.process.terminate()
            status = self.process.wait(people.DEADLINE)
            assert status == 0, f"the window ended with {status}: {self.log.read_text()}"

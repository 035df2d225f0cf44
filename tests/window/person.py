"""Somebody at the desk: finds controls by what they are called, presses keys, and uses the pointer.

A `Desk` has to be set up before this is imported.
"""

import time

import gi

gi.require_version("Atspi", "2.0")
from gi.repository import Atspi, GLib  # noqa: E402
from Xlib import X, XK, display  # noqa: E402
from Xlib.error import XError  # noqa: E402
from Xlib.ext import xtest  # noqa: E402

# Generous: nothing waits as long as this unless it fails. On a machine that is given to others the start alone takes minutes.
DEADLINE = 300

NAMES = {"Control": "Control_L", "Shift": "Shift_L", "Alt": "Alt_L", "Enter": "Return"}
SIGNS = {" ": "space", ".": "period", ",": "comma", ":": "colon", "/": "slash", "-": "minus", "_": "underscore", "?": "question"}


def wait_until(condition, what, deadline=DEADLINE, pause=0.02):
    end = time.monotonic() + deadline
    context = GLib.MainContext.default()
    while True:
        while context.iteration(False):
            pass
        try:
            result = condition()
        except (GLib.Error, XError):
            # What was looked at went away meanwhile.
            result = None
        if result:
            return result
        if time.monotonic() > end:
            raise AssertionError(f"not within {deadline} s: {what() if callable(what) else what}")
        time.sleep(pause)


class Person:
    def __init__(self):
        Atspi.init()
        self.screen = display.Display()
        self.x, self.y = 0, 0

    # Looking

    def application(self, name="stillora-window"):
        desktop = Atspi.get_desktop(0)
        for i in range(desktop.get_child_count()):
            child = desktop.get_child_at_index(i)
            if child and name in (child.get_name() or ""):
                return child
        return None

    def everything(self, root=None, shown_only=True):
        """Each control below one, itself first."""
        pending = [root or self.application()]
        while pending:
            node = pending.pop()
            if node is None:
                continue
            yield node
            count = node.get_child_count()
            if 0 < count < 5000:
                pending.extend(node.get_child_at_index(i) for i in reversed(range(count)))

    def find(self, role, name=None, contains=None, showing=True, root=None):
        """The control of a role and name that is on the screen; None if there is none."""
        for node in self.everything(root):
            try:
                if node.get_role_name() != role:
                    continue
                called = node.get_name() or ""
                if name is not None and called != name or contains is not None and contains not in called:
                    continue
                if showing and not node.get_state_set().contains(Atspi.StateType.VISIBLE):
                    continue
                return node
            except GLib.Error:
                continue
        return None

    def see(self, role, name=None, deadline=DEADLINE, **more):
        return wait_until(lambda: self.find(role, name, **more), f"{role} {name or more}", deadline)

    def tree(self, root=None, depth=0):
        root = root or self.application()
        lines = []

        def walk(node, deep):
            if node is None:
                return
            states = node.get_state_set()
            shown = "" if states.contains(Atspi.StateType.VISIBLE) else " (hidden)"
            lines.append("  " * deep + f"{node.get_role_name()} {node.get_name()!r}{shown}")
            for i in range(node.get_child_count()):
                walk(node.get_child_at_index(i), deep + 1)

        walk(root, depth)
        return "\n".join(lines)

    # Where

    def root(self):
        return self.screen.screen().root

    def atom(self, name):
        return self.screen.intern_atom(name)

    def window(self, title=None):
        """The X window with a title, whose corner is that of accessible coordinates."""
        root = self.screen.screen().root
        found = None
        pending = [root]
        while pending:
            each = pending.pop()
            try:
                pending.extend(each.query_tree().children)
                name = each.get_full_text_property(self.screen.intern_atom("_NET_WM_NAME"))
                if name and (title is None or title in name) and each.get_attributes().map_state == X.IsViewable:
                    found = each
                    if title is not None:
                        return each
            except Exception:
                continue
        return found

    def place(self, node):
        """(left, top, width, height) on the screen."""
        box = node.get_component_iface().get_extents(Atspi.CoordType.WINDOW)
        top = node
        while top.get_parent() and top.get_parent().get_role() != Atspi.Role.APPLICATION:
            top = top.get_parent()
        window = self.window(top.get_name() or None)
        corner = self.screen.screen().root.translate_coords(window, 0, 0)
        return corner.x + box.x, corner.y + box.y, box.width, box.height

    # Doing

    def press(self, keys):
        """"Control+z", "Delete"; the last one is pressed while the others are held."""
        codes = [self._code(NAMES.get(key, key)) for key in keys.split("+")]
        for code in codes:
            xtest.fake_input(self.screen, X.KeyPress, code)
        for code in reversed(codes):
            xtest.fake_input(self.screen, X.KeyRelease, code)
        self.screen.sync()

    def type(self, text):
        for sign in text:
            name = SIGNS.get(sign, sign)
            shifted = sign.isupper() or sign in ":_?"
            self.press(f"Shift+{name}" if shifted else name)

    def _code(self, name):
        symbol = XK.string_to_keysym(name)
        if not symbol:
            raise ValueError(f"no key is called {name}")
        return self.screen.keysym_to_keycode(symbol)

    def move(self, x, y):
        self.x, self.y = int(x), int(y)
        xtest.fake_input(self.screen, X.MotionNotify, x=self.x, y=self.y)
        self.screen.sync()

    def button(self, is_down, number=1):
        xtest.fake_input(self.screen, X.ButtonPress if is_down else X.ButtonRelease, number)
        self.screen.sync()

    def still_place(self, node):
        """The place of what may have come only now, once it has been laid out."""
        seen = []

        def is_still():
            seen.append(self.place(node))
            return len(seen) > 1 and seen[-1] == seen[-2] and min(seen[-1][2:]) > 0

        wait_until(is_still, lambda: f"{node.get_name()} in its place, but {seen[-3:]}")
        return seen[-1]

    def click(self, node):
        left, top, width, height = self.still_place(node)
        self.move(left + width / 2, top + height / 2)
        self.button(True)
        self.button(False)

    def drag(self, start, end, steps=20):
        """From a point of the screen to another; the program is given time to follow."""
        self.move(*start)
        self.button(True)
        for step in range(1, steps + 1):
            self.move(start[0] + (end[0] - start[0]) * step / steps, start[1] + (end[1] - start[1]) * step / steps)
            time.sleep(0.02)
        self.button(False)

    def picture(self, file, window=None):
        """What is on the screen, or what a window shows, as a PNG file."""
        from PIL import Image

        root = self.screen.screen().root
        drawn = window or root
        shape = drawn.get_geometry()
        image = drawn.get_image(0, 0, shape.width, shape.height, X.ZPixmap, 0xFFFFFFFF)
        Image.frombytes("RGB", (shape.width, shape.height), image.data, "raw", "BGRX").save(file)

"""The rest of the desktop, as far as the window has to do with it: other programs and their windows, and services."""

import os
import signal
from pathlib import Path

from gi.repository import Gio, GLib
from person import wait_until
from program import BIN
from Xlib import X, Xatom, display
from Xlib.protocol import event


class HeldService:
    """A rendering service that does nothing until it is let go, so that a movie takes as long as a test wants. Drafts that
    nobody waits for yet are made as ever."""

    def __init__(self, folder):
        self.note = Path(folder, "service-waits")
        self.program = Path(folder, "held-service")
        service = f"'{BIN}/stillora-video-creator' \"$@\"\n"
        self.program.write_text(f"#!/bin/sh\ntest $(nice) -le {os.nice(0)} || exec {service}"
                                f"echo $$ >'{self.note}.new'\nmv '{self.note}.new' '{self.note}'\n"
                                f"kill -STOP $$\nexec {service}")
        self.program.chmod(0o755)

    def process(self):
        """Its number while it waits; else None."""
        try:
            number = int(self.note.read_text())
            state = Path(f"/proc/{number}/stat").read_text().rsplit(")", 1)[1].split()[0]
        except (OSError, IndexError, ValueError):
            return None
        return number if state == "T" else None

    def let_go(self):
        os.kill(wait_until(self.process, "the service that waits"), signal.SIGCONT)


class Services:
    """Stands in for services of the desktop, and keeps what they were asked, each as (method, arguments)."""

    KNOWN = {
        "org.freedesktop.FileManager1":
            '<method name="ShowItems"><arg type="as" direction="in"/><arg type="s" direction="in"/></method>',
        "org.freedesktop.Notifications":
            '<method name="Notify"><arg type="s" direction="in"/><arg type="u" direction="in"/>'
            '<arg type="s" direction="in"/><arg type="s" direction="in"/><arg type="s" direction="in"/>'
            '<arg type="as" direction="in"/><arg type="a{sv}" direction="in"/><arg type="i" direction="in"/>'
            '<arg type="u" direction="out"/></method>'
            '<method name="CloseNotification"><arg type="u" direction="in"/></method>',
    }

    def __init__(self):
        self.asked = []
        self.bus = Gio.bus_get_sync(Gio.BusType.SESSION)
        for name, methods in self.KNOWN.items():
            interface = Gio.DBusNodeInfo.new_for_xml(f'<node><interface name="{name}">{methods}</interface></node>')
            self.bus.register_object("/" + name.replace(".", "/"), interface.interfaces[0], self._ask, None, None)
            self.bus.call_sync("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "RequestName",
                               GLib.Variant("(su)", (name, 0)), None, Gio.DBusCallFlags.NONE, -1)

    def _ask(self, _connection, _sender, _path, _interface, method, arguments, call):
        self.asked.append((method, arguments.unpack()))
        call.return_value(GLib.Variant("(u)", (1,)) if method == "Notify" else None)

    def of(self, method):
        return [arguments for name, arguments in self.asked if name == method]


class OtherProgram:
    """A program with a window of its own, which has files on the clipboard or drags them."""

    def __init__(self):
        self.display = display.Display()
        self.root = self.display.screen().root
        self.window = self.root.create_window(0, 0, 60, 40, 0, X.CopyFromParent, background_pixel=0xFFFFFF)
        self.window.set_wm_name("Other")
        self.text = b""
        self.messages = []

    def come_to_front(self):
        self.window.map()
        self.display.sync()

    def close(self):
        self.display.close()

    def _atom(self, name):
        return self.display.intern_atom(name)

    def _own(self, selection, files):
        self.text = b"".join(GLib.filename_to_uri(str(file)).encode() + b"\r\n" for file in files)
        self.window.set_selection_owner(self._atom(selection), X.CurrentTime)
        self.display.sync()

    def copy(self, *files):
        self._own("CLIPBOARD", files)

    def serve(self):
        """Answers those that want the files, and keeps messages; to be called while something is waited for."""
        while self.display.pending_events():
            told = self.display.next_event()
            if told.type == X.SelectionRequest:
                self._hand_over(told)
            elif told.type == X.ClientMessage:
                self.messages.append((told.client_type, told.data[1][1]))

    def _hand_over(self, wish):
        kind = self._atom("text/uri-list")
        place = wish.property or wish.target
        if wish.target == self._atom("TARGETS"):
            wish.requestor.change_property(place, Xatom.ATOM, 32, [self._atom("TARGETS"), kind])
        elif wish.target == kind:
            wish.requestor.change_property(place, kind, 8, self.text)
        else:
            place = X.NONE
        wish.requestor.send_event(event.SelectionNotify(time=wish.time, requestor=wish.requestor, selection=wish.selection,
                                                        target=wish.target, property=place))
        self.display.sync()

    def _tell(self, target, name, *data):
        words = [self.window.id, *data] + [0] * (4 - len(data))
        target.send_event(event.ClientMessage(window=target, client_type=self._atom(name), data=(32, words)))
        self.display.sync()

    def _hear(self, name):
        """Whether a message came, with the first bit of its second word set."""
        self.serve()
        kind = self._atom(name)
        answers = [word for told, word in self.messages if told == kind]
        return bool(answers and answers[-1] & 1)

    def drop(self, window_id, x, y, *files):
        """Drags files over a window, to a place of the screen, and lets them go there."""
        target = self.display.create_resource_object("window", window_id)
        self._own("XdndSelection", files)
        self._tell(target, "XdndEnter", 5 << 24, self._atom("text/uri-list"))

        def is_welcome():
            self._tell(target, "XdndPosition", 0, int(x) << 16 | int(y), X.CurrentTime, self._atom("XdndActionCopy"))
            return self._hear("XdndStatus")

        wait_until(is_welcome, "the window to take what is dragged")
        self._tell(target, "XdndDrop", 0, X.CurrentTime)
        wait_until(lambda: self._hear("XdndFinished"), "the files to be taken")

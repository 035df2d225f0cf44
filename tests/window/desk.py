"""A desk that nobody sits at: a screen, a session bus and an accessibility bus of its own, and a window manager.

It has to be set up before anything of the desktop is used in this process, as that looks for the desk in the environment.
"""

import os
import shutil
import subprocess
import tempfile
from pathlib import Path

WINDOW_MANAGER = """<?xml version="1.0" encoding="UTF-8"?>
<openbox_config xmlns="http://openbox.org/3.4/rc">
  <focus><focusNew>yes</focusNew></focus>
  <placement><policy>Smart</policy><center>yes</center></placement>
  <keyboard/>
  <mouse/>
  <applications><application class="*"><decor>no</decor></application></applications>
</openbox_config>
"""


class Desk:
    def __init__(self, width=1600, height=900, **changes):
        self.folder = Path(tempfile.mkdtemp(prefix="desk-"))
        self.processes = []
        home = self.folder / "home"
        home.mkdir()
        (self.folder / "run").mkdir(mode=0o700)
        for name in [name for name in os.environ if name.startswith(("XDG_", "LC_", "LANG", "GTK_", "DBUS_", "AT_SPI"))]:
            del os.environ[name]
        os.environ.update(
            HOME=str(home), LC_ALL="C.UTF-8", XDG_RUNTIME_DIR=str(self.folder / "run"),
            XDG_STATE_HOME=str(home / "state"), XDG_CACHE_HOME=str(home / "cache"), XDG_CONFIG_HOME=str(home / "config"),
            XDG_DATA_HOME=str(home / "data"),
            # The screen has no graphics processor, and settings are nobody's.
            GDK_BACKEND="x11", GSK_RENDERER="cairo", GSETTINGS_BACKEND="memory", GDK_DEBUG="",
            DBUS_SYSTEM_BUS_ADDRESS=f"unix:path={self.folder}/no-bus",
        )
        os.environ.pop("WAYLAND_DISPLAY", None)
        os.environ.update({name: str(value) for name, value in changes.items()})
        os.environ["DISPLAY"] = ":" + self._start_and_read(
            ["Xvfb", "-displayfd", "{}", "-screen", "0", f"{width}x{height}x24", "-nolisten", "tcp", "-noreset", "-br"])
        os.environ["DBUS_SESSION_BUS_ADDRESS"] = self._start_and_read(
            ["dbus-daemon", "--session", "--nofork", "--nopidfile", "--print-address={}"])
        (home / "config/openbox").mkdir(parents=True)
        (home / "config/openbox/rc.xml").write_text(WINDOW_MANAGER)
        # What slides away under the pointer cannot be clicked.
        (home / "config/gtk-4.0").mkdir()
        (home / "config/gtk-4.0/settings.ini").write_text("[Settings]\ngtk-enable-animations=0\n")
        self._start(["openbox", "--sm-disable"])

    def _start(self, command, **options):
        log = open(self.folder / f"{Path(command[0]).name}.log", "wb")
        process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=log, stderr=log, **options)
        log.close()
        self.processes.append(process)

    def _start_and_read(self, command):
        """Starts a program that writes a line once it is ready, to a descriptor that "{}" in the command stands for."""
        ours, theirs = os.pipe()
        self._start([word.format(theirs) for word in command], pass_fds=[theirs])
        os.close(theirs)
        with os.fdopen(ours) as answer:
            line = answer.readline().strip()
        if not line:
            raise RuntimeError(f"{command[0]} did not start")
        return line

    def close(self):
        for process in reversed(self.processes):
            process.terminate()
        for process in self.processes:
            process.wait()
        shutil.rmtree(self.folder, ignore_errors=True)

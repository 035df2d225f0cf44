#!/usr/bin/python3
"""Makes a movie over the service's socket and prints its progress: a client in a page of Python.

usage: make-movie.py SOCKET SAVE-FOLDER PHOTO...      (at least five photos)

SOCKET is the one that the installed user unit listens on, "$XDG_RUNTIME_DIR/app.stillora.VideoCreator", or that of
    systemd-socket-activate -l SOCKET PREFIX/libexec/stillora/stillora-video-creator
Needs the Debian packages python3-gi and gir1.2-gdkpixbuf-2.0.
"""

import os
import plistlib
import sys
import tempfile

import gi

gi.require_version("GdkPixbuf", "2.0")
from gi.repository import GdkPixbuf, Gio, GLib

PROGRESS = """<node><interface name="app.stillora.morStilloraXPCCreatorUpdateProtocol">
  <method name="updateProgressWithTitle">
    <arg name="title" type="s" direction="in"/> <arg name="image" type="ay" direction="in"/>
    <arg name="determinate" type="b" direction="in"/> <arg name="progress" type="d" direction="in"/>
    <arg name="total" type="d" direction="in"/> <arg name="timeInterval" type="d" direction="in"/>
  </method></interface></node>"""


def bookmark(path):
    """A place in the file system, as it crosses the connection."""
    return plistlib.dumps({"path": os.path.abspath(path)}, fmt=plistlib.FMT_BINARY)


def photo(path):
    """An item: its class and keyed values. The size is that of the upright picture."""
    picture = GdkPixbuf.Pixbuf.new_from_file(path).apply_embedded_orientation()
    return "MORPhoto", {
        "photoURL": GLib.Variant("ay", bookmark(path)),
        "title": GLib.Variant("s", os.path.splitext(os.path.basename(path))[0]),
        "size": GLib.Variant("s", "{%d, %d}" % (picture.get_width(), picture.get_height())),
        "fileSize": GLib.Variant("x", os.path.getsize(path)),
        "isFeatured": GLib.Variant("b", False),
    }


def show_progress(connection, sender, path, interface, method, parameters, invocation):
    title, image, determinate, progress, total, seconds = parameters.unpack()
    line = f"{title}: {progress:g} of {total:g}" if determinate else title
    print(line + (f", {seconds:.0f} s left" if seconds >= 0 else ""), flush=True)
    invocation.return_value(None)


def main(address, save, *photos):
    # D-Bus without a bus: one socket, the service at the other end of it.
    connection = Gio.DBusConnection.new_for_address_sync(
        f"unix:path={Gio.dbus_address_escape_value(address)}", Gio.DBusConnectionFlags.AUTHENTICATION_CLIENT, None, None)
    progress = Gio.DBusNodeInfo.new_for_xml(PROGRESS).interfaces[0]
    connection.register_object("/app/stillora/ProgressReceiver", progress, show_progress, None, None)

    temporary = tempfile.TemporaryDirectory()
    seconds = 2.0
    request = GLib.Variant("(a(sa{sv})a(sa{sv})ddbdsxbayayay)", (
        [photo(path) for path in photos], [],           # photos, soundtracks
        seconds * len(photos), 0.0, False,              # the movie's length, the soundtracks' length, loop them
        seconds, "avc1", 720, False,                    # seconds for each photo, codec, height, reduce borders
        b"", bookmark(save), bookmark(temporary.name),  # document, save folder, temporary folder
    ))
    loop = GLib.MainLoop()
    connection.call(None, "/app/stillora/VideoCreator", "app.stillora.morStilloraVideoCreatorProtocol",
                    "createStillMotionVideoWithPhotos", request, GLib.VariantType("(aya(sxs)b)"),
                    Gio.DBusCallFlags.NONE, GLib.MAXINT, None, lambda source, answer: (answers.append(answer), loop.quit()))
    answers = []
    loop.run()
    movie, errors, cancelled = connection.call_finish(answers[0]).unpack()
    temporary.cleanup()
    if not movie:
        sys.exit("cancelled" if cancelled else errors[0][2] if errors else "no movie was made")
    print(plistlib.loads(bytes(movie))["path"])


if __name__ == "__main__":
    main(*sys.argv[1:]) if len(sys.argv) > 3 else sys.exit(__doc__)

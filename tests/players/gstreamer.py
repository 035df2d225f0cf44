"""GStreamer's own player, playbin, as the desktop's small players use it."""

import time

import gi

gi.require_version("Gst", "1.0")
from gi.repository import Gst  # noqa: E402

import timeline  # noqa: E402
from screen import Screen  # noqa: E402

Gst.init(None)


class GStreamer:
    name = "GStreamer"
    codecs = ("avc1", "hvc1", "jpeg")
    may_be_early = False
    # A folder for pictures of the screen.
    kept = None

    def __init__(self, folder, loudspeaker):
        self.screen = Screen(folder)
        self.server = loudspeaker.environment["PULSE_SERVER"]

    def close(self):
        self.screen.close()

    def start(self, movie, state):
        player = Gst.ElementFactory.make("playbin")
        player.set_property("uri", Gst.filename_to_uri(str(movie.path)))
        # What playbin chooses by itself on such a screen; it takes no other way to be told which one.
        picture = Gst.ElementFactory.make("ximagesink")
        picture.set_property("display", self.screen.display)
        sound = Gst.ElementFactory.make("pulsesink")
        sound.set_property("server", self.server)
        player.set_property("video-sink", picture)
        player.set_property("audio-sink", sound)
        player.set_state(state)
        return player

    @staticmethod
    def is_over(player):
        message = player.get_bus().pop_filtered(Gst.MessageType.EOS | Gst.MessageType.ERROR)
        if message and message.type == Gst.MessageType.ERROR:
            raise RuntimeError(message.parse_error()[0].message)
        return message is not None

    @staticmethod
    def position(player):
        is_known, position = player.query_position(Gst.Format.TIME)
        return position / Gst.SECOND if is_known else None

    def play(self, movie):
        """Plays until it ends by itself."""
        player = self.start(movie, Gst.State.PLAYING)
        try:
            with timeline.Asker(lambda: self.position(player)) as asker:
                watched = self.screen.watch(lambda: self.is_over(player), movie.length + 20,
                                            self.kept and self.kept / movie.name)
            return asker.clock.told(*watched)
        finally:
            player.set_state(Gst.State.NULL)

    def seek(self, movie, places):
        """Goes to places of (seconds, mark), and gives for each None or what is wrong."""
        player = self.start(movie, Gst.State.PAUSED)
        try:
            yield self.screen.shows(movie.marks[0], None, deadline=20)
            for seconds, mark in places:
                before = self.screen.mark()
                player.seek_simple(Gst.Format.TIME, Gst.SeekFlags.FLUSH | Gst.SeekFlags.ACCURATE, round(seconds * Gst.SECOND))
                yield self.screen.shows(mark, before)
        finally:
            player.set_state(Gst.State.NULL)

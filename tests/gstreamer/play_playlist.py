"""Plays recordings one after another in playbin, without a gap, through each element into a PipeWire
server of its own.

The server has no sound card: a sink of silence takes what comes. Prints the frames that came out; fails
when a track is held back, when a frame is lost, when the time of a buffer is not the end of the one
before, or when the end never comes: buffers that never came back used to stop such pipelines.
"""

import os
import sys
import tempfile
import time
import wave

import gi
gi.require_version("Gst", "1.0")
from gi.repository import Gst  # noqa: E402

sys.path.insert(0, os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
from pipewire import Server, begin_a_session  # noqa: E402

TRACKS = [f"/usr/share/sounds/alsa/{name}.wav" for name in ("Front_Center", "Front_Left", "Rear_Right")]
RATE = 48000
BAND = "/usr/share/jconvolver/config-files/octave-band/oct-48-1k.wav"


class Heard:
    """What reaches the sink."""

    def __init__(self):
        self.frames, self.latest, self.worst_time, self.worst_wait = 0, None, 0, 0.0
        self.segment = self.end = None

    def take(self, pad, info):
        if info.type & Gst.PadProbeType.EVENT_DOWNSTREAM:
            event = info.get_event()
            if event.type == Gst.EventType.SEGMENT:
                self.segment = event.parse_segment().copy()
            return Gst.PadProbeReturn.OK
        buffer, now = info.get_buffer(), time.monotonic()
        begin = self.segment.to_running_time(Gst.Format.TIME, buffer.pts)
        channels = pad.get_current_caps().get_structure(0).get_value("channels")
        frames = buffer.get_size() // 2 // channels
        if self.latest is not None:
            self.worst_wait = max(self.worst_wait, now - self.latest)
            self.worst_time = max(self.worst_time, abs(begin - self.end))
        self.frames += frames
        self.latest, self.end = now, begin + frames * Gst.SECOND // RATE
        return Gst.PadProbeReturn.OK


def play(element):
    coming = [Gst.filename_to_uri(track) for track in TRACKS]
    player = Gst.ElementFactory.make("playbin")
    player.set_property("flags", 2)  # audio alone, without a volume of its own
    player.set_property("audio-filter", Gst.parse_bin_from_description(element, True))
    sink = Gst.parse_bin_from_description(
        "audioconvert ! audio/x-raw,format=S16LE ! pipewiresink name=end", True)
    player.set_property("audio-sink", sink)
    player.set_property("uri", coming.pop(0))
    player.connect("about-to-finish",
                   lambda p: p.set_property("uri", coming.pop(0)) if coming else None)
    heard = Heard()
    sink.get_by_name("end").get_static_pad("sink").add_probe(
        Gst.PadProbeType.BUFFER | Gst.PadProbeType.EVENT_DOWNSTREAM, heard.take)
    player.set_state(Gst.State.PLAYING)
    message = player.get_bus().timed_pop_filtered(
        20 * Gst.SECOND, Gst.MessageType.EOS | Gst.MessageType.ERROR)
    player.set_state(Gst.State.NULL)
    print(f"{element}: {heard.frames} frames, times off by at most {heard.worst_time} ns, "
          f"longest wait {heard.worst_wait:.3f} s", flush=True)
    if not message:
        return "did not come to its end"
    if message.type == Gst.MessageType.ERROR:
        return message.parse_error()[0].message
    if heard.frames < sum(wave.open(track).getnframes() for track in TRACKS):
        return "frames are missing"
    if heard.worst_time > Gst.SECOND // 1000:
        return "a buffer does not begin where the one before ends"
    # A track that is held back waits for its whole length; a slow machine for less.
    return "stood still" if heard.worst_wait > 1.0 else None


begin_a_session()
Gst.init(None)
with tempfile.TemporaryDirectory() as folder, Server(folder):
    problems = {element: play(element) for element in (
        "jurnfilter equaliser=\"HP Fc 80 Hz\"", f"jurnconvolve location={BAND} gain=-12", "jurnbinaural azimuth=30")}
if any(problems.values()):
    sys.exit(problems)

"""GStreamer's elements, from standard input to standard output, a property a second: gstreamer.py ROOMS"""

import itertools
import os
import sys

import gi

gi.require_version("Gst", "1.0")
from gi.repository import GLib, Gst  # noqa: E402

Gst.init(None)
hall, street = (os.path.join(sys.argv[1], name + ".wav") for name in ("hall", "street"))
pipeline = Gst.parse_launch(
    "fdsrc fd=0 blocksize=25600 ! rawaudioparse pcm-format=f32le sample-rate=16000 num-channels=1 ! "
    f"jurnfilter name=equaliser equaliser=\"PK 1k 3 Q 1\" ! jurnconvolve name=room block=640 location={hall} ! "
    "fdsink fd=1 sync=false")
changes = itertools.cycle([
    ("equaliser", "equaliser", "LS 200 -4; HP 30"), ("room", "location", street), ("equaliser", "gain", -3.0),
    ("equaliser", "band1::gain", 5.0), ("room", "gain", 2.0), ("equaliser", "equaliser", "PK 1k 3 Q 1"),
    ("equaliser", "gain", 0.0), ("room", "location", hall), ("room", "gain", 0.0)])


def change():
    element, name, value = next(changes)
    pipeline.get_by_name(element).set_property(name, value) if "::" not in name else \
        Gst.ChildProxy.set_property(pipeline.get_by_name(element), name, value)
    return True


loop = GLib.MainLoop()
bus = pipeline.get_bus()
bus.add_signal_watch()
bus.connect("message::error", lambda _, message: (print(message.parse_error(), file=sys.stderr), loop.quit()))
bus.connect("message::eos", lambda *_: loop.quit())
GLib.timeout_add_seconds(1, change)
pipeline.set_state(Gst.State.PLAYING)
loop.run()
pipeline.set_state(Gst.State.NULL)

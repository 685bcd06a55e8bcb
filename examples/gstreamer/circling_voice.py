"""Moves a voice around the listener: python3 circling_voice.py voice.wav around.wav [SECONDS]

A control source turns the azimuth once in SECONDS (default 4). The element asks it once per block
and fades from direction to direction.
"""

import sys

import gi

gi.require_version("Gst", "1.0")
gi.require_version("GstController", "1.0")
from gi.repository import Gst, GstController  # noqa: E402

source, result = sys.argv[1:3]
turn = float(sys.argv[3]) if len(sys.argv) > 3 else 4.0

Gst.init(None)
pipeline = Gst.parse_launch(
    'filesrc location="%s" ! decodebin ! audioconvert ! audioresample ! '
    "audio/x-raw,format=S16LE,channels=1 ! jurnbinaural name=head block=256 ! wavenc ! "
    'filesink location="%s"' % (source, result))
head = pipeline.get_by_name("head")
control = GstController.InterpolationControlSource(
    mode=GstController.InterpolationMode.LINEAR)
# The binding maps 0 to 1 onto the property's range.
lowest, highest = (head.find_property("azimuth").minimum, head.find_property("azimuth").maximum)
for turns in range(0, 50):  # each from 0 to 360 degrees, which is 0 again
    begin, end = int(turns * turn * Gst.SECOND), int((turns + 1) * turn * Gst.SECOND)
    control.set(begin, -lowest / (highest - lowest))
    control.set(end - 1, (360.0 - lowest) / (highest - lowest))
head.add_control_binding(GstController.DirectControlBinding.new(head, "azimuth", control))

pipeline.set_state(Gst.State.PLAYING)
message = pipeline.get_bus().timed_pop_filtered(
    Gst.CLOCK_TIME_NONE, Gst.MessageType.ERROR | Gst.MessageType.EOS)
pipeline.set_state(Gst.State.NULL)
if message.type == Gst.MessageType.ERROR:
    sys.exit(message.parse_error()[0].message)

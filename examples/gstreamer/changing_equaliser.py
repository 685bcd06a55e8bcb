"""Changes an equaliser every second while music plays: python3 changing_equaliser.py IN OUT.wav

Each change is a property that is set; the element fades to the new filter without a click.
"""

import sys

import gi

gi.require_version("Gst", "1.0")
from gi.repository import Gst  # noqa: E402

SETTINGS = ["PK Fc 1000 Hz Gain 0 dB Q 1", "LP Fc 800 Hz", "HP Fc 1500 Hz",
            "LS Fc 200 Hz Gain 9 dB; HS Fc 5000 Hz Gain -12 dB"]

source, result = sys.argv[1:3]
Gst.init(None)
pipeline = Gst.parse_launch(
    'filesrc location="%s" ! decodebin ! audioconvert ! audio/x-raw,format=S16LE ! '
    'jurnfilter name=filter equaliser="%s" gain=-9 ! wavenc ! filesink location="%s"'
    % (source, SETTINGS[0], result))
equaliser = pipeline.get_by_name("filter")


def change(_, info):
    """Runs before each buffer; a player would set the property from its controls instead."""
    second = info.get_buffer().pts // Gst.SECOND
    wanted = SETTINGS[second % len(SETTINGS)]
    if equaliser.get_property("equaliser") != wanted:
        equaliser.set_property("equaliser", wanted)
    return Gst.PadProbeReturn.OK


equaliser.get_static_pad("sink").add_probe(Gst.PadProbeType.BUFFER, change)
pipeline.set_state(Gst.State.PLAYING)
message = pipeline.get_bus().timed_pop_filtered(
    Gst.CLOCK_TIME_NONE, Gst.MessageType.ERROR | Gst.MessageType.EOS)
pipeline.set_state(Gst.State.NULL)
if message.type == Gst.MessageType.ERROR:
    sys.exit(message.parse_error()[0].message)

"""Plays a recording through each element in playbin into a PipeWire server of its own.

The server has no sound card: a sink of silence takes what comes. Buffers that never came back used to
stop such pipelines after a moment, so each has to come to its end, and not before its time.
"""

import os
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
from pipewire import Server, begin_a_session  # noqa: E402

SPEECH, SECONDS = "file:///usr/share/sounds/alsa/Front_Center.wav", 1.428
BAND = "/usr/share/jconvolver/config-files/octave-band/oct-48-1k.wav"

begin_a_session()
with tempfile.TemporaryDirectory() as folder, Server(folder):
    for element in f"jurnconvolve location={BAND}", "jurnbinaural azimuth=30", "jurnfilter kind=average length=9":
        begin = time.monotonic()
        subprocess.run(["gst-launch-1.0", "-q", "playbin", "uri=" + SPEECH, "audio-filter=" + element,
                        "audio-sink=pipewiresink"], check=True, timeout=30)
        taken = time.monotonic() - begin
        print(f"{element}: {taken:.1f} seconds", flush=True)
        if taken < SECONDS:
            sys.exit("was not played")

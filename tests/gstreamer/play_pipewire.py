"""Plays music through jurnconvolve and jurnbinaural into a PipeWire server of its own.

The server has no sound card: a sink of silence takes what comes. Buffers that never came back used to
stop such pipelines after a moment, so each has to come to its end, with all of its frames.
"""

import os
import subprocess
import sys
import tempfile
import time
import wave

sys.path.insert(0, os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
from pipewire import Server, begin_a_session  # noqa: E402

RATE, SECONDS = 48000, 3
BAND = "/usr/share/jconvolver/config-files/octave-band/oct-48-1k.wav"


def write_music(path, channels):
    with wave.open(path, "wb") as file:
        file.setparams((channels, 2, RATE, 0, "NONE", ""))
        file.writeframes(bytes(range(0, 128, 2)) * (RATE * SECONDS * channels // 32))


def play(folder):
    failed = []
    for channels, element in ((2, f"jurnconvolve location={BAND}"), (1, "jurnbinaural azimuth=30"),
                              (2, "jurnfilter equaliser=\"PK 1k 3 Q 1\" gain=-4")):
        music = os.path.join(folder, "music%d.wav" % channels)
        write_music(music, channels)
        line = (f"gst-launch-1.0 -q filesrc location={music} ! wavparse ! {element} ! audioconvert ! "
                "pipewiresink")
        begin = time.monotonic()
        try:
            done = subprocess.run(line, shell=True, capture_output=True, text=True,
                                  timeout=10 * SECONDS, check=False)
            problem = done.stderr if done.returncode else None
        except subprocess.TimeoutExpired:
            problem = "did not come to its end"
        taken = time.monotonic() - begin
        if not problem and taken < SECONDS:
            problem = "was not played"
        print("%s: %s" % (element, problem or "%.1f seconds" % taken), flush=True)
        failed += [element] if problem else []
    return 1 if failed else 0


def main():
    with tempfile.TemporaryDirectory() as folder, Server(folder):
        return play(folder)


begin_a_session()
sys.exit(main())

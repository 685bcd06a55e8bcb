"""Filters ten seconds of a live JACK graph with a response of 96,000 taps that changes every second.

Starts a JACK server of its own without a sound card, 128 frames a period, and prints how many periods
came late. Machines are noisy: late periods and slowness are reported, only a pipeline that fails, or
through which nothing flows, is an error.
"""

import os
import re
import subprocess
import sys
import tempfile
import time
import wave

import gi

gi.require_version("Gst", "1.0")
from gi.repository import GLib, Gst  # noqa: E402

RATE = 48000
TAPS = 96000
SECONDS = int(sys.argv[1]) if len(sys.argv) > 1 else 10


def write_response(path, seed):
    """A hall of noise that decays by 60 dB in two seconds."""
    state, samples = seed, bytearray()
    for i in range(TAPS):
        state = (1103515245 * state + 12345) % 2**31
        value = (state / 2**30 - 1.0) * 10 ** (-3.0 * i / TAPS) * 500
        samples += int(value).to_bytes(2, "little", signed=True)
    with wave.open(path, "wb") as file:
        file.setparams((1, 2, RATE, TAPS, "NONE", ""))
        file.writeframes(samples)


def main():
    with tempfile.TemporaryDirectory() as folder:
        halls = [os.path.join(folder, "hall%d.wav" % k) for k in range(2)]
        for k, hall in enumerate(halls):
            write_response(hall, k + 1)
        environment = {**os.environ, "JACK_NO_AUDIO_RESERVATION": "1",
                       "JACK_DEFAULT_SERVER": "jurn%d" % os.getpid()}
        os.environ.update(environment)
        log = open(os.path.join(folder, "jack.log"), "w+", encoding="utf-8")
        server = subprocess.Popen(["jackd", "-r", "-n", environment["JACK_DEFAULT_SERVER"],
                                   "-d", "dummy", "-r", str(RATE), "-p", "128"], stdout=log,
                                  stderr=subprocess.STDOUT)
        try:
            time.sleep(1)
            Gst.init(None)
            pipeline = Gst.parse_launch(
                "jackaudiosrc connect=none buffer-time=100000 latency-time=2667 ! "
                "audio/x-raw,channels=2 ! audioconvert ! audio/x-raw,format=F32LE ! "
                "jurnconvolve name=hall location=%s ! audioconvert ! queue ! "
                "jackaudiosink connect=none buffer-time=100000 latency-time=2667" % halls[0])
            hall = pipeline.get_by_name("hall")
            pipeline.set_state(Gst.State.PLAYING)
            loop, problems, changes = GLib.MainLoop(), [], [0]

            def change():
                changes[0] += 1
                hall.set_property("location", halls[changes[0] % 2])
                if changes[0] == SECONDS:
                    loop.quit()
                return changes[0] < SECONDS

            def on_message(_, message):
                if message.type == Gst.MessageType.ERROR:
                    problems.append(message.parse_error()[0].message)
                    loop.quit()
                if message.type == Gst.MessageType.WARNING and message.src == hall:
                    problems.append(message.parse_warning()[0].message)

            bus = pipeline.get_bus()
            bus.add_signal_watch()
            bus.connect("message", on_message)
            GLib.timeout_add_seconds(1, change)
            loop.run()
            frames = hall.get_property("statistics").get_value("frames")
            pipeline.set_state(Gst.State.NULL)
        finally:
            server.terminate()
            server.wait()
        log.seek(0)
        late = len(re.findall(r"xrun|late|Process error", log.read(), re.IGNORECASE))
        print("%d frames through %d taps, %d changes, %d late periods" %
              (frames, TAPS, changes[0], late))
        if problems or frames == 0:
            sys.exit("the pipeline failed: %s" % (problems or "nothing flowed"))
        if frames < RATE * SECONDS // 2:
            print("this machine is too slow: %d%% of the audio came through" %
                  (100 * frames // (RATE * SECONDS)))


main()

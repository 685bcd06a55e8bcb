"""The plugins in hosts that people have: FFmpeg, jalv on JACK, Ardour, a filter chain of PipeWire.

FFmpeg writes a file, which is compared with jurn-filter's. JACK and PipeWire have no sound
card here: jalv has to load a convolver with its file and stay, and what goes through the filter chain
is recorded and has to be louder by the gain of its equaliser.
"""

import glob
import os
import re
import subprocess
import sys
import tempfile
import warnings

import numpy as np
from scipy.io import wavfile

sys.path.insert(0, os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
from pipewire import Server, begin_a_session, is_node, wait_for  # noqa: E402

warnings.simplefilter("ignore", wavfile.WavFileWarning)  # of chunks that it does not know

TOOL = os.environ["JURN_FILTER"]
TESTS = os.path.dirname(os.path.abspath(__file__))
HALL = "/usr/share/jconvolver/config-files/octave-band/oct-48-1k.wav"
SPEECH = "/usr/share/sounds/alsa/Front_Center.wav"
BANDS = {"on_1": 1, "type_1": 4, "frequency_1": 80, "q_1": 0.5, "on_2": 1, "frequency_2": 3000,
         "gain_2": -4, "q_2": 2}
CHAIN = """
context.modules = [
  { name = libpipewire-module-filter-chain
    args = {
      node.description = "JURN"
      filter.graph = { nodes = [
        NODE ] }
      capture.props = { node.name = "chain" media.class = Audio/Sink audio.position = [ FL FR ] }
      playback.props = { node.name = "chained" node.target = "silence" audio.position = [ FL FR ] }
    } }
]
"""
STATE = """@prefix lv2: <http://lv2plug.in/ns/lv2core#> .
@prefix pset: <http://lv2plug.in/ns/ext/presets#> .
@prefix state: <http://lv2plug.in/ns/ext/state#> .
@prefix rdfs: <http://www.w3.org/2000/01/rdf-schema#> .
"""


def run(*words, timeout=60, **more):
    return subprocess.run(words, check=True, capture_output=True, text=True, timeout=timeout, **more)


def read(path):
    with open(path, encoding="utf-8") as file:
        return file.read()


def documented(line):
    """What the guide tells people to type."""
    return re.search(f"^    ({line})$", read(os.path.join(TESTS, "../../docs/lv2.md")), re.M)[1]


def write_files():
    run("sox", SPEECH, "-b", "32", "-e", "floating-point", "in.wav")
    run(TOOL, "eq", "in.wav", "tool.wav", "HP 80 Q 0.5", "PK 3000 -4 Q 2", "--bits", "float", "-q")
    run("sox", SPEECH, "-c", "2", "stereo.wav")
    run("sh", "-c", documented("ffmpeg .*").replace("in.wav", "stereo.wav"))
    controls = "|".join(f"{name}={value}" for name, value in BANDS.items())
    run("ffmpeg", "-loglevel", "error", "-i", "in.wav", "-af",
        "lv2=p=urn\\\\:jurn\\\\:equaliser-mono:c=" + controls, "-c:a", "pcm_f32le", "ffmpeg.wav")
    expected = wavfile.read("tool.wav")[1]
    # Below that, the end of a decay, the tool's own scale decides what becomes silence.
    off = np.abs(wavfile.read("ffmpeg.wav")[1][:len(expected)] - expected).max()
    print(f"FFmpeg: off by at most {off:g}", flush=True)
    return "FFmpeg: other samples than the tool's" if off > 1e-30 else None


def jack_ports():
    return subprocess.run(["jack_lsp"], capture_output=True, text=True, timeout=20, check=False).stdout


def play_with(path):
    """What jalv says of a convolver whose state names a file."""
    os.makedirs("hall", exist_ok=True)
    with open("hall/manifest.ttl", "w", encoding="utf-8") as file:
        file.write(STATE + "<state.ttl> a pset:Preset ; rdfs:seeAlso <state.ttl> ; "
                   "lv2:appliesTo <urn:jurn:convolver-stereo> .\n")
    with open("hall/state.ttl", "w", encoding="utf-8") as file:
        file.write(STATE + "<> a pset:Preset ; lv2:appliesTo <urn:jurn:convolver-stereo> ; "
                   f"state:state [ <urn:jurn:impulse-response> <file://{path}> ] .\n")
    with open("said", "w+", encoding="utf-8") as log:
        host = subprocess.Popen(["jalv", "-p", "-l", "hall", "urn:jurn:convolver-stereo"],
                                stdin=subprocess.PIPE, stdout=log, stderr=subprocess.STDOUT)
        wait_for(lambda: host.poll() is not None or "JURN" in jack_ports(), "jalv")
        alive = host.poll() is None
        host.terminate()
        host.wait()
        return read("said") if alive else "ended: " + read("said")


def play_jalv():
    server = subprocess.Popen(["jackd", "-d", "dummy", "-r", "48000", "-p", "256"],
                              stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    try:
        wait_for(lambda: "system" in jack_ports(), "JACK")
        missing, there = play_with("/nowhere.wav"), play_with(HALL)
        if "JURN: /nowhere.wav" not in missing or "JURN:" in there or "ended" in there:
            return "jalv: " + missing + there
        print("jalv: runs, with the file of its state", flush=True)
        return None
    finally:
        server.terminate()
        server.wait()


def play_ardour():
    """A track with the equaliser, and the session saved and loaded; where Ardour is installed."""
    program = next(iter(glob.glob("/usr/bin/ardour*-lua")), None)
    if not program:
        print("Ardour: is not installed, left out (scripts/lv2 test ardour)", flush=True)
        return None
    said = run(program, os.path.join(TESTS, "ardour.lua"), env={**os.environ, "HOME": os.getcwd()}).stdout
    peaks = [float(peak) for peak in re.findall(r"^gain .* peak (.*)$", said, re.MULTILINE)]
    print(f"Ardour: peaks {peaks} dB", flush=True)
    # What it shows are falling meters of a constant: exact but for their own rounding.
    right = len(peaks) == 2 and np.allclose(peaks, [-6.0206, -12.0206], atol=0.01)
    return None if right and "loaded -6.0" in said else "Ardour: " + said


def play_chain(folder):
    tone = 0.5 * np.sin(2 * np.pi / 48 * np.arange(48000 * 4))
    wavfile.write("tone.wav", 48000, np.stack([tone, tone], 1).astype(np.float32))
    with Server(folder, CHAIN.replace("NODE", documented(r"\{ type = lv2 .*"))):
        wait_for(lambda: is_node("chained"), "the filter chain")
        recorder = subprocess.Popen(["pw-record", "--rate", "48000", "--channels", "2", "--format", "f32",
                                     "--target", "chained", "heard.wav"], stderr=subprocess.DEVNULL)
        wait_for(lambda: is_node("pw-record"), "the recorder")
        run("pw-play", "--target", "chain", "tone.wav")
        recorder.terminate()
        recorder.wait()
    heard = wavfile.read("heard.wav")[1]
    peak = float(np.abs(heard).max()) if heard.size else 0.0
    print(f"PipeWire: a tone of 0.5 comes out as {peak:.4f}", flush=True)
    return None if abs(peak - 0.5 * 10 ** 0.15) < 1e-3 else "PipeWire: the equaliser did not run"


def main():
    with tempfile.TemporaryDirectory() as folder:
        os.chdir(folder)
        problems = [write_files(), play_jalv(), play_ardour(), play_chain(folder)]
    sys.exit("\n".join(filter(None, problems)) or 0)


begin_a_session()
main()

"""Files for the fuzzers of files to start from: fuzz_seeds.py TARGET FOLDER.

Those that every front end is tested with, what was found before, recordings of every kind that
libsndfile writes, setups and routes. The first bytes choose what is wanted, see fuzz_coefficients.cpp
and fuzz_files.cpp.
"""

import glob
import io
import os
import sys
import tempfile

import numpy as np
import soundfile

sys.path.insert(0, os.path.join(os.path.dirname(__file__), "..", "front_ends"))
from files_of_everyone import APO, CAMILLA, READ, REFUSED, ROOMS, WARNED

MOST = 1498  # bytes that the fuzzer tries behind the first two
WITH_RATE = 128 | 3  # and any kind
FOUND = (
    b"gain = 1e30\nsos = [1e20 0 0 1 0 0; 1 0 0 1 0 0]\n",  # beyond a float once it is multiplied
    b"gain = 6e20\nnum = 1e21\nden = [1 0.5]\n",
    b"k = 1e38\nz = [0.5 0.5]\np = [0.1 0.1]\nz2 = 1e30\n",
    b"// prepared: sections, int16\nstatic const float f_sections[1][6] = {{1.0f, 0.0f, 0.0f, 1.0f, "
    b"0.5f, 0.2f}};\nstatic inline void f_setup(Filter_ID* f, int n) { f->n = 2; }\n",
    b"# prepared: iir, double\n1 2 1 0\n1 0.5 0 0\n",
    b"Preamp: -3 dB\nChannel: L\nFilter 1: ON PK Fc 1000 Hz Gain 6 dB Q 1\nChannel: R 2\n",
    b"* Impulse Response data saved by REW\n2.0833333E-5 // Sample interval\n* Data start\n1\n",
    b"biquad1,\nb0=1.0,\nb1=0.5,\nb2=0.0,\na1=0.5,\na2=0.1\n",
)
MEASURED = (  # read as measurements, by another bit of the first byte
    b'* Freq(Hz) SPL(dB) Phase(degrees)\n20.5 75.1 -3\n25 76 4\n"100" 77\n1e3, 70\n20000;71\n',
    b"frequency,raw\n20,5\n200,6\n1000,0\n2000,-3\n20000,1\n",
)


ROUTES = (
    b"# left, right\n1 1 taps.wav 2 -6\n2 1 taps.txt -3dB\n1 2 'taps.wav' -20dB inverted # late\n",
    b'1 1 "taps.wav"\n64 64 taps.txt inverted 1\n',
    b"/cd .\n/convolver/new 2 3 256 5000\n/impulse/read 1 1 0.5 10 1 20 2 taps.wav\n"
    b"/impulse/dirac 2 2 1 0\n/impulse/copy 2 3 1 1\n/input/name 1 in.L\n",
    b"1 1 taps.txt \x1b[31m\n",
    b"/impulse/dirac 1 1 1e300 0\n",
    b"/impulse/dirac 1 9 1 0\n/convolver/new 1 2 256 600\n",
)
SETUPS = (
    b'a: "\\\x1f"\n',  # which the reader's message repeats
    b"""devices: {samplerate: 48000, capture: {channels: 2}, playback: {channels: 3}}
mixers:
  m: {channels: {in: 2, out: 3}, mapping: [{dest: 0, sources: [{channel: 0, gain: -3, inverted: true},
    {channel: 1, gain: 0.5, scale: linear, mute: false}]}, {dest: 2, mute: true, sources: [{channel: 1}]}]}
filters:
  a: {type: Biquad, parameters: {type: Lowshelf, freq: 100, slope: 6, gain: 3}}
  b: {type: BiquadCombo, parameters: {type: LinkwitzRileyHighpass, freq: 2000, order: 4}}
  c: {type: Conv, parameters: {type: Wav, filename: taps.wav, channel: 1}}
  d: {type: Conv, parameters: {type: Values, values: [1, 0.5, -0.25]}}
  e: {type: Delay, parameters: {delay: 1.5, delay_unit: ms, subsample: true}}
  f: {type: Gain, parameters: {gain: -3, scale: dB, inverted: true}}
  g: {type: DiffEq, parameters: {b: [1, 0.5], a: [1, -0.5]}}
  h: {type: Equaliser, parameters: {filters: [PK 100 3 Q 1, LP 8000 linear]}}
  i: {type: Coefficients, parameters: {filename: taps.txt}}
  j: {type: Conv, parameters: {type: Raw, filename: taps.txt, format: TEXT}}
pipeline:
  - {type: Filter, channels: [0, 1], names: [a, b, c, d, h]}
  - {type: Mixer, name: m}
  - {type: Filter, channel: 2, names: [e, f, g, i, j], bypassed: false}
""",
    b"""filters:
  a: {type: Biquad, parameters: {type: LinkwitzTransform, freq_act: 70, q_act: 1.1, freq_target: 30,
    q_target: 0.7}}
  b: {type: Biquad, parameters: {type: GeneralNotch, freq_z: 60, freq_p: 40, q_p: 1.5, normalize_at_dc: true}}
  c: {type: Biquad, parameters: {type: Free, b0: 1, b1: 0, b2: 0, a1: -0.5, a2: 0.1}}
  d: {type: BiquadCombo, parameters: {type: GraphicEqualizer, gains: [3, 0, -2]}}
  e: {type: BiquadCombo, parameters: {type: Tilt, gain: 3}}
pipeline: [{type: Filter, names: [a, b, c, d, e]}]
""",
    CAMILLA.encode(),
    APO.encode(),
    b"Channel: L\nPreamp: -3 dB\nDelay: 2 ms\nFilter 1: ON PK Fc 1000 Hz Gain 6 dB Q 1\nChannel: R\nCopy: L=R\n",
)


def contents(files):
    with tempfile.TemporaryDirectory() as folder:
        for name, *_, content in files:
            path = os.path.join(folder, name)
            if callable(content):
                content(path)
                with open(path, "rb") as file:
                    yield file.read()
            else:
                yield content.encode()


def recordings():
    """Short ones of every kind in one file (SD2 has two), the usual in two widths, with a tag where it has a place."""
    samples = np.sin(np.arange(200) / 5).reshape(100, 2) / 2
    for kind in sorted(soundfile.available_formats()):
        for subtype in ("", "PCM_24", "FLOAT", "DOUBLE", "ALAW", "MS_ADPCM"):
            if kind in ("RAW", "SD2") or not soundfile.check_format(kind, subtype or None):
                continue
            file = io.BytesIO()
            try:
                with soundfile.SoundFile(file, "w", 48000, 2, subtype or None, format=kind) as to:
                    to.title = "a title"
                    to.write(samples)
            except (RuntimeError, AttributeError):
                continue
            yield file.getvalue()
    whole = np.int16(samples * 32767).tobytes()
    chunks = b"bext" + (604).to_bytes(4, "little") + bytes(604) + b"smpl" + (36).to_bytes(4, "little") + bytes(36)
    head = b"WAVEfmt \x10\0\0\0\1\0\2\0\x80\xbb\0\0\0\xee\2\0\4\0\x10\0" + chunks + b"data"
    for length in (len(whole), 0, 0xFFFFFFFF, 2 * len(whole)):
        yield b"RIFF" + (len(head) + len(whole) + 4).to_bytes(4, "little") + head + length.to_bytes(4, "little") + whole


def routes():
    yield from ROUTES
    for name in sorted(glob.glob("/usr/share/jconvolver/config-files/**/*.conf", recursive=True)):
        with open(name, "rb") as file:
            yield file.read()


def setups():
    yield from SETUPS
    with open(os.path.join(os.path.dirname(__file__), "../../examples/setups/two-way.yml"), "rb") as file:
        yield file.read()


# The bytes before the file, the most of them that a seed has, and the files.
TARGETS = {
    "coefficients": (bytes([WITH_RATE, 0]), MOST,
                     lambda: [*FOUND, *contents(READ), *contents(REFUSED), *contents(WARNED), *contents(ROOMS)]),
    "arrays": (bytes([3]), 12000, lambda: [*contents(READ), *contents(REFUSED), *contents(WARNED)]),
    "response": (bytes([1]), 12000, lambda: [*contents(ROOMS), *recordings(), *contents(READ)]),
    "recording": (bytes([0]), 12000, recordings),
    "routes": (bytes([0]), 12000, routes),
    "setup": (bytes([0]), 12000, setups),
    "sofa": (b"", 12000, lambda: [bytes([1]), bytes([0, 200, 0, 7]), b"22\0)\v\a"]),
}


def main(target, folder):
    os.makedirs(folder, exist_ok=True)
    before, most, files = TARGETS[target]
    for i, text in enumerate(files()):
        if len(text) <= most:
            with open(os.path.join(folder, f"seed{i:03}"), "wb") as file:
                file.write(before + text)
    if target == "coefficients":
        for i, text in enumerate(MEASURED):
            with open(os.path.join(folder, f"measured{i}"), "wb") as file:
                file.write(bytes([32, 0]) + text)


if __name__ == "__main__":
    main(*sys.argv[1:])

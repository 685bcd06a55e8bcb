"""Files as people have them, for every front end: (name, kind, content or what makes the file)."""

import json

import numpy as np
import soundfile
from scipy import io, signal

RATE = 48000
TAPS = signal.firwin(31, 0.3)
LONG = signal.firwin(301, 0.02)
B, A = signal.butter(5, 0.3)
SOS = signal.butter(6, [0.02, 0.3], "bandpass", output="sos")
Z, P, K = signal.cheby1(3, 1, [0.2, 0.4], "bandpass", output="zpk")
LOW = signal.butter(4, 40, "highpass", output="sos", fs=RATE)


def numbers(values):
    return "\n".join(map(repr, np.asarray(values).tolist())) + "\n"


def rows(table, separator=" "):
    return "".join(separator.join(map(repr, row)) + "\n" for row in np.asarray(table).tolist())


def saved(function, *arguments, **named):
    def make(path):
        function(path, *arguments, **named)
    return make


HEADER = "const double taps[31] = {" + ", ".join(map(repr, TAPS.tolist())) + "};\n"
APO = """Preamp: -6.2 dB
Filter 1: ON LSC Fc 105 Hz Gain 5.5 dB Q 0.70
Filter 2: ON PK Fc 21 Hz Gain -1.9 dB Q 1.10
Filter 3: OFF PK Fc 300 Hz Gain -1.9 dB Q 1.10
Filter 4: ON HSC Fc 10000 Hz Gain -2.0 dB Q 0.70
"""
random = np.random.default_rng(3)
BANDS = "".join(f"Filter: ON {kind} Fc {random.uniform(20, 20000):.2f} Hz Gain {random.uniform(-2, 2):.2f} dB "
                f"Q {random.uniform(.4, 6):.3f}\n" for kind in ("PK", "PK", "LSC", "HSC") for _ in range(30))
CAMILLA = """filters:
  low:
    type: Biquad
    parameters: {type: Highpass, freq: 80, q: 0.7}
  presence:
    type: Biquad
    parameters: {type: Peaking, freq: 3000, gain: -4, q: 2}
pipeline:
  - type: Filter
    channels: [0, 1]
    names: [low, presence]
"""

# Of every format: the name, the kind that it is by itself, and what is in it.
READ = [
    ("taps.txt", "fir", numbers(TAPS)),
    ("long.txt", "fir", numbers(LONG)),
    ("taps.csv", "fir", ",".join(map(repr, TAPS.tolist()))),
    ("taps.npy", "fir", saved(np.save, TAPS)),
    ("taps.h", "fir", HEADER),
    ("taps.npz", "fir", saved(np.savez_compressed, h=TAPS, date="today")),
    ("taps.wav", "fir", saved(soundfile.write, TAPS, RATE, subtype="DOUBLE")),
    ("taps.aiff", "fir", saved(soundfile.write, TAPS, RATE, subtype="PCM_24")),
    ("taps.mat", "fir", saved(lambda path: io.savemat(path, {"h": TAPS}))),
    ("taps.json", "fir", json.dumps(TAPS.tolist())),
    ("h.txt", "fir", "".join(f"h[{i}] = {x!r}\n" for i, x in enumerate(TAPS.tolist()))),
    ("ba.npy", "iir", saved(np.save, np.array([B, A]))),
    ("ba.txt", "iir", rows([B, A])),
    ("ba.npz", "iir", saved(lambda path: np.savez(path, b=B, a=A))),
    ("ba.mat", "iir", saved(lambda path: io.savemat(path, {"b": B, "a": A}))),
    ("named.txt", "iir", f"b = {B.tolist()}\na = {A.tolist()}\n"),
    ("sos.txt", "sos", rows(SOS)),
    ("sos.csv", "sos", rows(SOS, ",")),
    ("sos.npy", "sos", saved(np.save, SOS)),
    ("printed.txt", "sos", np.array2string(SOS, threshold=10000)),
    ("low.npy", "sos", saved(np.save, LOW)),
    ("sos.mat", "sos", saved(lambda path: io.savemat(path, {"SOS": SOS, "G": np.array([[0.5]])}))),
    ("zpk.txt", "sos", f"z = {Z.tolist()}\np = {P.tolist()}\nk = {K!r}\n"),
    ("zpk.mat", "sos", saved(lambda path: io.savemat(path, {"z": Z, "p": P, "k": K}))),
    ("equaliser.txt", "sos", APO),
    ("bands.txt", "sos", BANDS),
    ("coefficients.txt", "sos", "Filter 1: ON IIR Order 2 Coefficients 1 -1.8 0.9 2 -3.6 1.7\n"
                                "Filter: ON IIR Order 1 Coefficients 1 0.5 1 -0.5\n"),
    ("camilla.yml", "sos", CAMILLA),
    ("graphic.txt", "fir", "GraphicEQ: 20 -3; 100 2; 1000 0; 10000 -4; 20000 0\n"),
]

# And what nobody may run, whatever it is or where that kind is asked for.
REFUSED = [
    ("words.txt", "fir", "one two three\n"),
    ("empty.txt", "fir", ""),
    ("nan.txt", "fir", "0.5\nnan\n"),
    ("huge.txt", "fir", "0.5\n1e999\n"),
    ("a0.txt", "iir", "1 2\n2 0.5\n"),
    ("zero.txt", "sos", "1 0 0 0 0.5 0.2\n1 0 0 0 0.5 0.2\n1 0 0 0 0.1 0.2\n"),
    ("negated.txt", "iir", rows([B, np.r_[1.0, -A[1:]]])),
    ("complex.npy", "fir", saved(np.save, TAPS + 1j)),
    ("sections.txt", "sos", rows(np.tile(SOS[:1], (20000, 1)))),
    ("apo.txt", "sos", "Preamp: -3 dB\nLoudnessCorrection: State 1\nFilter 1: ON PK Fc 100 Hz Gain 3 dB Q 1\n"),
    ("third.txt", "sos", "Filter 1: ON IIR Order 3 Coefficients 1 0 0 0 1 0 0 0\n"),
    ("short.txt", "sos", "Filter 1: ON IIR Order 2 Coefficients 1 0 0 1 0\n"),
    ("beyond.txt", "sos", "Filter 1: ON PK Fc 90000 Hz Gain 3 dB Q 1\n"),
    ("five.txt", None, rows(SOS[:, :5])),
    ("stereo.wav", "fir", saved(soundfile.write, np.ones((9, 2)), RATE, subtype="PCM_16")),
    ("none.wav", "fir", saved(soundfile.write, np.zeros(0), RATE)),
    ("nans.wav", "fir", saved(soundfile.write, np.full(9, np.nan), RATE, subtype="FLOAT")),
    ("audio.wav", "sos", saved(soundfile.write, TAPS, RATE, subtype="FLOAT")),
    ("shortened.txt", "fir", repr(np.linspace(0, 1, 2000))),
    ("shortened2.txt", "sos", np.array2string(np.tile(SOS, (100, 1)))),
]

# What runs, but not as somebody may think: the precision, and the warning is part of the answer.
WARNED = [
    ("unstable.txt", "iir", "double", rows([[1.0, 0.0, 0.0], [1.0, -2.5, 1.0]])),
    ("narrow.txt", "iir", "int16", rows(signal.iirnotch(20, 30, RATE))),
]

# Impulse responses, which run and which do not.
ROOM = np.random.default_rng(1).standard_normal(3000) * np.exp(-np.arange(3000) / 400) * 0.05
ROOMS = [
    ("room.wav", saved(soundfile.write, ROOM, RATE, subtype="PCM_16")),
    ("room24.flac", saved(soundfile.write, ROOM, RATE, subtype="PCM_24")),
    ("room.aiff", saved(soundfile.write, ROOM, RATE, subtype="PCM_24")),
    ("room32.wav", saved(soundfile.write, ROOM, RATE, subtype="FLOAT")),
    ("room64.wav", saved(soundfile.write, ROOM, RATE, subtype="DOUBLE")),
    ("room.txt", numbers(ROOM)),
    ("room.npy", saved(np.save, ROOM)),
    ("room.mat", saved(lambda path: io.savemat(path, {"h": ROOM}))),
]
NO_ROOMS = [
    ("at44.wav", saved(soundfile.write, ROOM, 44100, subtype="FLOAT")),
    ("nothing.wav", saved(soundfile.write, np.zeros(0), RATE)),
    ("empty.wav", ""),
    ("words.csv", "no numbers\n"),
]

# Recordings of 16 bits, as GStreamer calls the decoder's samples, and of more; and what is none. Of AIFF
# it has the reader in a package that few have.
SPEECH, SPEECH_RATE = soundfile.read("/usr/share/sounds/alsa/Front_Center.wav")
SPEECH = 0.9 * SPEECH[:48000]
TWO = np.stack([SPEECH, 0.3 * SPEECH[::-1]], 1)
RECORDINGS = [
    ("speech.wav", "S16LE", saved(soundfile.write, SPEECH, SPEECH_RATE, subtype="PCM_16")),
    ("two.wav", "S16LE", saved(soundfile.write, TWO, SPEECH_RATE, subtype="PCM_16")),
    ("speech.flac", "S16LE", saved(soundfile.write, SPEECH, SPEECH_RATE, subtype="PCM_16")),
    ("two.aiff", None, saved(soundfile.write, TWO, SPEECH_RATE, subtype="PCM_16")),
    ("two.ogg", None, saved(soundfile.write, TWO, SPEECH_RATE)),
    ("speech24.wav", "F32LE", saved(soundfile.write, SPEECH, SPEECH_RATE, subtype="PCM_24")),
    ("two24.flac", "F32LE", saved(soundfile.write, TWO, SPEECH_RATE, subtype="PCM_24")),
    ("speech32.wav", None, saved(soundfile.write, SPEECH, SPEECH_RATE, subtype="PCM_32")),
    ("floats.wav", "F32LE", saved(soundfile.write, SPEECH, SPEECH_RATE, subtype="FLOAT")),
    ("doubles.wav", None, saved(soundfile.write, TWO, SPEECH_RATE, subtype="DOUBLE")),
]
NO_RECORDINGS = [
    ("no.wav", ""),
    ("words.wav", "one two three\n"),
    ("words.flac", "fLaC but no more\n"),
]

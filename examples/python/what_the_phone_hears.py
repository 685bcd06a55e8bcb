"""What the phone hears: an equaliser designed in SciPy, run exactly as a phone runs it.

Filters a recording with 16-bit arithmetic, compares it with the ideal in double precision, and draws
the difference. Run by scripts/python; the files it writes go to the folder named as its argument.
"""

# %% A design: a high-pass and two peaks
import sys
from pathlib import Path

import matplotlib

matplotlib.use("Agg")  # draws to files
import matplotlib.pyplot as plt
import numpy as np
import soundfile
from scipy import signal

import jurn

folder = Path(sys.argv[1] if len(sys.argv) > 1 else ".")
folder.mkdir(parents=True, exist_ok=True)
recording = "/usr/share/sonic-pi/samples/loop_safari.flac"
music, rate = soundfile.read(recording, dtype="int16")


def peak(frequency, gain_db, q):
    """A peaking section, as equalisers define it by frequency, gain and width."""
    gain = 10 ** (gain_db / 40)
    w = 2 * np.pi * frequency / rate
    width = np.sin(w) / (2 * q)
    b = [1 + width * gain, -2 * np.cos(w), 1 - width * gain]
    a = [1 + width / gain, -2 * np.cos(w), 1 - width / gain]
    return np.array([*b, *a]) / a[0]


high_pass = signal.butter(2, 80, "high", fs=rate, output="sos")
equaliser = np.vstack([high_pass, peak(3000, -4, 2), peak(9000, 3, 0.7)])
equaliser[0, :3] *= 10 ** (-6 / 20)  # room for the boosts

# %% What will run: sections scaled for float arithmetic, and how exact they are
ready = jurn.prepare(jurn.Design.of_sos(equaliser))
for notice in (*ready.notices, *ready.warnings):
    print(notice)
print(f"expected error: {ready.expected_error:.2f} LSB at most, {ready.expected_error_rms:.2f} rms")

# %% The exact output beside the ideal one, and the ideal one only truncated to 16 bits
report = jurn.compare(jurn.sosfilt, equaliser, music, axis=0, precision="int16", rate=rate)
print(f"at most {report.largest:.2f} LSB off, {report.rms:.2f} rms, {report.clipped} samples clipped")
halves = jurn.compare(jurn.fir, [0.5], music, axis=0, precision="int16", rate=rate)  # for fractions
soundfile.write(folder / "phone.wav", report.exact, rate)

# %% The same in blocks, as the phone's audio thread has them
stream = jurn.Filter.sos(ready.design.sos, channels=2)
blocks = [stream.process(music[i : i + 480]) for i in range(0, len(music), 480)]
assert np.array_equal(np.concatenate(blocks), report.exact)

# %% A picture
figure, (response, noise) = plt.subplots(2, 1, figsize=(8, 7), constrained_layout=True)
w, h = signal.sosfreqz(equaliser, 4096, fs=rate)
response.semilogx(w[1:], 20 * np.log10(np.abs(h[1:])))
response.set(xlim=(20, rate / 2), ylim=(-40, 5), ylabel="gain (dB)", title="The equaliser")
for name, result in (("equaliser", report), ("truncation alone", halves)):
    noise.semilogx(result.frequencies[1:], result.noise[1:], label=name)
noise.set(xlim=(20, rate / 2), xlabel="frequency (Hz)", ylabel="noise per bin (dBFS)",
          title="What 16 bits and float add")
noise.legend()
figure.savefig(folder / "phone.png")
print(f"written: {folder / 'phone.wav'}, {folder / 'phone.png'}")

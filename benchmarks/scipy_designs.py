"""What becomes of SciPy's designs: every family, order, type, edge and rate through the prepared and
the bare sections in int16, against sosfilt in double precision. Writes docs/designs.md.

usage: scipy_designs.py DOCS_FOLDER
"""

import pathlib
import sys
import warnings

import jurn
import numpy as np
from scipy import signal

FAMILIES = {
    "butter": lambda n, wn, kind, fs: signal.butter(n, wn, kind, fs=fs, output="sos"),
    "cheby1": lambda n, wn, kind, fs: signal.cheby1(n, 1, wn, kind, fs=fs, output="sos"),
    "cheby2": lambda n, wn, kind, fs: signal.cheby2(n, 40, wn, kind, fs=fs, output="sos"),
    "ellip": lambda n, wn, kind, fs: signal.ellip(n, 1, 60, wn, kind, fs=fs, output="sos"),
    "bessel": lambda n, wn, kind, fs: signal.bessel(n, wn, kind, fs=fs, output="sos"),
}
EDGES = {
    "lowpass": [20, 60, 200, 1000, 5000, 20000],
    "highpass": [20, 60, 200, 1000, 5000, 20000],
    "bandpass": [(20, 40), (60, 120), (300, 600), (1000, 4000), (5000, 20000)],
    "bandstop": [(20, 40), (60, 120), (300, 600), (1000, 4000), (5000, 20000)],
}
RATES = [44100, 48000, 96000, 192000]
TRUNCATION = 1.0  # of the conversion to int16


def error(y, ideal):
    return np.abs(y - np.clip(ideal, -32768, 32767)).max()


def main(docs):
    # White noise and noise with the same power in every octave, at full scale.
    rng = np.random.default_rng(1)
    white = rng.uniform(-1, 1, 12000)
    spectrum = np.fft.rfft(rng.normal(0, 1, 36000))
    pink = np.fft.irfft(spectrum / np.sqrt(np.maximum(np.arange(len(spectrum)), 1)))
    x = np.concatenate([white, pink / np.abs(pink).max()])
    x = np.round(32767 * x).astype(np.int16)
    rows = []
    for family, design in FAMILIES.items():
        count = silent = spoilt = quiet_ones = warned = unstable = 0
        worst_quiet = worst_excess = worst_warned = 0.0
        for kind, edges in EDGES.items():
            for rate in RATES:
                for edge in edges:
                    for order in range(1, 13):
                        with warnings.catch_warnings():
                            warnings.simplefilter("ignore")
                            sos = design(order, edge, kind, rate)
                            ideal = signal.sosfilt(sos, x.astype(float))
                        if not np.all(np.isfinite(ideal)) or np.abs(ideal).max() > 1e6:
                            unstable += 1  # in double precision, too
                            continue
                        count += 1
                        bare = jurn.sosfilt(sos, x, precision="int16", prepare=False)
                        silent += not bare.any() and np.abs(ideal).max() >= 2
                        spoilt += error(bare, ideal) > TRUNCATION + 1
                        ready = jurn.prepare(jurn.Design.of_sos(sos))
                        y = jurn.sosfilt(ready.design.sos, x, precision="int16", prepare=False)
                        off = error(y, ideal) - TRUNCATION
                        if ready.expected_error > 1:
                            warned += 1
                            worst_warned = max(worst_warned, off)
                            worst_excess = max(worst_excess, off / ready.expected_error)
                        else:
                            quiet_ones += 1
                            worst_quiet = max(worst_quiet, off)
        rows.append([family, count, silent, spoilt, quiet_ones, f"{worst_quiet:.2f}", warned,
                     f"{worst_warned:.0f}", f"{worst_excess:.2f}", unstable])
        print(*rows[-1], sep="\t", flush=True)
    heads = ["Family", "Designs", "Silent as they are", "More than 1 LSB off as they are",
             "Prepared, without a warning", "their worst error, LSB", "Prepared, with a warning",
             "their worst error, LSB", "worst error / warned of", "Unstable in double, too"]
    lines = ["# What becomes of SciPy's designs", "",
             "Written by `scripts/designs`. Orders 1 to 12; low-, high-, band-pass and band-stop; edges"
             " from 20 Hz to",
             "20 kHz; 44.1, 48, 96 and 192 kHz; ripple 1 dB, stop bands of 40 dB (cheby2) and 60 dB"
             " (ellip). Each design",
             "filters white noise and noise with the same power in every octave, at full scale,"
             " through the int16 cascade:",
             "once the sections as SciPy gives them, once prepared as `jurn-filter sos` and"
             " `jurn.sosfilt` do it. An error is",
             "the largest difference from `sosfilt` in double precision, less one step for the"
             " truncation to int16.", ""]
    lines += [f"| {' | '.join(map(str, row))} |" for row in [heads, ["---"] * len(heads), *rows]]
    path = pathlib.Path(docs) / "designs.md"
    old = path.read_text() if path.exists() else ""
    by_hand = old[old.find("\n## "):] if "\n## " in old else ""
    path.write_text("\n".join(lines) + "\n" + by_hand)


if __name__ == "__main__":
    main(sys.argv[1])

"""Designs of every family against SciPy's, coefficient by coefficient."""

import subprocess
import sys
import unittest
import warnings

import numpy as np
from scipy import signal

PASSES = ["lowpass", "highpass", "bandpass", "bandstop"]
WINDOWS = ["boxcar", "hann", "hamming", "blackman", "blackmanharris", "kaiser"]
FAMILIES = ["butter", "cheby1", "cheby2", "ellip", "bessel", "firwin", "remez"]


def case(family, order, kind, corners, rate, ripple=1.0, attenuation=60.0, window="boxcar", beta=0.0,
         transition=0.0, weight=1.0):
    return dict(family=family, order=order, kind=kind, corners=corners, rate=rate, ripple=ripple,
                attenuation=attenuation, window=window, beta=beta, transition=transition, weight=weight)


def ours(cases):
    lines = "".join(
        " ".join(map(repr, [FAMILIES.index(c["family"]), c["order"], PASSES.index(c["kind"]),
                            float(c["corners"][0]), float(c["corners"][-1]), c["ripple"],
                            c["attenuation"], WINDOWS.index(c["window"]), c["beta"],
                            float(c["transition"]), c["weight"], c["rate"]])) + "\n" for c in cases)
    done = subprocess.run([sys.argv[1]], input=lines, capture_output=True, text=True, check=True)
    for line in done.stdout.splitlines():
        yield line if line.startswith("refused") else np.array(line.split(), float)


def scipys(c):
    corners = c["corners"] if len(c["corners"]) > 1 else c["corners"][0]
    common = dict(btype=c["kind"], output="sos", fs=c["rate"])
    extra = {"cheby1": [c["ripple"]], "cheby2": [c["attenuation"]],
             "ellip": [c["ripple"], c["attenuation"]]}.get(c["family"], [])
    if c["family"] == "firwin":
        window = ("kaiser", c["beta"]) if c["window"] == "kaiser" else c["window"]
        return signal.firwin(c["order"], corners, window=window, pass_zero=c["kind"], fs=c["rate"])
    if c["family"] == "remez":
        t = c["transition"] / 2
        edges = np.r_[0, np.ravel([[f - t, f + t] for f in c["corners"]]), c["rate"] / 2]
        gains = [[1, 0], [0, 1], [0, 1, 0], [1, 0, 1]][PASSES.index(c["kind"])]
        with warnings.catch_warnings():
            warnings.simplefilter("ignore")
            return signal.remez(c["order"], edges, gains, fs=c["rate"], maxiter=100,
                                weight=[1 if g else c["weight"] for g in gains])
    sos = getattr(signal, c["family"])(c["order"], *extra, corners, **common)
    return np.r_[sos[:, :3].ravel(), sos[:, 3:].ravel()]


def recursive_cases():
    for family in FAMILIES[:5]:
        for order in (1, 2, 3, 4, 5, 7, 8, 10, 12):
            for rate, low, high in ((48000, 1000, 4000), (44100, 30, 15000), (96000, 20, 25),
                                    (8000, 300, 3400), (192000, 10, 90000), (48000, 11999, 12000)):
                for kind in PASSES:
                    # Beyond, double precision holds no sections of it, SciPy's neither.
                    if order * (high - low < 10) > 4:
                        continue
                    corners = [low] if kind in PASSES[:2] else [low, high]
                    yield case(family, order, kind, corners, rate)
        yield case(family, 20, "lowpass", [5000], 48000)
        yield case(family, 25, "highpass", [900], 48000)
        # As near to both ends as floats go.
        for corner in (1e-3, 23999.999):
            yield case(family, 2, "lowpass", [corner], 48000)
            yield case(family, 2, "highpass", [corner], 48000)
    for ripple, attenuation in ((1e-6, 20), (0.01, 140), (12, 30), (3, 6), (0.5, 250)):
        for order in (1, 2, 5, 6):
            for family in FAMILIES[1:4]:
                yield case(family, order, "lowpass", [3000], 48000, ripple, attenuation)


def fir_cases():
    for taps in (1, 2, 3, 31, 64, 255, 1001):
        for window in WINDOWS:
            for kind in PASSES:
                if kind in ("highpass", "bandstop") and taps % 2 == 0:
                    continue
                # One or two taps are no band-pass: what is scaled is nothing.
                if kind == "bandpass" and taps < 3 or taps < 4 and window in ("hann", "blackman"):
                    continue
                corners = [2500] if kind in PASSES[:2] else [500, 2500]
                yield case("firwin", taps, kind, corners, 44100, window=window,
                           beta=8.6 if window == "kaiser" else 0.0)
    for taps, transition, weight in ((3, 8000, 1), (12, 4000, 1), (31, 1500, 10), (64, 1000, 1), (101, 500, 100),
                                     (255, 300, 1)):
        for kind in PASSES:
            # Three taps of a band are beyond SciPy as well.
            if kind in ("highpass", "bandstop") and taps % 2 == 0 or taps < 12 and "band" in kind:
                continue
            corners = [6000] if kind in PASSES[:2] else [6000, 15000]
            yield case("remez", taps, kind, corners, 48000, transition=transition, weight=float(weight))


class Families(unittest.TestCase):
    def compare(self, cases):
        cases = list(cases)
        for c, found in zip(cases, ours(cases)):
            with self.subTest(**c):
                expected = scipys(c)
                self.assertFalse(isinstance(found, str), found)
                np.testing.assert_allclose(found, expected, rtol=1e-9,
                                           atol=1e-9 * np.abs(expected).max())

    def test_recursive_filters_are_scipys(self):
        self.compare(recursive_cases())

    def test_firs_are_scipys(self):
        self.compare(fir_cases())

    def test_ripples_hold_where_scipys_do_not(self):
        # So steep that SciPy's own designs are up to 0.7 dB beyond their ripples.
        near = 3000 + np.r_[-np.geomspace(1e-7, 3000, 20000), np.geomspace(1e-7, 2e4, 20000)]
        for order, ripple, attenuation in (5, 3.0, 3.1), (8, 0.27, 0.53), (13, 0.5, 3.0), (19, 1.6, 15.0):
            sharp = case("ellip", order, "lowpass", [3000], 48000, ripple, attenuation)
            b, a = next(ours([sharp])).reshape(2, -1, 3)
            gain = 20 * np.log10(np.abs(signal.sosfreqz(np.hstack([b, a]), near, fs=48000)[1]))
            self.assertAlmostEqual(gain[:20000].min(), -ripple, 2)
            self.assertAlmostEqual(gain[:20000].max(), 0, 2)
            beyond = gain[20000:]
            self.assertAlmostEqual(beyond[np.argmax(beyond < -attenuation):].max(), -attenuation, 2)

    def test_what_cannot_be_is_refused(self):
        refused = {
            "order 0; 1 to 50": case("butter", 0, "lowpass", [100], 48000),
            "order 26; 1 to 25": case("bessel", 26, "lowpass", [100], 48000),
            "a corner of 24000 Hz": case("butter", 2, "lowpass", [24000], 48000),
            "a corner of 0 Hz": case("firwin", 31, "highpass", [0], 48000),
            "the second has to be the higher one": case("ellip", 2, "bandpass", [2000, 1000], 48000),
            "a ripple of 0 dB": case("cheby1", 2, "lowpass", [100], 48000, ripple=0.0),
            "more than the ripple": case("ellip", 2, "lowpass", [100], 48000, 10.0, 3.0),
            "64 taps, an even number": case("firwin", 64, "highpass", [100], 48000),
            "the transition is too wide": case("remez", 31, "lowpass", [100], 48000, transition=500),
        }
        for (sentence, _), found in zip(refused.items(), ours(refused.values())):
            self.assertIn(sentence, str(found))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1] + sys.argv[2:])

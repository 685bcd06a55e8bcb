"""What loudspeakers take: filters of first order, Linkwitz transforms, tilts, linear phase, setups."""

import unittest

import numpy as np
from scipy import signal
from scipy.io import wavfile

from tool_test import ToolTest, read, write_numbers

RATE = 48000
CLICK = 1 << 16


class EqualiserWords(ToolTest):
    """The response of each filter, from a click in double precision, beside its analogue formula."""

    def setUp(self):
        super().setUp()
        click = np.zeros(2 * CLICK, np.float32)
        click[CLICK // 2] = 1
        wavfile.write("click.wav", RATE, click)

    def response(self, *words):
        """Frequencies and complex gains, from 5 Hz to half the rate."""
        self.run_tool("eq", "click.wav", "out.wav", *words)
        heard = read("out.wav")[1][:, 0].astype(float)
        self.assertEqual(len(heard), 2 * CLICK)
        f = np.fft.rfftfreq(2 * CLICK, 1 / RATE)
        h = np.fft.rfft(np.roll(heard, -(CLICK // 2)))
        keep = (f > 5) & (f < 0.49 * RATE)
        return f[keep], h[keep]

    def assert_db(self, h, expected, limit, context):
        error = np.abs(20 * np.log10(np.abs(h) / np.abs(expected))).max()
        self.assertLess(error, limit, context)

    def test_first_order(self):
        """Equal to the analogue filter at the frequency to which the bilinear transform maps it."""
        a = 10 ** (6 / 40)
        for words, numerator, denominator in (
                ("LS 300 6 order 1", [a, a * a], [a, 1]), ("HS 300 6 order 1", [a * a, a], [1, a]),
                ("LS 300 -6 order 1", [1 / a, 1 / a / a], [1 / a, 1]),
                ("TILT 300 6", [a, 1], [1, a]), ("AP 300 order 1", [-1, 1], [1, 1]),
                ("LP 300 order 1", [1], [1, 1]), ("HP 300 6dB", [1, 0], [1, 1])):
            f, h = self.response(words)
            s = 1j * np.tan(np.pi * f / RATE) / np.tan(np.pi * 300 / RATE)
            expected = np.polyval(numerator, s) / np.polyval(denominator, s)
            self.assert_db(h, expected, 1e-4, words)
            self.assertLess(np.abs(h - expected).max(), 2e-6, words)
        f, h = self.response("TILT 1k 6")
        np.testing.assert_allclose(20 * np.log10(np.abs(h[[0, np.argmin(abs(f - 1000)), -1]])),
                                   [-3, 0, 3], atol=0.01)

    def test_linkwitz_transform(self):
        def box(f, corner, q):
            s = 1j * f / corner
            return s * s / (s * s + s / q + 1)
        for words in ("LT 70 Q 1.1 to 28 Hz Q 0.7", "LT Fc 70 Hz Q1.1 28 0.7",
                      "LinkwitzTransform 70 1.1 28 0.7"):
            f, h = self.response(words)
            low = f < 2000  # where the warped axis is straight
            self.assert_db(h[low] * box(f[low], 70, 1.1), box(f[low], 28, 0.7), 0.01, words)
            self.assertAlmostEqual(abs(h[-1]), 1, 5)

    def test_linear_phase(self):
        for words, kind, corners, transition in (
                ("LP 200 linear", "lowpass", 200, 100), ("HP 200 linear", "highpass", 200, 100),
                ("LP 2k linear transition 300 Hz", "lowpass", 2000, 300),
                ("BP 1k BW 2 linear", "bandpass", [500, 2000], 250),
                ("BP 1k Q 1.41421356 linear transition 120", "bandpass",
                 1000 * 2 ** (np.array([-0.5, 0.5]) * 2 / np.log(2) * np.arcsinh(0.5 / 1.41421356)),
                 120)):
            f, h = self.response(words)
            count, beta = signal.kaiserord(100, 2 * transition / RATE)
            count += 1 - count % 2
            taps = signal.firwin(count, corners, window=("kaiser", beta), pass_zero=kind, fs=RATE,
                                 scale=False)
            expected = signal.freqz(taps, worN=f, fs=RATE)[1] * np.exp(
                1j * np.pi * f / RATE * (count - 1))
            self.assertLess(np.abs(h - expected).max(), 3e-5, words)  # their gains at 0 Hz differ
            self.assertLess(np.abs(h.imag).max(), 2e-6, words)
            distance = np.abs(f[:, None] - np.atleast_1d(corners)).min(1)
            away = distance > transition / 2 + 1
            self.assertLess(np.abs(np.abs(h[away]) - np.round(np.abs(h[away]))).max(), 2e-5, words)
            for corner in np.atleast_1d(corners):
                self.assertAlmostEqual(abs(h[np.argmin(abs(f - corner))]), 0.5, 2)
        low, high = self.response("LP 200 linear")[1], self.response("HP 200 linear")[1]
        self.assertLess(np.abs(low + high - 1).max(), 1e-6)

    def test_several_and_files(self):
        whole = self.response("HP 40 order 2", "LP 300 linear", "HP 100 linear", "PK 60 -3 Q 2")[1]
        parts = [self.response(w)[1] for w in
                 ("HP 40 order 2", "LP 300 linear", "HP 100 linear", "PK 60 -3 Q 2")]
        self.assertLess(np.abs(whole - np.prod(parts, 0)).max(), 1e-6)
        with open("eq.txt", "w", encoding="ascii") as file:
            file.write("# the box\nHP 40 order 2\nLP 300 linear  # no phase\n\nHP 100 linear\n")
        self.assertLess(np.abs(self.response("-c", "eq.txt", "PK 60 -3 Q 2")[1] - whole).max(), 1e-7)
        with open("apo.txt", "w", encoding="ascii") as file:
            file.write("Preamp: -6 dB\nFilter 1: ON LT Fc 70 Hz Q 1.1 to 28 Hz Q 0.7\nTILT 1k 2\n"
                       "GraphicEQ: 100 0; 1000 6\nFilter 2: OFF PK Fc 100 Hz Gain 9 dB Q 1\n")
        h = self.response("-c", "apo.txt")[1]
        with open("graphic.txt", "w", encoding="ascii") as file:
            file.write("GraphicEQ: 100 0; 1000 6\n")
        expected = (10 ** (-6 / 20) * self.response("LT 70 1.1 28 0.7")[1] *
                    self.response("TILT 1k 2")[1] * self.response("-c", "graphic.txt")[1])
        self.assertLess(np.abs(h - expected).max(), 5e-6)
        self.assertLess(abs(np.abs(self.response("-c", "apo.txt", "--normalise")[1]).max() - 1), 0.02)

    def test_refusals(self):
        for words, *said in (
                ("LP 80 linear Q 2", "transition"), ("PK 100 3 Q 1 linear", "linear"),
                ("LP 80 transition 20", "linear"), ("LP 80 linear transition 0.01", "taps"),
                ("LP 15k linear transition 20k", "18000"), ("LT 70 1.1 28", "ends"),
                ("LT 70 1.1 28 0", "above 0"), ("LT 70 1.1 28000 0.7", "24000"),
                ("LS 100 3 order 2", "order 1"), ("TILT 1k 3 Q 1", "no width"), ("TILT 1k", "Gain"),
                ("NO 50 order 1", "order")):
            self.assert_fails(["eq", "click.wav", "new.wav", words], words, *said)
        self.assert_fails(["eq", "click.wav", "new.wav", "LP 80 linear", "--precision", "int16"],
                          "1250")
        with open("eq.txt", "w", encoding="ascii") as file:
            file.write("HP 80\nXX 90 -3\n")
        self.assert_fails(["eq", "click.wav", "new.wav", "-c", "eq.txt"], "eq.txt:2", "'XX'")
        self.assert_fails(["eq", "click.wav", "new.wav", "-c", "no.txt"], "no.txt")
        self.assert_fails(["export", "new.h", "--eq", "LP 80 linear"], "linear")


if __name__ == "__main__":
    unittest.main()

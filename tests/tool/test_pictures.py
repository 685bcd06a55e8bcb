"""Tests of jurn-filter's pictures: they are drawn, and the data behind them agrees with SciPy."""

import csv
import os
import re
import struct
import subprocess
import unittest
import xml.etree.ElementTree

import numpy as np
from scipy import signal
from scipy.io import wavfile

from tool_test import BAND, SPEECH, TOOL, ToolTest, contents, write_numbers

RATE = 44100
TAPS = signal.firwin(61, [0.11, 0.32], pass_zero=False) * 1.5
B, A = signal.ellip(5, 1, 60, 0.2)
SECTIONS = signal.butter(8, [0.05, 0.4], "bandpass", output="sos")


class PictureTest(ToolTest):
    def setUp(self):
        super().setUp()
        self.filters = ["--fir", write_numbers("taps.txt", [TAPS]),
                        "--sos", write_numbers("sos.txt", SECTIONS),
                        "--iir", write_numbers("it's, \"ba\".txt", [B, A]), "--average", "24"]

    def table(self, *arguments):
        """The CSV as arrays of x and y by filter and quantity."""
        self.run_tool(*arguments, "--csv", "table.csv")
        result = {}
        with open("table.csv", newline="", encoding="utf8") as file:
            rows = csv.reader(file)
            self.assertEqual(next(rows), ["filter", "quantity", "x", "y"])
            for name, quantity, x, y in rows:
                result.setdefault(name, {}).setdefault(quantity, []).append([float(x), float(y)])
        return {name: {q: np.array(v).T for q, v in r.items()} for name, r in result.items()}

    def assert_picture(self, path, width, height, words=()):
        data = contents(path)
        if path.endswith(".png"):
            self.assertEqual(data[:8], b"\x89PNG\r\n\x1a\n")
            self.assertEqual(data[-8:-4], b"IEND")
            size = struct.unpack(">II", data[16:24])
        else:
            root = xml.etree.ElementTree.fromstring(data)
            size = [int(x) for x in root.get("viewBox").split()[2:]]
            text = " ".join(root.itertext())
            for word in words:
                self.assertIn(word, text)
        self.assertTrue(width[0] <= size[0] <= width[1] and height[0] <= size[1] <= height[1], size)
        self.assertGreater(len(data), 10000)

    def test_response_agrees_with_scipy(self):
        table = self.table("response", *self.filters, "--rate", RATE)
        self.assertEqual(list(table), ["taps.txt", "sos.txt", "it's, \"ba\".txt", "mean of 24"])
        self.assertNotIn("pole", table["taps.txt"])
        found = table["it's, \"ba\".txt"]
        f, magnitude = found["magnitude_db"]
        self.assertEqual((f[-1], len(f)), (RATE / 2, 1000))
        h = signal.freqz(B, A, f, fs=RATE)[1]
        near = np.abs(h) > 1e-4  # where neither side is rounding alone
        np.testing.assert_allclose(10 ** (magnitude / 20), np.abs(h), rtol=1e-6, atol=1e-7)
        phase = np.angle(np.exp(1j * np.radians(found["phase_degrees"][1])) / h)
        self.assertLess(np.abs(phase[near]).max(), 1e-5)
        np.testing.assert_allclose(found["group_delay_ms"][1][near] * RATE / 1000,
                                   signal.group_delay((B, A), f, fs=RATE)[1][near], rtol=1e-4, atol=1e-4)
        ms, impulse = found["impulse"]
        expected = signal.lfilter(B, A, np.arange(len(ms)) == 0)
        np.testing.assert_allclose(impulse, expected, atol=1e-8)
        np.testing.assert_allclose(found["step"][1], np.cumsum(expected), atol=1e-7)
        np.testing.assert_allclose(ms, np.arange(len(ms)) * 1000 / RATE, rtol=1e-8)
        self.assertLess(np.abs(expected[-50:]).min(), 1e-3 * np.abs(expected).max())  # it ends 60 dB below the peak
        for name, roots in (("zero", np.roots(B)), ("pole", np.roots(A))):
            np.testing.assert_allclose(np.sort_complex((found[name][0] + 1j * found[name][1]).round(5)),
                                       np.sort_complex(roots.round(5)), atol=2e-5)

    def test_impulse_responses_and_gains(self):
        rate, taps = wavfile.read(BAND)
        scale = np.iinfo(taps.dtype).max + 1.0 if taps.dtype.kind == "i" else 1.0
        found = self.table("response", "--ir", BAND, "--gain", 6)["oct-48-1k.wav"]
        np.testing.assert_allclose(found["impulse"][1], taps / scale * 10 ** 0.3, atol=1e-7)
        self.assertEqual(found["magnitude_db"][0][-1], rate / 2)
        self.assertNotIn("zero", found)  # too many taps for roots
        taps = np.loadtxt("taps.txt", ndmin=1)
        np.save("taps.npy", taps)
        wavfile.write("six.wav", 44100, np.tile(taps[:, None], 6))
        for name, shown, rate in (("taps.txt", "taps.txt", 48000), ("taps.npy", "taps.npy", 48000),
                                  ("six.wav", "six.wav, channel 6", 44100)):
            found = self.table("response", "--ir", name)[shown]
            np.testing.assert_allclose(found["impulse"][1], taps, atol=1e-7)
            self.assertEqual(found["magnitude_db"][0][-1], rate / 2)
        found = self.table("response", "--fir", "taps.txt", "--normalise", "--gain", -3)["taps.txt"]
        self.assertAlmostEqual(found["magnitude_db"][1].max(), -3.0, 2)
        write_numbers("two.txt", [[1], [1, 0.5, 1.25]])  # unstable: the response ends when it is huge
        grown = self.table("response", "--iir", "two.txt", "--keep-a")["two.txt"]["impulse"][1]
        self.assertTrue(1e5 < np.abs(grown).max() < 1e8)
        one = self.table("response", "--iir", "it's, \"ba\".txt")["it's, \"ba\".txt"]
        two = self.table("response", "--numerator", write_numbers("b.txt", [B]),
                         "--denominator", write_numbers("a.txt", [A]))["a.txt"]
        np.testing.assert_array_equal(two["magnitude_db"], one["magnitude_db"])

    def test_every_filter_has_its_own_options(self):
        taps = np.loadtxt("taps.txt", ndmin=1)
        write_numbers("ab.txt", [[0.5], [1, 0.25]])
        write_numbers("a.txt", [A])
        found = self.table("response", "--gain", 6, "--fir", "taps.txt", "--fir", "taps.txt",
                           "--label", "own", "--gain", -6, "--denominator", "a.txt", "--label", "two",
                           "--numerator", write_numbers("b.txt", [B]), "--iir", "ab.txt", "--negate-a",
                           "--average", 2, "--gain", 0)
        self.assertEqual(list(found), ["taps.txt", "own", "two", "ab.txt", "mean of 2"])
        for name, first in (("taps.txt", taps[0] * 10 ** 0.3), ("own", taps[0] * 10 ** -0.3),
                            ("two", B[0] * 10 ** 0.3), ("mean of 2", 0.5)):
            self.assertAlmostEqual(found[name]["impulse"][1][0], first, 6, name)
        turned = found["ab.txt"]["impulse"][1]
        self.assertAlmostEqual(turned[1] / turned[0], 0.25, 6)  # -0.25 with the file's signs
        self.assert_fails(["response", "--numerator", "b.txt", "--fir", "taps.txt"], "--denominator", code=2)

    def test_pictures(self):
        for name in ("all.png", "all.svg"):
            self.run_tool("response", *self.filters, "--picture", name)
            self.assert_picture(name, (1000, 1400), (700, 1200),
                                ["Magnitude in dB", "Phase in degrees", "Group delay in ms", "20k",
                                 "Impulse response", "Step response", "Real part", "it's, \"ba\".txt"])
        self.run_tool("response", *self.filters, "--show", "magnitude,delay", "-p", "two.svg")
        self.assert_picture("two.svg", (700, 1000), (400, 800), ["mean of 24", "Group delay in ms"])
        printed = self.run_tool("response", *self.filters)
        for word in ("Frequency in Hz", "-60", "20k", "mean of 24"):
            self.assertIn(word, printed)
        self.assertLess(max(map(len, printed.splitlines())), 81)
        # Neither a silent filter nor an extreme rate breaks the axes.
        write_numbers("zero.txt", [[0, 0, 0]])
        self.run_tool("response", "--fir", "zero.txt", "--rate", 8, "--picture", "zero.svg")
        self.assert_picture("zero.svg", (1000, 1400), (700, 1200), ["zero.txt"])

    def test_spectrogram(self):
        rate, amplitude = 16000, 0.5
        t = np.arange(2 * rate) / rate
        tone = amplitude * np.sin(2 * np.pi * np.where(t < 1.0, 1000, 3000) * t)
        wavfile.write("in.wav", rate, np.stack([tone, tone], 1).astype(np.float32))
        self.run_tool("average", "in.wav", "out.wav", "--length", 16)  # a zero at 1000 Hz
        self.run_tool("spectrogram", "in.wav", "out.wav", "--window", 256, "--top", 4000,
                      "--csv", "s.csv", "--picture", "s.png")
        self.assert_picture("s.png", (800, 1200), (500, 900))
        with open("s.csv", newline="", encoding="utf8") as file:
            rows = list(csv.reader(file))[1:]
        spectra = {}
        for name, seconds, hertz, dbfs in rows:
            spectra.setdefault(name, {})[float(seconds), float(hertz)] = float(dbfs)
        self.assertEqual(list(spectra), ["in.wav", "out.wav"])
        times = sorted({s for s, _ in spectra["in.wav"]})
        self.assertLess(len(times), 1001)
        self.assertAlmostEqual(times[-1], 2.0, 1)
        self.assertEqual(max(h for _, h in spectra["in.wav"]), 4000)
        level = 20 * np.log10(amplitude)
        for at, hertz in ((0.5, 1000), (1.5, 3000)):
            second = min(times, key=lambda s: abs(s - at))
            self.assertAlmostEqual(spectra["in.wav"][second, hertz], level, 1)
            self.assertLess(spectra["in.wav"][second, 4000 - hertz], level - 60)
        first = min(times, key=lambda s: abs(s - 0.5))
        self.assertLess(spectra["out.wav"][first, 1000], level - 60)
        # Long recordings, as pipes: the columns become longer, none is lost.
        wavfile.write("long.wav", 8000, np.tile(np.float32(tone), 20))
        self.shell("jurn spectrogram - --window 64 --csv l.csv < long.wav")
        with open("l.csv", encoding="utf8") as file:
            next(file)
            times = sorted({float(line.split(",")[1]) for line in file})
        self.assertTrue(500 <= len(times) <= 1000 and abs(times[-1] - 80) < 0.2, times[-1])

    def test_failures_leave_nothing(self):
        self.run_tool("response", "--average", 3, "--picture", "kept.svg")
        kept = os.stat("kept.svg")
        before = sorted(os.listdir())
        elsewhere = dict(os.environ, PATH="/nonexistent")
        for arguments, code, words, settings in (
                (["response", *self.filters, "-p", "a.jpg"], 2, ["a.jpg", ".png, .svg"], {}),
                (["response", "-p", "a.svg"], 2, ["--fir"], {}),
                (["response", "--average", 3, "-p", "kept.svg"], 4, ["kept.svg", "--overwrite"], {}),
                (["response", *self.filters, "-p", "taps.txt.svg/a.svg"], 4, ["a.svg"], {}),
                (["response", "--average", 3, "-p", "a.svg"], 4, ["gnuplot-nox"],
                 {"env": elsewhere}),
                (["response", "--fir", "none.txt", "-p", "a.svg"], 3, ["none.txt"], {}),
                (["response", "--ir", BAND, "--rate", 44100, "-p", "a.svg"], 3,
                 [BAND, "48000", "44100", "--resample"], {}),
                (["response", "--fir", "taps.txt", "--csv", "taps.txt", "--overwrite"], 2,
                 ["taps.txt", "same file"], {}),
                (["spectrogram", SPEECH], 2, ["--picture"], {}),
                (["spectrogram", "taps.txt", "-p", "a.png"], 3, ["taps.txt"], {}),
                (["spectrogram", SPEECH, "-p", "a.png", "--window", 1000], 2, ["--window"], {})):
            done = subprocess.run([TOOL, *map(str, arguments)], capture_output=True, text=True, **settings)
            self.assertEqual(done.returncode, code, (arguments, done.stderr))
            error = re.sub(r"jurn-filter: warning: [^\n]+\n", "", done.stderr)
            self.assertRegex(error, r"\Ajurn-filter: [^\n]+\n\Z")
            for word in words:
                self.assertIn(word, error)
        for blocks in (8, 40):  # of 512 bytes, too few for gnuplot's input and its output
            limited = ["sh", "-c", f'ulimit -f {blocks}; exec "$0" "$@"', TOOL]
            done = subprocess.run([*limited, "response", *self.filters[:2], "-p", "big.svg"],
                                  capture_output=True, text=True)
            self.assertEqual(done.returncode, 4, done.stderr)
        self.assertEqual(sorted(os.listdir()), before)
        self.assertEqual(os.stat("kept.svg").st_mtime_ns, kept.st_mtime_ns)


if __name__ == "__main__":
    unittest.main()

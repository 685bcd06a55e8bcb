"""Where results of jurn-filter begin and end, how loud they are, and what they keep."""

import json
import subprocess
import unittest

import numpy as np
from scipy import signal
from scipy.io import wavfile

from tool_test import MUSIC, ToolTest, read, write_numbers


class EndsTest(ToolTest):
    def setUp(self):
        super().setUp()
        self.x = np.random.default_rng(11).normal(0, 0.1, (9000, 2)).astype(np.float32)
        wavfile.write("in.wav", 48000, self.x)
        self.sections = signal.butter(4, [300, 3000], "band", fs=48000, output="sos")
        self.b, self.a = signal.butter(3, 0.1)
        self.taps = signal.firwin(301, 0.2)
        write_numbers("sos.txt", self.sections)
        write_numbers("ba.txt", [self.b, self.a])
        write_numbers("taps.txt", [self.taps])

    def filtered(self, *arguments, source="in.wav"):
        self.run_tool(*arguments[:1], source, "out.wav", *arguments[1:])
        return read("out.wav")[1].astype(float)

    def test_tails_are_complete(self):
        longer = np.concatenate([self.x, np.zeros((48000, 2))]).astype(float)
        apart = ["--numerator", write_numbers("b.txt", [[x] for x in self.b]),
                 "--denominator", write_numbers("a.txt", [self.a])]
        for command, y in ((["sos", "-c", "sos.txt"], signal.sosfilt(self.sections, longer, axis=0)),
                           (["iir", *apart], signal.lfilter(self.b, self.a, longer, axis=0)),
                           (["iir", "-c", "ba.txt"], signal.lfilter(self.b, self.a, longer, axis=0)),
                           (["fir", "-c", "taps.txt"], signal.lfilter(self.taps, 1, longer, axis=0)),
                           (["fir", "-c", "taps.txt", "--time-domain"],
                            signal.lfilter(self.taps, 1, longer, axis=0))):
            result = self.filtered(*command, "--tail")
            self.assertGreater(len(result), len(self.x) + 20, command)
            np.testing.assert_allclose(result, y[:len(result)], atol=4e-7)
            # Nothing that a step of floats at full scale shows is missing.
            self.assertLess(np.abs(y[len(result):]).max(), 2e-7, command)
            np.testing.assert_array_equal(self.filtered(*command), result[:len(self.x)])
        result = self.filtered("fir", "-c", "taps.txt", "--tail")
        self.assertEqual(len(result), len(self.x) + 300)
        x = (self.x[:, :1] * 32768).astype(np.int16)
        wavfile.write("cut.wav", 48000, x)
        self.run_tool("eq", "cut.wav", "out.wav", "PK 50 6 Q 2", "--tail")
        y = read("out.wav")[1]
        self.assertTrue(np.any(y[len(x) + 2000:]) and np.abs(y[-100:]).max() <= 1)

    def test_delay_of_symmetric_taps(self):
        for taps, delay in ((self.taps, 150), (np.concatenate([[0, 0, 0], self.taps, [0]]), 153),
                            (signal.firwin(300, 0.2), 149), ([0.5, 0, -0.5], 1)):
            write_numbers("t.txt", [taps])
            full = np.stack([np.convolve(self.x[:, c], taps) for c in (0, 1)], 1)
            np.testing.assert_allclose(self.filtered("fir", "-c", "t.txt", "--align"),
                                       full[delay:delay + len(self.x)], atol=3e-7)
            np.testing.assert_allclose(self.filtered("fir", "-c", "t.txt", "--align", "--tail"),
                                       full[delay:], atol=3e-7)
        _, said = self.shell(f"jurn fir in.wav even.wav -c {write_numbers('e.txt', [[1, 1]])} --align"
                             " --gain -12 -q")
        self.assertIn("0.5 frames", said)
        write_numbers("skewed.txt", [[1, 0.5, 0.2]])
        for command in (["fir", "in.wav", "no.wav", "-c", "skewed.txt"],
                        ["sos", "in.wav", "no.wav", "-c", "sos.txt"],
                        ["eq", "in.wav", "no.wav", "HP 80"]):
            self.assert_fails([*command, "--align"], "symmetric", "--zero-phase", code=2)

    def test_zero_phase(self):
        """As SciPy forward and backward over silence at both ends."""
        pad = 60000
        longer = np.concatenate([self.x, np.zeros((pad, 2))]).astype(float)
        for command, once in ((["sos", "-c", "sos.txt"], lambda v: signal.sosfilt(self.sections, v, axis=0)),
                              (["iir", "-c", "ba.txt"], lambda v: signal.lfilter(self.b, self.a, v, axis=0)),
                              (["fir", "-c", "taps.txt"], lambda v: signal.lfilter(self.taps, 1, v, axis=0))):
            expected = once(once(longer)[::-1])[::-1][:len(self.x)]
            np.testing.assert_allclose(self.filtered(*command, "--zero-phase"), expected, atol=1e-6)
            half = self.filtered(*command, "--zero-phase", "--gain", -6)
            np.testing.assert_allclose(half, expected * 10 ** -0.3, atol=1e-6)
        x = read(MUSIC)[1].astype(float)
        self.run_tool("sos", MUSIC, "out.wav", "-c", "sos.txt", "--zero-phase", "--gain", -6)
        longer = np.concatenate([x, np.zeros((pad, 2))])
        expected = signal.sosfilt(self.sections, longer, axis=0)
        expected = signal.sosfilt(self.sections, expected[::-1], axis=0)[::-1][:len(x)] * 10 ** -0.3
        self.assertLessEqual(np.abs(read("out.wav")[1] - expected).max(), 0.51)
        piped, _ = self.shell("cat in.wav | jurn sos - - -c sos.txt --zero-phase -q --type raw")
        self.assertEqual(len(piped), 4 * 2 * len(self.x))
        self.shell("jurn eq in.wav then.wav 'LP 100' --zero-phase --then eq 'HP 30' --zero-phase")
        self.assertEqual(len(read("then.wav")[1]), len(self.x))
        wavfile.write("pulse.wav", 8000, 999 * (np.arange(8000) == 1000).astype(np.int16))
        report = self.run_tool("fir", "pulse.wav", "out.wav", "-c", write_numbers("huge.txt", [[1e19]]),
                               "--zero-phase", "--json")  # lost on the way back, which ends at 0
        self.assertEqual(json.loads(report)["lost_after_seconds"], 0)
        for other in ("--tail", "--align"):
            self.assert_fails(["sos", "in.wav", "no.wav", "-c", "sos.txt", "--zero-phase", other],
                              other, code=2)

    def test_fit(self):
        write_numbers("four.txt", [[4]])
        for command in ("fir -c four.txt", "fir -c four.txt --precision int16", "fir -c four.txt --dither"):
            report, _ = self.shell(f"jurn {command.replace('fir', f'fir {MUSIC} loud.wav')} --fit --json"
                                   " --overwrite 2>/dev/null")
            report = json.loads(report)
            peak = np.abs(read("loud.wav")[1].astype(int)).max()
            self.assertEqual(report["clipped"], 0)
            self.assertTrue(32000 < peak <= 32767, (command, peak))
            expected = 20 * np.log10(32767 / (4 * np.abs(read(MUSIC)[1].astype(int)).max()))
            self.assertAlmostEqual(report["fitted_gain_db"], expected, delta=0.2)
        text, _ = self.shell(f"jurn fir {MUSIC} again.wav -c four.txt --fit")
        self.assertIn(b"dB, at which it does not clip", text)
        report = json.loads(self.shell(f"jurn fir {MUSIC} quiet.wav -c four.txt --gain -30 --fit"
                                       " --json")[0])
        self.assertIsNone(report["fitted_gain_db"])
        for arguments, word in ((["fir", MUSIC, "-", "-c", "four.txt"], "files"),
                                (["average", MUSIC, "no.wav", "--length", 3], "--gain")):
            self.assert_fails([*arguments, "--fit"], "--fit", word, code=2)

    def test_average_and_binaural_keep_24_bits_and_floats(self):
        subprocess.run(["sox", "-V1", MUSIC, "-b", "24", "in24.wav", "gain", "-7"], check=True)
        x = read("in24.wav")[1] / 2**31
        for length in (3, 2157, 100000):
            self.run_tool("average", "in24.wav", "out.wav", "--length", length)
            total = np.cumsum(np.concatenate([np.zeros((length, 2)), x]), axis=0)
            expected = (total[length:] - total[:-length]) / length
            self.assertLessEqual(np.abs(read("out.wav")[1] / 2**31 - expected).max(), 0.51 / 2**23)
        noise = np.random.default_rng(2).normal(0, 0.05, 96000).astype(np.float32)
        wavfile.write("mono.wav", 44100, noise)
        y = self.filtered("binaural", source="mono.wav")
        self.assertEqual(read("out.wav")[1].dtype, np.float32)
        for ear in (0, 1):  # straight ahead, as the manual says
            power = (y[:, ear] ** 2).sum() / (noise.astype(float) ** 2).sum()
            self.assertAlmostEqual(10 * np.log10(power), 0.9, delta=0.1)
        # 24 bits hold what floats hold.
        self.run_tool("binaural", "mono.wav", "24.wav", "--azimuth", 50, "--bits", 24)
        y = self.filtered("binaural", "--azimuth", 50, source="mono.wav")
        self.assertLessEqual(np.abs(read("24.wav")[1] / 2**31 - y).max(), 0.51 / 2**23)


if __name__ == "__main__":
    unittest.main()

"""Filters of jurn-filter on real recordings; where results begin and end, level and reports."""

import json
import re
import subprocess
import unittest

import numpy as np
from scipy import signal
from scipy.io import wavfile

from tool_test import MUSIC, SPEECH, ToolTest, contents, read, to_int16, write_numbers


class FilterTest(ToolTest):
    def test_block_changes_no_sample(self):
        # The double integrator starts below the library's flush threshold: were the flush to come
        # once per sample, it would never leave 0.
        write_numbers("ba.txt", [[9e-7], [1, -2, 1]])
        write_numbers("sos.txt", signal.butter(4, 0.02, output="sos"))
        wavfile.write("ones.wav", 8000, np.ones(5000, np.int16))
        for source, *command in (("ones.wav", "iir", "-c", "ba.txt", "--as-is"),
                                 ("ones.wav", "iir", "-c", "ba.txt", "--as-is", "--precision", "int16"),
                                 (SPEECH, "sos", "-c", "sos.txt", "--precision", "int16"),
                                 (SPEECH, "average", "--length", 9)):
            results = [self.run_filter(*command, "--block", block, source=source)
                       for block in (1, 7, 1056)]
            self.assertTrue(results[0].any(), command)
            for result in results[1:]:
                np.testing.assert_array_equal(result, results[0], str(command))

    def test_level(self):
        x = read(MUSIC)[1] / 32768
        for kind, length, values in (("magnitude", 200, np.abs(x)), ("square", 44100, x ** 2)):
            report = self.run_tool("level", MUSIC, "level.csv", "--length", length, "--of", kind,
                                   "--every", 0.05)
            rows = np.genfromtxt("level.csv", delimiter=",", skip_header=1)
            total = np.cumsum(np.concatenate([np.zeros((length, 2)), values]), axis=0)
            means = (total[length:] - total[:-length]) / length
            at = np.round(rows[:, 0] * 44100).astype(int) - 1
            self.assertEqual(len(rows), len(x) // 2205)
            np.testing.assert_allclose(rows[:, [1, 3]], means[at], rtol=1e-6, atol=1e-12)
            factor = 20 if kind == "magnitude" else 10
            with np.errstate(divide="ignore"):
                decibels = factor * np.log10(rows[:, [1, 3]])
            np.testing.assert_allclose(rows[:, [2, 4]], decibels, atol=0.006)
            loudest = factor * np.log10(means.max())
            self.assertAlmostEqual(float(re.search(r"loudest +(\S+) dB", report)[1]), loudest, 1)
        printed = self.run_tool("level", MUSIC, "--length", length, "--of", kind, "--every", 0.05)
        self.assertEqual(printed, contents("level.csv").decode())
        self.run_tool("level", MUSIC, "level.csv", "--length", 441000)
        self.assert_fails(["level", MUSIC, "no.csv", "--length", 441001], "ten seconds", code=2)

    def test_input_is_rounded_and_saturated(self):
        write_numbers("one.txt", [[1]])
        full = np.array([0, 0.5, -0.5, 1, -1, 1.5, -1.5, 3, -3, 1e9, 10000.4, -10000.6, np.nan])
        expected = [0, 16384, -16384, 32767, -32768, 32767, -32768, 32767, -32768, 32767, 10000,
                    -10001, 0]
        full[10:12] /= 32768
        for dtype in (np.float32, np.float64):
            wavfile.write("in.wav", 48000, full.astype(dtype))
            self.run_tool("fir", "in.wav", "out.wav", "-c", "one.txt")
            np.testing.assert_array_equal(read("out.wav")[1][:, 0],
                                          np.nan_to_num(full).astype(np.float32))
            report = self.run_tool("fir", "in.wav", "out.wav", "-c", "one.txt", "--precision",
                                   "int16")
            self.assertEqual(read("out.wav")[1][:, 0].tolist(), expected)
            self.assertIn("--dither", report)
            self.assertIn("6 samples beyond full scale", report)
            self.assertIn("1 samples that are no finite numbers", report)
        values = np.array([0, 2**31 - 1, -2**31, 5 * 65536 + 40000, -5 * 65536 - 40000], np.int32)
        wavfile.write("in32.wav", 48000, values)
        subprocess.run(["sox", "-V1", "-D", "in32.wav", "-b", "24", "in24.wav"], check=True)
        result = self.run_filter("fir", "-c", "one.txt", source="in24.wav")
        self.assertEqual(result[:, 0].tolist(), read("in24.wav")[1][:, 0].tolist())
        result = self.run_filter("fir", "-c", "one.txt", "--bits", 16, source="in24.wav")
        self.assertEqual(result[:, 0].tolist(), [0, 32767, -32768, 6, -6])

    def test_dither(self):
        """Noise of the right kind where bits are lost, reproducible, and nowhere else."""
        write_numbers("one.txt", [[1]])
        write_numbers("half.txt", [[0.5]])
        wavfile.write("low.wav", 48000, np.full(48000, 7.25 / 32768, np.float32))
        wavfile.write("odd.wav", 48000, np.full(96000, 101, np.int16))
        wavfile.write("fine.wav", 48000, np.full(48000, 7.25 / 2**23, np.float32))
        device = ["--precision", "int16"]
        self.run_tool("average", "low.wav", "out.wav", "--length", 1, *device)
        self.assertTrue((read("out.wav")[1] == 7).all())
        for mean, step, source, command, *options in (
                (7.25, 1, "low.wav", "average", "--length", 1, *device),
                (7.25, 1, "low.wav", "fir", "-c", "one.txt", "--bits", 16),
                (50.5, 1, "odd.wav", "fir", "-c", "half.txt"),
                (7.25, 256, "fine.wav", "fir", "-c", "one.txt", "--bits", 24)):
            one, same, other = (self.run_filter(command, *options, "--dither", "--seed", seed, source=source) / step
                                for seed in (1, 1, 2))
            self.assertAlmostEqual(one.mean(), mean, delta=0.02)
            self.assertAlmostEqual(one.var(), 3 / 12, delta=0.02)
            self.assertTrue((one == same).all() and (one != other).any())
        for arguments, word in ((["fir", SPEECH, "new.wav", "-c", "one.txt", *device], "16 bits"),
                                (["average", SPEECH, "new.wav", "--length", 3, *device], "16 bits"),
                                (["fir", "low.wav", "new.wav", "-c", "one.txt"], "floats")):
            self.assert_fails([*arguments, "--dither"], "--dither", word, code=2)

    def test_steep_designs_are_prepared(self):
        """Designs that floats spoil as SciPy gives them: silent, or unstable."""
        device = ["--precision", "int16"]
        noise = np.random.default_rng(3).integers(-12000, 12000, (24000, 2)).astype(np.int16)
        wavfile.write("noise.wav", 48000, noise)
        design = signal.butter(8, 500, fs=48000, output="sos")
        write_numbers("sos.txt", design)
        result = self.run_filter("sos", "-c", "sos.txt", *device, source="noise.wav")
        self.assert_near(result, to_int16(signal.sosfilt(design, noise, axis=0)), filters=2)
        self.assertFalse(self.run_filter("sos", "-c", "sos.txt", "--as-is", *device, source="noise.wav").any())
        b, a = signal.butter(8, 0.05)
        write_numbers("ba.txt", [b, a])
        expected = to_int16(signal.lfilter(b, a, noise, axis=0))
        for options in (device, [*device, "--as-sections"], []):
            result = self.run_filter("iir", "-c", "ba.txt", *options, source="noise.wav")
            self.assert_near(result, expected, options, filters=2)
        common = ["iir", "noise.wav", "out.wav", "-c", "ba.txt", *device]
        self.assertRegex(self.said(*common), r"note: ba.txt: .*sections.*; --as-is")
        self.assertRegex(self.said(*common, "--as-is"), r"warning: ba.txt: .*unstable.*1\.02")

    def test_report_counts_clipping_and_suggests_a_gain(self):
        write_numbers("four.txt", [[4]])
        x = read(MUSIC)[1].astype(int)
        clipped = int(((4 * x > 32767) | (4 * x < -32768)).sum())
        report = self.run_tool("fir", MUSIC, "out.wav", "-c", "four.txt")
        self.assertRegex(report, rf"clipped +{clipped} samples")
        self.assertRegex(report, rf"peak +{4 * np.abs(x).max()}, ")
        # The device only shows that samples are at full scale.
        report = self.run_tool("fir", MUSIC, "out.wav", "-c", "four.txt", "--precision", "int16")
        clipped = int(((4 * x >= 32767) | (4 * x <= -32768)).sum())
        self.assertGreater(clipped, 0)
        self.assertRegex(report, rf"clipped +{clipped} samples")
        self.assertRegex(report, rf"{len(x)} frames, 2 channels, 44100 Hz")
        self.assertRegex(report, r"peak +32768, 0\.0 dBFS|peak +32767")
        self.assertGreater(float(re.search(r"speed +(\d+) times", report).group(1)), 0)

    def test_output_formats(self):
        write_numbers("one.txt", [[1]])
        x = read(MUSIC)[1].astype(int)
        for ending in ("wav", "flac", "aiff", "au", "caf", "w64"):
            name = "out." + ending
            result = self.run_filter("fir", "-c", "one.txt", source=MUSIC, output=name)
            np.testing.assert_array_equal(result, x, name)

    def test_unstable_filters_say_when_they_are_lost(self):
        wavfile.write("noise.wav", 48000, np.full(48000, 1000, np.int16))
        write_numbers("ba.txt", [[1], [1, -1.01]])
        said = self.said("iir", "noise.wav", "out.wav", "-c", "ba.txt", "--keep-a", "--as-is")
        # 1.01^n leaves the floats after about 8000 samples.
        self.assertTrue(0.1 < float(re.search(r"from second (\S+) on", said)[1]) < 0.25, said)


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

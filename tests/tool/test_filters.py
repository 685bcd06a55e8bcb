"""Filters of jurn-filter on real recordings, compared with SciPy; level and reports."""

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
        write_numbers("sos.txt", [[1, 0, 0, 1, -1.01, 0]])
        for command, name in (("iir", "ba.txt"), ("sos", "sos.txt")):
            for precision in ("int16", "double"):
                said = self.said(command, "noise.wav", "out.wav", "-c", name, "--keep-a", "--precision",
                                 precision, "--as-is")
                # 1.01^n leaves the floats after about 8000 samples.
                second = float(re.search(r"from second (\S+) on", said)[1])
                self.assertTrue(0.1 < second < 0.25, (command, precision, second))


if __name__ == "__main__":
    unittest.main()

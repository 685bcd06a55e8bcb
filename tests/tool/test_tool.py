"""End-to-end tests of jurn-filter: real recordings in, results compared with SciPy, bad input."""

import os
import re
import subprocess
import tempfile
import unittest

import numpy as np
from scipy import signal
from scipy.io import wavfile

TOOL = os.environ["JURN_FILTER"]
SPEECH = "/usr/share/sounds/alsa/Front_Center.wav"
MUSIC = "/usr/share/sonic-pi/samples/loop_safari.flac"


def read(path):
    """Rate and frames x channels; anything but WAV goes through SoX."""
    if not path.endswith(".wav"):
        wav = path + ".read.wav" if not path.startswith("/usr") else "music.wav"
        subprocess.run(["sox", "-V1", path, "-e", "signed", "-b", "16", wav], check=True)
        path = wav
    rate, samples = wavfile.read(path)
    return rate, samples.reshape(len(samples), -1)


def to_int16(y):
    """The library's conversion: truncation toward zero, saturated."""
    return np.clip(np.trunc(y), -32768, 32767).astype(int)


def write_numbers(name, rows, separator=" "):
    with open(name, "w", encoding="ascii") as file:
        file.write("# a comment, then numbers\n")
        for row in rows:
            file.write(separator.join(repr(float(x)) for x in row) + "  # and another\n")
    return name


class ToolTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.addCleanup(os.chdir, os.getcwd())
        os.chdir(folder.name)

    def run_tool(self, *arguments):
        """Runs the tool, which has to succeed, and returns its report."""
        done = subprocess.run([TOOL, *map(str, arguments)], capture_output=True, text=True)
        self.assertEqual((done.returncode, done.stderr), (0, ""), arguments)
        return done.stdout

    def run_filter(self, command, *arguments, source=SPEECH, output="out.wav"):
        self.run_tool(command, source, output, *arguments)
        return read(output)[1].astype(int)

    def assert_near(self, result, expected, most=1):
        self.assertEqual(result.shape, expected.shape)
        self.assertLessEqual(np.abs(result - expected).max(), most)

    def assert_fails(self, arguments, *words, code=3):
        """One line that holds all the words, the exit code, and nothing left behind."""
        before = {name: os.path.getmtime(name) for name in os.listdir()}
        done = subprocess.run([TOOL, *map(str, arguments)], capture_output=True, text=True)
        self.assertEqual(done.returncode, code, (arguments, done.stderr))
        self.assertRegex(done.stderr, r"\Ajurn-filter: [^\n]+\n\Z", arguments)
        self.assertEqual(done.stdout, "", arguments)
        for word in words:
            self.assertIn(word, done.stderr)
        self.assertEqual({name: os.path.getmtime(name) for name in os.listdir()}, before, arguments)


class FilterTest(ToolTest):
    def test_filters_agree_with_scipy(self):
        taps = signal.firwin(301, 0.2)
        b, a = signal.butter(3, 0.2)
        sections = signal.butter(8, [0.05, 0.4], "bandpass", output="sos")
        write_numbers("taps.txt", [taps[:100], taps[100:]], ", ")
        write_numbers("ba.txt", [b, a], ",")
        write_numbers("b.txt", [[x] for x in b])
        write_numbers("a.txt", [a])
        write_numbers("sos.txt", sections)
        for source in (SPEECH, MUSIC):
            x = read(source)[1]
            expected = to_int16(signal.lfilter(taps, 1, x, axis=0))
            self.assert_near(self.run_filter("fir", "-c", "taps.txt", source=source), expected)
            expected = to_int16(signal.lfilter(b, a, x, axis=0))
            self.assert_near(self.run_filter("iir", "-c", "ba.txt", source=source), expected)
            two = ["--numerator", "b.txt", "--denominator", "a.txt"]
            self.assert_near(self.run_filter("iir", *two, source=source), expected)
            expected = to_int16(signal.sosfilt(sections, x, axis=0))
            self.assert_near(self.run_filter("sos", "-c", "sos.txt", source=source), expected)
            for length in (3, 300, 2156):
                expected = to_int16(signal.lfilter(np.ones(length) / length, 1, x, axis=0))
                result = self.run_filter("average", "--length", length, source=source)
                self.assert_near(result, expected)

    def test_block_changes_no_sample(self):
        # The double integrator starts below the library's flush threshold: were the flush to come
        # once per sample, it would never leave 0.
        write_numbers("taps.txt", [signal.firwin(1250, 0.1)])
        write_numbers("ba.txt", [[9e-7], [1, -2, 1]])
        write_numbers("sos.txt", signal.butter(4, 0.02, output="sos"))
        wavfile.write("ones.wav", 8000, np.ones(5000, np.int16))
        for source, *command in ((SPEECH, "fir", "-c", "taps.txt"),
                                 ("ones.wav", "iir", "-c", "ba.txt"),
                                 (SPEECH, "sos", "-c", "sos.txt"),
                                 (SPEECH, "average", "--length", 9)):
            results = [self.run_filter(*command, "--block", block, source=source)
                       for block in (1, 7, 512, 1056)]
            self.assertTrue(results[0].any(), command)
            for result in results[1:]:
                np.testing.assert_array_equal(result, results[0], str(command))

    def test_input_is_rounded_and_saturated(self):
        write_numbers("one.txt", [[1]])
        full = np.array([0, 0.5, -0.5, 1, -1, 1.5, -1.5, 3, -3, 1e9, 10000.4, -10000.6, np.nan])
        expected = [0, 16384, -16384, 32767, -32768, 32767, -32768, 32767, -32768, 32767, 10000,
                    -10001, 0]
        full[10:12] /= 32768
        for dtype in (np.float32, np.float64):
            wavfile.write("in.wav", 48000, full.astype(dtype))
            report = self.run_tool("fir", "in.wav", "out.wav", "-c", "one.txt")
            self.assertEqual(read("out.wav")[1][:, 0].tolist(), expected)
            self.assertIn("6 samples beyond full scale", report)
            self.assertIn("1 samples that are no finite numbers", report)
        values = np.array([0, 2**31 - 1, -2**31, 5 * 65536 + 40000, -5 * 65536 - 40000], np.int32)
        wavfile.write("in32.wav", 48000, values)
        subprocess.run(["sox", "-V1", "-D", "in32.wav", "-b", "24", "in24.wav"], check=True)
        result = self.run_filter("fir", "-c", "one.txt", source="in24.wav")
        self.assertEqual(result[:, 0].tolist(), [0, 32767, -32768, 6, -6])

    def test_report_counts_clipping_and_suggests_a_gain(self):
        write_numbers("four.txt", [[4]])
        report = self.run_tool("fir", MUSIC, "out.wav", "-c", "four.txt")
        x = read(MUSIC)[1].astype(int)
        clipped = int(((4 * x >= 32767) | (4 * x <= -32768)).sum())
        self.assertGreater(clipped, 0)
        self.assertRegex(report, rf"clipped +{clipped} samples")
        self.assertRegex(report, rf"{len(x)} frames, 2 channels, 44100 Hz")
        self.assertRegex(report, r"peak +32768, 0\.0 dBFS|peak +32767")
        gain = float(re.search(r"gain of (-[\d.]+) dB", report).group(1))
        ideal = 20 * np.log10(32767 / (4 * np.abs(x).max()))
        self.assertTrue(ideal - 0.2 < gain <= ideal, (gain, ideal))
        self.assertGreater(float(re.search(r"speed +(\d+) times", report).group(1)), 0)

    def test_output_formats(self):
        write_numbers("one.txt", [[1]])
        x = read(MUSIC)[1].astype(int)
        for ending in ("wav", "flac", "aiff", "au", "caf", "w64"):
            name = "out." + ending
            result = self.run_filter("fir", "-c", "one.txt", source=MUSIC, output=name)
            np.testing.assert_array_equal(result, x, name)
        os.symlink("out.flac", "link.flac")
        os.remove("out.flac")
        os.symlink("behind.flac", "out.flac")
        self.run_tool("fir", SPEECH, "behind.flac", "-c", "one.txt")
        self.run_tool("fir", MUSIC, "link.flac", "-c", "one.txt")
        self.assertTrue(os.path.islink("link.flac") and os.path.islink("out.flac"))
        np.testing.assert_array_equal(read("behind.flac")[1], x)


class BadInputTest(ToolTest):
    def test_coefficients(self):
        for command, text, *words in (
                ("fir", "1 2\n3 x4 5\n", ":2:", "'x4'"),
                ("fir", "1 nan\n", ":1:", "'nan'"),
                ("fir", "1\n2\n1e39\n", ":3:", "1e39", "range"),
                ("fir", "1e400\n", ":1:", "1e400"),
                ("fir", "0x10\n", ":1:", "0x10"),
                ("fir", "1,,2\n", ":1:", "comma"),
                ("fir", "1\x00\x07\n", ":1:", "1??"),
                ("fir", "", "no numbers"),
                ("fir", "# 1 2 3\n", "no numbers"),
                ("fir", "1 " * 1250 + "\n1", ":2:", "1250"),
                ("iir", "1 2\n", ":1:", "1 line"),
                ("iir", "1\n\n1\n1\n", ":4:", "3 lines"),
                ("iir", "1\n2 1\n", ":2:", "with 2"),
                ("iir", "1\n" + "1 " * 1251, ":2:", "1250"),
                ("sos", "1 0 0 1 0 0\n1 2 3 4 5\n", ":2:", "5 numbers", "six"),
                ("sos", "1 0 0 0.5 0 0\n", ":1:", "0.5"),
                ("sos", "1 0 0 1 0 0\n" * 417, ":417:", "416")):
            with open("c.txt", "w", encoding="ascii") as file:
                file.write(text)
            self.assert_fails([command, SPEECH, "out.wav", "-c", "c.txt"], "c.txt", *words)

    def test_files(self):
        write_numbers("one.txt", [[1]])
        open("empty.wav", "w").close()
        wavfile.write("none.wav", 48000, np.zeros(0, np.int16))
        wavfile.write("three.wav", 48000, np.zeros((9, 3), np.int16))
        os.mkdir("folder.wav")
        for source, *words in (("missing.wav", "no such file"), ("empty.wav", "empty"),
                               ("none.wav", "no samples"), ("three.wav", "3 channels", "2"),
                               ("folder.wav", "directory"), ("one.txt", "no audio file")):
            self.assert_fails(["fir", source, "out.wav", "-c", "one.txt"], source, *words)
        for name in ("missing.txt", "folder.wav"):
            self.assert_fails(["fir", SPEECH, "out.wav", "-c", name], name)
        for output, code in (("nowhere/out.wav", 4), ("folder.wav", 4), ("out.xyz", 2), ("out", 2)):
            self.assert_fails(["fir", SPEECH, output, "-c", "one.txt"], output, code=code)

    def test_command_line(self):
        write_numbers("one.txt", [[1]])
        common = [SPEECH, "out.wav", "-c", "one.txt"]
        for arguments, word in (
                ([], "subcommand"), (["fir"], "IN"), (["fir", SPEECH, "out.wav"], "coefficients"),
                (["fir", *common, "--block", "0"], "--block"),
                (["fir", *common, "--block", "1057"], "1056"),
                (["iir", SPEECH, "out.wav"], "--numerator"),
                (["average", SPEECH, "out.wav", "--length", "2157"], "2156"),
                (["average", SPEECH, "out.wav", "--length", "0"], "--length")):
            self.assert_fails(arguments, word, code=2)

    def test_nothing_is_overwritten_or_left(self):
        write_numbers("one.txt", [[1]])
        subprocess.run(["sox", SPEECH, "in.wav"], check=True)
        os.link("in.wav", "hard.wav")
        os.symlink("in.wav", "soft.wav")
        for output in ("in.wav", "./in.wav", "hard.wav", "soft.wav", "one.txt"):
            self.assert_fails(["fir", "in.wav", output, "-c", "one.txt"], output, code=2)
        # A write that fails half-way leaves the old result.
        wavfile.write("out.wav", 48000, np.arange(9, dtype=np.int16))
        command = f"ulimit -f 50; '{TOOL}' fir in.wav out.wav -c one.txt"
        limited = subprocess.run(["bash", "-c", command], capture_output=True, text=True)
        self.assertEqual(limited.returncode, 4, limited.stderr)
        self.assertIn("out.wav", limited.stderr)
        self.assertEqual(len(read("out.wav")[1]), 9)
        self.assertEqual(len(os.listdir()), 5)


if __name__ == "__main__":
    unittest.main()

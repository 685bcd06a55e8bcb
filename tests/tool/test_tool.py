"""End-to-end tests of jurn-filter: real recordings in, results compared with SciPy, bad input."""

import importlib.util
import os
import re
import shlex
import shutil
import subprocess
import tempfile
import time
import unittest

import numpy as np
from scipy import signal
from scipy.io import wavfile

TOOL = os.environ["JURN_FILTER"]
SPEECH = "/usr/share/sounds/alsa/Front_Center.wav"
MUSIC = "/usr/share/sonic-pi/samples/loop_safari.flac"
RESPONSES = "/usr/share/jconvolver/config-files/"
BAND = RESPONSES + "octave-band/oct-48-1k.wav"  # 1 channel, 8192 taps
STREET = [RESPONSES + "demo-reverbs/street2-" + side + ".wav" for side in "LR"]  # 18650 taps each
CROSSTALK = [RESPONSES + "xtalk-cancel/EYCv2" + side + "44.wav" for side in "LR"]  # 2 channels each


def read(path):
    """Rate and frames x channels; anything but WAV goes through SoX."""
    if not path.endswith(".wav"):
        wav = path + ".read.wav" if not path.startswith("/usr") else "music.wav"
        subprocess.run(["sox", "-V1", path, "-e", "signed", "-b", "16", wav], check=True)
        path = wav
    rate, samples = wavfile.read(path)
    return rate, samples.reshape(len(samples), -1)


def contents(path):
    with open(path, "rb") as file:
        return file.read()


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
        """Runs the tool, which has to succeed with no more than warnings; returns its report."""
        arguments = [*map(str, arguments), "--overwrite"]
        done = subprocess.run([TOOL, *arguments], capture_output=True, text=True)
        errors = re.sub(r"jurn-filter: (warning|note): [^\n]+\n", "", done.stderr)
        self.assertEqual((done.returncode, errors), (0, ""), arguments)
        return done.stdout

    def shell(self, command, code=0):
        """Runs a line of bash in which `jurn` is the tool; returns standard output and error."""
        command = f"set -o pipefail; jurn() {{ {shlex.quote(TOOL)} \"$@\"; }}; {command}"
        done = subprocess.run(["bash", "-c", command], capture_output=True, timeout=120)
        self.assertEqual(done.returncode, code, (command, done.stderr))
        return done.stdout, done.stderr.decode()

    def run_filter(self, command, *arguments, source=SPEECH, output="out.wav"):
        self.run_tool(command, source, output, *arguments)
        return read(output)[1].astype(int)

    def assert_near(self, result, expected, context="", filters=1):
        """Within one least significant bit for each of the filters that are summed."""
        self.assertEqual(result.shape, expected.shape, context)
        self.assertLessEqual(np.abs(result - expected).max(), filters, context)

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
            for length in (3, 256, 257, 2156):
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
                                 (SPEECH, "fir", "-c", "taps.txt", "--precision", "int16"),
                                 ("ones.wav", "iir", "-c", "ba.txt", "--as-is"),
                                 ("ones.wav", "iir", "-c", "ba.txt", "--as-is", "--precision",
                                  "int16"),
                                 (SPEECH, "sos", "-c", "sos.txt"),
                                 (SPEECH, "sos", "-c", "sos.txt", "--precision", "int16"),
                                 (SPEECH, "average", "--length", 9)):
            results = [self.run_filter(*command, "--block", block, source=source)
                       for block in (1, 7, 512, 1056)]
            self.assertTrue(results[0].any(), command)
            for result in results[1:]:
                np.testing.assert_array_equal(result, results[0], str(command))

    def test_double_precision_agrees_with_scipy(self):
        write_numbers("taps.txt", [signal.firwin(201, 0.1)])
        b, a = signal.butter(3, 0.05)
        write_numbers("ba.txt", [b, a])
        subprocess.run(["sox", "-V1", MUSIC, "-b", "24", "in24.wav", "gain", "-7"], check=True)
        wavfile.write("noise.wav", 8000, np.random.default_rng(1).normal(0, 0.5, (9999, 2))
                      .astype(np.float32))
        for source, unit in ((SPEECH, 32768), ("in24.wav", 2**31), ("noise.wav", 1)):
            x = read(source)[1] / unit
            for command, numbers, b_a in (("fir", "taps.txt", (np.loadtxt("taps.txt"), [1])),
                                          ("iir", "ba.txt", (b, a))):
                expected = signal.lfilter(*b_a, x, axis=0)
                for bits, scale, most in (("float", 1, 1e-6 * np.abs(expected).max()),
                                          ("24", 2**31, 0.76 / 2**23), ("16", 32768, 0.51 / 32768)):
                    self.run_tool(command, source, "out.wav", "-c", numbers, "--precision",
                                  "double", "--bits", bits)
                    result = read("out.wav")[1] / scale
                    self.assertLessEqual(np.abs(result - expected).max(), most, (source, bits))

    def test_level(self):
        x = read(MUSIC)[1]
        for kind, values in (("magnitude", np.abs(x / 32768)), ("square", (x / 32768) ** 2)):
            report = self.run_tool("level", MUSIC, "level.csv", "--length", 200, "--of", kind,
                                   "--every", 0.05)
            rows = np.genfromtxt("level.csv", delimiter=",", skip_header=1)
            means = signal.lfilter(np.ones(200) / 200, 1, values, axis=0)
            at = np.round(rows[:, 0] * 44100).astype(int) - 1
            self.assertEqual(len(rows), len(x) // 2205)
            np.testing.assert_allclose(rows[:, [1, 3]], means[at], rtol=2e-4, atol=1e-9)
            with np.errstate(divide="ignore"):
                decibels = (20 if kind == "magnitude" else 10) * np.log10(rows[:, [1, 3]])
            np.testing.assert_allclose(rows[:, [2, 4]], decibels, atol=0.006)
            loudest = (20 if kind == "magnitude" else 10) * np.log10(means.max())
            self.assertAlmostEqual(float(re.search(r"loudest +(\S+) dB", report)[1]), loudest, 1)
        with open("level.csv", encoding="ascii") as file:
            printed = self.run_tool("level", MUSIC, "--length", 200, "--of", kind, "--every", 0.05)
            self.assertEqual(printed, file.read())

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
        wavfile.write("low.wav", 48000, np.full(48000, 7.25 / 32768, np.float32))
        self.run_tool("average", "low.wav", "out.wav", "--length", 1)
        self.assertTrue((read("out.wav")[1] == 7).all())
        results = []
        for command in (["average", "--length", 1], ["fir", "-c", "one.txt", "--bits", 16]):
            for seed in (1, 1, 2):
                self.run_tool(command[0], "low.wav", "out.wav", *command[1:], "--dither", "--seed",
                              seed)
                results.append(read("out.wav")[1][:, 0].astype(float))
                self.assertAlmostEqual(results[-1].mean(), 7.25, delta=0.02)
                self.assertAlmostEqual(results[-1].var(), 3 / 12, delta=0.02)
            self.assertTrue((results[-3] == results[-2]).all())
            self.assertTrue((results[-2] != results[-1]).any())
        self.run_tool("fir", SPEECH, "out.wav", "-c", "one.txt", "--dither", "--precision", "int16")
        np.testing.assert_array_equal(read("out.wav")[1], read(SPEECH)[1])

    def test_steep_designs_are_prepared(self):
        """Designs that floats spoil as SciPy gives them: silent, thousands off, or unstable."""
        device = ["--precision", "int16"]
        noise = np.random.default_rng(3).integers(-12000, 12000, (24000, 2)).astype(np.int16)
        wavfile.write("noise.wav", 48000, noise)
        for design, spoilt in (((signal.butter(8, 500, fs=48000, output="sos")), "silent"),
                               ((signal.cheby1(8, 1, 300, fs=48000, output="sos")), "silent"),
                               ((signal.butter(8, [300, 600], "band", fs=48000, output="sos")), ""),
                               ((signal.butter(6, 300, fs=48000, output="sos")), "")):
            write_numbers("sos.txt", design)
            expected = signal.sosfilt(design, noise, axis=0)
            result = self.run_filter("sos", "-c", "sos.txt", *device, source="noise.wav")
            self.assert_near(result, to_int16(expected), design, filters=2)
            as_is = self.run_filter("sos", "-c", "sos.txt", "--as-is", *device, source="noise.wav")
            self.assertGreater(np.abs(as_is - expected).max(), 20, design)
            if spoilt:
                self.assertFalse(as_is.any())
            self.run_tool("sos", "noise.wav", "out.wav", "-c", "sos.txt", "--precision", "double",
                          "--bits", "float")
            self.assert_near(read("out.wav")[1] * 32768, expected, design, filters=0.02)
        b, a = signal.butter(8, 0.05)
        write_numbers("ba.txt", [b, a])
        expected = to_int16(signal.lfilter(b, a, noise, axis=0))
        for options in (device, [*device, "--as-sections"], []):
            result = self.run_filter("iir", "-c", "ba.txt", *options, source="noise.wav")
            self.assert_near(result, expected, options, filters=2)

        def said(*options):
            return subprocess.run([TOOL, "iir", "noise.wav", "out.wav", "-c", "ba.txt", "-q",
                                   "--overwrite", *device, *options], capture_output=True, text=True).stderr
        self.assertRegex(said(), r"note: ba.txt: .*sections.*; --as-is")
        self.assertRegex(said("--as-is"), r"warning: ba.txt: .*unstable.*1\.02")

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


def response(*paths):
    """Channels x taps of one or several response files, full scale 1."""
    channels = []
    for path in paths:
        samples = read(path)[1]
        channels.append(samples.T / (32768 if samples.dtype == np.int16 else 1))
    return np.concatenate(channels)


def convolved(x, h, matrix):
    """Sums of input channel i through taps k into output channel o, for (i, k, o) of matrix."""
    y = np.zeros((len(x) + h.shape[1] - 1, max(o for _, _, o in matrix) + 1))
    for i, k, o in matrix:
        y[:, o] += signal.fftconvolve(x[:, i].astype(float), h[k])
    return y


def ir_arguments(paths):
    return [part for path in paths for part in ("--ir", path)]


class ConvolveTest(ToolTest):
    STRAIGHT, CROSSED = [(0, 0, 0), (1, 1, 1)], [(1, 0, 0), (0, 1, 1)]
    TO_STEREO = [(0, 0, 0), (0, 1, 1)]
    FOUR = [(0, 0, 0), (0, 1, 1), (1, 2, 0), (1, 3, 1)]

    def test_every_route_agrees_with_scipy(self):
        x_mono, x_stereo = read(SPEECH)[1], read(MUSIC)[1]
        for x, source, paths, options, matrix in (
                (x_mono, SPEECH, [BAND], [], [(0, 0, 0)]),
                (x_mono, SPEECH, [BAND], ["--route", "mono-to-stereo"], [(0, 0, 0), (0, 0, 1)]),
                (x_mono, SPEECH, CROSSTALK[:1], ["--resample"], self.TO_STEREO),
                (x_stereo, MUSIC, CROSSTALK[:1], [], self.STRAIGHT),
                (x_stereo, MUSIC, CROSSTALK[:1], ["--route", "crossed"], self.CROSSED),
                (x_stereo, MUSIC, CROSSTALK[:1], ["--route", "left-only"], self.TO_STEREO),
                (x_stereo, MUSIC, CROSSTALK, [], self.FOUR),
                (x_stereo, MUSIC, [BAND], ["--resample"], [(0, 0, 0), (1, 0, 1)])):
            h = response(*paths)
            if "--resample" in options:  # of a response at the wrong rate, put it on the right one
                rate = read(source)[0]
                wavfile.write("same.wav", rate, h.T.astype(np.float32))
                paths, options = ["same.wav"], []
            expected = to_int16(convolved(x, h, matrix))
            for domain in ([], ["--fft"], ["--time-domain"], ["--block", 100], ["--no-tail"]):
                if matrix is self.FOUR and domain in (["--fft"], ["--time-domain"]):
                    continue
                arguments = ir_arguments(paths) + options + domain
                result = self.run_filter("convolve", *arguments, source=source)
                frames = len(x) if "--no-tail" in domain else len(expected)
                self.assert_near(result, expected[:frames], (source, arguments))

    def test_latency_and_long_rooms(self):
        x, h = read(SPEECH)[1], response(*STREET)
        result = self.run_filter("convolve", *ir_arguments(STREET), "--time-domain", "--gain", -12)
        self.assert_near(result, to_int16(convolved(x, h, self.TO_STEREO) * 10 ** (-12 / 20)))
        whole = self.run_filter("convolve", *ir_arguments(STREET), "--gain", -12)
        self.assert_near(whole, result)
        late = self.run_filter("convolve", *ir_arguments(STREET), "--truncate", 5000, "--fft",
                               "--raw-latency", "--gain", -12)
        hop = 16384 - 5000 + 1
        expected = to_int16(convolved(x, h[:, :5000], self.TO_STEREO) * 10 ** (-12 / 20))
        self.assertFalse(late[:hop].any())
        self.assert_near(late[hop:], expected)
        report = self.run_tool("convolve", SPEECH, "out.wav", *ir_arguments(STREET),
                               "--time-domain", "--gain", "6")
        gain = float(re.search(r"gain of (-[\d.]+) dB", report).group(1))
        report = self.run_tool("convolve", SPEECH, "out.wav", *ir_arguments(STREET),
                               "--time-domain", "--gain", gain)
        self.assertRegex(report, r"peak +32[3-7]\d\d,.*\n +clipped +0 samples")

    def test_gain_of_normalised_and_resampled_responses(self):
        click = np.zeros((4096, 2), np.int16)
        click[0] = 16384
        wavfile.write("click.wav", 44100, click)
        wavfile.write("click48.wav", 48000, click)

        def gains(source, *arguments):
            y = self.run_filter("convolve", *arguments, source=source) / 16384
            return np.abs(np.fft.rfft(y[:, 0], 96000))
        self.assertAlmostEqual(gains("click48.wav", "--ir", BAND, "--normalise").max(), 1, 2)
        both = gains("click.wav", *ir_arguments(CROSSTALK), "--normalise").max()
        self.assertTrue(0.9 < both <= 1.001, both)
        before = gains("click48.wav", "--ir", BAND)[[1000, 2000, 3000]]
        after = gains("click.wav", "--ir", BAND, "--resample")
        after = after[np.round(np.array([1000, 2000, 3000]) * 48000 / 44100).astype(int)]
        np.testing.assert_allclose(after, before, atol=0.02)

    def test_fades(self):
        n = np.arange(3 * 8000)
        tone = np.round(10000 * np.sin(2 * np.pi * 200 * n / 8000)).astype(np.int16)
        wavfile.write("mono.wav", 8000, tone)
        wavfile.write("stereo.wav", 8000, np.stack([tone, tone // 2], 1))
        for name, channels, gain in (("a1", 1, 1), ("b1", 1, -0.5), ("a2", 2, 1), ("b2", 2, -0.5),
                                     ("a4", 4, 1), ("b4", 4, -0.5)):
            h = np.zeros((300 if gain > 0 else 260, channels), np.float32)
            h[7] = gain
            wavfile.write(name + ".wav", 8000, h)
        for source, kind, route in (
                ("mono.wav", 1, "straight"), ("mono.wav", 2, "mono-to-stereo"),
                ("stereo.wav", 1, "straight"), ("stereo.wav", 2, "crossed"),
                ("stereo.wav", 2, "left-only"), ("stereo.wav", 4, None)):
            for domain in ([], ["--fft"], ["--time-domain"]):
                if domain and kind == 4:
                    continue
                options = domain + (["--route", route] if route else [])
                y_a, y_b = (self.run_filter("convolve", "--ir", f"{name}{kind}.wav", *options,
                                            "--no-tail", source=source) for name in "ab")
                y = self.run_filter("convolve", "--ir", f"a{kind}.wav", *options, "--no-tail",
                                    "--fade-to", f"b{kind}.wav", "--at", 1, "--fade-to",
                                    f"a{kind}.wav", "--at", 2, source=source)
                # One block of 1024 frames, or one hop of 725, holds the whole change.
                for begin, end, steady in ((0, 6900, y_a), (9100, 14900, y_b), (17100, None, y_a)):
                    self.assert_near(y[begin:end], steady[begin:end], (source, options, begin))
                step = np.abs(np.diff(y, axis=0)).max()
                # The ramp; of the FFT's, the transform's first 299 of 1023 steps are not heard.
                fade = 299 / 1023 + 1.5 / 724 if domain == ["--fft"] else 1.5 / 724
                fade *= np.abs(y_a - y_b).max()
                self.assertLessEqual(step, np.abs(np.diff(y_a, axis=0)).max() + fade, options)

    def test_routes(self):
        """Text and jconvolver's own files, any channels, another matrix to fade to."""
        rng = np.random.default_rng(5)
        x = rng.integers(-9000, 9000, (9000, 3)).astype(np.int16)
        h = rng.normal(0, 0.1, (2, 700))
        wavfile.write("three.wav", 48000, x)
        os.mkdir("a folder")
        wavfile.write("a folder/h.wav", 48000, h.T.astype(np.float32))
        np.savetxt("short.txt", [0.5, 0.25])
        with open("routes.txt", "w", encoding="ascii") as file:
            file.write('# input output file channel\n3 1 "a folder/h.wav" 2\n\n'
                       '1 1 "a folder/h.wav"  # the first\n1 5 "a folder/h.wav" 2\n')
        result = self.run_filter("convolve", "--routes", "routes.txt", source="three.wav")
        taps = [row.astype(np.float32).astype(float) for row in h]
        y = np.zeros((len(x) + 699, 5))
        y[:, 0] = signal.fftconvolve(x[:, 2], taps[1]) + signal.fftconvolve(x[:, 0], taps[0])
        y[:, 4] = signal.fftconvolve(x[:, 0], taps[1])
        self.assert_near(result, to_int16(y))
        with open("other.txt", "w", encoding="ascii") as file:
            file.write("/cd a folder\n/convolver/new 3 5 256 600 1.0\n/input/name 1 left\n"
                       "/impulse/read 2 5 -0.5 40 100 300 1 h.wav\n/impulse/dirac 1 2 0.25 7\n"
                       "/impulse/copy 3 3 2 5\n")
        result = self.run_filter("convolve", "--routes", "routes.txt", "--fade-to", "other.txt",
                                 "--at", 0.1, "--no-tail", "--block", 480, source="three.wav")
        z = np.zeros((len(x), 5))
        part = np.concatenate([np.zeros(40), -0.5 * taps[0][100:400]])
        for i, o in ((1, 4), (2, 2)):
            z[:, o] = signal.lfilter(part, 1, x[:, i])
        z[7:, 1] = 0.25 * x[:-7, 0]
        weight = np.clip((np.arange(len(x)) - 4800) / 479, 0, 1)[:, None]
        self.assert_near(result, to_int16((1 - weight) * y[:len(x)] + weight * z))
        for rate in ("44", "48"):  # one names a folder of its author's
            files = [f"{RESPONSES}xtalk-cancel/EYCv2{c}{rate}.wav" for c in "LR"]
            wavfile.write("two.wav", read(files[0])[0], x[:, :2])
            result = self.run_filter("convolve", "--routes",
                                     f"{RESPONSES}xtalk-cancel/EYCv2-{rate}.conf", source="two.wav")
            h = np.stack([response(name)[0] for name in files])
            expected = convolved(x, h, [(0, 0, 0), (0, 1, 1), (1, 1, 0), (1, 0, 1)])
            self.assert_near(result, to_int16(expected))
        for text, *words in (("1 1\n", ":1:", "file"), ("1 17 h.wav", ":1:", "output 17"),
                             ("1 1 no.wav", "no.wav", "no such file"), ("# nothing\n", "no routes"),
                             ('1 1 "a folder/h.wav" 3', ":1:", "2 channels"),
                             ('4 1 "a folder/h.wav"', "4 inputs", "three.wav"),
                             ("1 1 a folder/h.wav", ":1:", "quotes"),
                             ("/impulse/hilbert 1 1 1 9 9", ":1:", "/impulse/hilbert")):
            with open("bad.txt", "w", encoding="ascii") as file:
                file.write(text)
            self.assert_fails(["convolve", "three.wav", "out.wav", "--routes", "bad.txt"], *words)

    def test_any_channels_and_floats(self):
        rng = np.random.default_rng(6)
        x = rng.integers(-9000, 9000, (5000, 16)).astype(np.int16)
        h = rng.normal(0, 0.1, (16, 300)).astype(np.float32)
        wavfile.write("sixteen.wav", 48000, x)
        wavfile.write("h.wav", 48000, h.T)
        wavfile.write("one.wav", 48000, h[0])
        each = convolved(x, h, [(i, i, i) for i in range(16)])
        for arguments, expected in ((["h.wav"], each), (["one.wav"], convolved(
                x, h, [(i, 0, i) for i in range(16)]))):
            self.assert_near(self.run_filter("convolve", "--ir", *arguments, source="sixteen.wav"),
                             to_int16(expected))
        wavfile.write("mono.wav", 48000, x[:, 0])
        self.assert_near(self.run_filter("convolve", "--ir", "h.wav", source="mono.wav"),
                         to_int16(convolved(x, h, [(0, i, i) for i in range(16)])))
        wavfile.write("float.wav", 48000, (x / 3000).astype(np.float32))  # up to three times full
        result = self.run_tool("convolve", "float.wav", "out.wav", "--ir", "h.wav")
        difference = read("out.wav")[1] - convolved((x / 3000).astype(np.float32), h,
                                                    [(i, i, i) for i in range(16)])
        self.assertLess(np.abs(difference).max(), 1e-6 * np.abs(read("out.wav")[1]).max())
        self.assertNotIn("16 bits", result)
        write_numbers("taps.txt", [h[0]])
        write_numbers("ba.txt", signal.butter(2, 0.1))
        write_numbers("sos.txt", signal.butter(4, 0.1, output="sos"))
        for command in (["fir", "-c", "taps.txt"], ["iir", "-c", "ba.txt"],
                        ["sos", "-c", "sos.txt"], ["average", "--length", 9],
                        ["average", "--length", 700], ["fir", "-c", "taps.txt", "--precision",
                                                       "double"]):
            result = self.run_filter(*command, source="sixteen.wav")
            for c in (0, 1, 14, 15):
                wavfile.write("mono.wav", 48000, x[:, c])
                alone = self.run_filter(*command, source="mono.wav", output="alone.wav")
                np.testing.assert_array_equal(result[:, c], alone[:, 0], str((command, c)))
        wavfile.write("eleven.wav", 48000, x[:, :11])
        narrow = self.run_filter("sos", "-c", "sos.txt", source="eleven.wav")
        np.testing.assert_array_equal(narrow, self.run_filter("sos", "-c", "sos.txt",
                                                              source="sixteen.wav")[:, :11])

    def test_unstable_filters_say_when_they_are_lost(self):
        wavfile.write("noise.wav", 48000, np.full(48000, 1000, np.int16))
        write_numbers("ba.txt", [[1], [1, -1.01]])
        write_numbers("sos.txt", [[1, 0, 0, 1, -1.01, 0]])
        for command, name in (("iir", "ba.txt"), ("sos", "sos.txt")):
            for precision in ("int16", "double"):
                done = subprocess.run([TOOL, command, "noise.wav", "out.wav", "-c", name, "--keep-a",
                                       "--precision", precision, "--overwrite", "-q", "--as-is"],
                                      capture_output=True, text=True, check=True)
                # 1.01^n leaves the floats after about 8000 samples.
                second = float(re.search(r"from second (\S+) on", done.stderr)[1])
                self.assertTrue(0.1 < second < 0.25, (command, precision, second))

    def test_options_take_numbers_only(self):
        write_numbers("one.txt", [[1]])
        for command, option in (("fir -c one.txt", "--gain"), ("binaural", "--azimuth"),
                                ("binaural", "--elevation"), ("binaural", "--orbit"),
                                (f"convolve --ir {BAND} --fade-to {BAND}", "--at"),
                                ("level", "--every")):
            for value in ("nan", "1e30", "-inf"):
                name, *rest = command.split()
                files = [SPEECH] if name == "level" else [SPEECH, "new.wav"]
                self.assert_fails([name, *files, *rest, option, value], option, code=2)

    def test_responses_as_text(self):
        h = np.random.default_rng(7).normal(0, 0.1, (2, 50))
        x = read(SPEECH)[1]
        for text, expected in (
                ("\n".join(map(repr, h[0].tolist())), h[:1]), (" ".join(map(repr, h[0].tolist())), h[:1]),
                ("time;left;right\n" + "\n".join(
                    f"{i / 48000:.9f};{a!r};{b!r}".replace(".", ",")
                    for i, (a, b) in enumerate(h.T.tolist())), h)):
            with open("h.txt", "w", encoding="ascii") as file:
                file.write(text)
            matrix = [(0, k, k) for k in range(len(expected))]
            self.assert_near(self.run_filter("convolve", "--ir", "h.txt"),
                             to_int16(convolved(x, expected, matrix)))
            self.assert_near(self.run_filter("convolve", "--ir", "h.txt", "--truncate", 20),
                             to_int16(convolved(x, expected[:, :20], matrix)))
        self.assert_fails(["convolve", SPEECH, "new.wav", "--ir", write_numbers("x.txt", [[1]]),
                           "--ir", __file__], __file__)

    def test_true_stereo_is_summed_before_it_is_limited(self):
        wavfile.write("loud.wav", 48000, np.full((64, 2), 30000, np.int16))
        wavfile.write("four.wav", 48000, np.array([[1.5, 0, -1, 0]], np.float32))
        report = self.run_tool("convolve", "loud.wav", "out.wav", "--ir", "four.wav")
        self.assertEqual(read("out.wav")[1][5].tolist(), [15000, 0])
        self.assertRegex(report, "clipped +0 samples")

    def test_binaural(self):
        ahead = self.run_filter("binaural")
        np.testing.assert_array_equal(ahead[:, 0], ahead[:, 1])
        left = self.run_filter("binaural", "--azimuth", 80, "--elevation", 20)
        right = self.run_filter("binaural", "--azimuth", -80, "--elevation", 20)
        self.assert_near(left, right[:, ::-1])
        energy = (left.astype(float) ** 2).sum(axis=0)
        self.assertGreater(energy[0], 4 * energy[1])
        # Two turns: the louder ear changes with the half turns, and no block starts with a click.
        n = np.arange(48000)
        tone = np.round(8000 * np.sin(2 * np.pi * 500 * n / 48000)).astype(np.int16)
        wavfile.write("tone.wav", 48000, tone)
        orbit = self.run_filter("binaural", "--orbit", 0.5, "--no-tail", source="tone.wav")
        for start, louder in ((4000, 0), (16000, 1), (28000, 0), (40000, 1)):
            energy = (orbit[start:start + 4000].astype(float) ** 2).sum(axis=0)
            self.assertGreater(energy[louder], 2 * energy[1 - louder], start)
        bend = np.abs(np.diff(orbit[1000:], n=2, axis=0)).max()
        self.assertLess(bend, 1.2 * np.abs(orbit).max() * (2 * np.pi * 500 / 48000) ** 2 + 4)

    def test_bad_input(self):
        wavfile.write("three.wav", 48000, np.ones((9, 3), np.int16))
        wavfile.write("nan.wav", 48000, np.full(9, np.nan, np.float32))
        wavfile.write("zero.wav", 48000, np.zeros(9, np.int16))
        wavfile.write("seventeen.wav", 48000, np.ones((9, 17), np.int16))
        wavfile.write("two.wav", 48000, np.ones((9, 2), np.int16))
        for arguments, code, *words in (
                ([], 2, "--ir", "--routes"), (["--ir", "missing.wav"], 3, "missing.wav"),
                (["--ir", CROSSTALK[0]], 3, "EYCv2L44", "44100", "48000", "--resample"),
                (["--ir", STREET[0], "--fft"], 3, "street2-L", "18650", "8192", "32767",
                 "--truncate"),
                (["--ir", STREET[0], "--fft", "--truncate", 8193], 2, "8193", "8192"),
                (["--ir", "two.wav", "--fft", "--time-domain"], 2, "--fft"),
                (["--ir", "three.wav", "--fft"], 2, "three.wav", "3 channels"),
                (["--ir", "two.wav", "--routes", "two.wav"], 2, "--routes"),
                (["--ir", "two.wav", "--raw-latency"], 2, "--fft"),
                (["--ir", "seventeen.wav"], 3, "seventeen.wav", "17 channels", "16"),
                (["--ir", "two.wav", "--block", 4097], 2, "4096"),
                (["--ir", "two.wav", "--fft", "--block", 2000], 2, "1056"),
                (["--ir", "nan.wav"], 3, "nan.wav", "finite"),
                (["--ir", "zero.wav", "--normalise"], 3, "zero.wav", "silent"),
                (["--ir", "two.wav", "--route", "crossed"], 2, "stereo"),
                (["--ir", "two.wav", "--route", "straight"], 2, "2 channels"),
                (["--ir", BAND, "--route", "sideways"], 2, "sideways"),
                (["--ir", BAND, "--fade-to", BAND], 2, "--at"),
                (["--ir", BAND, "--fade-to", "two.wav", "--at", 1], 2, "two.wav"),
                (["--ir", BAND, "--fade-to", BAND, "--at", 9], 2, "9", "1.428")):
            self.assert_fails(["convolve", SPEECH, "out.wav", *arguments], *words, code=code)
        self.assert_fails(["convolve", SPEECH, "two.wav", "--ir", "two.wav"], "two.wav", code=2)
        delayed = []
        if importlib.util.find_spec("h5py"):
            import h5py
            shutil.copy("/usr/share/libmysofa/default.sofa", "delayed.sofa")
            with h5py.File("delayed.sofa", "r+") as file:
                file["Data.Delay"][...] = 40000
            delayed.append((["--sofa", "delayed.sofa"], "delayed.sofa", "43538;", "32767"))  # at 48 kHz
        for arguments, *words in (*delayed, (["--sofa", "two.wav"], "two.wav", "SOFA"),
                                  (["--sofa", "missing.sofa"], "missing.sofa", "no such file")):
            self.assert_fails(["binaural", SPEECH, "out.wav", *arguments], *words)
        self.assert_fails(["binaural", MUSIC, "out.wav"], MUSIC, "mono")


class BadInputTest(ToolTest):
    def test_coefficients(self):
        for command, text, *words in (
                ("fir", "1 2\n3 x4 5\n", ":2:", "'x4'"),
                ("fir", "1 nan\n", ":1:", "'nan'"),
                ("fir", "1\n2\n1e39\n", ":3:", "1e39", "range"),
                ("fir", "1e400\n", ":1:", "1e400"),
                ("fir", "0x10\n", ":1:", "0x10"),
                ("fir", "1,,2\n", ":1:", "comma"),
                ("fir", "1\x00\x07\n", "binary", "S16LE"),
                ("fir", "", "no numbers"),
                ("fir", "# 1 2 3\n", "no numbers"),
                ("fir --precision int16", "1 " * 1250 + "\n1", "1251", "1250"),
                ("iir", "1 2\n", ":1:", "1 line"),
                ("iir", "1\n\n1\n1\n", ":4:", "3 lines"),
                ("iir", "1\n2 1\n", ":2:", "with 2"),
                ("iir", "1\n" + "1 " * 1251, "1251", "1250"),
                ("sos", "1 0 0 1 0 0\n1 2 3 4 5\n", ":2:", "5 numbers", "six"),
                ("sos", "1 0 0 0.5 0 0\n", ":1:", "0.5"),
                ("sos --precision int16", "1 0 0 1 0 0\n" * 417, "417", "416")):
            with open("c.txt", "w", encoding="ascii") as file:
                file.write(text)
            self.assert_fails([*command.split(), SPEECH, "out.wav", "-c", "c.txt"], "c.txt", *words)

    def test_files(self):
        write_numbers("one.txt", [[1]])
        open("empty.wav", "w").close()
        wavfile.write("none.wav", 48000, np.zeros(0, np.int16))
        os.mkdir("folder.wav")
        for source, *words in (("missing.wav", "no such file"), ("empty.wav", "empty"),
                               ("none.wav", "no samples"),
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
                ([], "subcommand"), (["fir"], "FILES"), (["fir", SPEECH, "out.wav"], "coefficients"),
                (["fir", *common, "--block", "0"], "--block"),
                (["fir", *common, "--block", "1057"], "1056"),
                (["iir", SPEECH, "out.wav"], "--numerator"),
                (["fir", SPEECH, "out.ogg", "-c", "one.txt", "--bits", "24"], "24-bit"),
                (["fir", SPEECH, "out.flac", "-c", "one.txt", "--bits", "float"], "float"),
                (["fir", *common, "--precision", "single"], "single"),
                (["level", SPEECH, "--length", "257"], "256"),
                (["level", SPEECH, SPEECH], SPEECH),
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
        command = f"ulimit -f 50; '{TOOL}' fir in.wav out.wav -c one.txt --overwrite"
        limited = subprocess.run(["bash", "-c", command], capture_output=True, text=True)
        self.assertEqual(limited.returncode, 4, limited.stderr)
        self.assertIn("out.wav", limited.stderr)
        self.assertEqual(len(read("out.wav")[1]), 9)
        self.assertEqual(len(os.listdir()), 5)
        with subprocess.Popen([TOOL, "convolve", MUSIC, "out.wav", "--ir", STREET[0], "--resample",
                               "--time-domain", "--overwrite"],
                              stderr=subprocess.PIPE, text=True) as running:
            while len(os.listdir()) == 5 and running.poll() is None:
                time.sleep(0.01)
            running.terminate()
            self.assertEqual((running.wait(), running.stderr.read()),
                             (130, "jurn-filter: interrupted\n"))
        self.assertEqual(len(os.listdir()), 5)


if __name__ == "__main__":
    unittest.main()

"""Impulse responses in jurn-filter, compared with SciPy; a source around a listener."""

import json
import os
import unittest

import numpy as np
from scipy import signal
from scipy.io import savemat, wavfile

from tool_test import (BAND, CROSSTALK, MUSIC, RESPONSES, SPEECH, STREET, ToolTest, read, to_int16,
                       write)


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
            for domain in (["--no-tail"], ["--fft"], ["--time-domain"]):
                if matrix is self.FOUR and domain != ["--no-tail"]:
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
        wavfile.write("tone.wav", 8000, tone)
        for name, count, gain in (("a.wav", 300, 1), ("b.wav", 260, -0.5)):
            h = np.zeros(count, np.float32)
            h[7] = gain
            wavfile.write(name, 8000, h)
        for domain in ([], ["--fft"], ["--time-domain"]):
            y_a, y_b = (self.run_filter("convolve", "--ir", name, *domain, "--no-tail", source="tone.wav")
                        for name in ("a.wav", "b.wav"))
            y = self.run_filter("convolve", "--ir", "a.wav", *domain, "--no-tail", "--fade-to", "b.wav", "--at", 1,
                                "--fade-to", "a.wav", "--at", 2, source="tone.wav")
            # One block of 1024 frames, or one hop of 725, holds the whole change.
            for begin, end, steady in ((0, 6900, y_a), (9100, 14900, y_b), (17100, None, y_a)):
                self.assert_near(y[begin:end], steady[begin:end], (domain, begin))
            step = np.abs(np.diff(y, axis=0)).max()
            # The ramp; of the FFT's, the transform's first 299 of 1023 steps are not heard.
            fade = 299 / 1023 + 1.5 / 724 if domain == ["--fft"] else 1.5 / 724
            fade *= np.abs(y_a - y_b).max()
            self.assertLessEqual(step, np.abs(np.diff(y_a, axis=0)).max() + fade, domain)

    def test_routes(self):
        """Text and jconvolver's own files, any channels, another matrix to fade to."""
        rng = np.random.default_rng(5)
        x = rng.integers(-9000, 9000, (9000, 3)).astype(np.int16)
        h = rng.normal(0, 0.1, (2, 700))
        wavfile.write("three.wav", 48000, x)
        os.mkdir("a folder")
        wavfile.write("a folder/h.wav", 48000, h.T.astype(np.float32))
        np.savetxt("short.txt", [0.5, 0.25])
        write("routes.txt", '# input output file channel\n3 1 "a folder/h.wav" 2\n\n'
                            '1 1 "a folder/h.wav"  # the first\n1 5 "a folder/h.wav" 2\n')
        result = self.run_filter("convolve", "--routes", "routes.txt", source="three.wav")
        taps = [row.astype(np.float32).astype(float) for row in h]
        y = np.zeros((len(x) + 699, 5))
        y[:, 0] = signal.fftconvolve(x[:, 2], taps[1]) + signal.fftconvolve(x[:, 0], taps[0])
        y[:, 4] = signal.fftconvolve(x[:, 0], taps[1])
        self.assert_near(result, to_int16(y))
        write("other.txt", "/cd a folder\n/convolver/new 3 5 256 600 1.0\n/input/name 1 left\n"
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
                             ("/impulse/dirac 1 9 1 0\n/convolver/new 1 2 256 600", ":2:", "before the routes"),
                             ("/impulse/hilbert 1 1 1 9 9", ":1:", "/impulse/hilbert")):
            self.assert_fails(["convolve", "three.wav", "out.wav", "--routes", write("bad.txt", text)], *words)
        self.assert_fails(["convolve", "three.wav", "a folder/h.wav", "--routes", "routes.txt", "--overwrite"],
                          "same file", code=2)

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
        np.save("sos.npy", signal.butter(4, 0.1, output="sos"))
        for command in (["sos", "-c", "sos.npy"], ["sos", "-c", "sos.npy", "--precision", "int16"],
                        ["average", "--length", 9, "--precision", "int16"]):
            result = self.run_filter(*command, source="sixteen.wav")
            for c in (1, 14, 15):
                wavfile.write("mono.wav", 48000, x[:, c])
                np.testing.assert_array_equal(result[:, c], self.run_filter(*command, source="mono.wav")[:, 0])

    def test_every_file_of_taps_is_a_response(self):
        h = np.random.default_rng(8).normal(0, 0.1, (2, 70))
        np.save("h.npy", h[0])
        np.savez("h.npz", taps=h[0])
        savemat("room.mat", {"room": h[0], "hall": -h[0]})
        h[0].astype("<f4").tofile("h.raw")
        numbers = h[0].tolist()
        for name, text in (("h.json", json.dumps({"taps": numbers})), ("list.json", json.dumps(numbers)),
                           ("h.h", "const double h[70] = {" + ",".join(map(repr, numbers)) + "};"),
                           ("scalars.txt", "\n".join(f"h[{i}] = {x!r}" for i, x in enumerate(numbers))),
                           ("row.txt", " ".join(map(repr, numbers))),
                           ("utf16.txt", "\n".join(map(repr, numbers))),
                           ("time.csv", "time;left;right\n" + "\n".join(
                               f"{i / 48000:.6f};{a!r};{b!r}".replace(".", ",")
                               for i, (a, b) in enumerate(h.T.tolist())))):
            write(name, text.encode("utf-16" if name == "utf16.txt" else "ascii"))
        expected = to_int16(convolved(read(SPEECH)[1], h, self.TO_STEREO))
        for name, *options in (("h.npy",), ("h.npz",), ("h.json",), ("list.json",), ("h.h",), ("scalars.txt",),
                               ("row.txt",), ("utf16.txt",), ("room.mat", "--variables", "room"),
                               ("h.raw", "--format", "FLOAT32LE"), ("time.csv",)):
            result = self.run_filter("convolve", "--ir", name, *options)
            self.assert_near(result, expected[:, :2 if name == "time.csv" else 1], name)
        short = self.run_filter("convolve", "--ir", "time.csv", "--truncate", 20)
        self.assert_near(short, to_int16(convolved(read(SPEECH)[1], h[:, :20], self.TO_STEREO)))
        both = self.run_filter("convolve", "--routes", write("routes.txt", "1 1 h.npy\n1 2 h.json\n"))
        self.assert_near(both, expected[:, [0, 0]])
        np.save("long.npy", np.ones(2**20 + 1))
        self.assert_fails(["convolve", SPEECH, "no.wav", "--ir", "long.npy"], "long.npy", "1048576")
        self.assert_fails(["convolve", SPEECH, "new.wav", "--ir", "row.txt", "--ir", __file__], __file__)

    def test_true_stereo_is_summed_before_it_is_limited(self):
        wavfile.write("loud.wav", 48000, np.full((64, 2), 30000, np.int16))
        wavfile.write("four.wav", 48000, np.array([[1.5, 0, -1, 0]], np.float32))
        report = self.run_tool("convolve", "loud.wav", "out.wav", "--ir", "four.wav")
        self.assertEqual(read("out.wav")[1][5].tolist(), [15000, 0])
        self.assertRegex(report, "clipped +0 samples")


class BinauralTest(ToolTest):
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


if __name__ == "__main__":
    unittest.main()

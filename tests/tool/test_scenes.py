"""What spoils filters with a flush or with too few bits: high-passes with their poles near 1, music
that ends, responses that die away. Every passage of the result has to be SciPy's in float64, the
quiet ones too.

A passage is 50 ms of one channel. Its error is the largest difference within it, in relation to the
largest sample that it is to have there, however quiet the passage is. Differences below 1e-28 of full
scale, -560 dB, are none: states of the library's sections below 1e-30 become 0. The results are
floats, whose own rounding is -144 dB of each sample."""

import os
import unittest

import numpy as np
from scipy import signal
from scipy.io import wavfile

from tool_test import ToolTest, read, write_numbers

SPEECH = "/usr/share/sounds/alsa/"
MUSIC = "/usr/share/sonic-pi/samples/loop_amen.flac"
SILENCE = 1e-28
LIMIT = 1e-6  # -120 dB


def worst_passage(y, expected, rate):
    """The largest error of a passage in relation to the passage's own peak."""
    length = rate // 20
    worst = 0.0
    for start in range(0, len(expected), length):
        passage = expected[start:start + length]
        error = np.abs(y[start:start + length] - passage).max(axis=0)
        error = np.maximum(error - SILENCE, 0)
        worst = max(worst, (error / np.maximum(np.abs(passage).max(axis=0), SILENCE)).max())
    return worst


def gammatone(hertz, rate):
    """Fourth order: four times the same pair of poles, a zero of its own in each, 0 dB at hertz."""
    width = 1.019 * 24.7 * (4.37 * hertz / 1000 + 1)
    angle, radius = 2 * np.pi * hertz / rate, np.exp(-2 * np.pi * width / rate)
    sections = []
    for k in (np.sqrt(3 + 2**1.5), -np.sqrt(3 + 2**1.5), np.sqrt(3 - 2**1.5), -np.sqrt(3 - 2**1.5)):
        zero = radius * (np.cos(angle) + k * np.sin(angle))
        sections.append([1, -zero, 0, 1, -2 * radius * np.cos(angle), radius**2])
        _, h = signal.sosfreqz(sections[-1:], [hertz], fs=rate)
        sections[-1][:2] /= np.abs(h)
    return np.array(sections, float)


class SceneTest(ToolTest):
    def check(self, name, rate, x, sos, ba):
        """Both forms of a filter on x; returns their results. SciPy's own direct form in float64 is
        off by -113 dB for a gammatone, so that form is compared with one in long double."""
        wavfile.write("in.wav", rate, x.astype(np.float32))
        write_numbers("sos.txt", sos)
        write_numbers("iir.txt", ba)
        in_long = [np.asarray(values, np.longdouble) for values in (*ba, x)]
        results = []
        for form, expected in (("sos", signal.sosfilt(sos, x, axis=0)),
                               ("iir", signal.lfilter(*in_long, axis=0).astype(float))):
            self.run_tool(form, "in.wav", "out.wav", "-c", form + ".txt", "--bits", "float")
            read_rate, y = read("out.wav")
            self.assertEqual((read_rate, y.dtype), (rate, np.float32))
            y = y[:len(x)].astype(float)
            self.assertLess(worst_passage(y, expected, rate), LIMIT, (name, form))
            results.append(y)
        return results

    def test_speech_through_high_passes(self):
        names = sorted(name for name in os.listdir(SPEECH) if name.endswith(".wav"))
        self.assertEqual(len(names), 9)
        for name in names:
            rate, x = read(SPEECH + name)
            x = x / 32768
            for order in (2, 4):
                for edge in (20, 40, 60, 80, 100):
                    designs = [signal.butter(order, edge, "highpass", fs=rate, output=form)
                               for form in ("sos", "ba")]
                    self.check((name, order, edge), rate, x, *designs)

    def test_silence_after_music(self):
        rate, x = read(MUSIC)
        x = np.concatenate([x / 32768, np.zeros((rate, x.shape[1]))])
        designs = [signal.cheby1(4, 1, [900, 1400], "bandpass", fs=rate, output=form)
                   for form in ("sos", "ba")]
        for y in self.check("music", rate, x, *designs):
            self.assertTrue(y[-rate:].any())
            self.assertFalse(y[-rate // 2:].any())  # exact silence in the end

    def test_impulse_through_a_gammatone(self):
        rate = 44100
        x = np.zeros((rate, 1))
        x[0] = 1
        for y in self.check("impulse", rate, x, gammatone(700, rate),
                            signal.gammatone(700, "iir", fs=rate)):
            self.assertGreater(np.abs(y).max(), 1e-3)
            self.assertFalse(y[rate // 2:].any())


if __name__ == "__main__":
    unittest.main()

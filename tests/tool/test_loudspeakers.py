"""What loudspeakers take: filters of first order, Linkwitz transforms, tilts, linear phase, setups."""

import os
import unittest

import numpy as np
from scipy import signal
from scipy.io import wavfile

from test_formats import equaliser
from tool_test import MUSIC, SPEECH, ToolTest, read, write

RATE = 48000
CLICK = 1 << 16


class EqualiserWords(ToolTest):
    """Responses from a click in double precision."""

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

    def test_linear_phase(self):
        for words, kind, corners, transition in (
                ("HP 200 linear", "highpass", 200, 100), ("LP 2k linear transition 300 Hz", "lowpass", 2000, 300),
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

    def test_several_and_files(self):
        whole = self.response("HP 40 order 2", "LP 300 linear", "HP 100 linear", "PK 60 -3 Q 2")[1]
        parts = [self.response(w)[1] for w in
                 ("HP 40 order 2", "LP 300 linear", "HP 100 linear", "PK 60 -3 Q 2")]
        self.assertLess(np.abs(whole - np.prod(parts, 0)).max(), 1e-6)
        write("eq.txt", "# the box\nHP 40 order 2\nLP 300 linear  # no phase\n\nHP 100 linear\n")
        self.assertLess(np.abs(self.response("-c", "eq.txt", "PK 60 -3 Q 2")[1] - whole).max(), 1e-7)
        write("apo.txt", "Preamp: -6 dB\nFilter 1: ON LT Fc 70 Hz Q 1.1 to 28 Hz Q 0.7\nTILT 1k 2\n"
                         "GraphicEQ: 100 0; 1000 6\nFilter 2: OFF PK Fc 100 Hz Gain 9 dB Q 1\n")
        h = self.response("-c", "apo.txt")[1]
        graphic = write("graphic.txt", "GraphicEQ: 100 0; 1000 6\n")
        expected = (10 ** (-6 / 20) * self.response("LT 70 1.1 28 0.7")[1] *
                    self.response("TILT 1k 2")[1] * self.response("-c", graphic)[1])
        self.assertLess(np.abs(h - expected).max(), 5e-6)
        self.assertLess(abs(np.abs(self.response("-c", "apo.txt", "--normalise")[1]).max() - 1), 0.02)

    def test_refusals(self):
        self.assert_fails(["eq", "click.wav", "new.wav", "LP 80 linear", "--precision", "int16"],
                          "1250")
        write("eq.txt", "HP 80\nXX 90 -3\n")
        self.assert_fails(["eq", "click.wav", "new.wav", "-c", "eq.txt"], "eq.txt:2", "'XX'")
        self.assert_fails(["eq", "click.wav", "new.wav", "-c", "no.txt"], "no.txt")
        self.assert_fails(["export", "new.h", "--eq", "LP 80 linear"], "linear")


def sections(kind, corner, order=2):
    return signal.butter(order, corner, kind, fs=RATE, output="sos")


class Setups(ToolTest):
    """Whole setups on recordings, beside a model in float64."""

    def setUp(self):
        super().setUp()
        rate, music = read(MUSIC)
        self.music = music[:3 * rate].astype(np.int16)
        wavfile.write("music.wav", RATE, self.music)
        wavfile.write("float.wav", RATE, (self.music / 32768).astype(np.float32))

    def put(self, text):
        return write("setup.yml", text)

    def model(self, x):
        """What examples/setups/two-way.yml does."""
        x = signal.sosfilt(equaliser([("HP", 25, 0, 0.7)], RATE), x, axis=0)
        low = signal.sosfilt(np.tile(sections("low", 2000), (2, 1)), x, axis=0)
        high = signal.sosfilt(np.tile(sections("high", 2000), (2, 1)), x, axis=0)
        late = np.vstack([np.zeros((12, 2)), high[:-12]])
        return np.hstack([low, 10 ** (-3.5 / 20) * late])

    def test_two_way(self):
        example = os.path.join(os.environ["JURN_FILTER_SOURCE"], "../../examples/setups/two-way.yml")
        self.assertIn("4 channels", self.run_tool("setup", "music.wav", "out.wav", "-c", example,
                                                  "--no-tail"))
        expected = self.model(self.music.astype(float))
        error = read("out.wav")[1] - expected
        self.assertLessEqual(np.abs(error).max(), 1)
        self.assertLessEqual(np.sqrt(np.mean(error ** 2)), 0.3)
        self.run_tool("setup", "float.wav", "out.wav", "-c", example, "--no-tail")
        self.assertLess(np.abs(read("out.wav")[1] - expected / 32768).max(), 1e-6)
        self.run_tool("setup", "music.wav", "24.wav", "-c", example, "--no-tail", "--bits", "24")
        self.assertLess(np.abs(read("24.wav")[1] / 2 ** 31 - expected / 32768).max(), 2 ** -23)
        done = self.shell(f"jurn setup music.wav out.wav -c {example} --overwrite")[1]
        self.assertIn("2 in, 4 out; largest gains 0.0, 0.0, -3.5, -3.5 dB", done)

    def test_mixing_and_delays_are_exact(self):
        name = self.put("""
devices: {samplerate: 48000, capture: {type: Stdin, channels: 2}, playback: {type: Stdout, channels: 3}}
mixers:
  three:
    channels: {in: 2, out: 3}
    mapping:
      - {dest: 2, sources: [{channel: 0, gain: 0.5, scale: linear}, {channel: 1, gain: -0.25, scale: linear}]}
      - {dest: 0, sources: [{channel: 1, inverted: true}]}
      - {dest: 1, mute: true, sources: [{channel: 1}]}
filters:
  late: {type: Delay, parameters: {delay: 7, delay_unit: samples}}
  later: {type: Delay, parameters: {delay: 1.5, delay_unit: ms}}
  metres: {type: Delay, parameters: {delay: 1000, delay_unit: mm}}
pipeline:
  - {type: Mixer, name: three}
  - {type: Filter, channel: 0, names: [late, later]}
  - {type: Filter, channels: [2], names: [metres], bypassed: false}
  - {type: Filter, channels: [2], names: [late], bypassed: true}
""")
        done = self.shell(f"jurn setup float.wav out.wav -c {name}")[1]
        self.assertIn("'metres' of 139.941691 frames is rounded to 140", done)
        x, y = self.music / 32768, read("out.wav")[1]
        self.assertEqual(len(y), len(x) + 140)
        np.testing.assert_array_equal(y[79:79 + len(x), 0], -x[:, 1])
        self.assertEqual(np.abs(y[:, 1]).max(), 0)
        np.testing.assert_array_equal(y[140:, 2], 0.5 * x[:, 0] - 0.25 * x[:, 1])
        click = np.zeros(4096, np.float32)
        click[0] = 1
        wavfile.write("click.wav", RATE, click)
        for frames in (0.3, 1.2, 30.86):
            self.run_tool("setup", "click.wav", "out.wav", "-c", self.put(
                f"filters: {{d: {{type: Delay, parameters: {{delay: {frames}, delay_unit: samples, "
                "subsample: true}}}\npipeline: [{type: Filter, names: [d]}]"))
            f = np.arange(100, 2000, 10)
            h = signal.freqz(read("out.wav")[1][:, 0].astype(float), worN=f, fs=RATE)[1]
            delay = -np.unwrap(np.angle(h)) / (2 * np.pi * f) * RATE
            self.assertLess(np.abs(delay - frames).max(), 0.005, frames)
            self.assertLess(np.abs(np.abs(h) - 1).max(), 1e-6)

    def test_gains_of_routes(self):
        """Of convolve, beside the channel or without it."""
        np.savetxt("one.txt", [1.0])
        wavfile.write("two.wav", RATE, np.array([[1, 0.5]], np.float32))
        write("routes.txt", "1 1 two.wav 2 -6\n2 1 one.txt -3dB\n1 2 two.wav -20dB inverted  # late\n"
                            "2 3 two.wav inverted 2\n")
        self.run_tool("convolve", "float.wav", "out.wav", "--routes", "routes.txt")
        x, (a, b, c) = self.music / 32768, 10 ** (np.array([-6, -3, -20]) / 20)
        expected = np.stack([0.5 * a * x[:, 0] + b * x[:, 1], -c * x[:, 0], -0.5 * x[:, 1]], 1)
        self.assertLess(np.abs(read("out.wav")[1] - expected).max(), 1e-6)
        for line in ("1 1 two.wav 1 2 3", "1 1 two.wav loud", "1 1 two.wav 1.5", "1 1 two.wav 1 nan",
                     "1 1 two.wav -3dB -3dB", "/impulse/dirac 1 1 1e300 0"):
            self.assert_fails(["convolve", "float.wav", "new.wav", "--routes", write("routes.txt", line)],
                              "routes.txt:1:", "gain")

    def test_every_filter(self):
        """Each type of CamillaDSP beside SciPy or the tool's own words."""
        taps = np.hanning(201) * np.random.default_rng(3).standard_normal(201) / 8
        wavfile.write("two.wav", RATE, np.stack([taps[::-1], taps], 1))
        taps.astype("<f8").tofile("taps_48000.dbl")
        np.savetxt("taps.txt", taps)
        np.save("sos.npy", sections("low", 900, 5))
        tan = np.tan(np.pi * np.array([60, 40]) / RATE)
        def analogue(zero, pole, q):
            return signal.bilinear([1, 0, zero ** 2], [1, pole / q, pole ** 2], 0.5)
        b, a = analogue(*tan, 1.5)
        words = {
            "type: Lowshelf, freq: 100, slope: 6, gain: 3": "LSC 6dB 100 3",
            "type: HighshelfFO, freq: 900, gain: -3": "HS 900 -3 order 1",
            "type: LowshelfFO, freq: 900, gain: -3": "LS 900 -3 order 1",
            "type: AllpassFO, freq: 900": "AP 900 order 1", "type: Allpass, freq: 900, q: 2": "AP 900 Q 2",
            "type: Notch, freq: 90, bandwidth: 0.5": "NO 90 BW 0.5", "type: Bandpass, freq: 90, q: 1": "BP 90 Q 1",
            "type: LinkwitzTransform, freq_act: 70, q_act: 1.1, freq_target: 30, q_target: 0.7":
                "LT 70 Q 1.1 to 30 Q 0.7"}
        combos = {
            "type: FivePointPeq, fls: 90, gls: 2, qls: 0.7, fp1: 200, gp1: -3, qp1: 2, fp2: 500, gp2: 1, qp2: 1,"
            " fp3: 2000, gp3: -2, qp3: 3, fhs: 7000, ghs: 3, qhs: 0.8":
                ["LSC 90 2 Q 0.7", "PK 200 -3 Q 2", "PK 500 1 Q 1", "PK 2000 -2 Q 3", "HSC 7000 3 Q 0.8"],
            "type: GraphicEqualizer, gains: [3, 0, -2]": [
                f"PK {20 * 10 ** 0.5} 3 BW {np.log2(10)}", f"PK {20 * 10 ** 2.5} -2 BW {np.log2(10)}"]}
        x = self.music / 32768
        fir = signal.lfilter(taps, [1], x, axis=0)
        cases = [("Biquad", p, [w]) for p, w in words.items()] + [
            ("BiquadCombo", p, w) for p, w in combos.items()] + [
            ("Biquad", "type: GeneralNotch, freq_z: 60, freq_p: 40, q_p: 1.5", signal.lfilter(b, a, x, axis=0)),
            ("Conv", "type: Wav, filename: two.wav, channel: 1", fir),
            ("Conv", "type: Raw, filename: taps_$samplerate$.dbl, format: F64_LE", fir),
            ("Conv", "type: Raw, filename: taps.txt", fir),
            ("Conv", f"type: Values, values: [{', '.join(map(str, taps))}]", fir),
            ("Coefficients", "filename: sos.npy", signal.sosfilt(sections("low", 900, 5), x, axis=0)),
            ("DiffEq", "b: [0.2, 0.4, 0.2], a: [1.0, -0.1, 0.005]",
             signal.lfilter([0.2, 0.4, 0.2], [1, -0.1, 0.005], x, axis=0))]
        for kind, parameters, expected in cases:
            self.run_tool("setup", "float.wav", "out.wav", "--no-tail", "-c", self.put(
                f"filters: {{f: {{type: {kind}, parameters: {{{parameters}}}}}}}\n"
                "pipeline: [{type: Filter, names: [f]}]"))
            if isinstance(expected, list):
                self.run_tool("eq", "float.wav", "eq.wav", *expected)
                expected = read("eq.wav")[1]
            self.assertLess(np.abs(read("out.wav")[1] - expected).max(), 1e-6, parameters)
            if "two.wav" in parameters:
                self.assert_fails(["setup", "float.wav", "two.wav", "-c", "setup.yml", "--overwrite"],
                                  "same file", code=2)

    def test_refusals(self):
        good = ("mixers:\n  m: {channels: {in: 2, out: 1}, mapping: [{dest: 0, sources: [{channel: 1}]}]}\n"
                "filters:\n  f: {type: Gain, parameters: {gain: 0}}\n"
                "pipeline:\n  - {type: Filter, channels: [1], names: [f]}\n  - {type: Mixer, name: m}\n")
        self.run_tool("setup", "music.wav", "out.wav", "-c", self.put(good))
        for old, new, *said in (
                ("type: Gain", "type: Volume", ":4:", "'Volume'"), ("names: [f]", "names: [g]", ":6:", "'g'"),
                ("name: m}", "name: n}", ":7:", "'n'"), ("type: Mixer", "type: Processor", ":7:", "'Processor'"),
                ("[1], names", "[2], names", ":6:", "2"), ("dest: 0", "dest: 1", ":2:", "'dest'"),
                ("in: 2", "in: 3", "setup.yml:2:", "3"), ("gain: 0", "", ":4:", "'gain'"),
                ("channel: 1}", "channel: 2}", ":2:", "'channel'"), ("pipeline", "pipelines", "pipeline"),
                ("[1], names: [f]", "[1], names: f", ":6:", "'names'"), ("mixers:", "mixers: [", "YAML"),
                ("mixers:", "devices: {samplerate: 1e20}\nmixers:", ":1:", "'samplerate'", "10000000")):
            if new == "in: 3":
                good2 = "devices: {capture: {channels: 2}}\n" + good.replace(old, new)
                said = (":3:", "3 channels, and 2 come in")
            else:
                good2 = good.replace(old, new)
            self.assert_fails(["setup", "music.wav", "new.wav", "-c", self.put(good2)], "setup.yml", *said)
        self.assert_fails(["setup", SPEECH, "new.wav", "-c", self.put(good)], "2 channels", "has 1")
        self.assert_fails(["setup", "music.wav", "new.wav", "-c", "none.yml"], "none.yml")
        self.assert_fails(["setup", "music.wav", "new.wav", "-c", self.put("1 2 3\n")], "setup.yml")

    def test_channels_of_equalizer_apo(self):
        """Each line filters the channels that stand before it; one filter for all is another."""
        lines = {"one": "PK Fc 1000 Hz Gain 6 dB Q 1", "two": "HS Fc 5000 Hz Gain -4 dB Q 0.7",
                 "both": "HP Fc 50 Hz Q 0.7"}
        write("apo.txt", "Preamp: -8 dB\nChannel: L\nFilter 1: ON {one}\nChannel: 2 # R\nPreamp: -2 dB\n"
              "Filter 2: ON {two}\nChannel: L R\nFilter 3: ON {both}\nChannel: all\n".format(**lines))
        rng = np.random.default_rng(3)
        wavfile.write("two.wav", RATE, rng.uniform(-0.3, 0.3, (RATE // 4, 2)).astype(np.float32))
        expected = []
        for channel, (gain, first) in enumerate(((-8, "one"), (-10, "two"))):
            self.run_tool("eq", "two.wav", "out.wav", lines[first], lines["both"], "--gain", gain)
            expected.append(read("out.wav")[1][:, channel])
        for command in ("eq", "setup"):
            options = ["--no-tail"] if command == "setup" else []
            self.run_tool(command, "two.wav", "out.wav", "-c", "apo.txt", *options)
            heard = read("out.wav")[1]
            self.assertLess(np.abs(heard - np.transpose(expected)).max(), 1e-6, command)
        for arguments, *words in (
                (["sos", "two.wav", "x.wav", "-c", "apo.txt"], "apo.txt:2:", "'Channel'", "setup"),
                (["eq", SPEECH, "x.wav", "-c", "apo.txt"], "apo.txt:2:", "'L'", "C"),
                (["eq", "two.wav", "x.wav", "-c", "apo.txt", "--align"], "apo.txt", "--align")):
            self.assert_fails(arguments, *words, code=2 if "--align" in arguments else 3)

    def test_clips_are_told_of_each_output(self):
        loud = np.zeros((RATE // 10, 2), np.int16)
        loud[100:107, 0] = 30000
        loud[200:203, 1] = -30000
        wavfile.write("loud.wav", RATE, loud)
        for dither in ([], ["--dither"]):
            said = self.run_tool("eq", "loud.wav", "out.wav", "HS 20 0", "--gain", 6, *dither)
            self.assertIn("outputs  7 clipped in channel 0, 3 in channel 1\n", said)


if __name__ == "__main__":
    unittest.main()

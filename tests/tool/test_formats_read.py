"""Coefficient files as other programs write them: the right numbers, or a refusal that says why."""

import importlib.util
import json
import unittest

import numpy as np
from scipy import io, signal

from tool_test import SPEECH, ToolTest, contents, write

TAPS = signal.firwin(31, 0.3)
B, A = signal.butter(5, 0.3)
SOS = signal.butter(5, 0.3, output="sos")
ZPK = signal.cheby1(3, 1, [0.2, 0.4], "bandpass", output="zpk")
RATE = 48000


def lines(values):
    return "\n".join(map(repr, np.asarray(values).tolist()))


class ReadTest(ToolTest):
    def numbers(self, kind, name, *options):
        """The coefficients that a file holds, through a NumPy file."""
        self.run_tool("export", "read.npy", f"--{kind}", name, "--rate", RATE, "--as-is", "--precision",
                      "double", *options)
        return np.load("read.npy")

    def test_numbers_in_text(self):
        rows = SOS[:, [4, 5, 0, 1, 2]]
        csv = "\n".join(",".join(map(repr, row)) for row in rows.tolist())
        counted = "\n".join(f"{i},{x!r}" for i, x in enumerate(TAPS[:3].tolist()))
        backwards = "\n".join(f"{x!r},{y!r}" for x, y in zip(A.tolist(), B.tolist()))
        scalars = "".join(f"{n} = {v!r}\n" for row in SOS.tolist()
                          for n, v in zip(("b0", "b1", "b2", "a0", "a1", "a2"), row))
        earlevel = "".join(f"{n} = {v!r}\n" for row in SOS[:, [0, 1, 2, 4, 5]].tolist()
                           for n, v in zip(("a0", "a1", "a2", "b1", "b2"), row))
        rew = ("* Impulse Response data saved by REW V5.31\n* IR is normalised\n"
               "0.5 // Peak value before normalisation\n1 // Peak index\n31 // Response length\n"
               f"{1 / RATE:.9E} // Sample interval (seconds)\n0.0 // Start time (seconds)\n"
               "* Data start\n")
        for kind, text, expected in (
                ("sos", "a1,a2,b0,b1,b2\n" + csv, SOS),
                ("sos", "# a1 a2 b0 b1 b2\n" + csv.replace(",", " "), SOS),
                ("iir", "a,b\n" + backwards, [B, A]),
                ("fir", "n,h\n" + counted, TAPS[:3]), ("fir", counted, TAPS[:3]),
                ("fir", "n,h\n0,0.5\n1,0.25\n", [0.5, 0.25]), ("fir", "1 0.5\n2 0.25\n", [0.5, 0.25]),
                ("fir", "".join(f"h[{i}] = {x!r};\n" for i, x in enumerate(TAPS.tolist())), TAPS),
                ("fir", "".join(f"h({i + 1}) = {x!r};\n" for i, x in enumerate(TAPS.tolist())), TAPS),
                ("sos", scalars, SOS), ("sos", earlevel, SOS),
                ("sos", f"array({SOS.tolist()})", SOS),
                ("iir", f"(array({B.tolist()}), array({A.tolist()}))", [B, A]),
                ("fir", rew + lines(TAPS), TAPS / 2),
                ("fir", rew.replace("is normalised", "is not normalised") + lines(TAPS), TAPS),
                ("fir", "const q15_t taps[3] = {16384, -8192, 32767};", [0.5, -0.25, 32767 / 32768]),
                ("fir", "q31_t h[2] = {1073741824, -2147483648};", [0.5, -1])):
            found = self.numbers(kind, write("c.txt", text))
            np.testing.assert_array_equal(found, expected, text[:40])
        for kind, text, expected in (("sos", "sos = " + repr(SOS), SOS), ("fir", repr(TAPS), TAPS)):
            found = self.numbers(kind, write("c.txt", text))
            np.testing.assert_allclose(found, expected, rtol=0, atol=6e-9)  # the digits printed

    def test_zeros_poles_and_gain(self):
        z, p, k = ZPK
        frequency = np.linspace(0, np.pi, 512)
        _, expected = signal.freqz_zpk(z, p, k, frequency)
        low = signal.butter(3, 0.2, "highpass", output="zpk")
        text = f"z = {z.tolist()}\np = {p.tolist()}\nk = {k!r}\n"
        matlab = "; ".join(f"{x.real!r} {'-' if x.imag < 0 else '+'} {abs(x.imag)!r}i" for x in p)
        pairs = {"zeros": [[x.real, x.imag] for x in z], "poles": [[x.real, x.imag] for x in p],
                 "gain": k}
        io.savemat("zpk.mat", {"z": z, "p": p, "k": k})
        np.savez("zpk.npz", z=z, p=p, k=k)
        for name in ("zpk.mat", "zpk.npz", write("python.txt", text),
                     write("matlab.txt", f"z = {z.real.tolist()};\np = [{matlab}];\nk = {k!r};"),
                     write("zpk.json", json.dumps(pairs))):
            _, found = signal.sosfreqz(self.numbers("sos", name), frequency)
            np.testing.assert_allclose(found, expected, rtol=0, atol=1e-12, err_msg=name)
            self.assert_fails(["fir", SPEECH, "out.wav", "-c", name], name, "zeros and poles", "sos")
        io.savemat("delayed.mat", {"z": low[0][:1], "p": low[1], "k": low[2]})
        _, found = signal.sosfreqz(self.numbers("sos", "delayed.mat"), frequency)
        _, expected = signal.freqz_zpk(low[0][:1], low[1], low[2], frequency)
        np.testing.assert_allclose(found, expected, rtol=0, atol=1e-12)
        io.savemat("h.mat", {"H": p, "w": z.real})
        self.assert_fails(["fir", SPEECH, "out.wav", "-c", "h.mat"], "h.mat", "'H'", "complex")
        io.savemat("lone.mat", {"p": [0.5, 0.3 + 0.2j], "z": [0, 0], "k": 1})
        self.assert_fails(["sos", SPEECH, "out.wav", "-c", "lone.mat"], "'p'", "conjugate")

    def test_archives_and_json(self):
        for save in (np.savez, np.savez_compressed):
            save("c.npz", sos=SOS, fs=48000.0)
            np.testing.assert_array_equal(self.numbers("sos", "c.npz"), SOS)
            save("c.npz", b=B, a=A, note="low pass" if save is np.savez else 1)
            np.testing.assert_array_equal(self.numbers("iir", "c.npz"), [B, A])
            save("c.npz", TAPS)
            np.testing.assert_array_equal(self.numbers("fir", "c.npz"), TAPS)
        named = [dict(zip(("b0", "b1", "b2", "a1", "a2"), row))
                 for row in np.delete(SOS, 3, 1).tolist()]
        for kind, content, expected in (
                ("fir", TAPS.tolist(), TAPS), ("fir", {"taps": TAPS.tolist(), "fs": 48000}, TAPS),
                ("iir", {"filter": {"b": B.tolist(), "a": A.tolist()}}, [B, A]),
                ("sos", SOS.tolist(), SOS), ("sos", {"sos": SOS.tolist()}, SOS),
                ("sos", {"filters": named}, SOS)):
            for indent in (None, 2):
                name = write("c.json", json.dumps(content, indent=indent))
                np.testing.assert_array_equal(self.numbers(kind, name), expected)
        write("cut.npz", contents("c.npz")[:-30])
        write("bad.json", '{"b": [1, 2')
        write("ragged.json", '{"sos": [[1, 2], [3]]}')
        for name, *words in (("cut.npz", "damaged"), ("bad.json", "no JSON"),
                             ("ragged.json", "'sos'", "as many")):
            self.assert_fails(["fir", SPEECH, "out.wav", "-c", name], name, *words)

    def test_taps_without_a_header(self):
        for name, data, expected in (
                ("S16LE", np.array([16384, -8192], "<i2").tobytes(), [0.5, -0.25]),
                ("S24LE3", b"\0\0\x40\0\0\xe0", [0.5, -0.25]),
                ("S24LE", b"\0\0\x40\0\0\0\xe0\xff", [0.5, -0.25]),
                ("S32LE", np.array([2 ** 30, -2 ** 31], "<i4").tobytes(), [0.5, -1]),
                ("FLOAT32LE", TAPS.astype("<f4").tobytes(), TAPS.astype("f4")),
                ("FLOAT64LE", TAPS.astype("<f8").tobytes(), TAPS)):
            write("taps.raw", data)
            np.testing.assert_array_equal(self.numbers("fir", "taps.raw", "--format", name), expected)
        self.assert_fails(["fir", SPEECH, "out.wav", "-c", "taps.raw"], "taps.raw", "S16LE",
                          "FLOAT64LE")
        write("odd.raw", b"12345")
        self.assert_fails(["fir", SPEECH, "out.wav", "-c", "odd.raw", "--format", "S16LE"], "5 bytes")

    def test_equaliser_spellings(self):
        rew = ("Filter Settings file\n\nRoom EQ V5.31.1\nDated: 04-Feb-2024 11:02:30\n\n"
               "Notes:sofa\nsub: loud\n\nEqualiser: Generic\nAverage 1\n")
        for spelling, plain in (
                ("LP Q Fc 80 Hz Q 0.9", "LP 80 Q 0.9"), ("Notch Fc 80 Hz Q 5", "NO 80 Q 5"),
                ("All Pass Fc 80 Hz Q 0.7", "AP 80 Q 0.7"), ("HPF 80 24dB", "HP 80 order 4"),
                ("LP 80 12 dB", "LP 80 order 2"), ("HP 80 LR4", "HP 80 LR order 4"),
                ("bell 1k -3 Q2", "PK 1k -3 Q 2"), ("low-pass 1k BW3", "LP 1k order 3"),
                ("Low Shelf 100 4 Q 0.9", "LS 100 4 Q 0.9")):
            found = self.numbers("sos", write("rew.txt", rew + f"Filter  1: ON  {spelling}\n"))
            np.testing.assert_array_equal(found, self.numbers("eq", plain), spelling)

    def test_camilla(self):
        biquads = """
devices: {samplerate: 48000, capture: {channels: 2}}
filters:
  bass: {type: Biquad, parameters: {type: Peaking, freq: 100, gain: -3, q: 1.4}}
  low: {type: BiquadCombo, parameters: {type: LinkwitzRileyHighpass, freq: 80, order: 4}}
  air: {type: Biquad, parameters: {type: Highshelf, freq: 8000, gain: 2, slope: 6}}
  unused: {type: Delay, parameters: {delay: 3}}
  half: {type: Gain, parameters: {gain: -6, inverted: true}}
"""
        expected = self.numbers("eq", "PK 100 -3 Q 1.4", "--eq", "HP 80 LR order 4", "--eq", "HSC 6dB 8000 2")
        expected[0, :3] *= -10 ** (-6 / 20)
        pipeline = ("pipeline:\n  - {type: Filter, channels: [0, 1], names: [bass, low]}\n"
                    "  - {type: Filter, channel: 1, names: [air, half]}\n"
                    "  - {type: Filter, channel: 0, names: [air, half]}\n")
        name = write("c.yml", biquads + pipeline)
        np.testing.assert_allclose(self.numbers("sos", name), expected, rtol=1e-15)
        values = ", ".join(map(repr, TAPS.tolist()))
        write("taps.raw", TAPS.astype("<f4").tobytes())
        for parameters, taps in (("type: Values, values: [" + values + "]", TAPS),
                                 ("type: Raw, filename: taps.raw, format: FLOAT32LE",
                                  TAPS.astype("f4"))):
            name = write("c.yml", "filters:\n  room:\n    type: Conv\n    parameters: {" +
                            parameters + "}\n")
            np.testing.assert_array_equal(self.numbers("fir", name), taps)
        for text, *said in (
                (biquads + pipeline.replace("channel: 0", "channel: 1"), "different ways"),
                (biquads + "pipeline:\n  - {type: Mixer, name: mono}\n", ":10:", "'Mixer'"),
                (biquads, ":7:", "'Delay'"), ("filters:\n  - x: [\n", "YAML"),
                (biquads.replace("Peaking", "Tilt").replace("type: Delay", "type: Gain"), ":4:",
                 "'Tilt'"),
                (biquads.replace("freq: 100", "freq: 30000"), ":4:", "'bass'", "30000")):
            self.assert_fails(["sos", SPEECH, "out.wav", "-c", write("c.yml", text)], "c.yml", *said)

    def test_refusals(self):
        table = "\n".join(f"{20 * i},{-i / 100},{i}" for i in range(1, 300))
        np.save("417.npy", np.tile([1.0, 0, 0, 1, 0, 0], (417, 1)))
        io.savemat("417.mat", {"sos": np.tile([1.0, 0, 0, 1, 0, 0], (417, 1))})
        same = set()
        for name in ("417.npy", "417.mat", write("417.txt", "1 0 0 1 0 0\n" * 417)):
            said = self.assert_fails(["sos", SPEECH, "out.wav", "--precision", "int16", "-c", name])
            same.add(said.replace(name, ""))
        self.assertEqual(len(same), 1, same)
        self.assertIn("417", same.pop())
        line = "Filter 1: ON PK Fc 100 Hz Gain 3 dB Q 1\n"
        for command, text, *words in (
                ("sos", line + "If: x\n" + line + "EndIf:\n", ":2:", "'If'", "Equalizer APO"),
                ("sos", line + "LoudnessCorrection: State 1\n", ":2:", "LoudnessCorrection"),
                ("sos", "VSTPlugin: Library x.dll\n" + line, ":1:", "VSTPlugin"),
                ("sos", "Channel: L\n" + line, ":1:", "Equalizer APO", "setup runs"),
                ("sos", line + "Filter 2 ON PK Fc 90 Hz Gain 3 dB Q 1\n", ":2:", "colon"),
                ("fir", "frequency,dB,phase\n" + table, ":1:", "'frequency'"),
                ("fir", table, "frequency"), ("fir", "left,right\n.1,.2\n.3,.4\n", ":1:", "'left'"),
                ("fir", ".1,.2\n.3,.4\n.5,.2\n.1,.3\n", "several responses", "convolve"),
                ("fir", "0 0.5\n1 0.25\n", "numerator"),
                ("sos", "b0,b1,b2,a1,x\n1,0,0,0,0\n1,0,0,0,0\n", ":1:", "'x'"),
                ("sos", "b0,b1,a1,a2\n1,0,0,0\n1,0,0,0\n", ":1:", "no column b2"),
                ("fir", "h[0] = 1\nh[2] = 1\n", ":2:", "index 2"),
                ("sos", "b0=1\nb1=0\nb2=0\na1=0\n", "no a2"),
                ("sos", "z = -1 -1\np = 0.5+0.3j 0.5-0.3j\nk = 0.1\n", ":1:", "brackets"),
                ("sos", "gain = 1e30\nsos = [1e20 0 0 1 0 0; 1 0 0 1 0 0]\n", "1e+50", "range"),
                ("fir", "* Impulse Response data saved by REW\n2.2675736961E-5 // Sample interval\n"
                 "* Data start\n1\n", ":2:", "44100", "48000")):
            self.assert_fails([command, SPEECH, "out.wav", "-c", write("c.txt", text)], "c.txt",
                              *words)

    def test_what_export_writes_is_read_back(self):
        """The same bits, neither scaled nor factored once more, and known for what it is."""
        np.save("steep.npy", signal.cheby1(8, 1, [0.002, 0.01], "bandpass", output="sos"))
        np.save("ba.npy", np.array([B, A]))
        np.savez("short.npz", b=[0.5, 0.25, 0.1, 0.2], a=[1, -0.5])
        np.save("taps.npy", TAPS)
        write("six.txt", "0.5\n0.1\n0.2\n1\n0.1\n0.2\n")  # taps that look like a section

        def run(command, name, precision, *options):
            said = self.said(command, SPEECH, "out.wav", "-c", name, "--precision", precision, *options)
            return contents("out.wav"), said

        for kind, name in (("sos", "steep.npy"), ("iir", "ba.npy"), ("iir", "short.npz"),
                           ("fir", "taps.npy"), ("fir", "six.txt")):
            for precision in ("int16", "double"):
                expected, _ = run(kind, name, precision, *["--as-is"] * (kind != "fir"))
                for ending in ("h", "txt", "npy", "mat"):
                    once, twice = f"once.{ending}", f"twice.{ending}"
                    for result, source in ((once, name), (twice, once)):
                        self.run_tool("export", result, f"--{kind}", source, "--name", "f", "--precision",
                                      precision, *["--as-is"] * (result == once))
                    first, second = ([line for line in contents(result).split(b"\n")
                                      if b"Coefficients of" not in line and b"LSB of" not in line] for result in (once, twice))
                    context = (kind, name, precision, ending)
                    self.assertEqual(first, second, context)
                    heard, said = run(kind, once, precision)
                    self.assertEqual(heard, expected, context)
                    self.assertNotIn("moved", said, context)
                    for other in {"fir", "iir", "sos"} - {kind}:
                        self.assert_fails([other, SPEECH, "x.wav", "-c", once], once, "run with",
                                          kind)
        np.testing.assert_array_equal(np.load("once.npy"), [0.5, 0.1, 0.2, 1, 0.1, 0.2])
        self.assertEqual(io.loadmat("once.mat")["prepared"].tolist(), ["fir, double"])
        write("inside.h", "void f(void) {\n  static const float h[] = {0.5f, 0.1f};\n}\n")
        np.testing.assert_array_equal(self.numbers("fir", "inside.h"), np.float32([0.5, 0.1]))

    def test_mat_files_of_level_7_3(self):
        """As h5py writes them, by hand and like MATLAB; a damaged one is one line."""
        if not importlib.util.find_spec("h5py"):
            self.skipTest("h5py is not installed")
        import h5py

        def saved(name, like_matlab, fill):
            with h5py.File(name, "w", userblock_size=512 if like_matlab else 0) as file:
                fill(file)
            if like_matlab:
                with open(name, "r+b") as file:
                    file.write(b"MATLAB 7.3 MAT-file, by hand".ljust(124) + b"\x00\x02IM")
            return name

        def add(group, name, values, kind="double"):
            data = group.create_dataset(name, data=np.asarray(values).T)
            data.attrs["MATLAB_class"] = np.bytes_(kind) if kind != "double" else kind
            return data

        def structure(file):
            inside = file.create_group("filter")
            inside.attrs["MATLAB_class"] = np.bytes_("struct")
            for name, values in (("b", B[None]), ("a", A[None])):
                add(inside, name, values)
            add(inside, "note", np.array([[104, 105]], np.uint16), "char")
            add(file.create_group("#refs#"), "c", TAPS[None])

        def roots(file):
            for name, values in (("z", ZPK[0]), ("p", ZPK[1])):
                pairs = np.array([(x.real, x.imag) for x in values],
                                 [("real", "f8"), ("imag", "f8")])
                add(file, name, pairs[:, None])
            add(file, "k", [[ZPK[2]]])

        def packed(file):
            file.create_dataset("h", data=TAPS[:, None].astype("f4"), chunks=(9, 1),
                                compression="gzip").attrs["MATLAB_class"] = np.bytes_("single")
            file.create_dataset("none", data=np.zeros(2, "u8")).attrs["MATLAB_empty"] = 1

        for kind, like_matlab, fill, expected in (
                ("sos", True, lambda file: add(file, "sos", SOS), SOS),
                ("sos", False, lambda file: file.create_dataset("sos", data=SOS), SOS),
                ("iir", True, structure, [B, A]), ("fir", True, packed, TAPS.astype("f4")),
                ("fir", False, lambda file: file.create_dataset("h", data=TAPS), TAPS)):
            np.testing.assert_array_equal(self.numbers(kind, saved("c.mat", like_matlab, fill)),
                                          expected)
        sections = self.numbers("sos", saved("c.mat", True, roots))
        h = signal.sosfreqz(sections)[1]
        np.testing.assert_allclose(h, signal.freqz_zpk(*ZPK)[1], atol=1e-10)
        whole = contents(saved("c.mat", True, lambda file: add(file, "sos", SOS)))
        for cut in (whole[:1000], whole[:600] + b"Z" * 300 + whole[900:]):
            self.assert_fails(["sos", SPEECH, "x.wav", "-c", write("cut.mat", cut)], "cut.mat")


if __name__ == "__main__":
    unittest.main()

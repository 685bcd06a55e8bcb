"""Coefficient files as other programs write them: the right numbers, or a refusal that says why."""

import importlib.util
import json
import re
import subprocess
import unittest

import numpy as np
from scipy import io, signal
from scipy.io import wavfile

from tool_test import SPEECH, ToolTest, contents, read, write, write_numbers

RATE = 48000
TAPS = signal.firwin(31, 0.3)
B, A = signal.butter(4, 0.2)
SOS = signal.cheby1(5, 1, [0.05, 0.4], "bandpass", output="sos")
GAINS = np.array([0.5, 2, 0.8, 1, 1.25, 0.9])  # one per section and one of the output
ZPK = signal.cheby1(3, 1, [0.2, 0.4], "bandpass", output="zpk")


def joined(values, separator="\n"):
    return separator.join(map(repr, np.asarray(values).tolist()))


def c_array(kind, name, values):
    """An array as MATLAB's filter designer writes it."""
    values = np.asarray(values)
    lengths = f"[{len(values)}]" if values.ndim == 1 else f"[MWSPT_NSEC][{values.shape[1]}]"
    rows = values[None] if values.ndim == 1 else values
    text = ",\n".join("  {\n" + ",   ".join(f"{x:.17g}" for x in row) + "\n  }" for row in rows)
    text = text if values.ndim == 1 else "{\n" + text + "\n}"
    return f"const {kind} {name}{lengths} = {text};\n"


def section_rows(sections, gains, one=1):
    """Numerators and denominators with rows of gains before, between and after the sections."""
    num, den = [], []
    for g, s in zip(gains, [*sections, None]):
        num.append([g, 0, 0])
        den.append([one, 0, 0])
        if s is not None:
            num.append(s[:3])
            den.append(s[3:])
    return np.array(num), np.array(den)


def header(text, comment=""):
    return ("/*\n * Discrete-Time Filter (real)\n" + comment +
            " */\n\n/* General type conversion for MATLAB generated C-code  */\n"
            '#include "tmwtypes.h"\n' + text)


def sections_header(kind, num, den, suffix="", comment=""):
    lengths = ",".join("13"[i % 2] for i in range(len(num)))
    return header(f"#define MWSPT_NSEC {len(num)}\n"
                  f"const int NL{suffix}[MWSPT_NSEC] = {{ {lengths} }};\n" +
                  c_array(kind, "NUM" + suffix, num) +
                  f"const int DL{suffix}[MWSPT_NSEC] = {{ {lengths} }};\n" +
                  c_array(kind, "DEN" + suffix, den), comment)


def folded(sections, gains):
    """One overall gain, or one per section and perhaps one of the output."""
    result = sections.copy()
    for i, gain in enumerate(gains):
        result[min(i, len(sections) - 1), :3] *= gain
    return result


def prototype(kind, amp, q):
    """Analogue prototypes of equaliser filters; amp is the square root of the gain."""
    r = np.sqrt(amp) / q
    return {"PK": ([1, amp / q, 1], [1, 1 / amp / q, 1]),
            "LS": (amp * np.array([1, r, amp]), [amp, r, 1]),
            "HS": (amp * np.array([amp, r, 1]), [1, r, amp]),
            "LP": ([1], [1, 1 / q, 1]), "HP": ([1, 0, 0], [1, 1 / q, 1]),
            "BP": ([1 / q, 0], [1, 1 / q, 1]), "NO": ([1, 0, 1], [1, 1 / q, 1]),
            "AP": ([1, -1 / q, 1], [1, 1 / q, 1])}[kind[:2]]


def equaliser(filters, rate, preamp=0):
    sections = []
    for kind, fc, gain, q in filters:
        tangent = np.tan(np.pi * fc / rate)
        b, a = signal.bilinear(*prototype(kind, 10 ** (gain / 40), q), fs=0.5 / tangent)
        sections.append([*b, *a])
    sections = np.array(sections)
    sections[0, :3] *= 10 ** (preamp / 20)
    return sections


class FormatTest(ToolTest):
    def check(self, kind, name, expected, *options):
        """`expected` is taps, (b, a) or sections."""
        np.testing.assert_allclose(self.numbers(kind, name, *options), expected, rtol=1e-13, atol=1e-15,
                                   err_msg=f"{name} {options} {contents(name)[:60]}")

    def refused(self, command, name, *words):
        return self.assert_fails([*command.split(), SPEECH, "out.wav", "-c", name], name, *words)

    def test_text(self):
        rows = "\n".join(joined(row, " ") for row in SOS)
        five = "\n".join(joined(row, ",") for row in SOS[:, [4, 5, 0, 1, 2]])
        commas = joined(TAPS).replace(".", ",")
        scalars = "".join(f"{n} = {v!r}\n" for row in SOS.tolist()
                          for n, v in zip(("b0", "b1", "b2", "a0", "a1", "a2"), row))
        earlevel = "".join(f"{n} = {v!r}\n" for row in SOS[:, [0, 1, 2, 4, 5]].tolist()
                           for n, v in zip(("a0", "a1", "a2", "b1", "b2"), row))
        rew = ("* Impulse Response data saved by REW V5.31\n* IR is normalised\n"
               "0.5 // Peak value before normalisation\n1 // Peak index\n31 // Response length\n"
               f"{1 / RATE:.9E} // Sample interval (seconds)\n0.0 // Start time (seconds)\n"
               "* Data start\n")
        octave = "# Created by Octave 8.4, today\n" + "".join(
            f"# name: {name}\n# type: matrix\n# rows: 1\n# columns: {len(x)}\n {joined(x, ' ')}\n\n"
            for name, x in (("b", B), ("a", A))) + "# name: fs\n# type: scalar\n48000\n"
        designer = "% Generated by MATLAB\n% Coefficient Format: Decimal\n\n"
        first_order = [[0, 1, 1, 0, 1, -0.5], [0.5, 1, 0, 1, 0.25, 0]]
        for kind, text, expected in (
                ("fir", "index b\n" + joined(TAPS), TAPS),
                ("fir", "\ufeff" + ",".join(f'"{x}"' for x in TAPS) + "\r\n", TAPS),
                ("fir", commas, TAPS), ("fir", commas.replace("\n", ";"), TAPS),
                ("fir", commas.replace("\n", " "), TAPS),
                ("fir", "% MATLAB\n" + joined(TAPS) + " % end", TAPS),
                ("fir", "FIR filter, 31 taps, fs = 48000 Hz\ncoefficient\n" + joined(TAPS), TAPS),
                ("fir", "[" + joined(TAPS, ", ") + "]\n", TAPS),
                ("fir", "b = [" + ", ".join(f"np.float64({x})" for x in TAPS) + "]", TAPS),  # NumPy 2
                ("fir", "\n".join(f"np.float64({x})" for x in TAPS), TAPS),
                ("fir", "b = [" + joined(TAPS, " ...\n") + "];\nfs = 48000;", TAPS),
                ("fir", "import numpy\ntaps = [\n  " + joined(TAPS, ",\n  ") + ",\n]\n", TAPS),
                ("fir", designer + "Numerator:\n" + joined(TAPS), TAPS),
                ("iir", designer + f"Numerator:\n{joined(B)}\nDenominator:\n{joined(A)}", (B, A)),
                ("iir", octave, (B, A)),
                ("iir", f"(array({B.tolist()}), array({A.tolist()}))", (B, A)),
                ("iir", "a,b\n" + "\n".join(joined(pair, ",") for pair in zip(A, B)), (B, A)),
                ("sos", designer + f"SOS Matrix:\n{rows}\n\nScale Values:\n{joined(GAINS)}", folded(SOS, GAINS)),
                ("sos", "sos = [" + rows.replace("\n", "\n  ") + "];", SOS),
                ("sos", f"array({SOS.tolist()})", SOS),
                ("sos", "\n".join(joined(row, " ") for row in np.delete(SOS, 3, 1)), SOS),
                ("sos", "b0,b1,b2,a0,a1,a2\n" + rows.replace(" ", ","), SOS),
                ("sos", "a1,a2,b0,b1,b2\n" + five, SOS), ("sos", "# a1 a2 b0 b1 b2\n" + five.replace(",", " "), SOS),
                ("sos", scalars, SOS), ("sos", earlevel, SOS),
                # Octave fills sections of first order up with zeros before.
                ("sos", f"sos = {first_order}", [[1, 1, 0, 1, -0.5, 0], first_order[1]]),
                ("fir", "n,h\n" + "\n".join(f"{i},{x}" for i, x in enumerate(TAPS)), TAPS),
                ("fir", "\n".join(f"{i}, {x}" for i, x in enumerate(TAPS, 1)), TAPS),
                ("fir", "n,h\n0,0.5\n1,0.25\n", [0.5, 0.25]), ("fir", "1 0.5\n2 0.25\n", [0.5, 0.25]),
                ("fir", "".join(f"h[{i}] = {x};\n" for i, x in enumerate(TAPS)), TAPS),
                ("fir", "".join(f"h({i}) = {x};\n" for i, x in enumerate(TAPS, 1)), TAPS),
                ("fir", rew + joined(TAPS), TAPS / 2),
                ("fir", rew.replace("is normalised", "is not normalised") + joined(TAPS), TAPS),
                ("fir", "const q15_t taps[3] = {16384, -8192, 32767};", [0.5, -0.25, 32767 / 32768]),
                ("fir", "q31_t h[2] = {1073741824, -2147483648};", [0.5, -1])):
            self.check(kind, write("c.txt", text), expected)
        for encoding in ("utf-16", "utf-16-le", "utf-16-be"):
            self.check("iir", write("wide.txt", octave.encode(encoding)), (B, A))
        for kind, text, expected in (("sos", "sos = " + repr(SOS), SOS), ("fir", repr(TAPS), TAPS)):
            found = self.numbers(kind, write("c.txt", text))
            np.testing.assert_allclose(found, expected, rtol=0, atol=6e-9)  # the digits printed
        two_rows = write("two.txt", "0.1 0.2 0.1\n1 -0.5 0.2\n")
        self.check("fir", two_rows, [.1, .2, .1, 1, -.5, .2], "--format", "numbers")
        for name, *words in ((write("rows.txt", rows), "sections", "sos"), (write("octave.txt", octave), "iir"),
                             (two_rows, "iir"), (write("comma.txt", "1,2\n3,4\n"), "comma"),
                             (write("time.txt", "".join(f"{i / RATE!r} {x}\n" for i, x in enumerate(TAPS))), "time")):
            self.refused("fir", name, *words)

    def test_numpy(self):
        for kind, array, expected in (
                ("fir", TAPS, TAPS), ("fir", TAPS[:, None], TAPS), ("fir", TAPS[None], TAPS),
                ("fir", np.array([1, -2, 1], np.int64), [1.0, -2, 1]), ("iir", np.array([B, A]) * 3, (B, A)),
                ("sos", SOS * 2, SOS), ("sos", SOS[1], SOS[1:2])):
            for dtype in ("<f8", ">f8") if array.dtype == float else (array.dtype,):
                for order in "CF":
                    np.save("c.npy", np.asarray(array, dtype=dtype, order=order))
                    self.check(kind, "c.npy", expected)
        np.save("c.npy", TAPS.astype("<f4"))
        self.check("fir", "c.npy", TAPS.astype("f4"))

    def test_matlab(self):
        other = {"fs": 48000.0, "name": "room", "cell": np.array([1, "x"], object)}
        for kind, variables, expected, *options in (
                ("fir", {"h": TAPS, **other}, TAPS), ("fir", {"whatever": TAPS[:, None]}, TAPS),
                ("fir", {"x1": TAPS, "x2": B}, B, "--variables", "x2"),
                ("fir", {"b": np.array([3, 2, 1], np.uint8)}, [3, 2, 1]),
                ("iir", {"a": 2 * A, "b": 2 * B, **other}, (B, A)),
                ("iir", {"Num": B, "Den": A.astype(np.float32)}, (B, A.astype(np.float32))),
                ("iir", {"first": B, "second": A}, (B, A)),
                ("iir", {"ba": np.array([B, A])}, (B, A)),
                ("iir", {"x": A, "y": B}, (B, A), "--variables", "y,x"),
                ("iir", {"filter": {"b": B, "a": A, "name": "low pass"}, "fs": 48000}, (B, A)),
                ("sos", {"SOS": SOS, **other}, SOS),
                ("sos", {"x": SOS, "G": 0.5}, folded(SOS, [0.5])),
                ("sos", {"sos": SOS, "g": GAINS[:5]}, folded(SOS, GAINS[:5])),
                ("sos", {"q": SOS, "w": GAINS}, folded(SOS, GAINS)),
                ("sos", {"q": SOS[:2], "p": SOS, "w": 0.3}, folded(SOS, [0.3]), "--variables", "p,w")):
            for compressed in (False, True):
                io.savemat("c.mat", variables, do_compression=compressed)
                self.check(kind, "c.mat", expected, *options)
        io.savemat("c4.mat", {"sos": SOS, "g": GAINS}, format="4")
        self.check("sos", "c4.mat", folded(SOS, GAINS), "--format", "mat")

    def test_matlab_headers(self):
        double = "real64_T"
        taps15, b18, a12 = (np.round(x * 2.0 ** bits) for x, bits in ((TAPS, 15), (B, 18), (A, 12)))
        b20, a20 = np.round(B * 2 ** 20), np.round(A * 2 ** 20)
        num, den = section_rows(SOS, GAINS)
        sos13, gains13 = np.round(SOS * 2 ** 13), np.round(GAINS * 2 ** 13)
        info = (" * Numerator           : s16,18 -> [-0.125 0.125)\n"
                " * Denominator         : s16,12 -> [-8 8)\n")
        taps = c_array(double, "B", TAPS)
        direct = [f"const int NL = 5;\n{c_array(double, 'NUM', B)}",
                  f"const int DL = 5;\n{c_array(double, 'DEN', A)}"]
        for kind, text, expected, *options in (
                ("fir", "const int BL = 31;\n" + taps, TAPS),
                ("fir", "/* const int BL = 31; */\n// const int BL = 30;\nstatic " + taps, TAPS),
                ("fir", c_array("real32_T", "NUM", TAPS).replace(",", "f,").replace("\n  }", "f\n  }"),
                 TAPS.astype("f4")),
                ("fir", c_array("int16_T", "B", taps15), taps15 / 2 ** 15),
                ("fir", "#define N 2\nfloat taps[N] = {.5, -0.5F};", [0.5, -0.5]),
                ("fir", taps.replace("B[", "B_1[") + c_array(double, "B_2", B), B, "--variables", "B_2"),
                ("iir", "".join(direct), (B, A)),
                ("iir", c_array(double, "NUM_1", 2 * B) + c_array(double, "DEN_1", 2 * A), (B, A)),
                ("iir", c_array("int32_T", "NUM", b20) + c_array("int32_T", "DEN", a20),
                 (b20 / 2 ** 20, a20 / 2 ** 20)),
                ("iir", header(c_array("int16_T", "NUM", b18) + c_array("int16_T", "DEN", a12), info),
                 (b18 / 2 ** 18, a12 / 2 ** 12)),
                ("sos", sections_header(double, num, den), folded(SOS, GAINS)),
                ("sos", sections_header(double, num, den, "_band").replace("const", "static const"),
                 folded(SOS, GAINS)),
                ("sos", sections_header(double, num[1::2], den[1::2]), SOS),
                ("sos", sections_header("int16_T", *section_rows(sos13, gains13, 2 ** 13)),
                 folded(sos13 / 2 ** 13, gains13 / 2 ** 13))):
            text = text if text.startswith(("/*\n", "#define N ")) else header(text)
            self.check(kind, write("c.h", text), expected, *options)

    def test_room_correction(self):
        names = ("b0", "b1", "b2", "a1", "a2")
        biquads = ",\n".join(
            f"biquad{i + 1},\n" + ",\n".join(f"{n}={v:.17g}" for n, v in zip(names, values))
            for i, values in enumerate(np.delete(SOS, 3, axis=1) * [1, 1, 1, -1, -1]))
        for text in (biquads, biquads.replace("\n", "\r\n").upper()):
            self.check("sos", write("minidsp.txt", text), SOS)
        filters = [("PK", 500, -3, 1.41), ("PK", 4321.5, 6, 0.3), ("LS", 200, 4, 0.7),
                   ("LSC", 150, -4, 0.9), ("HS", 5000, -6, 0.7), ("HSC", 7000, 3, 1.1),
                   ("LP", 15000, 0, 0.8), ("HP", 200, 0, 0.6), ("NO", 1000, 0, 8), ("AP", 700, 0, 0.7),
                   ("BP", 900, 0, 0.5)]
        text = ("Filter Settings file\nRoom EQ V5.20\nNotes:mine\n\nEqualiser: Generic\nPreamp: -6.5 dB\n")
        for i, (kind, fc, gain, q) in enumerate(filters):
            level = f"  Gain {gain:6.1f} dB" if gain else ""
            text += f"Filter {i:2d}: ON  {kind:4s}  Fc {fc:8.1f} Hz{level}  Q {q:6.3f}\n"
        text += "Filter 11: OFF PK Fc 50 Hz Gain 9 dB Q 1\nFilter 12: ON  None\n"
        self.check("sos", write("eq.txt", text), equaliser(filters, RATE, -6.5))

    def test_equaliser_spellings(self):
        centre = 10 ** (6 / 2 / 12 * np.log10(2))  # half the gain along the slope
        octaves = 2 * np.arcsinh(1 / (2 * 2.0)) / np.log(2)
        warped = 2 * np.pi * 1000 / RATE
        q = 1 / (2 * np.sinh(np.log(2) / 2 * octaves * warped / np.sin(warped)))
        for line, wanted in (
                ("LS fc 0.2khz gain -3dB", ("LS", 200, -3, np.sqrt(0.5))),
                ("LP Fc 3 kHz", ("LP", 3000, 0, np.sqrt(0.5))),
                ("LSC 12 dB Fc 300 Hz Gain 6 dB", ("LS", 300, 6, np.sqrt(0.5))),
                ("LS 12dB Fc 300 Hz Gain 6 dB", ("LS", 300 * centre, 6, np.sqrt(0.5))),
                ("HS 12dB Fc 3,000 Hz Gain 6 dB", ("HS", 3000 / centre, 6, np.sqrt(0.5))),
                (f"PK Fc 1,000 Hz Gain -3 dB BW/60 {60 * octaves}", ("PK", 1000, -3, q)),
                (f"PK Fc 1000 Hz Gain -3 dB BW Oct {octaves}", ("PK", 1000, -3, q)),
                ("PK Fc 63,50 Hz Gain -3,25 dB Q 4,5", ("PK", 63.5, -3.25, 4.5))):
            text = f"Channel: all\nDevice: all\nfilter: on {line}\n"
            self.check("sos", write("eq.txt", text), equaliser([wanted], RATE))
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

    def test_zeros_poles_and_gain(self):
        z, p, k = ZPK
        frequency = np.linspace(0, np.pi, 512)
        low = signal.butter(3, 0.2, "highpass", output="zpk")
        text = f"z = {z.tolist()}\np = {p.tolist()}\nk = {k!r}\n"
        matlab = "; ".join(f"{x.real!r} {'-' if x.imag < 0 else '+'} {abs(x.imag)!r}i" for x in p)
        pairs = {"zeros": [[x.real, x.imag] for x in z], "poles": [[x.real, x.imag] for x in p],
                 "gain": k}
        io.savemat("zpk.mat", {"z": z, "p": p, "k": k})
        np.savez("zpk.npz", z=z, p=p, k=k)
        io.savemat("delayed.mat", {"z": low[0][:1], "p": low[1], "k": low[2]})
        for name, zpk in (("zpk.mat", ZPK), ("zpk.npz", ZPK), (write("python.txt", text), ZPK),
                          (write("matlab.txt", f"z = {z.real.tolist()};\np = [{matlab}];\nk = {k!r};"), ZPK),
                          (write("zpk.json", json.dumps(pairs)), ZPK), ("delayed.mat", (low[0][:1], *low[1:]))):
            _, found = signal.sosfreqz(self.numbers("sos", name), frequency)
            _, expected = signal.freqz_zpk(*zpk, frequency)
            np.testing.assert_allclose(found, expected, rtol=0, atol=1e-12, err_msg=name)
            self.refused("fir", name, "zeros and poles", "sos")
        io.savemat("h.mat", {"H": p, "w": z.real})
        self.refused("fir", "h.mat", "'H'", "complex")
        io.savemat("lone.mat", {"p": [0.5, 0.3 + 0.2j], "z": [0, 0], "k": 1})
        self.refused("sos", "lone.mat", "'p'", "conjugate")

    def test_archives_and_json(self):
        for save in (np.savez, np.savez_compressed):
            save("c.npz", sos=SOS, fs=48000.0)
            self.check("sos", "c.npz", SOS)
            save("c.npz", b=B, a=A, note="low pass" if save is np.savez else 1)
            self.check("iir", "c.npz", (B, A))
            save("c.npz", TAPS)
            self.check("fir", "c.npz", TAPS)
        named = [dict(zip(("b0", "b1", "b2", "a1", "a2"), row)) for row in np.delete(SOS, 3, 1).tolist()]
        for kind, content, expected in (
                ("fir", TAPS.tolist(), TAPS), ("fir", {"taps": TAPS.tolist(), "fs": 48000}, TAPS),
                ("iir", {"filter": {"b": B.tolist(), "a": A.tolist()}}, (B, A)),
                ("sos", {"sos": SOS.tolist()}, SOS), ("sos", {"filters": named}, SOS)):
            for indent in (None, 2):
                self.check(kind, write("c.json", json.dumps(content, indent=indent)), expected)
        self.refused("fir", write("cut.npz", contents("c.npz")[:-30]), "damaged")
        self.refused("fir", write("bad.json", '{"b": [1, 2'), "no JSON")
        self.refused("fir", write("ragged.json", '{"sos": [[1, 2], [3]]}'), "'sos'", "as many")

    def test_taps_without_a_header(self):
        for name, data, expected in (
                ("S16LE", np.array([16384, -8192], "<i2").tobytes(), [0.5, -0.25]),
                ("S24LE3", b"\0\0\x40\0\0\xe0", [0.5, -0.25]),
                ("S24LE", b"\0\0\x40\0\0\0\xe0\xff", [0.5, -0.25]),
                ("S32LE", np.array([2 ** 30, -2 ** 31], "<i4").tobytes(), [0.5, -1]),
                ("FLOAT32LE", TAPS.astype("<f4").tobytes(), TAPS.astype("f4")),
                ("FLOAT64LE", TAPS.astype("<f8").tobytes(), TAPS)):
            self.check("fir", write("taps.raw", data), expected, "--format", name)
        self.refused("fir", "taps.raw", "S16LE", "FLOAT64LE")
        self.refused("fir --format S16LE", write("odd.raw", b"12345"), "5 bytes")

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
        self.check("sos", write("c.yml", biquads + pipeline), expected)
        write("taps.raw", TAPS.astype("<f4").tobytes())
        for parameters, taps in ((f"type: Values, values: [{joined(TAPS, ', ')}]", TAPS),
                                 ("type: Raw, filename: taps.raw, format: FLOAT32LE", TAPS.astype("f4"))):
            self.check("fir", write("c.yml", "filters:\n  room:\n    type: Conv\n    parameters: {" +
                                    parameters + "}\n"), taps)
        for text, *said in (
                (biquads + pipeline.replace("channel: 0", "channel: 1"), "different ways"),
                (biquads + "pipeline:\n  - {type: Mixer, name: mono}\n", ":10:", "'Mixer'"),
                (biquads, ":7:", "'Delay'"), ("filters:\n  - x: [\n", "YAML"),
                (biquads.replace("Peaking", "Tilt").replace("type: Delay", "type: Gain"), ":4:", "'Tilt'"),
                (biquads.replace("freq: 100", "freq: 30000"), ":4:", "'bass'", "30000")):
            self.refused("sos", write("c.yml", text), *said)

    def test_audio_gain_and_normalise(self):
        wavfile.write("taps.wav", 96000, TAPS.astype(np.float32))
        subprocess.run(["sox", "-V1", "-D", "taps.wav", "-b", "24", "taps.flac"], check=True)
        self.check("fir", "taps.wav", TAPS.astype("f4"))
        np.testing.assert_allclose(self.numbers("fir", "taps.flac"), TAPS, atol=2 ** -24)
        loud = SOS * [7, 7, 7, 1, 1, 1]
        np.save("c.npy", loud)
        peak = np.abs(signal.sosfreqz(loud, 2 ** 16)[1]).max()
        found = self.numbers("sos", "c.npy", "--normalise", "--gain", -3)
        np.testing.assert_allclose(found, folded(loud, [10 ** (-3 / 20) / peak]), rtol=1e-6)
        np.save("c.npy", np.zeros(3))
        self.refused("fir --normalise", "c.npy", "0 dB")

    def test_stability_and_peak(self):
        turned = A * [1, *[-1] * 4]
        write_numbers("ba.txt", [B, turned])
        radius = np.abs(np.roots(turned)).max()
        self.refused("iir", "ba.txt", f"{radius:.6f}"[:7], "negated", "--negate-a", "--keep-a")
        self.check("iir", "ba.txt", (B, A), "--negate-a")
        heard = self.said("iir", SPEECH, "out.wav", "-c", "ba.txt", "--keep-a")
        self.assertRegex(heard, f"unstable.*{radius:.5f}"[:-1])
        np.save("c.npy", SOS * [1, 1, 1, 1, -1, -1])
        self.refused("sos", "c.npy", "negated")
        self.check("sos", "c.npy", SOS, "--negate-a")
        for taps, decibels in (([0.5, 0.6], "0.8 dB"), ([0.5, -0.5], None)):
            write_numbers("taps.txt", [taps])
            # A run tells what clipped; of coefficients for elsewhere this is all that can be told.
            said = self.said("export", "out.npy", "--fir", "taps.txt")
            self.assertEqual(re.findall(r"gain is (.*?),", said), [decibels] if decibels else [])
            self.assertEqual(self.said("fir", SPEECH, "out.wav", "-c", "taps.txt"), "")

    def test_refusals(self):
        arrays = {"3d": np.ones((2, 3, 4)), "complex": np.ones(3, complex), "nan": [1, np.nan],
                  "zero": [[1.0, 2], [0, 1]], "sections": SOS, "taps": TAPS,
                  "417": np.tile([1.0, 0, 0, 1, 0, 0], (417, 1))}
        for name, values in arrays.items():
            np.save(name + ".npy", values)
        data = contents("taps.npy")
        write("cut.npy", data[:-8])
        write("head.npy", data[:40])
        np.savez("x.npz", SOS)
        matlab = {"none": {"text": "hello"}, "three": {"x": B, "y": A, "z": TAPS},
                  "gain": {"sos": SOS, "g": GAINS[:3]}, "full": {"sos": SOS}, "417": {"sos": arrays["417"]}}
        for name, variables in matlab.items():
            io.savemat(name + ".mat", variables)
        write("cut.mat", contents("full.mat")[:300])
        wavfile.write("two.wav", 48000, np.ones((9, 2), np.int16))
        wavfile.write("piped.wav", 48000, np.ones(5000, np.int16))
        data = contents("piped.wav")
        write("piped.wav", data[:40] + b"\xff" * 4 + data[44:])
        for name, data in (("room.mp3", b"ID3\x03\0\0\0\0\0\0"), ("plot.png", b"\x89PNG\r\n\x1a\n"),
                           ("page.html", b"<!DOCTYPE html><html>"),
                           ("noise.bin", bytes(range(1, 250)))):
            write(name, data)
        num, den = section_rows(SOS, GAINS)
        table = "\n".join(f"{20 * i},{-i / 100},{i}" for i in range(1, 300))
        line = "Filter 1: ON PK Fc 100 Hz Gain 3 dB Q 1\n"
        for command, name, text, *words in (
                ("fir", "room.mp3", None, "is an MP3 file", ".npy", "WAV"),
                ("fir", "plot.png", None, "is a PNG picture"), ("fir", "page.html", None, "HTML"),
                ("fir", "x.npz", None, "'arr_0' of 5 x 6", "run with sos"), ("fir", "noise.bin", None, "numeric"),
                ("fir", "3d.npy", None, "(2, 3, 4)", "(L, 6)"),
                ("fir", "complex.npy", None, "'<c16'", "float64"),
                ("fir", "nan.npy", None, "nan", "value 2"),
                ("iir", "zero.npy", None, "starts with 0"),
                ("fir", "sections.npy", None, "5 x 6", "run with sos"),
                ("iir", "taps.npy", None, "1 x 31", "run with fir"),
                ("sos", "taps.npy", None, "L x 6"),
                ("fir", "cut.npy", None, "248", "240"), ("fir", "head.npy", None, "damaged"),
                ("fir", "none.mat", None, "no numeric array"),
                ("iir", "three.mat", None, "'x' of 1 x 5", "--variables"),
                ("iir --variables x,q", "three.mat", None, "'q'", "'x', 'y', 'z'"),
                ("fir --variables b", "two.json", '{"f": {"b": [1, 2]}, "g": {"b": [3, 4]}}', "several", "'b'"),
                ("sos", "gain.mat", None, "'g'", "3 values", "5 or 6"),
                ("sos", "cut.mat", None, "cut.mat"),
                ("fir --precision int16", SPEECH, None, str(len(read(SPEECH)[1])), "1250", "double"),
                ("fir --precision int16", "piped.wav", None, "1250", "double"),
                ("fir", "two.wav", None, "2 channels"), ("iir", "two.wav", None, "audio"),
                ("fir --format npy", "c.txt", "1 2 3", "no .npy"),
                ("fir", "c.txt", "1 2\n3 x4 5\n", ":2:", "'x4'"), ("fir", "c.txt", "1 nan\n", ":1:", "'nan'"),
                ("fir", "c.txt", "1\n2\n1e39\n", ":3:", "1e39", "range"), ("fir", "c.txt", "1e400\n", ":1:", "1e400"),
                ("fir", "c.txt", "0x10\n", ":1:", "0x10"), ("fir", "c.txt", "1,,2\n", ":1:", "comma"),
                ("fir", "c.txt", "1\x00\x07\n", "binary", "S16LE"),
                ("fir", "c.txt", "", "no numbers"), ("fir", "c.txt", "# 1 2 3\n", "no numbers"),
                ("fir --precision int16", "c.txt", "1 " * 1250 + "\n1", "1251", "1250"),
                ("iir", "c.txt", "1 2\n", ":1:", "1 line"), ("iir", "c.txt", "1\n\n1\n1\n", ":4:", "3 lines"),
                ("iir", "c.txt", "1\n2 1\n", ":2:", "with 2"),
                ("sos", "c.txt", "1 0 0 1 0 0\n1 2 3 4 5\n", ":2:", "5 numbers", "six"),
                ("sos", "c.txt", "1 0 0 0.5 0 0\n", ":1:", "0.5"),
                ("fir --format audio", "c.txt", "1", "no audio file"),
                ("fir --format mat", "c.txt", "1", "no MATLAB file"),
                ("fir", "c.csv", "1;2,5;x", ":1:", "'x'"),
                ("fir", "c.csv", "1;;2", ":1:", "semicolon"),
                ("fir", "c.h", "const int BL = 3;\ndouble B[2] = {1,2};", ":1:", "'BL' is 3", "2 values"),
                ("fir", "c.h", "double B[3] = {1,2};", ":1:", "with 3", "2"),
                ("fir", "c.h", "\ndouble B[2] = {1,\nX};", ":3:", "'X'"),
                ("fir", "c.h", "double B[] = {1,", "'B' do not end"),
                ("fir", "c.h", "double B_1[]={1,2};double B_2[]={3,4};", "'B_1' and 'B_2'", "--variables"),
                ("fir", "c.h", "double NUM[]={1,2};double DEN[]={1,4};", "iir"),
                ("sos", "c.h", sections_header("real64_T", num, den).replace("NSEC 11", "NSEC 13"),
                 "'NL'", "13", "11"),
                ("iir", "c.h", sections_header("real64_T", num, den), "'NUM' of 5 x 6", "run with sos"),
                ("sos", "c.h", sections_header("real64_T", num, den * [0, 1, 1]), "'DEN'", "row 1",
                 "starts with 0"),
                ("fir", "deep.json", '{"a":' * 300000 + "1" + "}" * 300000, "no numeric array"),
                ("sos", "b.txt", "biquad1,\nb0=1,\nb1=2,\nb2=0,\na1=0", ":1:", "no a2"),
                ("sos", "b.txt", "biquad1,\nb0=1,\nb0=2", ":3:", "b0", "twice"),
                ("sos", "b.txt", "biquad1,\nc0=1", ":2:", "'c0=1'"),
                ("sos", "b.txt", "biquad1,b0=x", ":1:", "'x'"),
                ("fir", "b.txt", "biquad1,b0=1,b1=0,b2=0,a1=0,a2=0", "run with sos"),
                ("sos", "e.txt", "\nFilter 1: ON PK Fc 30000 Hz Gain 3 dB Q 1", ":2:", "30000", "24000"),
                ("sos", "e.txt", "Filter 1: ON XX Fc 300 Hz", ":1:", "'XX'", "PK"),
                ("sos", "e.txt", "Filter 1: ON PK Fc 300 Hz Q 1", "Gain"),
                ("sos", "e.txt", "Filter 1: ON PK Fc 300 Hz Gain 3 dB", "needs Q"),
                ("sos", "e.txt", "Filter 1: PK Fc 3", "'PK'", "ON"),
                ("sos", "e.txt", "Filter 1: ON PK Fc 1.2,5 Hz Gain 3 dB Q 1", "'1.2,5'"),
                ("sos", "e.txt", "Preamp: x dB", ":1:", "'x'"),
                ("sos", "e.txt", "Preamp: -3 dB\nChannel: L\n" + line, ":2:", "'Channel'", "all", "Equalizer APO",
                 "setup runs"),
                ("sos", "e.txt", "Preamp:", "Preamp"),
                ("sos", "e.txt", line + "If: x\n" + line + "EndIf:\n", ":2:", "'If'", "Equalizer APO"),
                ("sos", "e.txt", line + "LoudnessCorrection: State 1\n", ":2:", "LoudnessCorrection"),
                ("sos", "e.txt", "VSTPlugin: Library x.dll\n" + line, ":1:", "VSTPlugin"),
                ("sos", "e.txt", line + "Filter 2 ON PK Fc 90 Hz Gain 3 dB Q 1\n", ":2:", "colon"),
                ("fir", "c.txt", "frequency,dB,phase\n" + table, ":1:", "'frequency'"),
                ("fir", "c.txt", table, "frequency"),
                ("fir", "c.txt", "left,right\n.1,.2\n.3,.4\n", ":1:", "'left'"),
                ("fir", "c.txt", ".1,.2\n.3,.4\n.5,.2\n.1,.3\n", "several responses", "convolve"),
                ("fir", "c.txt", "0 0.5\n1 0.25\n", "numerator"),
                ("sos", "c.txt", "b0,b1,b2,a1,x\n1,0,0,0,0\n1,0,0,0,0\n", ":1:", "'x'"),
                ("sos", "c.txt", "b0,b1,a1,a2\n1,0,0,0\n1,0,0,0\n", ":1:", "no column b2"),
                ("fir", "c.txt", "h[0] = 1\nh[2] = 1\n", ":2:", "index 2"),
                ("sos", "c.txt", "b0=1\nb1=0\nb2=0\na1=0\n", "no a2"),
                ("sos", "c.txt", "z = -1 -1\np = 0.5+0.3j 0.5-0.3j\nk = 0.1\n", ":1:", "brackets"),
                ("sos", "c.txt", "gain = 1e30\nsos = [1e20 0 0 1 0 0; 1 0 0 1 0 0]\n", "1e+50", "range"),
                ("fir", "c.txt", "* Impulse Response data saved by REW\n2.2675736961E-5 // Sample interval\n"
                 "* Data start\n1\n", ":2:", "44100", "48000")):
            if text is not None:
                write(name, text)
            self.refused(command, name, *words)
        same = {self.refused("sos --precision int16", name, "417").replace(name, "")
                for name in ("417.npy", "417.mat", write("417.txt", "1 0 0 1 0 0\n" * 417))}
        self.assertEqual(len(same), 1, same)

    def test_what_export_writes_is_read_back(self):
        """The same bits, neither scaled nor factored once more, and known for what it is."""
        np.save("steep.npy", signal.cheby1(8, 1, [0.002, 0.01], "bandpass", output="sos"))
        np.savez("short.npz", b=[0.5, 0.25, 0.1, 0.2], a=[1, -0.5])
        write("six.txt", "0.5\n0.1\n0.2\n1\n0.1\n0.2\n")  # taps that look like a section

        def run(kind, name, precision, *options):
            said = self.said(kind, SPEECH, "out.wav", "-c", name, "--precision", precision, *options)
            return contents("out.wav"), said

        for kind, name in (("sos", "steep.npy"), ("iir", "short.npz"), ("fir", "six.txt")):
            for precision in ("int16", "double"):
                expected, _ = run(kind, name, precision, *["--as-is"] * (kind != "fir"))
                for ending in ("h", "txt", "npy", "mat"):
                    once, twice = f"once.{ending}", f"twice.{ending}"
                    for result, source in ((once, name), (twice, once)):
                        self.run_tool("export", result, f"--{kind}", source, "--name", "f", "--precision",
                                      precision, *["--as-is"] * (result == once))
                    first, second = ([line for line in contents(result).split(b"\n")
                                      if b"Coefficients of" not in line and b"LSB of" not in line]
                                     for result in (once, twice))
                    context = (kind, name, precision, ending)
                    self.assertEqual(first, second, context)
                    heard, said = run(kind, once, precision)
                    self.assertEqual(heard, expected, context)
                    self.assertNotIn("moved", said, context)
                    self.refused("fir" if kind == "iir" else "iir", once, "run with", kind)
        np.testing.assert_array_equal(np.load("once.npy"), [0.5, 0.1, 0.2, 1, 0.1, 0.2])
        self.assertEqual(io.loadmat("once.mat")["prepared"].tolist(), ["fir, double"])
        write("inside.h", "void f(void) {\n  static const float h[] = {0.5f, 0.1f};\n}\n")
        self.check("fir", "inside.h", np.float32([0.5, 0.1]))

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

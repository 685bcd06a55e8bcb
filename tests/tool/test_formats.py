"""Coefficient files of jurn-filter: each format filters a recording as SciPy does."""

import re
import shutil
import subprocess
import unittest

import numpy as np
from scipy import io, signal
from scipy.io import wavfile

from tool_test import SPEECH, ToolTest, contents, read, to_int16, write, write_numbers

TAPS = signal.firwin(31, 0.3)
B, A = signal.butter(4, 0.2)
SOS = signal.cheby1(5, 1, [0.05, 0.4], "bandpass", output="sos")
GAINS = np.array([0.5, 2, 0.8, 1, 1.25, 0.9])  # one per section and one of the output


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
    def check(self, command, name, expected, *options):
        """Filters speech with a file; `expected` is taps, (b, a) or sections."""
        x = read(SPEECH)[1]
        if command == "sos":
            y = signal.sosfilt(np.ascontiguousarray(expected), x, axis=0)
        else:
            y = signal.lfilter(*(expected if command == "iir" else (expected, [1])), x, axis=0)
        result = self.run_filter(command, "-c", name, *options)
        self.assertTrue(result.any(), name)
        self.assert_near(result, to_int16(y), (name, options))

    def test_text(self):
        for name, text, *options in (
                ("head.csv", "index b\n" + "\n".join(map(repr, TAPS.tolist()))),
                ("quotes.csv", "\ufeff" + ",".join(f'"{x}"' for x in TAPS) + "\r\n"),
                ("comma.csv", ";".join(str(x).replace(".", ",") for x in TAPS)),
                ("plain.txt", "\n".join(map(str, TAPS)), "--format", "numbers")):
            self.check("fir", write(name, text), TAPS, *options)
        np.savetxt("sos.txt", SOS)
        np.savetxt("sos.csv", SOS, delimiter=",", header="b0,b1,b2,a0,a1,a2", comments="")
        for name in ("sos.txt", "sos.csv"):
            self.check("sos", name, SOS)

    def test_numpy(self):
        arrays = {"fir": (TAPS, TAPS[:, None], TAPS[None]), "iir": (np.array([B, A]) * 3,),
                  "sos": (SOS, SOS * 2, SOS[:1], SOS[1])}
        expected = {"fir": [TAPS] * 3, "iir": [(B, A)], "sos": [SOS, SOS, SOS[:1], SOS[1:2]]}
        for command, values in arrays.items():
            for array, design in zip(values, expected[command]):
                for dtype in ("<f8", ">f8", "<f4"):
                    for order in "CF":
                        stored = np.asarray(array, dtype=dtype, order=order)
                        np.save("c.npy", stored)
                        if dtype == "<f4":  # the same rounding
                            wide = stored.astype(float)
                            design = (wide.ravel() if command == "fir" else
                                      wide / wide[1, 0] if command == "iir" else
                                      np.atleast_2d(wide) / np.atleast_2d(wide)[:, 3:4])
                        self.check(command, "c.npy", design)
        np.save("c.npy", np.array([1, -2, 1], np.int64))
        self.check("fir", "c.npy", [1.0, -2, 1])

    def test_matlab(self):
        other = {"fs": 48000.0, "name": "room", "cell": np.array([1, "x"], object)}
        for command, variables, expected, *options in (
                ("fir", {"h": TAPS, **other}, TAPS), ("fir", {"whatever": TAPS[:, None]}, TAPS),
                ("fir", {"x1": TAPS, "x2": B}, B, "--variables", "x2"),
                ("iir", {"a": 2 * A, "b": 2 * B, **other}, (B, A)),
                ("iir", {"Num": B, "Den": A.astype(np.float32)}, (B, A.astype(np.float32))),
                ("iir", {"first": B, "second": A}, (B, A)),
                ("iir", {"ba": np.array([B, A])}, (B, A)),
                ("iir", {"x": A, "y": B}, (B, A), "--variables", "y,x"),
                ("sos", {"SOS": SOS, **other}, SOS),
                ("sos", {"x": SOS, "G": 0.5}, folded(SOS, [0.5])),
                ("sos", {"sos": SOS, "g": GAINS[:5]}, folded(SOS, GAINS[:5])),
                ("sos", {"q": SOS, "w": GAINS}, folded(SOS, GAINS)),
                ("sos", {"q": SOS[:2], "p": SOS, "w": 0.3}, folded(SOS, [0.3]), "--variables",
                 "p,w")):
            for compressed in (False, True):
                io.savemat("c.mat", variables, do_compression=compressed)
                self.check(command, "c.mat", expected, *options)
        io.savemat("c4.mat", {"b": B, "a": A}, format="4")
        self.check("iir", "c4.mat", (B, A), "--format", "mat")

    @unittest.skipUnless(shutil.which("octave-cli"), "GNU Octave is not installed")
    def test_octave(self):
        def row(values):
            rows = (" ".join(map(repr, r.tolist())) for r in np.atleast_2d(values))
            return "[" + ";".join(rows) + "]"
        # Octave fills first-order sections up with leading zeros.
        first = np.array([[0, 1, 1, 0, 1, -0.5], SOS[0]])
        script = (f"h={row(TAPS)}; b={row(B)}; a={row(A)}; sos={row(first)}; g=0.25;"
                  "save('-v7','ba7.mat','b','a'); save('-v6','sos6.mat','sos','g');"
                  "save('-text','ba.txt','b','a'); save('-ascii','h.txt','h');"
                  "csvwrite('h.csv',h,'precision','%.17g')")
        subprocess.run(["octave-cli", "--no-gui", "--eval", script], check=True,
                       capture_output=True)
        self.check("iir", "ba7.mat", (B, A))
        self.check("iir", "ba.txt", (B, A))
        self.check("fir", "h.txt", np.loadtxt("h.txt"))
        self.check("fir", "h.csv", TAPS)
        self.check("sos", "sos6.mat", [[0.25, 0.25, 0, 1, -0.5, 0], SOS[0]])

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
        for command, text, expected, *options in (
                ("fir", "const int BL = 31;\n" + taps, TAPS),
                ("fir", "/* const int BL = 31; */\n// const int BL = 30;\nstatic " + taps, TAPS),
                ("fir", c_array("real32_T", "NUM", TAPS).replace(",", "f,"), TAPS),
                ("fir", c_array("int16_T", "B", taps15), taps15 / 2 ** 15),
                ("fir", "#define N 2\nfloat taps[N] = {.5, -0.5F};", [0.5, -0.5]),
                ("fir", taps.replace("B[", "B_1[") + c_array(double, "B_2", B), B,
                 "--variables", "B_2"),
                ("iir", "".join(direct), (B, A)),
                ("iir", c_array(double, "NUM_1", 2 * B) + c_array(double, "DEN_1", 2 * A), (B, A)),
                ("iir", c_array("int32_T", "NUM", b20) + c_array("int32_T", "DEN", a20),
                 (b20 / 2 ** 20, a20 / 2 ** 20)),
                ("iir", header(c_array("int16_T", "NUM", b18) + c_array("int16_T", "DEN", a12),
                               info), (b18 / 2 ** 18, a12 / 2 ** 12)),
                ("sos", sections_header(double, num, den), folded(SOS, GAINS)),
                ("sos", sections_header(double, num, den, "_band").replace("const", "static const"),
                 folded(SOS, GAINS)),
                ("sos", sections_header(double, num[1::2], den[1::2]), SOS),
                ("sos", sections_header("int16_T", *section_rows(sos13, gains13, 2 ** 13)),
                 folded(sos13 / 2 ** 13, gains13 / 2 ** 13))):
            text = text if text.startswith(("/*\n", "#define N ")) else header(text)
            self.check(command, write("c.h", text), expected, *options)

    def test_room_correction(self):
        rate = read(SPEECH)[0]
        names = ("b0", "b1", "b2", "a1", "a2")
        biquads = ",\n".join(
            f"biquad{i + 1},\n" + ",\n".join(f"{n}={v:.17g}" for n, v in zip(names, values))
            for i, values in enumerate(np.delete(SOS, 3, axis=1) * [1, 1, 1, -1, -1]))
        self.check("sos", write("minidsp.txt", biquads), SOS)
        upper = biquads.replace("\n", "\r\n").upper()
        self.check("sos", write("minidsp.txt", upper), SOS)
        filters = [("PK", 500, -3, 1.41), ("PK", 4321.5, 6, 0.3), ("LS", 200, 4, 0.7),
                   ("LSC", 150, -4, 0.9),
                   ("HS", 5000, -6, 0.7), ("HSC", 7000, 3, 1.1), ("LP", 15000, 0, 0.8),
                   ("HP", 200, 0, 0.6), ("NO", 1000, 0, 8), ("AP", 700, 0, 0.7),
                   ("BP", 900, 0, 0.5)]

        def line(i, kind, fc, gain, q):
            level = f"  Gain {gain:6.1f} dB" if gain else ""
            return f"Filter {i:2d}: ON  {kind:4s}  Fc {fc:8.1f} Hz{level}  Q {q:6.3f}\n"
        for f in filters:
            self.check("sos", write("eq.txt", line(1, *f)), equaliser([f], rate))
        text = ("Filter Settings file\nRoom EQ V5.20\nNotes:mine\n\nEqualiser: Generic\n"
                "Preamp: -6.5 dB\n" +
                "".join(line(i, *f) for i, f in enumerate(filters[:6])) +
                "Filter 11: OFF PK Fc 50 Hz Gain 9 dB Q 1\nFilter 12: ON  None\n")
        self.check("sos", write("eq.txt", text), equaliser(filters[:6], rate, -6.5))
        for text, kind, fc in (("LS fc 0.2khz gain -3dB", "LS", 200), ("LP Fc 3 kHz", "LP", 3000)):
            self.check("sos", write("eq.txt", f"filter: on {text}\n"),
                       equaliser([(kind, fc, -3, np.sqrt(0.5))], rate))
        w = 2 * np.pi * 1000 / rate
        write("eq.txt", "Filter: ON PK Fc 1000 Hz Gain 6 dB BW Oct 0.5\n")
        q = 1 / (2 * np.sinh(np.log(2) / 2 * 0.5 * w / np.sin(w)))
        self.check("sos", "eq.txt", equaliser([("PK", 1000, 6, q)], rate))

    def test_texts_of_other_programs(self):
        """Comments, titles, columns, decimal commas, brackets, names, UTF-16."""
        lines = list(map(repr, TAPS.tolist()))
        commas = [x.replace(".", ",") for x in lines]
        rows = "\n".join(" ".join(map(repr, row)) for row in SOS.tolist())
        longest = max(len(B), len(A))
        b, a = np.pad(B, (0, longest - len(B))), np.pad(A, (0, longest - len(A)))
        octave = "# Created by Octave 8.4, today\n" + "".join(
            f"# name: {name}\n# type: matrix\n# rows: 1\n# columns: {len(x)}\n " +
            " ".join(map(repr, x.tolist())) + "\n\n" for name, x in (("b", B), ("a", A)))
        octave += "# name: fs\n# type: scalar\n48000\n"
        designer = "% Generated by MATLAB\n% Coefficient Format: Decimal\n\n"
        for command, text, expected in (
                ("fir", "\n".join(commas), TAPS),
                ("fir", " ".join(commas), TAPS),
                ("fir", "% MATLAB\n" + "\n".join(lines) + " % end", TAPS),
                ("fir", "FIR filter, 31 taps, fs = 48000 Hz\ncoefficient\n" + "\n".join(lines), TAPS),
                ("fir", "\n".join(f"{i}, {x}" for i, x in enumerate(lines, 1)), TAPS),
                ("fir", "[" + ", ".join(lines) + "]\n", TAPS),
                ("fir", "\n".join(f"np.float64({x})" for x in lines), TAPS),  # repr of NumPy 2
                ("fir", "b = [" + ", ".join(f"np.float64({x})" for x in lines) + "]", TAPS),
                ("fir", "b = [" + " ...\n".join(lines) + "];\nfs = 48000;", TAPS),
                ("fir", "import numpy\ntaps = [\n  " + ",\n  ".join(lines) + ",\n]\n", TAPS),
                ("fir", designer + "Numerator:\n" + "\n".join(lines), TAPS),
                ("iir", designer + "Numerator:\n" + "\n".join(map(repr, B.tolist())) +
                 "\nDenominator:\n" + "\n".join(map(repr, A.tolist())), (B, A)),
                ("iir", octave, (B, A)),
                ("iir", "b,a\n" + "\n".join(f"{x!r},{y!r}" for x, y in zip(b.tolist(), a.tolist())),
                 (B, A)),
                ("sos", designer + "SOS Matrix:\n" + rows + "\n\nScale Values:\n" +
                 "\n".join(map(repr, GAINS[:len(SOS) + 1].tolist())), folded(SOS, GAINS)),
                ("sos", "sos = [" + rows.replace("\n", "\n  ") + "];", SOS),
                ("sos", "\n".join(" ".join(map(repr, row)) for row in np.delete(SOS, 3, 1).tolist()),
                 SOS)):
            self.check(command, write("c.txt", text), expected)
            for encoding in ("utf-16", "utf-16-le", "utf-16-be"):
                write("wide.txt", text.encode(encoding))
                self.check(command, "wide.txt", expected)
        for command, text, *words in (
                ("fir", rows, "sections", "sos"), ("fir", octave, "iir"),
                ("fir", "0.1 0.2 0.1\n1 -0.5 0.2\n", "iir"), ("fir", "1,2\n3,4\n", "comma"),
                ("fir", "\n".join(f"{i / 48000!r} {x}" for i, x in enumerate(lines)), "time")):
            self.assert_fails([command, SPEECH, "out.wav", "-c", write("c.txt", text)], "c.txt", *words)
        self.check("fir", write("c.txt", "0.1 0.2 0.1\n1 -0.5 0.2\n"), [.1, .2, .1, 1, -.5, .2],
                   "--format", "numbers")

    def test_matlab_structures_integers_and_level_4(self):
        io.savemat("old.mat", {"sos": SOS, "g": GAINS}, format="4")
        self.check("sos", "old.mat", folded(SOS, GAINS))
        io.savemat("struct.mat", {"filter": {"b": B, "a": A, "name": "low pass"}, "fs": 48000})
        self.check("iir", "struct.mat", (B, A))
        io.savemat("unsigned.mat", {"b": np.array([3, 2, 1], np.uint8)})
        self.check("fir", "unsigned.mat", [3 / 16, 2 / 16, 1 / 16], "--gain", 20 * np.log10(1 / 16))

    def test_audio_gain_and_normalise(self):
        wavfile.write("taps.wav", 96000, TAPS.astype(np.float32))
        subprocess.run(["sox", "-V1", "-D", "taps.wav", "-b", "24", "taps.flac"], check=True)
        self.check("fir", "taps.wav", TAPS)
        self.check("fir", "taps.flac", TAPS)
        np.save("c.npy", SOS * [7, 7, 7, 1, 1, 1])
        peak = np.abs(signal.sosfreqz(SOS, 2 ** 16)[1]).max()
        scaled = folded(SOS, [10 ** (-3 / 20) / peak])
        self.check("sos", "c.npy", scaled, "--normalise", "--gain", -3)
        np.save("c.npy", np.zeros(3))
        self.assert_fails(["fir", SPEECH, "out.wav", "-c", "c.npy", "--normalise"], "c.npy", "0 dB")

    def warnings(self, command, name, *options):
        return self.said(command, SPEECH, "out.wav", "-c", name, *options)

    def test_stability_and_peak(self):
        turned = A * [1, *[-1] * 4]
        write_numbers("ba.txt", [B, turned])
        radius = np.abs(np.roots(turned)).max()
        common = ["iir", SPEECH, "out.wav", "-c", "ba.txt"]
        self.assert_fails(common, "ba.txt", f"{radius:.6f}"[:7], "negated",
                          "--negate-a", "--keep-a")
        self.check("iir", "ba.txt", (B, A), "--negate-a")
        self.assertRegex(self.warnings("iir", "ba.txt", "--keep-a"), f"unstable.*{radius:.5f}"[:-1])
        sections = SOS * [1, 1, 1, 1, -1, -1]
        np.save("c.npy", sections)
        self.assert_fails(["sos", SPEECH, "out.wav", "-c", "c.npy"], "negated")
        self.check("sos", "c.npy", SOS, "--negate-a")
        # Unstable either way: reported, and run.
        poles = [1.01 * np.exp(0.3j), 1.01 * np.exp(-0.3j), 0.5, 0.5, 0.5, -0.9]
        write_numbers("ba.txt", [[0.01], np.poly(poles).real])
        self.assertRegex(self.warnings("iir", "ba.txt"), r"unstable.* 1\.0(1|0999)")
        # The largest of many poles, near the circle but within.
        b, a = signal.ellip(12, 0.1, 60, 0.5)
        write_numbers("ba.txt", [b, a])
        self.assertNotIn("warning", self.warnings("iir", "ba.txt"))
        for taps, decibels in (([4], "12.0 dB"), ([0.5, 0.6], "0.8 dB"), ([0.5, -0.5], None),
                               ([1], None)):
            write_numbers("taps.txt", [taps])
            # A run tells what clipped; of coefficients for elsewhere this is all that can be told.
            said = self.said("export", "out.npy", "--fir", "taps.txt")
            self.assertEqual(re.findall(r"gain is (.*?),", said), [decibels] if decibels else [])
            self.assertEqual(self.warnings("fir", "taps.txt"), "")

    def test_errors(self):
        np.save("3d.npy", np.ones((2, 3, 4)))
        np.save("complex.npy", np.ones(3, complex))
        np.save("nan.npy", [1, np.nan])
        np.save("zero.npy", [[1.0, 2], [0, 1]])
        np.save("long.npy", np.ones(1251))
        np.save("sections.npy", SOS)
        np.save("taps.npy", TAPS)
        data = contents("taps.npy")
        write("cut.npy", data[:-8])
        write("head.npy", data[:40])
        np.savez("x.npz", SOS)
        io.savemat("none.mat", {"text": "hello"})
        io.savemat("three.mat", {"x": B, "y": A, "z": TAPS})
        io.savemat("gain.mat", {"sos": SOS, "g": GAINS[:3]})
        io.savemat("full.mat", {"sos": SOS})
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
        for command, name, text, *words in (
                ("fir", "room.mp3", None, "is an MP3 file", ".npy", "WAV"),
                ("fir", "plot.png", None, "is a PNG picture"), ("fir", "page.html", None, "HTML"),
                ("fir", "x.npz", None, "'arr_0' of 5 x 6", "run with sos"), ("fir", "noise.bin", None, "numeric"),
                ("fir", "3d.npy", None, "(2, 3, 4)", "(L, 6)"),
                ("fir", "complex.npy", None, "'<c16'", "float64"),
                ("fir", "nan.npy", None, "nan", "value 2"),
                ("iir", "zero.npy", None, "starts with 0"),
                ("fir --precision int16", "long.npy", None, "1251", "1250", "double"),
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
                ("fir --precision int16", SPEECH, None, str(len(read(SPEECH)[1])), "1250",
                 "double"),
                ("fir --precision int16", "piped.wav", None, "1250", "double"),
                ("fir", "two.wav", None, "2 channels"), ("iir", "two.wav", None, "audio"),
                ("fir --format npy", "c.txt", "1 2 3", "no .npy"),
                ("fir --format audio", "c.txt", "1", "no audio file"),
                ("fir --format mat", "c.txt", "1", "no MATLAB file"),
                ("fir", "c.csv", "1;2,5;x", ":1:", "'x'"),
                ("fir", "c.csv", "1;;2", ":1:", "semicolon"),
                ("fir", "c.h", "const int BL = 3;\ndouble B[2] = {1,2};", ":1:", "'BL' is 3",
                 "2 values"),
                ("fir", "c.h", "double B[3] = {1,2};", ":1:", "with 3", "2"),
                ("fir", "c.h", "\ndouble B[2] = {1,\nX};", ":3:", "'X'"),
                ("fir", "c.h", "double B[] = {1,", "'B' do not end"),
                ("fir", "c.h", "double B_1[]={1,2};double B_2[]={3,4};", "'B_1' and 'B_2'",
                 "--variables"),
                ("fir", "c.h", "double NUM[]={1,2};double DEN[]={1,4};", "iir"),
                ("sos", "c.h", sections_header("real64_T", num, den).replace("NSEC 11", "NSEC 13"),
                 "'NL'", "13", "11"),
                ("iir", "c.h", sections_header("real64_T", num, den), "'NUM' of 5 x 6",
                 "run with sos"),
                ("sos", "c.h", sections_header("real64_T", num, den * [0, 1, 1]), "'DEN'", "row 1",
                 "starts with 0"),
                ("fir", "deep.json", '{"a":' * 300000 + "1" + "}" * 300000, "no numeric array"),
                ("sos", "b.txt", "biquad1,\nb0=1,\nb1=2,\nb2=0,\na1=0", ":1:", "no a2"),
                ("sos", "b.txt", "biquad1,\nb0=1,\nb0=2", ":3:", "b0", "twice"),
                ("sos", "b.txt", "biquad1,\nc0=1", ":2:", "'c0=1'"),
                ("sos", "b.txt", "biquad1,b0=x", ":1:", "'x'"),
                ("fir", "b.txt", "biquad1,b0=1,b1=0,b2=0,a1=0,a2=0", "run with sos"),
                ("sos", "e.txt", "\nFilter 1: ON PK Fc 30000 Hz Gain 3 dB Q 1", ":2:", "30000",
                 "24000"),
                ("sos", "e.txt", "Filter 1: ON XX Fc 300 Hz", ":1:", "'XX'", "PK"),
                ("sos", "e.txt", "Filter 1: ON PK Fc 300 Hz Q 1", "Gain"),
                ("sos", "e.txt", "Filter 1: ON PK Fc 300 Hz Gain 3 dB", "needs Q"),
                ("sos", "e.txt", "Filter 1: PK Fc 3", "'PK'", "ON"),
                ("sos", "e.txt", "Filter 1: ON PK Fc 1.2,5 Hz Gain 3 dB Q 1", "'1.2,5'"),
                ("sos", "e.txt", "Preamp: x dB", ":1:", "'x'"),
                ("sos", "e.txt", "Preamp: -3 dB\nChannel: L", ":2:", "'Channel'", "all"),
                ("sos", "e.txt", "Preamp:", "Preamp")):
            if text is not None:
                write(name, text)
            self.assert_fails([*command.split(), SPEECH, "out.wav", "-c", name], name, *words)


if __name__ == "__main__":
    unittest.main()

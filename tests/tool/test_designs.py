"""Designs that jurn-filter makes from words, and coefficients that it exports."""

import os
import subprocess
import unittest

import numpy as np
from scipy import io, signal
from scipy.io import wavfile

from test_formats import equaliser
from tool_test import TOOL, ToolTest, contents, read, write, write_numbers

RATE = 48000
MODULES = os.path.join(os.environ["JURN_FILTER_SOURCE"], "../../modules/libJURN")


def first_order(corner, numerator, denominator):
    """The analogue filter, equal at the frequency to which the bilinear transform maps it."""
    b, a = signal.bilinear(numerator, denominator, fs=0.5 / np.tan(np.pi * corner / RATE))
    return np.array([*b, 0, *a, 0])


class DesignTest(ToolTest):
    def setUp(self):
        super().setUp()
        rng = np.random.default_rng(2)
        self.x = rng.integers(-9000, 9000, (20000, 2)).astype(np.int16)
        wavfile.write("noise.wav", 48000, self.x)

    def test_words(self):
        filters = [("HP", 80, 0, 0.7), ("PK", 3000, -4, 2), ("HS", 8000, 3, np.sqrt(0.5))]
        a = 10 ** (6 / 40)
        zero, pole = np.tan(np.pi * np.array([70, 28]) / RATE)
        linkwitz = np.hstack(signal.bilinear([1, zero / 1.1, zero ** 2], [1, pole / 0.7, pole ** 2], 0.5))
        for words, design in (
                (["HP 80 Q 0.7", "PK 3k -4 Q 2", "HS 8k +3"], equaliser(filters, RATE)),
                (["LP 1,200 Hz order 5"], signal.butter(5, 1200, fs=RATE, output="sos")),
                (["HP 200 order 8"], signal.butter(8, 200, "high", fs=RATE, output="sos")),
                (["lp 2.5kHz LR order 4"], np.tile(signal.butter(2, 2500, fs=RATE, output="sos"), (2, 1))),
                (["LS 300 6 order 1"], first_order(300, [a, a * a], [a, 1])),
                (["HS 300 6 order 1"], first_order(300, [a * a, a], [1, a])),
                (["LS 300 -6 order 1"], first_order(300, [1 / a, 1 / a / a], [1 / a, 1])),
                (["TILT 300 6"], first_order(300, [a, 1], [1, a])),
                (["AP 300 order 1"], first_order(300, [-1, 1], [1, 1])),
                (["LP 300 order 1"], first_order(300, [1], [1, 1])), (["HP 300 6dB"], first_order(300, [1, 0], [1, 1])),
                *(([line], linkwitz) for line in ("LT 70 Q 1.1 to 28 Hz Q 0.7", "LT Fc 70 Hz Q1.1 28 0.7",
                                                  "LinkwitzTransform 70 1.1 28 0.7"))):
            first, *others = words
            found = self.numbers("eq", first, *(part for word in others for part in ("--eq", word)))
            h, expected = (signal.sosfreqz(rows, 4096)[1] for rows in (found, np.atleast_2d(design)))
            np.testing.assert_allclose(h, expected, rtol=0, atol=1e-9, err_msg=words)
        self.run_tool("eq", "noise.wav", "out.wav", "PK 3k -4 Q 2")
        one = read("out.wav")[1]
        self.run_tool("sos", "noise.wav", "out.wav", "-c",
                      write("eq.txt", "Filter: ON PK Fc 3000 Hz Gain -4 dB Q 2\n"))
        np.testing.assert_array_equal(read("out.wav")[1], one)
        subprocess.run([TOOL, "average", "noise.wav", "then.wav", "--length", "1", "-q", "--then",
                        "eq", "PK 3k -4 Q 2"], check=True)
        np.testing.assert_array_equal(read("then.wav")[1], one)
        self.run_tool("eq", "noise.wav", "--output-dir", "out", "PK 3k -4 Q 2")
        np.testing.assert_array_equal(read("out/noise.wav")[1], one)
        for words, *parts in (("XX 80", "'XX'", "PK"), ("HP 80 Q", "'Q'"), ("PK 3k -4", "Q"),
                              ("HS 8k", "Gain"), ("HP 80 order 3 LR", "even"),
                              ("HP 80 order 25", "24"), ("PK 1k 3 Q 1 order 2", "LP and HP"),
                              ("HP nan", "nan"), ("HP 1e30", "1e+30", "24000"), ("PK 1k 300 Q 1", "300"),
                              ("LP 80 linear Q 2", "transition"), ("PK 100 3 Q 1 linear", "linear"),
                              ("LP 80 transition 20", "linear"), ("LP 80 linear transition 0.01", "taps"),
                              ("LP 15k linear transition 20k", "18000"), ("LT 70 1.1 28", "ends"),
                              ("LT 70 1.1 28 0", "above 0"), ("LT 70 1.1 28000 0.7", "24000"),
                              ("LS 100 3 order 2", "order 1"), ("TILT 1k 3 Q 1", "no width"), ("TILT 1k", "Gain"),
                              ("NO 50 order 1", "order")):
            self.assert_fails(["eq", "noise.wav", "new.wav", words], *parts)
        self.assert_fails(["eq", "noise.wav", "new.wav"], "filters", code=2)

    def test_graphic_equaliser(self):
        text = write("graphic.txt", "Preamp: -3 dB\nGraphicEQ: 100 0; 1000 6; 4000 -6; 16000 0\n")
        click = np.zeros(32768, np.float32)
        click[16384] = 1
        wavfile.write("click.wav", 48000, click)
        self.run_tool("fir", "click.wav", "out.wav", "-c", text)
        heard = read("out.wav")[1][:, 0]
        self.assertEqual(len(heard), len(click))  # and not late
        taps = heard[16384 - 9600:16384 + 9601]
        np.testing.assert_allclose(taps, taps[::-1], atol=1e-7)
        frequency, response = signal.freqz(taps, worN=[20, 1000, 2000, 4000, 8000, 20000], fs=48000)
        np.testing.assert_allclose(20 * np.log10(np.abs(response)), [-3, 3, -3, -9, -6, -3],
                                   atol=0.15)
        self.assert_fails(["sos", "click.wav", "new.wav", "-c", text], "FIR")

    def test_export_is_what_runs(self):
        device = ["--precision", "int16"]
        steep = signal.butter(8, 500, fs=48000, output="sos")
        write_numbers("sos.txt", steep)
        write_numbers("ba.txt", signal.butter(2, 0.1))
        write_numbers("taps.txt", [signal.firwin(31, 0.2)])
        for command, name in (("sos", "sos.txt"), ("iir", "ba.txt"), ("fir", "taps.txt")):
            result = self.run_filter(command, "-c", name, *device, source="noise.wav")
            self.run_tool("export", "my-filter.h", "--" + command, name)
            kind = {"sos": "CASCADE", "iir": "IIR", "fir": "FIR"}[command]
            self.assertIn(f"filter->filtertype = JURN_{kind};\n", contents("my-filter.h").decode())
            program = write("use.c", '#include <stdio.h>\n#include "my-filter.h"\n'
                            "static Filter_ID filter;\nint main(void) {\n"
                            "  short block[1024];\n  my_filter_setup(&filter, JURN_STEREO);\n"
                            "  while (fread(block, 4, 512, stdin) == 512) {\n"
                            "    my_filter_run(&filter, block, 512, block);\n"
                            "    fwrite(block, 4, 512, stdout);\n  }\n  return 0;\n}\n")
            subprocess.run([*os.environ["JURN_CC"].split(), "-std=c99", "-Wall", "-Wextra", "-Werror", "-ffp-contract=off",
                            "-I", MODULES + "/filter/Filter_LIB", program, os.environ["JURN_LIBRARY"],
                            "-lstdc++", "-lm", "-o", "use"], check=True)
            whole = self.x[:20000 // 512 * 512]
            done = subprocess.run(["./use"], input=whole.tobytes(), capture_output=True, check=True)
            np.testing.assert_array_equal(np.frombuffer(done.stdout, np.int16).reshape(-1, 2),
                                          result[:len(whole)], name)
        write_numbers("long.txt", [np.ones(202) / 202])
        wanted = ["--eq", "PK 100 3 Q 1", "--rate", 96000, "--precision"]
        self.run_tool("export", "double.npy", *wanted, "double")
        for precision, suffix in (("double", ""), ("int16", "f")):  # a compiler would round to float
            self.run_tool("export", precision + ".h", *wanted, precision)
            self.assertRegex(contents(precision + ".h").decode(), r"\.\d+%s[,}]" % suffix)
        np.testing.assert_allclose(np.load("double.npy"), equaliser([("PK", 100, 3, 1)], 96000),
                                   rtol=1e-12, atol=1e-14)
        self.run_tool("export", "c.mat", "--fir", "taps.txt")
        self.assertEqual(io.loadmat("c.mat")["b"].shape, (1, 31))
        for arguments, code, *words in (
                (["c.mat", "--fir", "taps.txt"], 4, "c.mat", "--overwrite"),
                (["c.xyz", "--fir", "taps.txt"], 2, "c.xyz", ".npy"),
                (["new.h", "--fir", "long.txt", "--precision", "double"], 2, "201", "202", ".npy"),
                (["new.h"], 2, "--eq"), (["taps.txt", "--fir", "taps.txt", "--overwrite"], 2,
                                         "taps.txt"),
                (["new.h", "--fir", "missing.txt"], 3, "missing.txt")):
            self.assert_fails(["export", *arguments], *words, code=code)


if __name__ == "__main__":
    unittest.main()

"""fit: equalisers for measurements, whose bands and errors are computed here a second time."""

import re
import unittest
from pathlib import Path

import numpy as np
from scipy import signal

from test_formats import equaliser
from tool_test import SPEECH, STREET, ToolTest

RATE = 48000
KNOWN = [("LSC", 105, 5.5, 0.7), ("PK", 180, -3.2, 0.9), ("PK", 900, 2.5, 1.4), ("PK", 2500, -4, 3),
         ("PK", 6000, 6, 4.5), ("HSC", 9000, -5, 0.6)]
GRID = 20 * 1.01 ** np.arange(695)


def response(bands, frequencies, rate=RATE):
    """In dB."""
    return 20 * np.log10(np.abs(signal.sosfreqz(equaliser(bands, rate), frequencies, fs=rate)[1]))


def rew(levels, frequencies, separator=" "):
    """What REW exports: a head of comments, three columns."""
    head = ("* Measurement data measured by REW V5.31\n* Source: USB microphone, Channel: Left\n"
            "* 1/48 octave smoothing\n* Dated: 1 May 2024 10:11:12\n* Note: ; by the window\n*\n"
            "* Freq(Hz) SPL(dB) Phase(degrees)\n")
    rows = (separator.join((f"{f:.4f}", f"{level:.3f}", "-12.3456")) for f, level in zip(frequencies, levels))
    return head + "\n".join(rows) + "\n"


class FitTest(ToolTest):
    def fit(self, text, *options, name="m.txt"):
        """The bands, the preamp, and the numbers of the summary."""
        Path(name).write_text(text, encoding="latin-1")
        said = self.run_tool("fit", name, "bands.txt", *options)
        lines = Path("bands.txt").read_text(encoding="ascii").splitlines()
        bands = []
        for line in lines[1:]:
            found = re.fullmatch(r"Filter \d+: ON (\w+) Fc (\S+) Hz Gain (\S+) dB Q (\S+)", line)
            bands.append((found[1], *map(float, found.groups()[1:])))
        return bands, float(re.fullmatch(r"Preamp: (\S+) dB", lines[0])[1]), \
            [float(x) for x in re.findall(r"(-?[\d.]+) (?:dB|Hz)", said)]

    def test_known_bands_come_back(self):
        measured = 75 - response(KNOWN, GRID)
        text = "frequency,raw\n" + "".join(f"{f:.2f},{m:.3f}\n" for f, m in zip(GRID, measured))
        for count in (10, 6):
            bands, preamp, (rms, largest, *_) = self.fit(text, "--bands", count)
            self.assertEqual([band[0] for band in bands], [band[0] for band in KNOWN])
            for found, wanted in zip(bands, KNOWN):
                np.testing.assert_allclose(found[1:], wanted[1:], rtol=0.04, atol=0.02)
            self.assertLess(np.abs(response(bands, GRID) - response(KNOWN, GRID)).max(), 0.1)
            self.assertLessEqual((rms, largest), (0.02, 0.1))
            peak = response(bands, np.linspace(1, RATE / 2, 100000)).max()
            self.assertTrue(-0.11 <= preamp + peak <= 0.001, (preamp, peak))
        # The same against a target, at another rate, and twice the same.
        target = "Frequency;Level\r\n" + "".join(f"{f:.2f};{-f / 4000:.3f}\r\n".replace(".", ",") for f in GRID)
        Path("target.csv").write_text(target, encoding="utf-8-sig")
        bent = 40 - GRID / 4000 - response(KNOWN, GRID, 96000)
        one = self.fit(rew(bent, GRID, "\t"), "--target", "target.csv", "--rate", 96000)
        self.assertLess(np.abs(response(one[0], GRID, 96000) - response(KNOWN, GRID, 96000)).max(), 0.1)
        self.assertEqual(one, self.fit(rew(bent, GRID, ", "), "--target", "target.csv", "--rate", 96000))

    def test_a_noisy_room_is_made_flatter_by_as_much_as_is_said(self):
        rng = np.random.default_rng(5)
        linear = np.arange(1, 16385) * 24000 / 16384
        room = 82 - response(KNOWN, linear) + rng.normal(0, 1.5, len(linear)) \
            + 6 * np.sin(7 * np.log(linear)) * np.exp(-np.log(linear / 60) ** 2)
        bands, preamp, (rms, *_, before_rms, _, _, said_preamp) = self.fit(rew(room, linear))
        self.assertEqual((len(bands), preamp), (10, said_preamp))
        grid = 20 * 2 ** (np.arange(478) / 48)
        cells = np.round(48 * np.log2(linear / 20))
        level = [room[cells == i].mean() if (cells == i).sum() > 2
                 else np.interp(np.log(f), np.log(linear), room) for i, f in enumerate(grid)]
        self.assertAlmostEqual(np.std(level), before_rms, delta=0.02)
        self.assertAlmostEqual(np.std(level + response(bands, grid)), rms, delta=0.02)
        self.assertLess(rms, 0.25 * before_rms)
        # Within the limits, and only where it is wanted.
        bands, _, _ = self.fit(rew(room, linear), "--bands", 4, "--most-gain", 3, "--most-q", 2, "--range", "40,400")
        self.assertLessEqual(len(bands), 4)
        for _, f, gain, q in bands:
            self.assertTrue(39.9 <= f <= 400.1 and abs(gain) <= 3 and 0.2 <= q <= 2, bands)
        self.run_filter("eq", "-c", "bands.txt")

    def test_titles_choose_the_columns(self):
        level = 60 + 5 * np.exp(-4 * np.log(GRID / 1000) ** 2)
        plain = self.fit("".join(f"{f:.3f} {x:.4f}\n" for f, x in zip(GRID, level)))
        for head, row in (("phase,spl,freq", "{p},{x:.4f},{f:.3f}"), ("frequency,smoothed,error,raw", "{f:.3f},0,1,{x:.4f}"),
                          ("Frequency(Hz)\tMagnitude(dB)\tPhase(deg)", "{f:.3f}\t{x:.4f}\t{p}"), ("0 0 0", "{f:.3f} {x:.4f} {p}"),
                          ("// Freq, dB\n\n# two\n% three", "{f:.3f}, {x:.4f}"), ('"Hz" "dB"', '"{f:.3f}" "{x:.4f}"')):
            rows = "".join(row.format(f=f, x=x, p=17 * i % 360 - 180) + "\n" for i, (f, x) in enumerate(zip(GRID, level)))
            self.assertEqual(self.fit(f"{head}\n{rows}"), plain, head)

        # Commas are points between numbers that something else separates.
        whole = "".join(f"{f} {x}\n" for f, x in ((20, 6), (50, 5), (200, 2), (1000, 0), (20000, 1)))
        for text in (whole.replace(" ", ","), whole.replace(" ", ", "), whole.replace(" ", ",0 ").replace("\n", ",0\n"),
                     whole.replace(" ", ";").replace("\n", ",0\n")):
            self.assertEqual(self.fit(text), self.fit(whole), text)

    def test_what_is_no_measurement_is_refused(self):
        rising = "".join(f"{f} 70\n" for f in (20, 50, 100, 500, 5000))
        for content, *words in (
                ("", "holds no numbers"), ("* only\n* comments\n", "holds no numbers"), (rising + "x\n", "m.txt:6", "'x' is no number"),
                (rising + "9000\n", "m.txt:6", "1 number; a frequency and a level"), (rising + "4000 70\n", "m.txt:6", "4000 Hz follows 5000 Hz"),
                (rising + "6000 nan\n", "m.txt:6", "has no level"), (rising + "6000 -inf\n", "m.txt:6", "has no level"),
                (rising + "6000 900\n", "m.txt:6", "the level 900 dB"), ("-3 70\n" + rising, "m.txt:1", "the frequency -3 Hz"),
                ("100 70\n", "1 point of a response"), (rising.replace("20 ", "3000 ", 1).replace("50 ", "3001 ", 1), "they have to rise"),
                ("\n".join(f"{f} 70" for f in range(100, 120)), "less than an octave"),
                ("Preamp: -6 dB\nFilter 1: ON PK Fc 100 Hz Gain 3 dB Q 1\n", "an equaliser already"), ("GraphicEQ: 20 0; 1000 3\n", "an equaliser already"),
                ("* Impulse Response data saved by REW\n0.1\n", "impulse response")):
            Path("m.txt").write_text(content, encoding="ascii")
            self.assert_fails(["fit", "m.txt", "out.txt"], "m.txt" if "octave" not in words[-1] else "", *words)
        self.assert_fails(["fit", SPEECH, "out.txt"], "is a WAV file", "a frequency in Hz and a level in dB")
        self.assert_fails(["fit", "none.txt", "out.txt"], "none.txt")
        Path("m.txt").write_text(rising, encoding="ascii")
        self.assert_fails(["fit", "m.txt", "m.txt"], "m.txt", code=2)
        self.assert_fails(["fit", "m.txt", "out.txt", "--bands", 40], "--bands", code=2)
        self.assert_fails(["fit", "m.txt", "out.txt", "--target", STREET[0]], "is a WAV file")


if __name__ == "__main__":
    unittest.main()

"""What jurn-filter refuses: one line that names the file and the value, nothing left behind."""

import importlib.util
import os
import re
import shutil
import subprocess
import unittest

import numpy as np
from scipy.io import wavfile

from tool_test import BAND, CROSSTALK, MUSIC, SPEECH, STREET, TOOL, ToolTest, write, write_numbers


class BadInputTest(ToolTest):
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

    def test_messages_move_no_terminal(self):
        """Whatever names and files hold: controls and what is no UTF-8 become question marks."""
        broken = (b"\x1b[2J\n\t\x7f", b"\xc2\x9b", b"\x9b\xe4", b"\xc0\xaf", b"\xed\xa0\x80", b"\xe2\x82",
                  b"\xf4\x90\x80\x80", b"\xfa\x80\x80\x80")
        name, shown = "ä€🎧", "ä€🎧"
        for part in broken:
            name += os.fsdecode(part) + "ä.wav"
            shown += re.sub("[^ -~]", "?", part.decode("latin-1")) + "ä.wav"
        self.assert_fails(["average", name, "out.wav", "--length", 3], f"jurn-filter: {shown}: no such file")
        for text, word in (('x: "\\\x1f"\n', "YAML"),
                           ('filters: {f: {type: Equaliser, parameters: {filters: "\\e[2J 80"}}}\n'
                            "pipeline: [{type: Filter, names: [f]}]\n", "?[2J")):
            self.assert_fails(["setup", SPEECH, "out.wav", "-c", write("s.yml", text)], "s.yml", word)
        wavfile.write(name, 8000, np.full(100, 20000, np.int16))
        write_numbers("two.txt", [[2]])
        done = subprocess.run([TOOL, "fir", name, "--output-dir", "out", "-c", "two.txt"], capture_output=True)
        self.assertEqual(done.returncode, 0)
        self.assertIn(shown, done.stdout.decode())
        self.assertNotIn(b"\x1b", done.stdout + done.stderr)

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
                (["level", SPEECH, SPEECH], SPEECH),
                (["average", SPEECH, "out.wav", "--length", "2157",
                  "--precision", "int16"], "2156"),
                (["average", SPEECH, "out.wav", "--length", "0"], "--length")):
            self.assert_fails(arguments, word, code=2)

    def test_no_source_is_overwritten(self):
        write_numbers("one.txt", [[1]])
        subprocess.run(["sox", SPEECH, "in.wav"], check=True)
        os.link("in.wav", "hard.wav")
        os.symlink("in.wav", "soft.wav")
        for output in ("in.wav", "./in.wav", "hard.wav", "soft.wav", "one.txt"):
            self.assert_fails(["fir", "in.wav", output, "-c", "one.txt"], output, code=2)

    def test_responses(self):
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
                (["--ir", "x" * 300], 3, "jurn-filter: xxx", "too long"),
                (["--ir", "zero.wav", "--normalise"], 3, "zero.wav", "silent"),
                (["--ir", "two.wav", "--route", "crossed"], 2, "stereo"),
                (["--ir", "two.wav", "--route", "straight"], 2, "2 channels"),
                (["--ir", BAND, "--route", "sideways"], 2, "sideways"),
                (["--ir", BAND, "--fade-to", BAND], 2, "--at"),
                (["--ir", BAND, "--fade-to", "two.wav", "--at", 1], 2, "two.wav"),
                (["--ir", BAND, "--fade-to", BAND, "--at", 9], 2, "9", "1.428")):
            self.assert_fails(["convolve", SPEECH, "out.wav", *arguments], *words, code=code)
        self.assert_fails(["convolve", SPEECH, "two.wav", "--ir", "two.wav"], "two.wav", code=2)
        changed = []
        if importlib.util.find_spec("h5py"):
            import h5py
            for i, (array, where, value, *words) in enumerate((
                    ("Data.Delay", ..., 40000, "43538;", "32767"),  # at 48 kHz
                    ("Data.IR", ..., np.nan, "finite"), ("Data.IR", ..., 0, "silent"),
                    ("Data.IR", (99, 0, 3), 3e38, "damaged", "e+3"), ("Data.SamplingRate", ..., 0.5, "0.5 Hz"))):
                shutil.copy("/usr/share/libmysofa/default.sofa", f"changed{i}.sofa")
                with h5py.File(f"changed{i}.sofa", "r+") as file:
                    file[array][where] = np.full_like(file[array][where], value)  # h5py spreads a number in 20 s
                changed.append((["--sofa", f"changed{i}.sofa"], f"changed{i}.sofa", *words))
        for arguments, *words in (*changed, (["--sofa", "two.wav"], "two.wav", "SOFA"),
                                  (["--sofa", "missing.sofa"], "missing.sofa", "no such file")):
            self.assert_fails(["binaural", SPEECH, "out.wav", *arguments], *words)
        self.assert_fails(["binaural", MUSIC, "out.wav"], MUSIC, "mono")


if __name__ == "__main__":
    unittest.main()

"""What the end-to-end tests of jurn-filter share: recordings, the tool, its rules of failure."""

import os
import re
import shlex
import subprocess
import tempfile
import unittest

import numpy as np
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


def write(name, content):
    """A file of a text or of bytes."""
    with open(name, "wb") as file:
        file.write(content.encode() if isinstance(content, str) else content)
    return name


def to_int16(y):
    """The library's conversion: truncation toward zero, saturated."""
    return np.clip(np.trunc(y), -32768, 32767).astype(int)


def write_numbers(name, rows):
    lines = (" ".join(repr(float(x)) for x in row) + "  # and another\n" for row in rows)
    return write(name, "# a comment, then numbers\n" + "".join(lines))


class ToolTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.addCleanup(os.chdir, os.getcwd())
        os.chdir(folder.name)

    def run_tool(self, *arguments):
        """Runs the tool, which has to succeed with no more than warnings; returns its report."""
        return self.report_and_warnings(*arguments)[0]

    def said(self, *arguments):
        """The warnings and notes of such a run."""
        return self.report_and_warnings(*arguments)[1]

    def report_and_warnings(self, *arguments):
        arguments = [*map(str, arguments), "--overwrite"]
        done = subprocess.run([TOOL, *arguments], capture_output=True, text=True)
        errors = re.sub(r"jurn-filter: (warning|note): [^\n]+\n", "", done.stderr)
        self.assertEqual((done.returncode, errors), (0, ""), arguments)
        return done.stdout, done.stderr

    def shell(self, command, code=0):
        """Runs a line of bash in which `jurn` is the tool; returns standard output and error."""
        command = f"set -o pipefail; jurn() {{ {shlex.quote(TOOL)} \"$@\"; }}; {command}"
        done = subprocess.run(["bash", "-c", command], capture_output=True, timeout=120)
        self.assertEqual(done.returncode, code, (command, done.stderr))
        return done.stdout, done.stderr.decode()

    def run_filter(self, command, *arguments, source=SPEECH, output="out.wav"):
        self.run_tool(command, source, output, *arguments)
        return read(output)[1].astype(int)

    def numbers(self, kind, name, *options):
        """The coefficients of a file or, in the words of `eq`, of filters, through a NumPy file."""
        self.run_tool("export", "read.npy", f"--{kind}", name, "--as-is", "--precision", "double", *options)
        return np.load("read.npy")

    def assert_near(self, result, expected, context="", filters=1):
        """Within one least significant bit for each of the filters that are summed."""
        self.assertEqual(result.shape, expected.shape, context)
        self.assertLessEqual(np.abs(result - expected).max(), filters, context)

    def assert_fails(self, arguments, *words, code=3):
        """One line that holds all the words, the exit code, and nothing left behind; returns the line."""
        before = {name: os.path.getmtime(name) for name in os.listdir()}
        done = subprocess.run([TOOL, *map(str, arguments)], capture_output=True, text=True)
        self.assertEqual(done.returncode, code, (arguments, done.stderr))
        self.assertRegex(done.stderr, r"\Ajurn-filter: [^\n]+\n\Z", arguments)
        self.assertEqual(done.stdout, "", arguments)
        for word in words:
            self.assertIn(word, done.stderr)
        self.assertEqual({name: os.path.getmtime(name) for name in os.listdir()}, before, arguments)
        return done.stderr

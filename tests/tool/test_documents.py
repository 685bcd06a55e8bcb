"""What README, documents, manual and help tell people to type, typed."""

import os
import re
import shutil
import subprocess
import unittest
from pathlib import Path

import numpy as np
from scipy import signal
from scipy.io import wavfile

from tool_test import MUSIC, SPEECH, STREET, TOOL, ToolTest

SOURCE = Path(os.environ["JURN_FILTER_SOURCE"]).parents[1]
# Programs that need a sound device, or that nobody has to have.
ELSEWHERE = {"arecord": f"sox {SPEECH} -t raw -r 48000 -c 1 -e signed -b 16 -", "aplay": "cat > /dev/null",
             "lame": "cat > room.mp3 #"}


def indented(name):
    """The shell commands of a Markdown text's blocks, several lines joined, and of its tables."""
    text = (SOURCE / name).read_text(encoding="utf-8").replace("\\\n", "")
    return re.findall(r"^    ((?:sox [^|\n]*\| )?jurn-filter .*)$", text, re.M) + \
        re.findall(r"^\|.* `(jurn-filter [^`]* [^`]*)`", text, re.M)


def of_manual():
    text = Path(os.environ["JURN_FILTER_SOURCE"], "jurn-filter.1").read_text(encoding="utf-8")
    examples = text[text.index(".SH EXAMPLES"):text.index(".SH SEE ALSO")].replace("\\", "")
    return re.findall(r"^\.B (.*)$", examples, re.M)


def of_help():
    def said(*words):
        return subprocess.run([TOOL, *words, "--help"], capture_output=True, text=True,
                              check=True).stdout
    for command in re.findall(r"^  (\w+) ", said().split("Subcommands:")[1], re.M):
        yield from re.findall(r"^Examples?:\n((?:  .*\n)+)", said(command), re.M)


class DocumentsTest(ToolTest):
    def files(self):
        """The files that the commands name, as their readers have them."""
        shutil.copy(MUSIC, "song.flac")
        for name in ("music.flac", "in.wav", "talk.wav"):
            subprocess.run(["sox", "-V1", SPEECH, "-b", "16", name], check=True)
        shutil.copy(SPEECH, "speech.wav")
        shutil.copy(SPEECH, "telephone.wav")
        shutil.copy(STREET[0], "room.wav")
        taps = signal.firwin(63, 0.4)
        np.save("taps.npy", taps)
        np.savetxt("taps.txt", taps)
        np.savetxt("ba.txt", signal.butter(4, 0.2))
        np.savetxt("sections.txt", signal.butter(4, 0.2, output="sos"))
        shutil.copytree(SOURCE / "examples/setups", "examples/setups")
        shutil.copy("examples/setups/two-way.yml", ".")
        for name in ("headphone.csv", "wanted.csv"):
            Path(name).write_text("frequency,raw\n20,71\n100,75\n1000,70\n3000,78\n20000,60\n", encoding="utf-8")
        Path("eq.txt").write_text("Filter 1: ON PK Fc 3000 Hz Gain -4 dB Q 2\n", encoding="utf-8")

    def test_every_command_works_as_it_stands(self):
        os.symlink(TOOL, "jurn-filter")
        guides = ("README", "docs/files", "docs/coefficient-files", "docs/guide", "docs/designs")
        commands = [*(line for name in guides for line in indented(name + ".md")), *of_manual(),
                    *(line.strip() for block in of_help() for line in block.splitlines())]
        self.assertGreater(len(commands), 20)
        for command in commands:
            if " live " in command:
                continue  # these run until they are ended; tests/live types them
            with self.subTest(command):
                for left in Path(".").glob("*"):
                    if left.name != "jurn-filter":
                        shutil.rmtree(left) if left.is_dir() else left.unlink()
                self.files()
                # The line is run by a shell, with the programs at its ends exchanged.
                pieces = re.split(r" \| ", command)
                line = " | ".join(ELSEWHERE.get(piece.split()[0], piece) for piece in pieces)
                done = subprocess.run(["bash", "-o", "pipefail", "-c", line], capture_output=True,
                                      text=True, check=False,
                                      env={**os.environ, "PATH": "." + os.pathsep + os.environ["PATH"]})
                self.assertEqual(done.returncode, 0, done.stderr)
                self.assertNotRegex(done.stderr, "warning")
                for name in re.findall(r"\b(out|street|around|hall)\.wav", command):
                    rate, samples = wavfile.read(name + ".wav")
                    self.assertGreater(np.abs(samples).max(), 0, name)


if __name__ == "__main__":
    unittest.main()

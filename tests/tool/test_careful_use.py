"""How jurn-filter treats what it is given: cut recordings, pipes, links, tags, full disks."""

import os
import re
import signal
import struct
import subprocess
import time
import unittest

import numpy as np
from scipy.io import wavfile

from tool_test import MUSIC, SPEECH, TOOL, ToolTest, contents, read, write, write_numbers


def wait_for_handlers(process):
    """Until then a signal would just end the program."""
    for _ in range(2000):
        with open(f"/proc/{process.pid}/status", encoding="ascii") as file:
            if int(re.search(r"SigCgt:\s*(\w+)", file.read())[1], 16) >> (signal.SIGTERM - 1) & 1:
                return
        time.sleep(0.005)


class CarefulUseTest(ToolTest):
    def setUp(self):
        super().setUp()
        write_numbers("taps.txt", [[0.5, 0.25, 0.125]])

    def test_cut_recordings(self):
        """Refused with a number from files and pipes, the old result intact; an option takes what is
        there."""
        wavfile.write("in.wav", 8000, np.random.default_rng(1).integers(-9999, 9999, 8000, np.int16))
        whole = contents("in.wav")
        for ending in ("aiff", "au", "flac", "caf", "w64"):
            subprocess.run(["sox", "in.wav", "in." + ending], check=True)
        subprocess.run(["sox", "in.wav", "in.ogg", "repeat", "20"], check=True)
        long_data = bytearray(whole)
        long_data[40:44] = struct.pack("<I", 20000)  # beyond the file, whose own length is right
        cuts = {"data.wav": bytes(long_data), "cut.wav": whole[:9044], "cut.au": contents("in.au")[:9000],
                "cut.aiff": contents("in.aiff")[:9000],
                "cut.flac": contents("in.flac")[:-2000], "cut.caf": contents("in.caf")[:-2000],
                "cut.w64": contents("in.w64")[:-2000], "cut.ogg": contents("in.ogg")[:-100]}
        for name, cut in cuts.items():
            write(name, cut)
            for source in (f"jurn average {name}", f"cat {name} | jurn average -"):
                _, errors = self.shell(f"{source} {write('out.wav', 'old')} --length 1 --overwrite", 3)
                self.assertIn("--partial", errors)
                self.assertEqual(contents("out.wav"), b"old")
                self.shell(f"{source} out.wav --length 1 --partial --overwrite")
                got = read("out.wav")[1]
                self.assertGreater(len(got), 500, source)
                if not name.endswith(".ogg"):  # which is another recording
                    np.testing.assert_array_equal(got, read("in.wav")[1][:len(got)])

    def test_lists_that_lead_back(self):
        """libsndfile would read such a header for ever."""
        wavfile.write("in.wav", 8000, np.arange(-4000, 4000, dtype=np.int16))
        whole = contents("in.wav")
        back = b"LIST" + struct.pack("<I", 20) + b"INFOISFT" + struct.pack("<I", 2**32 - 9) + bytes(8)
        for name, content in (("before.wav", whole[:36] + back + whole[36:]), ("behind.wav", whole + back)):
            write(name, content)
            self.assert_fails(["average", name, "out.wav", "--length", "1"], name + ": is damaged")
        _, errors = self.shell("cat before.wav | jurn average - out.wav --length 1 --partial", 3)
        self.assertIn("4294967287 bytes", errors)

    def test_lengths_of_zero(self):
        wavfile.write("in.wav", 8000, np.arange(-4000, 4000, dtype=np.int16))
        whole = bytearray(contents("in.wav"))
        whole[40:44] = bytes(4)
        for riff in (whole[4:8], bytes(4)):
            whole[4:8] = riff
            write("zero.wav", whole)
            self.run_tool("average", "zero.wav", "out.wav", "--length", "1")
            np.testing.assert_array_equal(read("out.wav")[1], read("in.wav")[1])
        # Really empty, with another chunk behind.
        write("empty.wav", b"RIFF" + struct.pack("<I", 56) + whole[8:44] + b"LIST" +
              struct.pack("<I", 12) + b"INFOISFT\0\0\0\0")
        self.assert_fails(["average", "empty.wav", "out2.wav", "--length", "1"], "no samples")

    def test_mp3_in_a_pipe_has_its_length_and_leaves_no_file(self):
        self.run_tool("average", MUSIC, "in.mp3", "--length", "1")
        os.mkdir("spool")
        _, report = self.shell("cat in.mp3 | TMPDIR=spool jurn average - out.wav --length 1 --json"
                               " && ls spool >&2")
        self.assertEqual(report, "")
        self.run_tool("average", "in.mp3", "file.wav", "--length", "1")
        self.assertEqual(contents("out.wav"), contents("file.wav"))
        _, errors = self.shell("cat in.mp3 | TMPDIR=none jurn average - out2.wav --length 1", 3)
        self.assertIn("TMPDIR", errors)

    def test_interruptions(self):
        os.mkfifo("fifo.wav")
        for arguments in (["fifo.wav", "out.wav"], [SPEECH, "fifo.wav"]):
            with subprocess.Popen([TOOL, "average", *arguments, "--length", "3"],
                                  stderr=subprocess.PIPE) as running:
                wait_for_handlers(running)
                time.sleep(0.5)
                running.send_signal(signal.SIGINT)
                self.assertEqual((running.wait(10), running.stderr.read()),
                                 (130, b"jurn-filter: interrupted\n"))
        # A second one ends what does not look: here the wait for a picture.
        write("gnuplot", "#!/bin/sh\nexec sleep 20\n")
        os.chmod("gnuplot", 0o755)
        with subprocess.Popen([TOOL, "response", "--average", "3"], stdin=subprocess.DEVNULL,
                              env={**os.environ, "PATH": os.getcwd() + ":/bin:/usr/bin"}) as running:
            wait_for_handlers(running)
            time.sleep(0.5)
            for _ in range(2):
                self.assertIsNone(running.poll())
                running.send_signal(signal.SIGTERM)
                time.sleep(0.5)
            self.assertEqual(running.wait(5), 130)

    def test_links_names_and_others(self):
        os.symlink("behind.wav", "link.wav")
        os.symlink(os.path.abspath("link.wav"), "chain.wav")
        self.run_tool("average", MUSIC, "chain.wav", "--length", "1")  # a file that is not there
        os.chmod("behind.wav", 0o600)
        self.run_tool("average", SPEECH, "chain.wav", "--length", "1")  # and one that is
        self.assertEqual(os.stat("behind.wav").st_mode & 0o777, 0o600)
        np.testing.assert_array_equal(read("behind.wav")[1], read(SPEECH)[1])
        self.assertTrue(os.path.islink("chain.wav") and os.path.islink("link.wav"))
        self.assertTrue(os.path.isfile("behind.wav") and not os.path.islink("behind.wav"))
        self.run_tool("average", SPEECH, "n" * 251 + ".wav", "--length", "1")
        before = os.listdir()
        both = [subprocess.Popen([TOOL, "average", "-", "new.wav", "--raw", "8000,1", "--length", str(n),
                                  "-q"], stdin=subprocess.PIPE, stderr=subprocess.PIPE) for n in (1, 2)]
        for _ in range(500):
            if len(os.listdir()) == len(before) + 2:
                break
            time.sleep(0.01)
        ends = [running.communicate(b"ab" * 5000, timeout=60) for running in both]
        self.assertEqual(sorted(running.returncode for running in both), [0, 4])
        self.assertIn(b"--overwrite", ends[0][1] + ends[1][1])
        self.assertEqual(sorted(os.listdir()), sorted(before + ["new.wav"]))

    def test_what_is_too_long_fails_at_once(self):
        with open("long.raw", "wb") as file:
            file.truncate(3 << 30)
        started = time.monotonic()
        self.assert_fails(["average", "long.raw", "out.wav", "--raw", "48000,1", "--length", "1", "--bits",
                           "float"], "out.wav", "4 GiB", code=4)
        self.assertLess(time.monotonic() - started, 5)

    def test_full_disk_under_printed_text(self):
        for command in ("--help", "--version", "fir --help", f"average {SPEECH} out.wav --length 1",
                        "response --average 5", f"level {SPEECH}"):
            _, errors = self.shell(f"jurn {command} > /dev/full", 4)
            self.assertRegex(errors, r"\Ajurn-filter: [^\n]+\n\Z", command)

    def test_tags_are_kept(self):
        subprocess.run(["sox", MUSIC, "--comment", "", "--add-comment", "TITLE=A title", "--add-comment",
                        "ARTIST=Somebody", "in.flac"], check=True)
        for name in ("out.flac", "out.ogg", "out.wav", "out.aiff"):
            self.run_tool("average", "in.flac", name, "--length", "1")
            self.run_tool("average", name, "back.flac", "--length", "1")
            info = subprocess.run(["soxi", "-a", "back.flac"], capture_output=True, text=True,
                                  check=True).stdout.lower()
            self.assertIn("title=a title", info, name)
            self.assertIn("artist=somebody", info, name)

    def test_chunks_and_pictures_are_kept(self):
        def chunks_of(name):
            content, at, found = contents(name), 12, {}
            while at + 8 <= len(content):
                size = int.from_bytes(content[at + 4:at + 8], "little")
                found[content[at:at + 4]] = content[at + 8:at + 8 + size]
                at += 8 + size + size % 2
            return found

        def blocks_of(name):
            content, at, found, last = contents(name), 4, [], False
            while not last:
                last, kind = content[at] >= 128, content[at] % 128
                size = int.from_bytes(content[at + 1:at + 4], "big")
                found.append((kind, content[at + 4:at + 4 + size]))
                at += 4 + size
            return found, content[at:]

        number = lambda x: x.to_bytes(4, "little")
        extra = {b"bext": b"a session, take 3".ljust(602, b"\0") + b"history\0",
                 b"cue ": number(1) + number(7) + number(100) + b"data" + number(0) * 2 + number(100),
                 b"smpl": bytes(range(36)), b"iXML": b"<BWFXML/>!", b"id3 ": b"ID3\3\0\0\0\0\0\0picture!",
                 b"LIST": b"adtllabl" + number(8) + number(7) + b"mark"}
        added = b"".join(id + number(len(data)) + data for id, data in extra.items())
        whole = contents(SPEECH)
        write("in.wav", b"RIFF" + number(len(whole) + len(added) - 8) + whole[8:] + added)
        for name in ("out.wav", "out.rf64"):
            said = self.run_tool("average", "in.wav", name, "--length", "1")
            self.assertNotIn("left out", said)
            found = chunks_of(name)
            for id, data in extra.items():
                # The library fills chunks up to whole words.
                self.assertEqual(found.get(id), data + bytes(-len(data) % 4), (name, id))
            self.assertEqual(found[b"data"], chunks_of("in.wav")[b"data"])
        self.assertIn("left out bext, cue, smpl, iXML, id3, labels of cues",
                      self.run_tool("average", "in.wav", "out.flac", "--length", "1"))
        self.assertIn("left out bext", self.shell("jurn average in.wav - --length 1 > x.wav")[1])

        subprocess.run(["sox", SPEECH, "plain.flac"], check=True)
        blocks, frames = blocks_of("plain.flac")
        picture = (3).to_bytes(4, "big") + (9).to_bytes(4, "big") + b"image/png" + bytes(20) + \
            (5).to_bytes(4, "big") + b"PIXEL"
        tags = [b"TITLE=A title", b"ALBUMARTIST=Both", b"REPLAYGAIN_TRACK_GAIN=-3 dB"]
        comment = number(3) + b"own" + number(len(tags)) + b"".join(number(len(t)) + t for t in tags)
        blocks = [b for b in blocks if b[0] != 4] + [(4, comment), (6, picture)]
        write("in.flac", b"fLaC" + b"".join(
            bytes([kind + 128 * (i + 1 == len(blocks))]) + len(data).to_bytes(3, "big") + data
            for i, (kind, data) in enumerate(blocks)) + frames)
        self.assertNotIn("left out", self.run_tool("average", "in.flac", "out.flac", "--length", "1"))
        kept = dict(blocks_of("out.flac")[0])
        self.assertEqual(kept[6], picture)
        self.assertIn(b"ALBUMARTIST=Both", kept[4])
        self.assertIn(b"TITLE=A title", kept[4])
        self.assertNotIn(b"REPLAYGAIN", kept[4])  # it was of other samples
        np.testing.assert_array_equal(read("out.flac")[1], read(SPEECH)[1])
        self.assertIn("left out ALBUMARTIST, a picture",
                      self.run_tool("average", "in.flac", "out.wav", "--length", "1"))

    def test_coefficients_from_a_pipe(self):
        self.run_tool("fir", SPEECH, "file.wav", "-c", "taps.txt")
        self.shell(f"cat taps.txt | jurn fir {SPEECH} out.wav -c -")
        self.assertEqual(contents("out.wav"), contents("file.wav"))
        _, errors = self.shell("cat taps.txt | jurn fir - out2.wav -c -", 2)
        self.assertIn("standard input", errors)

    def test_start_loads_what_every_command_needs(self):
        linked = subprocess.run(["ldd", TOOL], capture_output=True, text=True, check=True).stdout
        self.assertNotRegex(linked, "matio|hdf5|curl|ssl")

    def test_pictures_hold_their_text(self):
        self.run_tool("spectrogram", SPEECH, SPEECH, "--window", 64, "--picture", "both.svg")
        text = contents("both.svg").decode()
        width, height = map(float, re.search(r'viewBox="0 0 (\S+) (\S+)"', text).groups())
        places = re.findall(r"translate\(([-\d.]+),([-\d.]+)\)", text)
        self.assertGreater(len(places), 20)
        self.assertTrue("Front_Center.wav" in text and "Time in s" in text)
        for x, y in places:
            self.assertTrue(8 < float(x) < width - 4 and 8 < float(y) < height - 4, (x, y))

    def test_no_range_takes_what_is_no_number(self):
        """Every option with a numeric range, of every subcommand, as the help tells of them."""
        overview = self.shell("jurn --help")[0].decode()
        tried = 0
        for command in re.findall(r"^  ([a-z]+) ", overview.split("Subcommands:")[1], re.M):
            text = self.shell(f"jurn {command} --help")[0].decode()
            for option in re.findall(r"^  (?:-\w,)?(--[a-z-]+) (?:FLOAT|INT|UINT|N\b)", text, re.M):
                for value in ("nan", "1e30", "-inf"):
                    done = subprocess.run([TOOL, command, option, value], capture_output=True, text=True)
                    self.assertEqual(done.returncode, 2, (command, option, value))
                    self.assertRegex(done.stderr, rf"{option}|{value}", (command, option, value))
                    tried += 1
        self.assertGreater(tried, 60)


if __name__ == "__main__":
    unittest.main()

"""Pipes, series of filters, several recordings and reports of jurn-filter."""

import json
import os
import pty
import re
import resource
import select
import shlex
import subprocess
import time
import unittest

import numpy as np
from scipy.io import wavfile

from tool_test import BAND, MUSIC, SPEECH, TOOL, ToolTest, contents, read, write, write_numbers


class StreamTest(ToolTest):
    def setUp(self):
        super().setUp()
        write_numbers("taps.txt", [[0.5, 0.25, 0.125]])
        write_numbers("loud.txt", [[9]])
        write_numbers("ba.txt", [[0.1], [1, -0.9]])
        write_numbers("eq.txt", [[1, -0.5, 0.1, 1, -0.3, 0.2], [0.9, 0, 0, 1, 0.4, 0.1]])

    def test_pipes_carry_the_bytes_of_files(self):
        self.run_tool("fir", MUSIC, "out.wav", "-c", "taps.txt")
        expected = contents("out.wav")
        subprocess.run(["sox", MUSIC, "in.wav"], check=True)
        header = bytearray(contents("in.wav")[:44])
        for name, length in (("zero", 0), ("ones", 0xFFFFFFFF), ("sox", 0x7FFFF000 + 36)):
            header[40:44] = length.to_bytes(4, "little")
            write(name + ".wav", bytes(header) + contents("in.wav")[44:])
        for endings in ("aiff", "au", "w64", "caf", "flac"):
            subprocess.run(["sox", MUSIC, "in." + endings], check=True)
        os.mkfifo("fifo.wav")
        raw = "-t raw -e signed -b 16 -L -"
        for command in (
                *(f"cat {name} | jurn fir - out2.wav -c taps.txt" for name in
                  ("in.wav", "in.aiff", "in.au", "in.w64", "in.caf", "in.flac", "zero.wav",
                   "ones.wav", "sox.wav")),
                "jurn fir - - -c taps.txt < in.wav > out2.wav",
                "{ head -c 0; jurn fir in.wav /dev/stdout -c taps.txt; } > out2.wav",
                "jurn fir in.wav - --type flac -c taps.txt | sox -t flac - out2.wav",
                "jurn fir in.wav - --type raw -c taps.txt | sox -r 44100 -c 2 " + raw + " out2.wav",
                "sox in.wav " + raw + " | jurn fir - - --raw 44100,2 -c taps.txt"
                " | sox -r 44100 -c 2 " + raw + " out2.wav",
                "jurn fir <(cat in.wav) out2.wav -c taps.txt",
                "cat fifo.wav > out2.wav & jurn fir in.wav fifo.wav -c taps.txt; wait"):
            _, errors = self.shell("rm -f out2.wav; " + command)
            self.assertNotIn("jurn-filter:", errors)
            rate, samples = read("out2.wav")
            self.assertEqual(rate, 44100)
            np.testing.assert_array_equal(samples, read("out.wav")[1], command)
        self.shell("jurn fir - - -c taps.txt < in.wav > out2.wav")
        self.assertEqual(contents("out2.wav"), expected)  # a file's header is completed
        for name in ("in.mp3", "in.ogg"):
            self.run_tool("average", MUSIC, name, "--length", "1")
            self.run_tool("fir", name, "out.wav", "-c", "taps.txt")
            self.shell(f"cat {name} | jurn fir - out2.wav -c taps.txt --overwrite")
            np.testing.assert_array_equal(read("out2.wav")[1], read("out.wav")[1], name)
        for bits in ("16", "24", "float"):
            self.run_tool("fir", MUSIC, "out.wav", "-c", "taps.txt", "--bits", bits)
            piped, report = self.shell(f"jurn fir {MUSIC} - -c taps.txt --bits {bits} | cat")
            self.assertEqual(piped[40:44], b"\xff" * 4)
            self.assertIn("standard output\n  length", report)
            self.assertEqual(piped[44:], contents("out.wav")[-len(piped) + 44:])

    def test_memory_is_constant(self):
        # The children's peak only grows, so the short run comes first.
        peaks = []
        for megabytes in (1, 100):
            self.shell(f"head -c {megabytes}M /dev/zero | jurn convolve - - --raw 48000,2"
                       f" --ir {BAND} --then average --length 300 | wc -c")
            peaks.append(resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss)
        self.assertLess(peaks[1] - peaks[0], 4096)  # KiB

    def test_closed_pipes_are_quiet(self):
        for command in ("fir - - --raw 48000,2 -c taps.txt", "fir - - --raw 48000,2 -c taps.txt -q",
                        "fir - - --type flac --raw 48000,2 -c taps.txt", "level - --raw 48000,2 --every 0.001"):
            out, errors = self.shell(f"cat /dev/urandom | jurn {command} | head -c 200000 | wc -c;"
                                     " [ ${PIPESTATUS[1]} = 141 ]")
            self.assertEqual((out, errors), (b"200000\n", ""), command)

    def test_bad_streams(self):
        wavfile.write("fast.wav", 2000000000, np.ones(9, np.int16))
        for command, code, *words in (
                ("head -c 0 | jurn fir - out.wav -c taps.txt", 3, "standard input"),
                ("head -c 44 < " + SPEECH + " | jurn fir - out.wav -c taps.txt", 3, "no samples"),
                ("cat taps.txt | jurn fir - out.wav -c taps.txt", 3, "standard input", "--raw"),
                ("jurn fir taps.txt out.wav -c taps.txt --raw 48000", 2, "48000", "RATE,CHANNELS"),
                ("jurn fir - out.wav -c taps.txt --raw 10000001,1", 2, "10000001"),
                ("jurn fir fast.wav out.wav -c taps.txt", 3, "fast.wav", "2000000000 Hz", "10000000"),
                ("jurn fir taps.txt out.wav -c taps.txt --raw 48000,0", 2, "48000,0"),
                (f"jurn fir {shlex.quote(TOOL)} out.wav -c taps.txt", 3, "a program"),
                (f"jurn fir {SPEECH} out.wav -c taps.txt --bits 12", 2, "12", "16, 24, float"),
                (f"jurn fir {SPEECH} - -c taps.txt --type aiff | cat", 2, "standard output", "wav"),
                (f"jurn fir {SPEECH} out.wav -c taps.txt --type xyz", 2, "xyz", "flac"),
                (f"jurn fir {SPEECH} /dev/full -c taps.txt", 4, "/dev/full", "space"),
                (f"jurn fir {SPEECH} - -c taps.txt > /dev/full", 4, "standard output", "space"),
                (f"jurn fir {SPEECH} - -c taps.txt >&-", 4, "standard output", "descriptor"),
                ("jurn fir - out.wav -c taps.txt <&-", 3, "standard input", "descriptor")):
            _, errors = self.shell(command, code)
            self.assertRegex(errors, r"\Ajurn-filter: [^\n]+\n\Z", command)
            for word in words:
                self.assertIn(word, errors)
            self.assertFalse(os.path.exists("out.wav"), command)

    def test_then_equals_two_runs(self):
        ir = ["convolve", "--ir", BAND]
        device = ["--precision", "int16"]  # results of 16 bits also between two filters
        for source, bits, *filters in (
                (SPEECH, "16", ["fir", "-c", "taps.txt", *device],
                 ["sos", "-c", "eq.txt", *device], ["average", "--length", "8", *device]),
                # Calls of the IIR and of what follows the latency start where they would in a file.
                (SPEECH, "16", ir + device, ["iir", "-c", "ba.txt", *device],
                 ir + device + ["--no-tail"]),
                (SPEECH, "16", ir + ["--fft", "--raw-latency"],
                 ["iir", "-c", "ba.txt", *device, "--block", "7"]),
                (SPEECH, "float", ["average", "--length", "3"], ["binaural", "--orbit", "1"],
                 ["convolve", "--ir", BAND, "--fade-to", BAND, "--at", "1.43"]),
                (MUSIC, "float", ["fir", "-c", "taps.txt", "--precision", "double"],
                 ["iir", "-c", "ba.txt", "--precision", "double", "--gain", "-6"]),
                (MUSIC, "float", ["fir", "-c", "loud.txt", "--precision", "double"],
                 ["fir", "-c", "taps.txt"])):
            current = source
            for i, (name, *options) in enumerate(filters):
                self.run_tool(name, current, f"{i}.wav", *options, "--bits", bits)
                current = f"{i}.wav"
            name, *options = filters[0]
            chain = [part for f in filters[1:] for part in ("--then", *f)]
            self.shell("rm -f chain.wav")
            subprocess.run([TOOL, name, source, "chain.wav", *options, "--bits", bits, "-q", *chain],
                           check=True, stderr=subprocess.DEVNULL)
            self.assertEqual(contents("chain.wav"), contents(current), filters)
        for chain, word in ((["level"], "level"), (["fir"], "--coefficients"), ([], "subcommand"),
                            (["average", "--length", "0"], "--length"),
                            (["average", "--length", "3", "out.wav"], "out.wav"),
                            (["binaural", "--then", "binaural"], "result of filter 2")):
            self.assert_fails(["fir", SPEECH, "new.wav", "-c", "taps.txt", "--then", *chain], word,
                              code=3 if "binaural" in chain else 2)
        self.assert_fails(["level", SPEECH, "--then", "average", "--length", 3], "--then", code=2)

    def test_gain_hint(self):
        double = "fir -c loud.txt --precision double"
        piped = f"sox {MUSIC} -t raw - | jurn IN - out.wav --raw 44100,2"
        for command, hint in (
                (f"jurn average {MUSIC} out.wav --length 2 --then fir -c loud.txt", "filter 2 would"),
                (f"jurn fir {MUSIC} out.wav -c loud.txt --then average --length 2", "filter 1 would"),
                (f"jurn {double} {MUSIC} out.wav", " dB would"),
                (piped.replace("IN", double), " dB would"),
                (piped.replace("IN", "fir -c loud.txt --precision int16"), None)):
            report = self.shell(command)[0].decode()
            os.remove("out.wav")
            found = re.search(r"clipped +[1-9]\d* samples; a gain of (-\S+) dB(.*)\n", report)
            self.assertEqual(bool(found), bool(hint), report)
            if found:
                self.assertIn(hint, found[0])
                command = command.replace("loud.txt", "loud.txt --gain " + found[1])
                report = self.shell(command)[0].decode()
                os.remove("out.wav")
                self.assertRegex(report, r"clipped +0 samples\n", command)

    def test_several_recordings(self):
        os.mkdir("from")
        subprocess.run(["sox", SPEECH, "from/a.flac"], check=True)
        subprocess.run(["sox", MUSIC, "from/b.wav"], check=True)
        # The equaliser is designed for each recording's own rate.
        write("eq.txt", "Filter 1: ON PK Fc 3000 Hz Gain 6.0 dB Q 2.0\n")
        both = ["sos", "from/a.flac", "from/b.wav", "--output-dir", "to", "-c", "eq.txt"]
        lines = self.run_tool(*both, "--json", "--gain", "-9").splitlines()
        reports = [json.loads(line) for line in lines]
        self.assertEqual([(r["output"], r["rate"], r["channels"]) for r in reports],
                         [("to/a.flac", 48000, 1), ("to/b.wav", 44100, 2)])
        for name in ("a.flac", "b.wav"):
            self.run_tool("sos", "from/" + name, "one.wav", "-c", "eq.txt", "--gain", "-9")
            subprocess.run(["sox", "-V1", "to/" + name, "two.wav"], check=True)
            np.testing.assert_array_equal(read("one.wav")[1], read("two.wav")[1])
        before = contents("to/a.flac")
        _, errors = self.shell("jurn average from/a.flac from/no.wav from/b.wav --length 5"
                               " --output-dir to --type flac -q", 4)
        self.assertRegex(errors, r"\Ajurn-filter: to/a.flac: exists[^\n]+--overwrite[^\n]+\n"
                                 r"jurn-filter: from/no.wav: no such file\n\Z")
        self.assertEqual((sorted(os.listdir("to")), contents("to/a.flac")),
                         (["a.flac", "b.flac", "b.wav"], before))
        self.shell("jurn average from/a.flac --length 5 --output-dir to --overwrite -q")
        self.assertNotEqual(contents("to/a.flac"), before)
        for arguments, code, *words in (
                (["from/a.flac", "to/a.flac", "--output-dir", "new"], 2, "from/a.flac", "to/a.flac"),
                (["-", "--output-dir", "new"], 2, "names"),
                (["from/a.flac", "one.wav"], 4, "one.wav", "--overwrite"),
                (["from/a.flac"], 2, "IN", "OUT"),
                (["from/a.flac", "from/b.wav", "out.wav"], 2, "3 names", "--output-dir"),
                (["from/a.flac", "--output-dir", "from", "--overwrite"], 2, "same file")):
            self.assert_fails(["average", "--length", 5, *arguments], *words, code=code)

    def test_recordings_at_a_time_report_in_their_order(self):
        names = []
        for i, (seconds, rate) in enumerate([(9, 48000), (1, 44100), (0.1, 48000)] * 3):
            names.append(f"in{i}.wav")
            subprocess.run(["sox", "-n", "-b", "16", "-r", str(rate), names[-1], "synth", str(seconds),
                            "pinknoise", "vol", "0.9"], check=True)
        os.remove(names[4])
        write("eq.txt", "Filter 1: ON PK Fc 300 Hz Gain 20.0 dB Q 1.0\n")  # warns, and clips
        runs = []
        for folder, jobs in (("one", ["--jobs", "1"]), ("some", ["--jobs", "4"]), ("all", [])):
            done = subprocess.run([TOOL, "sos", *names, "-c", "eq.txt", "--output-dir", folder, "--json",
                                   *jobs], capture_output=True, text=True)
            self.assertEqual(done.returncode, 3)
            reports = [json.loads(line) for line in done.stdout.splitlines()]
            self.assertEqual([r["input"] for r in reports], names[:4] + names[5:])
            self.assertTrue(all("fitting_gain_db" in r for r in reports))
            for r in reports:
                del r["output"], r["seconds"]
            self.assertIn(names[4], done.stderr)
            runs.append((reports, done.stderr, [contents(f"{folder}/{r['input']}") for r in reports]))
        self.assertEqual(runs[0], runs[1])
        self.assertEqual(runs[0], runs[2])
        self.assert_fails(["average", *names[:2], "--length", 5, "--output-dir", "no", "--jobs", 0],
                          "--jobs", code=2)

    def test_reports(self):
        name = 'odd "name"\n\\\udcff.wav'
        subprocess.run([TOOL, "fir", SPEECH, name, "-c", "loud.txt", "--gain", "3", "-q"], check=True,
                       stderr=subprocess.DEVNULL)
        line = self.run_tool("fir", SPEECH, name, "-c", "loud.txt", "--gain", "3", "--json")
        report = json.loads(line)
        self.assertEqual(report["output"], 'odd "name"\n\\\ufffd.wav')
        x = read(SPEECH)[1]
        self.assertEqual((report["frames"], report["input"]), (len(x), SPEECH))
        self.assertLess(report["fitting_gain_db"], 3)
        self.assertGreater(report["clipped"], 0)
        wavfile.write("zero.wav", 8000, np.zeros(3000, np.int16))
        report = json.loads(self.run_tool("fir", "zero.wav", "out.wav", "-c", "loud.txt", "--json"))
        self.assertEqual((report["peak"], report["peak_dbfs"]), (0, None))
        report = json.loads(self.run_tool("level", "zero.wav", "level.csv", "--json"))
        self.assertEqual((report["loudest_dbfs"], report["output"]), (None, "level.csv"))
        report = self.shell(f"jurn level {SPEECH} - --json | wc -l")[1]
        self.assertEqual(json.loads(report)["input"], SPEECH)

    def test_progress_on_a_terminal_only(self):
        for quiet in ([], ["-q"]):
            terminal, stderr = pty.openpty()
            with subprocess.Popen([TOOL, "average", "-", "/dev/null", "--raw", "8000,1", "--length",
                                   "3", *quiet], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                  stderr=stderr) as running:
                # A second and more, and on a busy machine until it shows something.
                for turn in range(200):
                    running.stdin.write(bytes(8192))
                    running.stdin.flush()
                    time.sleep(0.08)
                    if turn >= 20 and (quiet or select.select([terminal], [], [], 0)[0]):
                        break
            os.write(stderr, b".")
            shown = b""
            while not shown.endswith(b"."):
                shown += os.read(terminal, 65536)
            os.close(terminal)
            os.close(stderr)
            if quiet:
                self.assertEqual(shown, b".")
            else:
                self.assertRegex(shown, rb"\A(\r/dev/null: \d+ s of audio\x1b\[K)+\r\x1b\[K\.\Z")

    def test_help_man_page_and_completion_know_every_option(self):
        folder = os.environ["JURN_FILTER_SOURCE"]
        manual = contents(folder + "/jurn-filter.1").decode().replace("\\", "")
        overview = self.shell("jurn --help")[0].decode()
        # Without PipeWire live has nothing to tell.
        commands = re.findall(r"^  ([a-z]+) +(?! |Needs a build)", overview.split("Subcommands:")[1], re.M)
        self.assertGreater(len(commands), 6)
        complete = (f'source {folder}/completions/jurn-filter.bash; COMP_WORDS=(jurn {{}});'
                    'COMP_CWORD=$((${{#COMP_WORDS[@]}} - 1));'
                    f'_jurn_filter {TOOL} "${{{{COMP_WORDS[-1]}}}}" "${{{{COMP_WORDS[-2]}}}}";'
                    'echo "${{COMPREPLY[@]}}"')
        self.assertLessEqual(set(commands), set(self.shell(complete.format("''"))[0].decode().split()))
        for command in commands:
            text = self.shell(f"jurn {command} --help")[0].decode()
            self.assertRegex(text, rf"Example:\n  jurn-filter {command} ")
            options = set(re.findall(r"^  (?:-\w,)?(--[a-z-]+)", text, re.M))
            completed = set(self.shell(complete.format(f"{command} -"))[0].decode().split())
            self.assertLessEqual(options, completed, command)
            self.assertEqual("--then" in completed, "--block" in options, command)
            if "--block" in options:
                after = self.shell(complete.format(f"average --then {command} -"))[0].decode().split()
                self.assertEqual({"--output-dir", "--raw", "--json", "--block", "--then"} & set(after),
                                 {"--block", "--then"}, command)
            self.assertRegex(manual, rf"\.B {command}\n")
            if command not in ("response", "spectrogram"):
                self.assertEqual([o for o in options if o not in manual], [], command)
        after = self.shell(complete.format("average --then ''"))[0].decode().split()
        self.assertIn("convolve", after)
        self.assertEqual({"response", "level", "spectrogram", "export"} & set(after), set())
        self.assertEqual(self.shell(complete.format("fir --bits ''"))[0], b"16 24 float\n")


if __name__ == "__main__":
    unittest.main()

"""Every front end at the pace of real time, with another filter about once a second: how its memory
grows, and whether what comes out has a hole, a step or a NaN. scripts/soak says how it is run.

Each is a program of its own from standard input to standard output: a tone goes in, block by block, and
all that comes out is looked at.
"""

import contextlib
import os
import subprocess
import sys
import tempfile
import time

import numpy as np
import soundfile

HERE = os.path.dirname(os.path.abspath(__file__))
BUILD = os.environ["JURN_BUILD"]
RATE, BLOCK, PITCH = 16000, 6400, 300  # a block has whole periods of the tone
QUIETEST, LARGEST_STEP = 0.02, 0.08  # of 10 ms, and between two samples, for results below 0.65
LARGEST_GROWTH = 1024  # KiB, from a quarter of the time to its end
TONE = (0.25 * np.sin(2 * np.pi * PITCH / RATE * np.arange(BLOCK))).astype(np.float32)


class FrontEnd:
    """One that runs, with its words, and what was seen of it."""

    def __init__(self, name, *words, samples=np.float32, channels=1):
        self.name, self.samples, self.channels = name, samples, channels
        self.block = (TONE if samples is np.float32 else (TONE * 32768).astype(samples)).tobytes()
        self.process = subprocess.Popen(words, stdin=subprocess.PIPE, stdout=subprocess.PIPE, bufsize=0)
        os.set_blocking(self.process.stdout.fileno(), False)
        self.rest, self.frames, self.faults, self.resident = b"", 0, [], []
        self.last = np.zeros((0, channels))

    def write(self):
        self.process.stdin.write(self.block)

    def read(self):
        with contextlib.suppress(BlockingIOError):
            while data := os.read(self.process.stdout.fileno(), 1 << 20):
                self.rest += data
        whole = len(self.rest) // (1600 * self.channels) * 1600 * self.channels
        if whole:
            self.look(np.frombuffer(self.rest[:whole], self.samples).reshape(-1, self.channels))
            self.rest = self.rest[whole:]

    def look(self, new):
        new = new / (1.0 if self.samples is np.float32 else 32768.0)
        heard = np.concatenate([self.last, new])
        loud = np.abs(new[: len(new) // 160 * 160]).reshape(-1, 160, self.channels).max(axis=1)
        if not np.isfinite(heard).all():
            self.faults.append(f"no number after {self.frames} frames")
        elif self.frames >= BLOCK:  # the filters' own beginning
            if loud.min() < QUIETEST:
                self.faults.append(f"a hole after {self.frames} frames")
            if np.abs(np.diff(heard, axis=0)).max() > LARGEST_STEP:
                self.faults.append(f"a step after {self.frames} frames")
        self.frames, self.last = self.frames + len(new), new[-1:]

    def measure(self):
        with open(f"/proc/{self.process.pid}/status", encoding="ascii") as file:
            self.resident += [int(line.split()[1]) for line in file if line.startswith("VmRSS")]

    def cpu(self):
        with open(f"/proc/{self.process.pid}/stat", encoding="ascii") as file:
            user, system = file.read().rsplit(")", 1)[1].split()[11:13]
        return (int(user) + int(system)) / os.sysconf("SC_CLK_TCK")

    def row(self, seconds, cpu):
        quarter = len(self.resident) // 4
        # The least of some measurements: a collector of garbage lets memory swing.
        early, late = min(self.resident[quarter:2 * quarter]), min(self.resident[-quarter:])
        if late - early > LARGEST_GROWTH:
            self.faults.append(f"grew by {late - early} KiB")
        if self.frames < (seconds - 1) * RATE:
            self.faults.append(f"gave {self.frames} frames of {seconds * RATE:.0f}")
        return (f"| {self.name} | {early / 1024:.1f} | {late / 1024:.1f} | {max(self.resident) / 1024:.1f}"
                f" | {100 * cpu / seconds:.2f} % | {'; '.join(self.faults[:3]) or 'none'} |")


def rooms(folder):
    """Two responses of a second, with the tone about as loud in both."""
    random, tail = np.random.default_rng(1), np.exp(-np.arange(RATE) / 2000)
    for name in ("hall", "street"):
        taps = 0.01 * random.standard_normal(RATE) * tail
        taps[0] = 0.5
        soundfile.write(os.path.join(folder, name + ".wav"), taps, RATE, "FLOAT")


def main(minutes):
    with tempfile.TemporaryDirectory() as folder:
        rooms(folder)
        python = sys.executable
        front_ends = [
            FrontEnd("tool: a source that circles", os.path.join(BUILD, "tools/jurn-filter/jurn-filter"),
                     "binaural", "-", "-", "--raw", f"{RATE},1", "--orbit", "4", "--gain", "-3", "-q",
                     samples=np.int16, channels=2),
            FrontEnd("GStreamer", python, os.path.join(HERE, "gstreamer.py"), folder),
            FrontEnd("LV2", os.path.join(BUILD, "tests/lv2/lv2_soak"), folder),
            FrontEnd("Python", python, os.path.join(HERE, "stream.py"), folder),
            FrontEnd("Node", "node", "--max-semi-space-size=1", "--max-old-space-size=64",
                     os.path.join(HERE, "stream.mjs")),
            FrontEnd("Java", "java", "-Xms32m", "-Xmx32m", "-XX:+UseSerialGC", "-XX:+AlwaysPreTouch", "-cp",
                     os.path.join(BUILD, "bindings/java/jurn-filter.jar"), os.path.join(HERE, "Soak.java")),
        ]
        blocks = max(40, round(minutes * 60 * RATE / BLOCK))
        due = time.monotonic()
        for block in range(blocks):
            for each in front_ends:
                each.write()
                each.read()
                if block % 5 == 0:
                    each.measure()
            due = max(due + BLOCK / RATE, time.monotonic() - 1)  # who was stopped does not catch up
            time.sleep(max(0.0, due - time.monotonic()))
        seconds = blocks * BLOCK / RATE
        for each in front_ends:
            each.read()
        print("| front end | MiB after a quarter | at the end | at most | CPU | faults |")
        print("| --- | ---: | ---: | ---: | ---: | --- |")
        for each in front_ends:
            print(each.row(seconds, each.cpu()))
            each.process.kill()
        print(f"{minutes:g} minutes; the test itself took {100 * time.process_time() / seconds:.2f} % of a core.")
        return any(each.faults for each in front_ends)


sys.exit(main(float(sys.argv[1])))

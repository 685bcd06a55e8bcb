"""Runs random command lines of jurn-filter on good and broken files: each keeps the rules below.

usage: test_random_commands.py [COUNT [SEED]]

The options are those that --help names, their values fit or not. Each run must end in time with a
documented exit code; a run that fails says why in one line and leaves its folder as it was; one that
succeeds prints nothing but warnings and notes on standard error. JURN_FILTER is the tool, best one
with sanitizers. Prints every command line that breaks a rule and ends with 1 if there was one.
"""

import collections
import os
import pathlib
import random
import re
import shlex
import subprocess
import sys
import tempfile

import numpy as np
from scipy import signal
from scipy.io import savemat, wavfile

TOOL = os.environ["JURN_FILTER"]
EXIT_CODES = (0, 2, 3, 4)
SECONDS = 60
ODD = ["0", "-1", "1e9", "-inf", "nan", "1e-30", "99999999999999999999", "", "x", "3k", "0,5", "1:2", "-"]
EQUALISER = ["PK 1k 3 Q 2", "HP 80", "LP 5000 order 4", "HS 8k +3"]
# What often fits: files by subcommand and by option, words by option.
FITTING = {"fir": ["taps.txt", "taps.npy", "graphic.txt"], "iir": ["ba.txt", "ba.mat"],
           "sos": ["sos.txt", "eq.txt"], "convolve": ["mono.wav", "stereo.wav", "taps.npy"],
           "--fir": ["taps.txt", "taps.npy"], "--iir": ["ba.txt", "ba.mat"], "--sos": ["sos.txt", "eq.txt"],
           "--ir": ["mono.wav", "float.wav"], "--fade-to": ["mono.wav"], "--routes": ["routes.txt"],
           "--numerator": ["taps.txt"], "--denominator": ["ba.txt"], "--csv": ["new.csv", "-"],
           "--picture": ["new.svg"], "--output-dir": ["folder", "new-folder"], "--raw": ["48000,2"],
           "--type": ["wav", "flac", "raw", "ogg", "mp3", "aiff", "header", "mat", "npy"],
           "--bits": ["16", "24", "float"], "--precision": ["int16", "double"],
           "--format": ["numbers", "named", "npy", "mat", "equaliser", "audio"],
           "--of": ["magnitude", "square"], "--show": ["magnitude,delay", "poles"], "--eq": EQUALISER,
           "--variables": ["b,a", "sections"], "--name": ["filter"], "--label": ["one"]}
FAULT = re.compile(r"Sanitizer|runtime error|Assertion|terminate called|std::")


def fill_pool(rng):
    """Recordings and files of coefficients in the current folder, some of them damaged."""
    noise = np.random.default_rng(rng.randrange(1000)).normal(0, 0.2, (1500, 2))
    wavfile.write("stereo.wav", 48000, (noise * 32767).astype(np.int16))
    wavfile.write("mono.wav", 44100, (noise[:, 0] * 32767).astype(np.int16))
    wavfile.write("float.wav", 48000, noise.astype(np.float32))
    wavfile.write("four.wav", 48000, np.tile((noise * 9000).astype(np.int16), (1, 2)))
    wavfile.write("empty.wav", 48000, np.zeros((0, 2), np.int16))
    wavfile.write("lost.wav", 48000, np.array([0, np.nan, np.inf, 1e30, 0], np.float32))
    np.savetxt("taps.txt", signal.firwin(31, 0.3))
    np.save("taps.npy", signal.firwin(100, 0.1))
    np.savetxt("sos.txt", signal.butter(6, 0.1, output="sos"))
    np.savetxt("ba.txt", signal.butter(3, 0.2))
    savemat("ba.mat", dict(zip("ba", signal.butter(2, 0.4))))
    np.savetxt("unstable.txt", [[1, 0, 0], [1, -2.5, 1.2]])
    pathlib.Path("eq.txt").write_text("Preamp: -3 dB\nFilter 1: ON PK Fc 900 Hz Gain -4 dB Q 1.4\n")
    pathlib.Path("graphic.txt").write_text("GraphicEQ: 20 -3; 1000 2; 20000 -6\n")
    pathlib.Path("routes.txt").write_text("route 1 1 taps.npy\nroute 2 2 mono.wav 1\n")
    pathlib.Path("words.txt").write_text("nothing of the kind\n")
    pathlib.Path("nothing.txt").write_bytes(b"")
    os.mkdir("folder")
    for name in rng.sample([n for n in os.listdir() if os.path.isfile(n)], 4):
        data = bytearray(pathlib.Path(name).read_bytes() or b"\0")
        for _ in range(rng.randrange(1, 4)):
            data[rng.randrange(min(len(data), 200))] = rng.randrange(256)
        pathlib.Path("broken-" + name).write_bytes(data[:rng.randrange(1, len(data) + 1)])


def options_of(subcommand):
    """(name, what it takes, the range of a number) of every option; nothing for a flag."""
    help_text = subprocess.run([TOOL, subcommand, "--help"], capture_output=True, text=True).stdout
    found = re.findall(r"^ {1,4}(?:-\w,)?(--[\w-]+)(?: ([A-Z]+)\b(?:.*? in \[(\S+) - (\S+)\])?)?", help_text,
                       re.MULTILINE)
    return [option for option in found if option[0] != "--help"]


def value_of(subcommand, option, rng, files):
    name, takes, low, high = option
    if rng.random() < 0.1:
        return rng.choice(ODD + files)
    if name == "--coefficients":
        name = subcommand
    if name in FITTING:
        return rng.choice(FITTING[name])
    if takes == "INT" or takes == "N":
        return str(rng.choice([int(low or 1), min(int(high or 64), rng.choice([8, 64, 999]))]))
    return rng.choice([low or "0.1", "3", "10", "-4.5"])


def random_command(rng, grammar, files):
    command = []
    recordings = [name for name in files if name.endswith(".wav")]
    for i in range(rng.choice((1, 1, 1, 2))):
        subcommand = rng.choice(list(grammar))
        command += ["--then", subcommand] if i else [subcommand]
        needed = {"--coefficients", "--length"} | ({"--ir"} if subcommand == "convolve" else {"--sos"})
        for option in grammar[subcommand]:
            if rng.random() < (0.9 if option[0] in needed else 0.04):
                command += [option[0]]
                command += [value_of(subcommand, option, rng, files)] if option[1] else []
        if not i and subcommand != "response":
            results = ["new.wav", "new.wav", "new.flac", "new.raw", "new.mp3", "-", "folder/new.wav",
                       "none/new.wav", "new.h", rng.choice(files)]
            source = rng.choice(recordings if rng.random() < 0.8 else files)
            command += [source, rng.choice(results)] if subcommand != "export" else ["new.h"]
        if subcommand == "eq":
            command += rng.choices(EQUALISER, k=rng.randrange(3))
    return command


def contents(folder):
    return {str(p): p.read_bytes() for p in sorted(pathlib.Path(folder).rglob("*")) if p.is_file()}


def fault_of(command, before):
    """(exit code, what is wrong with it or nothing) of a run."""
    try:
        done = subprocess.run([TOOL, *command], stdin=subprocess.DEVNULL, capture_output=True,
                              timeout=SECONDS)
    except subprocess.TimeoutExpired:
        return None, f"no end after {SECONDS} s"
    lines = done.stderr.decode(errors="replace").splitlines()
    said = [line for line in lines if not re.match(r"jurn-filter: (warning|note): ", line)]
    fault = None
    if done.returncode not in EXIT_CODES or FAULT.search("\n".join(lines)):
        fault = "\n".join(lines[:20])
    elif done.returncode == 0:
        if said and "-" not in command:  # the report moves where standard output is taken
            fault = "success with a message: " + "\n".join(said)
    elif "--output-dir" not in command:
        after = contents(".")
        if len(said) != 1 or not said[0].startswith("jurn-filter: "):
            fault = f"{len(said)} lines for a failure: " + "\n".join(said[:5])
        elif after != before:
            fault = "a failure that changes " + ", ".join(
                name for name in {*after, *before} if after.get(name) != before.get(name))
    return done.returncode, fault


def main():
    count = int(sys.argv[1]) if len(sys.argv) > 1 else 200
    rng = random.Random(int(sys.argv[2]) if len(sys.argv) > 2 else 1)
    grammar = {name: options_of(name) for name in
               ("fir", "iir", "sos", "eq", "average", "convolve", "binaural", "export", "level",
                "spectrogram", "response")}
    faults, codes = 0, collections.Counter()
    for number in range(count):
        if number % 10 == 0:
            folder = tempfile.TemporaryDirectory()
            os.chdir(folder.name)
            fill_pool(rng)
            files = sorted(os.listdir()) + ["none.wav"]
        command = random_command(rng, grammar, files)
        code, fault = fault_of(command, contents("."))
        codes[code] += 1
        if fault:
            faults += 1
            print(f"{number}: {shlex.join(command)}: exit code {code}\n  {fault}", flush=True)
    os.chdir("/")
    print(f"{count} command lines, exit codes {dict(codes)}, {faults} that broke a rule")
    return faults > 0


if __name__ == "__main__":
    sys.exit(main())

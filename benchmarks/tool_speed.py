"""CPU time of jurn-filter beside SoX and FFmpeg on ten minutes of stereo, as rows of a table.

tool_speed.py JURN_FILTER [ROUNDS [WORD...]]: all programs take turns in every round, and the least
time of each counts, in user and in kernel mode together: other load on the machine adds to all.
With words, only rows that hold one of them.
"""

import os
import subprocess
import sys
import tempfile

import numpy as np
from scipy import signal
from scipy.io import wavfile

RATE, SECONDS = 48000, 600
BANDS = [(30 * 2 ** i, (-1) ** i * 3.0) for i in range(10)]
SOX, FFMPEG = ["sox", "-V1", "-G"], ["ffmpeg", "-hide_banner", "-loglevel", "error", "-y"]


def cpu_seconds(command):
    process = subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    _, status, usage = os.wait4(process.pid, 0)
    if status:
        raise SystemExit(f"{' '.join(command)}: failed")
    return usage.ru_utime + usage.ru_stime


def write_wav(name, samples, bits):
    if bits == 16:
        wavfile.write(name, RATE, samples)
        return
    wavfile.write("wide.wav", RATE, samples.astype(np.int32) << 16)
    subprocess.run(["sox", "-V1", "-D", "wide.wav", "-b", "24", name], check=True)
    os.remove("wide.wav")


def rows(tool):
    """What is measured: the name, the tool's command, its peers' commands, and the aim."""
    words = [f"PK {f} {g} Q 1" for f, g in BANDS]
    sox = [["equalizer", str(f), "1q", str(g)] for f, g in BANDS]
    peers = [f"equalizer=f={f}:t=q:w=1:g={g}:precision=f64" for f, g in BANDS]
    for bits, count, aim in ((16, 1, 0.45), (16, 4, 0.2), (24, 4, 0.5)):
        yield (f"{count} section{'s' * (count > 1)}, {bits} bits", [tool, "eq", f"{bits}.wav", "o.wav", *words[:count]],
               {"SoX": [[*SOX, f"{bits}.wav", "p.wav", *sum(sox[:count], [])]]}, aim)
    yield ("10 sections, 16 bits", [tool, "eq", "16.wav", "o.wav", *words],
           {"FFmpeg, in double": [[*FFMPEG, "-i", "16.wav", "-af", ",".join(peers), "p.wav"]]}, 0.4)
    yield ("255 taps, 24 bits", [tool, "fir", "24.wav", "o.wav", "-c", "255.txt"],
           {"SoX": [[*SOX, "24.wav", "p.wav", "fir", "255.txt"]]}, 0.8)
    for count in (96000, 480000):
        ir = f"{count}.wav"
        yield (f"{count} taps, 16 bits", [tool, "convolve", "16.wav", "o.wav", "--ir", ir, "--no-tail"],
               {"FFmpeg's afir, its cheapest setting": [
                   [*FFMPEG, "-filter_complex_threads", threads, "-i", "16.wav", "-i", ir, "-filter_complex",
                    f"[0][1]afir=gtype=none:irfmt=mono:maxir=60:minp={least}:maxp={most}", "p.wav"]
                   for threads in ("1", "2")
                   for least, most in ((8192, 8192), (1024, 16384), (32768, 32768))]}, 0.6)
    yield ("3 taps, 50 ms of 16 bits", [tool, "fir", "short.wav", "o.wav", "-c", "3.txt"], {}, None)


def main(tool, rounds=3, *words):
    tool = os.path.abspath(tool)
    with tempfile.TemporaryDirectory() as folder:
        os.chdir(folder)
        rng = np.random.default_rng(1)
        samples = (rng.standard_normal((RATE * SECONDS, 2)) * 2000).astype(np.int16)
        for bits in (16, 24):
            write_wav(f"{bits}.wav", samples, bits)
        wavfile.write("short.wav", RATE, samples[:2400])
        for count in (3, 255):
            np.savetxt(f"{count}.txt", signal.firwin(count, 0.2))
        for count in (96000, 480000):
            ir = rng.standard_normal(count) * np.exp(-6 * np.arange(count) / count) * 0.01
            wavfile.write(f"{count}.wav", RATE, ir.astype(np.float32))
        print("| | jurn-filter | peer | share | aim |\n| --- | --- | --- | --- | --- |")
        for name, own, peers, aim in rows(tool):
            if words and not any(word in name for word in words):
                continue
            commands = [("", [*own, "--overwrite", "-q"])]
            commands += [(peer, command) for peer, all_of in peers.items() for command in all_of]
            least = {}
            for _ in range(int(rounds)):
                for i, (peer, command) in enumerate(commands):
                    least[i] = min(least.get(i, 1e9), cpu_seconds(command))
            row = f"| {name} | {least[0]:.3f} s | "
            if len(commands) > 1:
                best = min(range(1, len(commands)), key=least.get)
                row += f"{least[best]:.3f} s ({commands[best][0]}) | {least[0] / least[best]:.2f} | {aim} |"
            print(row if len(commands) > 1 else row + "| | |", flush=True)


if __name__ == "__main__":
    main(*sys.argv[1:])

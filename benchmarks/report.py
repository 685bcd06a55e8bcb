#!/usr/bin/env python3
"""Turns the figures of jurn_benchmarks into docs/performance.md, its plots, and the targets in
docs/speed-targets.md.

usage: report.py FIGURES.json DOCS_FOLDER [COMMIT_BEFORE]

What the document says below its last marker is written by hand and stays.
"""

import json
import math
import pathlib
import subprocess
import sys
import tempfile

MARKER = "<!-- Written by hand from here on; scripts/benchmark keeps it. -->"
FFT_LENGTHS = [2**k for k in range(6, 15)]
FIR_TAPS = [32, 128, 512, 2048, 32767]
LONG_ROOMS = [("262144/256", 2, 17.6), ("524288/256", 2, 30), ("1048576 mono/256", 1, 38),
              ("300000 mono/64", 1, 32)]
LONG_TAPS = [512, 2048, 8192]
FFT_KINDS = ["-2 stereo", "-2 mono", "-7 stereo", "-5 mono", "-4 stereo"]
SECTIONS = [1, 4, 16]
CASCADE = [1, 4, 8, 16]
BEST = "room best/1048576 mono/256"
BEST_PARTITIONS = [1024, 2048, 4096, 8192]
ROOMS = ["8192/64", "8192/256", "96000 true stereo/256"]


class Figures:
    def __init__(self, path):
        report = json.loads(pathlib.Path(path).read_text())
        self.context = report["context"]
        self.groups = {b["name"].split("/iterations:")[0]: b for b in report["benchmarks"]}

    def __call__(self, group, side):
        """ns per unit of work, or None for a peer that was not installed."""
        return self.groups[group].get(side)

    def all(self, prefix):
        return [g for g in self.groups if g.startswith(prefix)]

    def copies(self, group, side):
        """The median of three copies that lie in different places of the memory."""
        times = [self.groups[group].get(f"{side} {i}") for i in (1, 2, 3)]
        return None if None in times else sorted(times)[1]


class Targets:
    """Rows of the table: figure reached against its limit."""

    def __init__(self):
        self.rows = []

    def section(self, title):
        self.rows.append(f"| **{title}** | | | |")

    def add(self, what, figure, at_most=None, at_least=None):
        limit = f"at most {at_most:g}" if at_least is None else f"at least {at_least:g}"
        if figure is None:
            self.rows.append(f"| {what} | {limit} | - | peer not installed |")
            return
        # Judged as printed: two digits behind the point.
        figure = round(figure, 2)
        over = figure / at_most - 1 if at_least is None else 1 - figure / at_least
        verdict = "met" if over <= 0 else f"**missed by {math.ceil(100 * over - 1e-9):d} %**"
        self.rows.append(f"| {what} | {limit} | {figure:.2f} | {verdict} |")


def ratio(x, y):
    return None if x is None or y is None else x / y


def targets(f, instruction_set, before):
    t = Targets()
    chain = 0.45 if instruction_set == "AVX-512" else 0.65
    t.section("Transform chain (forward, multiply, inverse) / FFTW patient")
    for n in FFT_LENGTHS:
        group = f"transform/{n}"
        t.add(f"{n}", ratio(f(group, "jurn"), f(group, "fftw")), 0.7 if n < 256 else chain)

    t.section("Long filter, stereo kind -2, int16 in and out / zita-convolver, one partition")
    for taps in LONG_TAPS:
        t.add(f"{taps} taps", ratio(f.copies(f"long/{taps}", "jurn"), f.copies(f"long/{taps}", "zita")), 0.45)
    t.section("Long responses, ns a sample and channel; the dearest call / the mean")
    for room, channels, limit in LONG_ROOMS:
        taps, frames = room.split("/")
        mean, dearest = (f(f"room fades/{room}", call) for call in ("mean", "dearest"))
        t.add(f"{taps} taps, {frames} frames", mean / int(frames) / channels, limit)
        t.add(f"{taps} taps, {frames} frames, dearest", dearest / mean, 2)

    t.section("FFT kinds: share of a block's time outside its transforms and products")
    for kind in FFT_KINDS:
        for taps in LONG_TAPS:
            group = f"share/{taps}"
            share = 1 - f(group, f"{kind} transforms") / f(group, kind)
            t.add(f"kind {kind}, {taps} taps", share, 0.2)

    for name, group in [("JURNfir", "fir"), ("MORVAX_Qfirf", "fir double")]:
        t.section(f"{name}, block 480: share of the peak of separate multiplies and adds")
        for taps in FIR_TAPS[1:]:
            g = f"{group}/{taps}"
            t.add(f"{taps} taps", taps * f(g, "peak") / f(g, "block 480"), at_least=0.65)
        g = f"{group}/32"
        t.add("32 taps: times as fast as the compiler's vectorisation of the in-order loop",
              f(g, "plain") / f(g, "block 480"), at_least=1.7)
        for taps in FIR_TAPS:
            g = f"{group}/{taps}"
            t.add(f"{taps} taps: block 64 / block 480", f(g, "block 64") / f(g, "block 480"), 1.5)
        g = f"{group}/32767"
        t.add("cost per tap, 32767 taps / 512 taps",
              f(g, "block 480") / 32767 * 512 / f(g, "512 taps"), 1.05)

    t.section("Cascade filterNOrNsSec, order 2, block 480")
    c = lambda side: f("cascade", side)
    t.add("one section / plain register loop", c("mono 1") / c("plain 1"), 1)
    t.add("8 sections / one section", c("mono 8") / c("mono 1"), 1.6)
    t.add("16 sections / one section", c("mono 16") / c("mono 1"), 2.6)
    for n in [1, 2, 3, 4]:
        t.add(f"{n} section{'s' * (n > 1)}: stereo / mono", c(f"stereo {n}") / c(f"mono {n}"), 1.3)

    t.section("Sections in double, floats in and out, block 480")
    for n, limit in zip(SECTIONS, [0.3, 0.25, 0.2]):
        s = lambda side: f(f"sections/{n}", side)
        name = f"{n} section{'s' * (n > 1)}"
        t.add(f"{name} / as many MORVAX_Qiirf of order 2", s("mono") / s("Qiirf"), limit)
        t.add(f"{name}: stereo / mono", s("stereo") / s("mono"), 1.6)

    t.section("Direct-form IIR: recursion / (1 multiplication + order additions) x latency")
    for name, group in [("JURNiir", "iir"), ("MORVAX_Qiirf", "iir double")]:
        for order in [2, 8, 32]:
            i = lambda side: f(f"{group}/{order}", side)
            chain = i("multiply") + order * i("add")
            t.add(f"{name}, order {order}: call less the FIR that its numerator is",
                  (i("mono") - i("fir")) / chain, 1.15)
    for name, group in [("JURNiir", "numerator"), ("MORVAX_Qiirf", "numerator double")]:
        n = lambda side: f(group, side)
        t.add(f"{name}: 512 taps more of numerator / of FIR",
              (n("iir 513") - n("iir 1")) / (n("fir 513") - n("fir 1")), 1.05)
    for order in [2, 8, 32]:
        t.add(f"JURNiir, order {order}: stereo / mono",
              f(f"iir/{order}", "stereo") / f(f"iir/{order}", "mono"), 1.3)

    t.section("Convolution without latency, stereo, int16 in and out / zita-convolver, floats")
    for room, limit in zip(ROOMS, [0.35, 0.32, 0.4]):
        name = "{} taps, {} frames".format(*room.split("/"))
        t.add(name, ratio(f(f"room/{room}", "jurn"), f(f"room/{room}", "zita")), limit)
    best = [f(BEST, f"zita {longest}") for longest in BEST_PARTITIONS]
    t.add("1048576 taps mono, 256 frames / its fastest partitions, in threads",
          ratio(f(BEST, "jurn"), None if None in best else min(best)), 0.35)
    t.add("96000 taps true stereo / 8192 taps, 256 frames",
          f(f"room/{ROOMS[2]}", "jurn") / f(f"room/{ROOMS[1]}", "jurn"), 3)
    for room in ROOMS[1:]:
        g = f"room dearest/{room}"
        zita = f(f"{g}/zita", "dearest") if f"{g}/zita" in f.groups else None
        name = "{} taps, {} frames".format(*room.split("/"))
        t.add(f"{name}: dearest call / zita's", ratio(f(f"{g}/jurn", "dearest"), zita), 0.4)
        t.add(f"{name}: dearest call / mean", f(f"{g}/jurn", "dearest") / f(f"{g}/jurn", "mean"), 2)

    t.section("Moving mean / plain loop with a remainder per sample")
    for count in [32, 100, 256]:
        g = f"mean/{count}"
        t.add(f"{count} samples", f(g, "jurn") / f(g, "plain"), 0.5)

    t.section("Place of the record: FFT kind -2 in stereo, worst of six / best")
    for taps in LONG_TAPS:
        times = [f(f"place/{taps}", side) for side in ["0", "4", "16", "32", "36", "48"]]
        t.add(f"{taps} taps, records at 0 to 48 modulo 64", max(times) / min(times), 1.03)

    t.section("Short calls: cost per frame, 16 frames / 480")
    for g in f.all("short/"):
        t.add(g.split("/", 1)[1], f(g, "16") / f(g, "480"), 2.5)

    t.section("Mono records side by side: four / one")
    for sections, limit in [(1, 1.3), (2, 1.3), (4, 1.3), (8, 1.8), (16, 3)]:
        g = f"records/cascade {sections}"
        t.add(f"cascade, {sections} section{'s' * (sections > 1)}", f(g, "4") / f(g, "1"), limit)

    for compiler in ["g++", "clang++"]:
        for level, limit in [("-O2", 1.03), ("-Os", 1.5)]:
            builds = [g for g in f.all("builds/") if f(g, f"{compiler} {level}")]
            if not builds:
                continue
            t.section(f"{compiler} {level} / -O3, without CMake")
            for g in builds:
                t.add(g.split("/", 1)[1],
                      f(g, f"{compiler} {level}") / f(g, f"{compiler} -O3"), limit)

    if before:
        t.section(f"Against commit {before}, g++ -O3")
        for g in f.all("builds/"):
            name = g.split("/", 1)[1]
            length = int(name.split(", ")[1]) if name.startswith("transform") else 0
            limit = 0 if length < 1024 else 0.85 if length >= 8192 else 0.9
            old = f(g, "before")
            t.add(name, f(g, "g++ -O3") / old, limit or 1.03)
            if length:
                t.add(f"{name}, product fused as the FFT kinds do it", f(g, "fused") / old,
                      limit or 1.03)

    t.section("Growth")
    s = lambda side: f("set-up", side)
    t.add("FFT set-up, cost per tap, 8192 taps / 512 taps",
          s("forFFT 8192") / s("forFFT 512") / 16, 1.5)
    t.add("time-domain fade set-up, cost per tap, 8192 taps / 512 taps",
          s("APItime 8192") / s("APItime 512") / 16, 1.5)
    t.add("coefficient set-up, cost per coefficient, 1248 / 78",
          s("FromMatlabTable 1248") / s("FromMatlabTable 78") / 16, 1.5)
    log = lambda taps: f.copies(f"long/{taps}", "jurn") / math.log2(2 * taps)
    t.add("FFT kind -2, cost per sample and log2 of the transform length, 8192 taps / 512 taps",
          log(8192) / log(512), 1.5)
    for record in ["Filter_ID", "Filterf_ID", "Filterlongfir_ID"]:
        t.add(f"reset of {record} / clearing its memory",
              f("reset", record) / f("reset", f"{record} clear"), 1.5)
    return ["| Figure | Target | Reached | |", "|---|---|---|---|"] + t.rows


def number(x, digits=2):
    return "-" if x is None else f"{x:.{digits}f}" if x < 100 else f"{x:.0f}"


def table(heads, rows):
    lines = [" | ".join(heads), " | ".join("---" for _ in heads)]
    return [f"| {line} |" for line in lines + [" | ".join(map(str, row)) for row in rows]]


def costs(f):
    """What one sample costs, for every kind."""
    lines = ["### Transform chain, ns", ""]
    lines += table(["Length", "JURN", "FFTW"],
                   [[n] + [number(f(f"transform/{n}", s), 0) for s in ("jurn", "fftw")]
                    for n in FFT_LENGTHS])
    lines += ["", "### FFT convolution in stereo, ns per sample and channel", ""]
    lines += table(["Taps", "JURN", "zita-convolver"],
                   [[n] + [number(f.copies(f"long/{n}", s)) for s in ("jurn", "zita")]
                    for n in LONG_TAPS])
    lines += ["", "### Convolution without latency, ns per sample and channel", "",
              "The uniform convolution is a plain one of FFTW's transforms and a loop for the products.",
              ""]
    lines += table(["Taps", "Frames", "JURN", "zita-convolver", "uniform"],
                   [r.split("/") + [number(f(f"room/{r}", s)) for s in ("jurn", "zita", "uniform")]
                    for r in ROOMS + sorted((g[5:] for g in f.all("room/") if g[5:] not in ROOMS),
                                            key=lambda r: int(r.split("/")[0]))])
    best = [f(BEST, f"zita {longest}") for longest in BEST_PARTITIONS]
    lines += ["", f"1048576 taps mono, 256 frames: {number(f(BEST, 'jurn'))}; zita-convolver with partitions that",
              f"grow to {', '.join(map(str, BEST_PARTITIONS))}, in threads of its own on the same core:",
              f"{', '.join(map(number, best))}."]
    lines += ["", "### Time-domain FIR, ns per sample", "",
              "`MORVAX_Qfirf` sums in double; liquid-dsp and the loop belong to `JURNfir`'s float.", ""]
    lines += table(["Taps", "JURNfir, block 480", "block 64", "compiler's loop", "liquid-dsp",
                    "MORVAX_Qfirf, block 480", "block 64", "compiler's loop"],
                   [[n] + [number(f(f"fir/{n}", s)) for s in ("block 480", "block 64", "plain",
                                                             "liquid")]
                    + [number(f(f"fir double/{n}", s)) for s in ("block 480", "block 64", "plain")]
                    for n in FIR_TAPS])
    lines += ["", "### Cascade of second-order sections, ns per frame", ""]
    lines += table(["Sections", "JURN", "stereo", "plain loop"],
                   [[n] + [number(f("cascade", f"{s} {n}")) for s in ("mono", "stereo", "plain")]
                    for n in [1, 2, 3, 4, 8, 16]])
    lines += ["", "### Sections in double, floats in and out, ns per frame", "",
              "The loop is the transposed direct form II in double.", ""]
    lines += table(["Sections", "JURN", "stereo", "chain of MORVAX_Qiirf", "plain loop"],
                   [[n] + [number(f(f"sections/{n}", s))
                           for s in ("mono", "stereo", "Qiirf", "plain")]
                    for n in [1, 2, 4, 8, 16]])
    lines += ["", "### Direct-form IIR, numerator and denominator of the same order, ns per frame",
              ""]
    lines += table(["Order", "JURNiir", "stereo", "latency of its chain", "MORVAX_Qiirf",
                    "latency of its chain"],
                   [[n] + [number(x) for x in (
                       f(f"iir/{n}", "mono"), f(f"iir/{n}", "stereo"),
                       f(f"iir/{n}", "multiply") + n * f(f"iir/{n}", "add"),
                       f(f"iir double/{n}", "mono"),
                       f(f"iir double/{n}", "multiply") + n * f(f"iir double/{n}", "add"))]
                    for n in [2, 8, 32]])
    lines += ["", "### Moving mean, ns per sample", ""]
    lines += table(["Samples", "JURN", "plain loop"],
                   [[n] + [number(f(f"mean/{n}", s)) for s in ("jurn", "plain")]
                    for n in [32, 100, 256]])
    lines += ["", "### Short calls, ns per frame", ""]
    lines += table(["Kind", "16 frames", "32", "64", "480 or whole hops"],
                   [[g.split("/", 1)[1]] + [number(f(g, s)) for s in ("16", "32", "64", "480")]
                    for g in f.all("short/")])
    lines += ["", "### Mono records side by side, ns per frame of all", ""]
    lines += table(["Kind", "1 record", "4", "6", "8"],
                   [[g.split("/", 1)[1]] + [number(f(g, s)) for s in ("1", "4", "6", "8")]
                    for g in f.all("records/")])
    builds = [b for b in ("g++ -O3", "g++ -O2", "g++ -Os", "clang++ -O3", "clang++ -O2",
                          "clang++ -Os", "before") if any(f(g, b) for g in f.all("builds/"))]
    if builds:
        lines += ["", "### Builds without CMake, ns per frame or chain", ""]
        lines += table(["Kernel"] + builds,
                       [[g.split("/", 1)[1]] + [number(f(g, b)) for b in builds]
                        for g in f.all("builds/")])
    lines += ["", "### Reset and set-up, microseconds", ""]
    micro = lambda group, side: number(f(group, side) / 1000)
    lines += table(["Call", "Time"],
                   [[f"reset of {r}", micro("reset", r)]
                    for r in ["Filter_ID", "Filterf_ID", "shuzhiFilter_ID", "Filterlongfir_ID"]]
                   + [[f"`MORVAX_FilterlongfirCalcu_API_forFFT`, stereo, {n} taps",
                       micro("set-up", f"forFFT {n}")] for n in LONG_TAPS]
                   + [[f"`MORVAX_FilterlongfirCalcu_APItime`, {n} taps",
                       micro("set-up", f"APItime {n}")] for n in LONG_TAPS + [32767]]
                   + [[f"`MORVAX_FilterCalcu_API_FromMatlabTable`, {n} coefficients",
                       micro("set-up", f"FromMatlabTable {n}")] for n in [78, 312, 1248]])
    clones = sorted(g for g in f.groups if g.startswith("clones/"))
    sets = [s for s in ("baseline", "AVX2", "AVX-512") if f(clones[0], s) is not None]
    lines += ["", "### Instruction sets, ns per sample, frame or chain", ""]
    lines += table(["Kernel"] + sets,
                   [[g.split("/", 1)[1]] + [number(f(g, s)) for s in sets] for g in clones])
    return lines


def dearest(f):
    rows = []
    for kind in FFT_KINDS:
        for taps in LONG_TAPS:
            g = f"dearest/{taps}/{kind}"
            most, mean = f(g, "dearest"), f(g, "mean")
            rows.append([kind, taps, number(mean / 1000), number(most / 1000),
                         number(most / mean, 1)])
    return table(["Kind", "Taps", "Mean, µs", "Dearest, µs", "Dearest / mean"], rows)


def dearest_rooms(f):
    rows = []
    for g in f.all("room dearest/"):
        _, room, frames, side = g.split("/")
        most, mean = f(g, "dearest"), f(g, "mean")
        rows.append([{"jurn": "JURN", "zita": "zita-convolver"}[side], room, number(mean / 1000),
                     number(most / 1000), number(most / mean, 1)])
    return table(["", "Taps", "Mean, µs", "Dearest, µs", "Dearest / mean"], rows)


def room_fades(f):
    rows = []
    for g in f.all("room fades/"):
        _, room, frames = g.split("/")
        mean = f(g, "mean")
        rows.append([room, frames, number(mean / 1000)] + [
            f"{number(f(g, call) / 1000)} ({number(f(g, call) / mean, 1)})"
            for call in ("dearest", "one call", "prepared")])
    return ["### Fades of long responses", "",
            "Calls of `MORVAX_ConvolutionRun_API`, µs and in brackets runs: an ordinary one,"
            " the dearest of", "them, a fade in one call, and the dearest call of a fade that"
            " `MORVAX_ConvolutionPrepareFade_API`", "prepares, each at its worst moment and the least"
            " of 101 rounds.", ""] + table(
                ["Taps", "Frames", "Run", "Dearest run", "Fade in one call", "Prepared fade"], rows)


def shown_first(f):
    """The three rows of the README."""
    return table(["", "JURN", "peer"], [
        ["real FFT forward, product, inverse, 2048 points", number(f("transform/2048", "jurn"), 0) + " ns",
         "FFTW (patient) " + number(f("transform/2048", "fftw"), 0) + " ns"],
        ["convolution with 2048 taps, stereo, a sample", number(f.copies("long/2048", "jurn")) + " ns",
         "zita-convolver, float only, " + number(f.copies("long/2048", "zita")) + " ns"],
        ["FIR of 512 taps in the time domain, a sample", number(f("fir/512", "block 480")) + " ns",
         "liquid-dsp " + number(f("fir/512", "liquid")) + " ns"]])


def crossover(points):
    """Taps from which the FFT kind is cheaper, between two measured counts, in logarithms."""
    for (n0, t0, f0), (n1, t1, f1) in zip(points, points[1:]):
        if t0 < f0 and t1 >= f1:
            d0, d1 = math.log(t0 / f0), math.log(t1 / f1)
            return round(n0 * (n1 / n0) ** (d0 / (d0 - d1)))
    return None


def plot(points, taps, path):
    data = "\n".join(" ".join(map(str, row)) for row in points)
    script = f"""set terminal svg size 640,400 font 'sans-serif,12' background 'white'
set output '{path}'
set logscale xy
set xlabel 'taps'
set ylabel 'ns per sample'
set key top left
set grid
set xtics (4, 16, 64, 256, 1024, 4096)
set xrange [4:8192]
$cost << EOD
{data}
EOD
"""
    if taps:
        script += f"set arrow from {taps}, graph 0 to {taps}, graph 1 nohead dashtype 2\n"
        script += f"set label '{taps} taps' at {taps * 1.1}, graph 0.05\n"
    script += """plot $cost using 1:2 with linespoints lw 2 pt 7 ps 0.5 title 'time domain, kind -1', \\
     $cost using 1:3 with linespoints lw 2 pt 5 ps 0.5 title 'FFT, kind -2'
"""
    subprocess.run(["gnuplot"], input=script, text=True, check=True)


def plot_rooms(f, points, path):
    """Cost of stereo convolution against taps; `points` are of the other kinds, mono."""
    taps = sorted({int(g[5:].split("/")[0].split()[0]) for g in f.all("room/")
                   if g.endswith("/256")} - {96000})
    rows = [[n] + [f(f"room/{n}/256", s) or "?" for s in ("jurn", "zita", "uniform")] for n in taps]
    block = lambda name, data: f"${name} << EOD\n" + "\n".join(
        " ".join(map(str, row)) for row in data) + "\nEOD\n"
    subprocess.run(["gnuplot"], text=True, check=True, input=f"""
set terminal svg size 640,400 font 'sans-serif,12' background 'white'
set output '{path}'
set logscale xy
set xlabel 'taps'
set ylabel 'ns per sample and channel'
set key top left
set grid
set xrange [64:131072]
set datafile missing '?'
{block("rooms", rows)}{block("kinds", points)}
plot $rooms using 1:2 with linespoints lw 2 pt 7 ps 0.5 title 'convolution, blocks of 256', \\
     $rooms using 1:3 with linespoints lw 2 pt 5 ps 0.5 title 'zita-convolver, blocks of 256', \\
     $rooms using 1:4 with linespoints lw 2 pt 9 ps 0.5 title 'uniform with FFTW', \\
     $kinds using 1:2 with lines lw 1 dashtype 2 title 'time domain, kind -1', \\
     $kinds using 1:3 with lines lw 1 dashtype 3 title 'FFT, kind -2, one hop late'
""")


def plot_cascade(f, path):
    data = "\n".join(f"{n} {f('cascade', f'mono {n}')} {f('cascade', f'plain {n}')}"
                     for n in CASCADE)
    subprocess.run(["gnuplot"], text=True, check=True, input=f"""
set terminal svg size 640,400 font 'sans-serif,12' background 'white'
set output '{path}'
set xlabel 'sections'
set ylabel 'ns per sample'
set key top left
set grid
set yrange [0:*]
$cost << EOD
{data}
EOD
plot $cost using 1:3 with linespoints lw 2 pt 5 ps 0.5 title 'section after section', \\
     $cost using 1:2 with linespoints lw 2 pt 7 ps 0.5 title 'sections in lanes'
""")


def cpu_name():
    for line in pathlib.Path("/proc/cpuinfo").read_text().splitlines():
        if line.startswith(("model name", "Model")):
            return line.split(":", 1)[1].strip()
    return "unknown"


def peers():
    packages = ["libfftw3-dev", "libzita-convolver-dev", "libliquid-dev"]
    try:
        found = subprocess.run(["dpkg-query", "-W", "-f", "${Package} ${Version}, ", *packages],
                               capture_output=True, text=True).stdout
    except FileNotFoundError:
        found = ""
    return found.rstrip(", ") or "unknown versions"


def main():
    f = Figures(sys.argv[1])
    docs = pathlib.Path(sys.argv[2])
    docs.mkdir(exist_ok=True)
    before = sys.argv[3] if len(sys.argv) > 3 else None
    context = f.context
    instruction_set = context["instruction_set"]
    points = [(2**k, f(f"taps/{2**k}", "time domain"), f(f"taps/{2**k}", "fft"))
              for k in range(2, 14)]
    taps = crossover(points)
    plot(points, taps, docs / "cost-against-taps.svg")
    plot_cascade(f, docs / "cost-against-sections.svg")
    plot_rooms(f, points, docs / "cost-of-rooms.svg")
    add, multiply = f("iir/2", "add"), f("iir/2", "multiply")
    peak = 1 / f("fir/512", "peak")

    lines = ["# Performance", "",
             "Written by `scripts/benchmark`, which builds, measures and renews everything down to",
             "the last section. All figures come from one run of one program on one core.", ""]
    lines += table(["", ""], [
        ["CPU", f"{cpu_name()}, instruction set {instruction_set}"],
        ["Compiler", f"{context['compiler']}, release build"],
        ["Peers", peers()],
        ["Date", context["date"][:10]],
        ["Latency", f"{add:.2f} ns an addition, {multiply:.2f} ns a multiplication (float)"],
        ["Peak", f"{peak:.1f} float multiplications and as many additions per ns"],
    ])
    if instruction_set != "AVX-512":
        lines += ["", f"The CPU has no AVX-512: what is measured are the {instruction_set} kernels."
                  " Those for AVX-512 give the same",
                  "bits, but their speed is not measured here."]
    disturbed = sorted(g for g, b in f.groups.items() if b.get("quiet slices", 5) < 5)
    lines += ["", "Each figure and what it is compared with ran in turn, slice by slice, 101 times."
              " A figure is the",
              "median of the slices in which nobody else used the core, as a burst of arithmetic"
              " before and",
              "after each tells; " + ("no group lacked them." if not disturbed else
              "of all slices the first decile where there were none: " + ", ".join(disturbed) + "."),
              "",
              "## Time domain or FFT", "",
              "One mono channel, `MORVAX_FilterlongfirRun_API`: "
              + (f"from about {taps} taps on the FFT kind costs less." if taps
                 else "the costs do not cross."),
              "It delays its output by one hop, which the time domain does not.", "",
              "![Cost against taps](cost-against-taps.svg)", "",
              "Impulse responses of any length without latency, `MORVAX_ConvolutionRun_API`, in stereo:",
              "", "![Cost of long impulse responses](cost-of-rooms.svg)", "",
              "## The dearest call", "",
              "Calls of 256 frames. The FFT kinds run a transform block once enough frames have"
              " come, so a",
              "real-time user budgets for the dearest call, not for the mean.", ""]
    lines += dearest(f)
    lines += ["", "Convolution without latency:", ""]
    lines += dearest_rooms(f)
    lines += [""] + room_fades(f)
    lines += ["", "## Costs", "",
              "Tables of kernels (FIR, cascade, direct-form IIR, moving mean) time the kernel alone on"
              " floats, the",
              "tables of short calls and of records side by side whole calls with int16 in and out,"
              " and the table of",
              "builds has libraries that were compiled without CMake. So one filter has several"
              " figures.", ""] + costs(f)
    lines += ["", "![Cost against sections](cost-against-sections.svg)", ""]

    (docs / "speed-targets.md").write_text("\n".join(
        ["# Speed targets", "", "What the library is meant to reach, and whether the last run of"
         " `scripts/benchmark`, which writes this", "page, did.", "",
         f"Measured on {cpu_name()} on {context['date'][:10]}; a ratio is judged as printed.", ""]
        + targets(f, instruction_set, before)) + "\n")

    path = docs / "performance.md"
    old = path.read_text() if path.exists() else ""
    kept = old.split(MARKER, 1)[1] if MARKER in old else "\n"
    with tempfile.NamedTemporaryFile("w", dir=docs, delete=False) as new:
        new.write("\n".join(lines) + "\n" + MARKER + kept)
    pathlib.Path(new.name).chmod(0o644)
    pathlib.Path(new.name).replace(path)

    readme = docs.parent / "README.md"
    if readme.exists():
        before, rest = readme.read_text().split("<!-- speed -->\n")
        readme.write_text("\n".join(
            [before + "<!-- speed -->"] + shown_first(f) +
            ["", f"{cpu_name()} with {instruction_set}, one core; {context['date'][:10]}.", "<!-- end -->"])
            + rest.split("<!-- end -->")[1])


if __name__ == "__main__":
    main()

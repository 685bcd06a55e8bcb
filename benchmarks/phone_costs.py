#!/usr/bin/env python3
"""What the kernels cost on the cores of phones, into docs/performance.md.

usage: phone_costs.py BUILD_FOLDER DOCS_FOLDER

The inner loop of each kernel is taken from the arm64 code of GCC and clang and handed to llvm-mca.
The bound is what the loop's vector arithmetic alone would take: no loads, stores, moves or
shuffles. Whole calls are counted under qemu, instruction by instruction."""

import pathlib
import re
import shutil
import subprocess
import sys

MARKER = ("<!-- phone costs -->", "<!-- end of phone costs -->")
# llvm-mca has no model of its own for the A76 and the X1: these cores for servers are their siblings.
CORES = [("A55", "cortex-a55"), ("A76", "neoverse-n1"), ("X1", "neoverse-v1")]
COMPILERS = [("GCC", ["aarch64-linux-gnu-g++"]), ("clang", ["clang++", "--target=aarch64-linux-gnu"])]
OPTIONS = ["-O3", "-std=c++17", "-ffp-contract=off", "-DNDEBUG", "-fno-exceptions", "-fno-rtti"]
# The passes of the transforms as functions of their own, which tells their loops apart.
INLINE = {"GCC": ["-fno-inline-functions-called-once", "-fno-inline-functions",
                  "-fno-inline-small-functions"],
          "clang": ["-fno-inline-functions"]}
KERNELS = "modules/libJURN/filter/Filter_LIB/OKA_Filter/kernels/"
COMMON = "modules/libJURN/common/"
# Name, source, function, what one unit of work is: products of four-byte or eight-byte values, or
# bytes that the loop stores.
LOOPS = [
    ("FIR, float", KERNELS + "JURNfir.cpp", "fir", "products", "tap and sample"),
    ("FIR, double", KERNELS + "float_kernels.cpp", "fir", "products", "tap and sample"),
    ("cascade, up to 4 sections", KERNELS + "filterNOrNsSec.cpp", "cascade", 4, "frame"),
    ("four cascades of 1 section", KERNELS + "cascade_records.cpp", "run_records<1, 2, 4>", 2,
     "frame of one"),
    ("four cascades of 2 sections", KERNELS + "cascade_records.cpp", "run_records<2, 2, 4>", 2,
     "frame of one"),
    ("sections in double, 1", KERNELS + "sections_kernels.cpp", "(?:JURN_)?run_sections|run_channels", 8, "frame"),
    ("sections in double, 2", KERNELS + "sections_kernels.cpp", "run_pack<1, 2>", 8, "frame"),
    ("moving mean", KERNELS + "moving_sum.cpp", "mean_run", 4, "sample"),
    ("int16 to float", COMMON + "samples.cpp", "to_float", 4, "sample"),
    ("float to int16", COMMON + "samples.cpp", "to_short", 2, "sample"),
    ("transform, first pass", COMMON + "DFTs.cpp", "split_forward", 4, "value"),
    ("transform, radix 4", COMMON + "DFTs.cpp", "radix4_forward", 4, "value"),
    ("transform, last levels", COMMON + "DFTs.cpp", "complex_forward|forward|blocks128_forward", 4, "value"),
    ("inverse, radix 4", COMMON + "DFTs.cpp", "radix4_inverse", 4, "value"),
    ("inverse, last pass", COMMON + "DFTs.cpp", "split_inverse", 4, "value"),
    ("product of spectra", COMMON + "DFTs.cpp", "product", 4, "value"),
    ("sums of spectra", KERNELS + "convolution_kernels.cpp", "sum_chunks", "products", "product"),
]
ARITHMETIC = re.compile(r"^(f(add|sub|mul|neg|min|max|cm..|cvt\w*)|s?cvtf|[us]cvtf|add|sub|and|bsl|bif|bit"
                        r"|sq?xtn2?|sxtl2?|sshll2?|shl|sshr)\b")
MOVES = re.compile(r"^(fmov|mov|dup|ins|ext|zip.|uzp.|trn.|rev\d*|orr|tbl)\b")


def run(command, **options):
    return subprocess.run(command, check=True, text=True, capture_output=True, **options).stdout


def functions(assembly):
    """Name and lines of every function."""
    demangled = run(["c++filt"], input=assembly)
    name, body = None, []
    for line, plain in zip(assembly.splitlines(), demangled.splitlines()):
        label = re.match(r"^([\w$.]+):", line)
        if label and not label[1].startswith(".L"):
            if name:
                yield name, body
            name, body = plain.rsplit(":", 1)[0], []
        elif name:
            body.append(line.split("//")[0].rstrip())
    if name:
        yield name, body


def instructions(lines):
    return [line.strip() for line in lines if re.match(r"^\s+[a-z]", line)]


def loops(body):
    """The instructions of every innermost loop."""
    places = {m[1]: i for i, line in enumerate(body) if (m := re.match(r"^(\.L\w+):", line))}
    spans = []
    for i, line in enumerate(body):
        branch = re.match(r"^\s+(?:b\.?\w*|cbn?z|tbn?z)\s+(?:.*,\s*)?(\.L\w+)", line)
        if branch and places.get(branch[1], i) < i:
            spans.append((places[branch[1]], i))
    for first, last in spans:
        if not any(first <= a and b <= last and (a, b) != (first, last) for a, b in spans):
            code = instructions(body[first:last + 1])
            if not any(c.startswith(("bl\t", "bl ", "ret")) for c in code):
                yield code


def is_vector(code):
    return re.search(r"\bv\d+\.|\bq\d+\b", code) is not None


def is_arithmetic(code):
    return is_vector(code) and ARITHMETIC.match(code) is not None and not MOVES.match(code)


def stored_bytes(code):
    """What a loop stores, but for spilled registers."""
    sizes = {"q": 16, "d": 8, "s": 4, "h": 2, "x": 8, "w": 4}
    total = 0
    for c in code:
        m = re.match(r"^(stu?r|stp|st1)h?\s+(.*)\[(\w+)", c)
        if not m or m[3] in ("sp", "x29"):
            continue
        if m[1] == "st1":
            total += 16 * len(re.findall(r"v\d+\.", c)) if "}[" not in c else 8
        else:
            total += sum(sizes[r] for r in re.findall(r"\b([qdshxw])\d+\b", m[2]))
    return total


def work(code, unit):
    if unit == "products":
        return sum(4 if ".4s" in c else 2 for c in code if c.startswith("fmul") and is_vector(c))
    return stored_bytes(code) / unit


def mca(code, cpu):
    """Cycles of one iteration in the long run."""
    text = "\n".join(c for c in code) + "\n"
    report = run(["llvm-mca-19", "-mtriple=aarch64", f"-mcpu={cpu}", "-iterations=300", "-"],
                 input=text)
    return int(re.search(r"Total Cycles:\s+(\d+)", report)[1]) / 300


def bound(code, cpu):
    report = run(["llvm-mca-19", "-mtriple=aarch64", f"-mcpu={cpu}", "-"],
                 input="\n".join(c for c in code if is_arithmetic(c)) + "\n")
    return float(re.search(r"Block RThroughput:\s+([\d.]+)", report)[1])


def loop_costs(build):
    rows = []
    for compiler, command in COMPILERS:
        assembly = {}
        for name, source, function, unit, unit_name in LOOPS:
            if source not in assembly:
                assembly[source] = run(command + OPTIONS + INLINE[compiler] * ("DFTs" in source)
                                       + ["-S", "-o", "-", source])
            wanted = re.compile(rf"\b({function})(<[^(]*>)?\(")
            if "<" in function:
                wanted = re.compile(re.escape(function))
            candidates = [loop for f, body in functions(assembly[source]) if wanted.search(f)
                          for loop in loops(body) if work(loop, unit) > 0]
            if name.startswith("cascade"):  # five vector products a frame, none of them masked
                candidates = [c for c in candidates
                              if sum(i.startswith("fmul") and is_vector(i) for i in c)
                              == 5 * work(c, unit)]
            if name == "sections in double, 1":  # a step of four frames
                candidates = [c for c in candidates if work(c, unit) == 4]
            if name.startswith("transform, last levels"):  # the one loop that turns rows to columns
                candidates = [c for c in candidates if any(re.match("zip|trn", i) for i in c)]
            if not candidates:
                rows.append([name, compiler, "inlined"] + ["-"] * 8)
                continue
            code = max(candidates, key=lambda c: sum(map(is_arithmetic, c)))
            spills = sum(re.search(r"\[(sp|x29)\b", c) is not None for c in code)
            row = [name, compiler, unit_name, spills]
            for _, cpu in CORES:
                cycles, least = mca(code, cpu), bound(code, cpu)
                row += [f"{cycles / work(code, unit):.3g}", f"{least / cycles:.2f}"]
            rows.append(row)
    return rows


def instructions_of(program, kind, calls):
    """By the lines of a log that is never stored: it would have gigabytes."""
    command = ["qemu-aarch64", "-singlestep", "-d", "exec,nochain", str(program), kind, calls]
    with subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE) as process:
        return sum(line.startswith(b"Trace") for line in process.stderr)


def call_counts(build):
    """Instructions per sample of whole calls: the difference between runs of two and of one call."""
    scalar = ["-DJURN_PLAIN_VECTORS", "-fno-tree-vectorize", "-fno-tree-slp-vectorize"]
    builds = [("GCC", COMPILERS[0][1], []), ("scalar", COMPILERS[0][1], scalar)]
    if shutil.which("clang++"):
        builds.insert(1, ("clang", COMPILERS[1][1], []))
    files = [p for p in pathlib.Path("modules/libJURN").rglob("*.*")]
    sources = [str(p) for p in files if p.suffix == ".cpp"]
    counts = {}
    for name, command, flags in builds:
        program = build / f"phone_calls_{name}"
        if not program.exists() or any(p.stat().st_mtime > program.stat().st_mtime for p in files):
            run(command + OPTIONS + flags + ["-static", "-o", str(program),
                                             "benchmarks/phone_calls.cpp"] + sources)
        for line in run(["qemu-aarch64", str(program)]).splitlines():
            kind, frames = line.split("\t")
            if name == "scalar" and kind.startswith("convolution"):
                continue  # would take a quarter of an hour
            executed = [instructions_of(program, kind, calls) for calls in "12"]
            counts.setdefault(kind, {})[name] = (executed[1] - executed[0]) / int(frames)
    return [name for name, _, _ in builds], counts


def table(heads, rows):
    lines = [" | ".join(heads), " | ".join("---" for _ in heads)]
    return [f"| {line} |" for line in lines + [" | ".join(map(str, row)) for row in rows]]


def main():
    build, docs = map(pathlib.Path, sys.argv[1:3])
    build.mkdir(parents=True, exist_ok=True)
    lines = [MARKER[0], "", "## Phones", "",
             "Written by `scripts/phone-costs`; no phone was at hand. llvm-mca 19 tells the cycles"
             " of the inner",
             "loops from the code that GCC and clang emit for arm64, with data in the first cache. It"
             " has no",
             "model of the Cortex-A76 and the X1, so theirs are of the Neoverse N1 and V1, which are"
             " the same",
             "cores for servers. \"Of bound\" is the time that the loop's vector arithmetic alone"
             " would take on",
             "that core, without loads, stores and shuffles, over the time of the loop. \"Spills\" are"
             " accesses to",
             "the stack in the loop.", ""]
    heads = ["Loop", "Compiler", "Cycles per", "Spills"]
    for core, _ in CORES:
        heads += [f"{core}", "of bound"]
    lines += table(heads, loop_costs(build))
    names, counts = call_counts(build)
    lines += ["", "Instructions per frame of whole calls of 480 frames, and of blocks of convolutions, counted under qemu;",
              "\"scalar\" is the library without vectors, which was not counted for convolutions.", ""]
    lines += table(["Call"] + names, [[kind] + [f"{c[n]:.1f}" if n in c else "-" for n in names]
                                      for kind, c in counts.items()])
    lines += ["", MARKER[1]]
    path = docs / "performance.md"
    text = path.read_text()
    part = "\n".join(lines)
    if MARKER[0] in text:
        head, rest = text.split(MARKER[0], 1)
        text = head + part + rest.split(MARKER[1], 1)[1]
    else:
        text = text.rstrip() + "\n\n" + part + "\n"
    path.write_text(text)


if __name__ == "__main__":
    main()

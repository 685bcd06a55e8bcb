"""What the release build's object files tell: check_objects.py SOURCE_FOLDER OBJECTS...

No imported symbol but plain memory routines and the compiler's CPU detection, hence no allocation,
lock, input or output, exception or system call. The call graphs that GCC writes beside the objects
bound the stack of every function and of every chain of calls, by what the documents say."""

import pathlib
import re
import subprocess
import sys

ALLOWED = {
    "memcmp", "memcpy", "memmove", "memset",
    "__cpu_model", "__cpu_indicator_init",  # filled in by the compiler's run-time at program start
    "_GLOBAL_OFFSET_TABLE_",
}
DOCUMENTS = "docs/guide.md", "docs/reliability.md", "CONTRIBUTING.md"
STACK = re.compile(r"less than (\d+) KiB of\s+stack")
NODE = re.compile(r'node: \{ title: "([^"]*)" label: "([^"]*)"')
FRAME = re.compile(r"(\d+) bytes \(([\w,]*)\)")
EDGE = re.compile(r'edge: \{ sourcename: "([^"]*)" targetname: "([^"]*)"')


def imports(objects):
    defined, wanted = set(), set()
    for line in subprocess.run(["nm", *objects], capture_output=True, text=True,
                               check=True).stdout.splitlines():
        fields = line.split()
        if len(fields) == 2 and fields[0] in "Uw":
            wanted.add(fields[1])
        elif len(fields) == 3:
            defined.add(fields[2])
    return wanted - defined


def documented_stack(folder):
    bounds = set()
    for name in DOCUMENTS:
        bound, = STACK.findall(pathlib.Path(folder, name).read_text(encoding="utf-8"))
        bounds.add(int(bound) * 1024)
    bound, = bounds  # one and the same in all of them
    return bound


def main(folder, *objects):
    failed = False
    stack = documented_stack(folder)
    unexpected = imports(objects) - ALLOWED
    if unexpected:
        print("imported:", *sorted(unexpected))
        failed = True

    frames, calls = {}, {}
    for name in objects:
        with open(re.sub(r"\.o$", ".ci", name), encoding="utf-8") as file:
            text = file.read()
        for title, label in NODE.findall(text):
            usage = FRAME.search(label)  # functions of other files have none
            if usage:
                frames[title] = int(usage[1])
                if usage[2] == "dynamic":
                    print(f"{title}: no bound for its stack")
                    failed = True
        for source, target in EDGE.findall(text):
            calls.setdefault(source, set()).add(target)

    deepest = {}

    def depth(function, above=()):
        if function in above:
            raise SystemExit(f"{function} calls itself, so its stack has no bound")
        if function not in deepest:
            below = [depth(f, above + (function,)) for f in calls.get(function, ())]
            deepest[function] = frames.get(function, 0) + max(below, default=0)
        return deepest[function]

    for function in frames:
        depth(function)
    if not frames:
        raise SystemExit("no stack usage found")
    frame = max(frames, key=frames.get)
    chain = max(deepest, key=deepest.get)
    print(f"{len(frames)} functions; largest frame {frames[frame]} bytes, {frame}; "
          f"deepest chain {deepest[chain]} bytes, from {chain}")
    if deepest[chain] >= stack:
        print(f"more than {stack} bytes of stack")
        failed = True
    return failed


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))

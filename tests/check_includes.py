"""Fails on an include or import that points upward: front ends, files, engine, library; and on a
source that does not ask for exact arithmetic first, where other build systems compile it, too.

usage: check_includes.py [ROOT]
"""

import pathlib
import re
import sys

# From below to above. A source may include its own folder and those of lower rows.
LAYERS = [
    ["modules/libJURN/common"],
    ["modules/libJURN/Delay"],
    ["modules/libJURN/filter/Filter_LIB/OKA_Filter/kernels"],
    ["modules/libJURN/filter/Filter_LIB/OKA_Filter/records"],
    ["engine/design"],
    ["engine/streams"],
    ["files/recordings"],
    ["files/coefficients"],
    ["files/impulse_responses"],
    ["files/filters"],
    ["tools", "bindings/python", "bindings/java", "bindings/native", "bindings/swift", "plugins",
     "bindings/web"],
    ["web"],
]
# Headers that several layers include: they may include only what the lowest of these may.
SHARED = {"modules/libJURN/filter/Filter_LIB": 2, "engine": 4, "files": 6}
# Their sources begin with this include.
FIRST = {"modules": "exact_arithmetic.h", "engine": "exact.h", "files/coefficients": "exact.h",
         "bindings/native": "exact.h", "bindings/swift/native": "exact.h"}
PATHS = [".", "modules", "modules/libJURN/common", "modules/libJURN/Delay/Delay_LIB",
         "modules/libJURN/filter/Filter_LIB", "engine", "files", "tools/jurn-filter"]
LAYER = {folder: row for row, folders in enumerate(LAYERS) for folder in folders} | SHARED
INCLUDE = re.compile(r'^\s*#\s*include\s+["<]([^">]+)[">]|^\s*(?:import|export)\b[^\'"]*'
                     r'[\'"](\.[^\'"]+)[\'"]', re.MULTILINE)


def layer_of(path):
    """The folder of LAYER that a path lies in, or None."""
    return next((p.as_posix() for p in path.parents if p.as_posix() in LAYER), None)


def included(root, source, name):
    for folder in [source.parent, *map(pathlib.Path, PATHS)]:
        path = (root / folder / name).resolve()
        if path.is_file() and path.is_relative_to(root):
            return path.relative_to(root)
    return None


def main():
    root = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else pathlib.Path(__file__).parent.parent)
    root = root.resolve()
    wrong, seen = [], 0
    for top in ("modules", "engine", "files", "tools", "bindings", "plugins", "web"):
        for path in sorted((root / top).rglob("*")):
            source = path.relative_to(root)
            own = layer_of(source)
            if (own is None or {"node_modules", "dist", "build"} & set(source.parts)
                    or path.suffix not in (".h", ".c", ".cpp", ".inl", ".ts", ".mjs")):
                continue
            text = path.read_text()
            first = next((FIRST[p.as_posix()] for p in source.parents if p.as_posix() in FIRST), None)
            found = INCLUDE.search(text)
            if first and path.suffix == ".cpp" and (not found or pathlib.Path(found[1]).name != first):
                wrong.append(f'{source}: begins without #include "{first}"')
            for match in INCLUDE.finditer(text):
                target = included(root, source, match[1] or re.sub(r"\.js$", ".ts", match[2]))
                other = target and layer_of(target)
                if not other:
                    continue
                seen += 1
                if other != own and LAYER[other] + (other not in SHARED) > LAYER[own]:
                    wrong.append(f"{source}: includes {target}")
    print("\n".join(wrong) or f"{seen} includes, none points upward")
    return 1 if wrong or not seen else 0


if __name__ == "__main__":
    sys.exit(main())

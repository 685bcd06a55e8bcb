"""What is promised in words: docstrings, stubs, and the guide's chapter."""

import doctest
import inspect
import json
import os
import shutil
import subprocess
import sys
import warnings

import numpy as np
import pytest
from scipy import signal

import jurn
from jurn import batch

SOURCE = os.environ["JURN_SOURCE"]
PACKAGE = os.path.dirname(jurn.__file__)
PUBLIC = {name: getattr(jurn, name) for name in jurn.__all__ if name != "__version__"}
PUBLIC.update({"batch." + f.__name__: f for f in (batch.filter_folder, batch.write_manifest,
                                                  batch.read_manifest, batch.differences)})


@pytest.mark.parametrize("name", PUBLIC)
def test_the_examples_of_docstrings_give_what_they_say(name):
    text = inspect.getdoc(PUBLIC[name])
    test = doctest.DocTestParser().get_doctest(text, dict(vars(jurn)), name, None, 0)
    assert test.examples or "batch." in name, "without an example"
    output = []
    doctest.DocTestRunner().run(test, out=output.append)
    assert not output, "".join(output)


def test_everything_public_is_documented():
    for name, item in PUBLIC.items():
        members = vars(item).items() if inspect.isclass(item) else []
        for member, value in [(name, item), *members]:
            if not member.startswith("_") and (callable(value) or isinstance(value, property)):
                assert inspect.getdoc(value), f"{name}.{member}"


def test_the_chapter_of_the_guide_runs(tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)
    with open(os.path.join(SOURCE, "docs/python.md"), encoding="utf-8") as file:
        chapter = file.read()
    pieces = [part.split("```", 1)[0] for part in chapter.split("```python\n")[1:]]
    assert len(pieces) > 5
    names = {"np": np, "jurn": jurn}
    for piece in pieces:
        exec(compile(piece, "docs/python.md", "exec"), names)  # the snippets build on one another
    # The commands, but for the cluster, which test_batch.py has.
    commands = chapter.split("```sh\n")[1].split("```")[0].replace("--scheduler tcp://cluster:8786", "")
    for command in commands.replace("\\\n", "").replace("python3", f'"{sys.executable}"').splitlines():
        if " filtered" in command and "--overwrite" not in command:
            shutil.rmtree("filtered")
        done = subprocess.run(command, shell=True, capture_output=True, text=True)
        assert done.returncode == 0, command + done.stderr
        shutil.copy("filtered/manifest.tsv", "filtered.tsv")


def test_the_table_of_differences_from_scipy_holds():
    with open(os.path.join(SOURCE, "docs/python.md"), encoding="utf-8") as file:
        table = file.read().split("### Where it differs from SciPy")[1].split("\n\n")[2]
    names = {"S": [[0.5, 0, 0, 1, 0, 0]], "I": np.arange(9, dtype=np.int16), "F": np.ones(9, np.float32),
             "D": np.arange(9.0)}

    def value(expression, module):
        try:
            return str(eval(expression, {**names, **{f: getattr(module, f) for f in
                                                     ("lfilter", "sosfilt", "convolve")}}))
        except Exception as error:
            return type(error).__name__

    rows = [[cell.strip(" `") for cell in row.strip("|").split(" | ")] for row in table.splitlines()[2:]]
    assert len(rows) > 8
    for expression, theirs, ours in rows:
        assert (value(expression, signal), value(expression, jurn)) == (theirs, ours), expression


def test_the_example_runs_and_draws(tmp_path):
    program = os.path.join(SOURCE, "examples/python/what_the_phone_hears.py")
    done = subprocess.run([sys.executable, program, tmp_path], capture_output=True, text=True)
    assert done.returncode == 0, done.stderr
    assert "samples clipped" in done.stdout and (tmp_path / "phone.wav").exists()
    assert (tmp_path / "phone.png").read_bytes().startswith(b"\x89PNG")


TYPED = """
import numpy as np
import jurn

x = np.zeros(9, np.int16)
design = jurn.Design("fir", [1.0])
reveal_type(jurn.fir([1.0], x))  # signedinteger[numpy._typing._16Bit]
reveal_type(design.filter(x, 0))  # signedinteger[numpy._typing._16Bit]
reveal_type(jurn.sosfilt([[1.0]], x.astype(np.float32), zi=0))  # Tuple[numpy.ndarray
reveal_type(jurn.lfilter([1.0], 1, x.astype(np.float64)))  # floating[numpy._typing._64Bit]
reveal_type(jurn.Stream(design).process(x))  # signedinteger[numpy._typing._16Bit]
reveal_type(jurn.eq("HP 80", 48000).response().magnitude)  # floating[numpy._typing._64Bit]
s: str = jurn.fir([1.0], x)  # Incompatible types in assignment
t: str = jurn.lfilter([1.0], 1.0, x, zi=0)  # Incompatible types in assignment
u: str = jurn.convolve(x, [1.0])  # Incompatible types in assignment
v: str = design.filter([1.0])  # Incompatible types in assignment
jurn.Stream("HP 80")  # incompatible type "str"
"""


def test_arrays_of_other_libraries_give_the_same():
    program = os.path.join(SOURCE, "examples/python/any_library.py")
    done = subprocess.run([sys.executable, "-W", "error", program], capture_output=True, text=True)
    assert done.returncode == 0, done.stderr
    assert "librosa: (2, 353024) float32" in done.stdout


def mypy(*arguments):
    path = {**os.environ, "MYPYPATH": os.path.dirname(PACKAGE)}
    done = subprocess.run([sys.executable, "-m", *arguments], env=path, capture_output=True, text=True)
    return done.returncode, done.stdout + done.stderr


def test_the_package_is_typed_and_types_say_what_comes_out(tmp_path):
    (tmp_path / "typed.py").write_text(TYPED)
    code, said = mypy("mypy", "--strict", "--cache-dir", os.path.join(os.environ["JURN_BUILD_DIR"], "mypy_cache"),
                      tmp_path / "typed.py", PACKAGE)
    assert code == 1
    *lines, _ = said.splitlines()
    for number, line in enumerate(TYPED.splitlines(), 1):
        if "  # " in line:
            told = lines.pop(0)
            assert told.startswith(f"{tmp_path}/typed.py:{number}:") and line.split("  # ")[1] in told, said
    assert not lines, said


# pybind11's metaclass, which no stub can name; classes that only their makers make; and what modules
# of Python have imported, for types or in their own run.
NOT_SAID = r"""
jurn(\.[a-z_]+)?\.(Convolution|(Long|Float|_Recording)?Filter|MovingSum|_Reader|_Writer|_Running|_Setup)(\.__init__)?
jurn\.[a-z_]+\.(Iterable|Iterator|Sequence|field|Entry\._DT)
jurn\.(response\.Design|batch\.imported)
"""


def test_stubs_are_quiet(tmp_path):
    (tmp_path / "not_said").write_text(NOT_SAID)
    code, said = mypy("mypy.stubtest", "jurn", "--allowlist", tmp_path / "not_said",
                      "--ignore-unused-allowlist")
    assert code == 0, said
    for function in (*PUBLIC.values(), jurn.Stream.process, jurn.Filter.process, jurn.Convolution.run,
                     jurn.Filter.fir, jurn._core._prepare):
        if not isinstance(function, type):
            assert "(...)" not in str(inspect.signature(function))


def test_the_tutorial_runs_cell_by_cell(tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)
    pyplot = pytest.importorskip("matplotlib.pyplot")
    pyplot.switch_backend("Agg")
    with open(os.path.join(SOURCE, "docs/tutorial.ipynb"), encoding="utf-8") as file:
        cells = [cell for cell in json.load(file)["cells"] if cell["cell_type"] == "code"]
    assert len(cells) > 7 and not any(cell["outputs"] for cell in cells)
    names = {}
    with warnings.catch_warnings(record=True) as told:
        warnings.simplefilter("always")
        for cell in cells:
            exec(compile("".join(cell["source"]), "docs/tutorial.ipynb", "exec"), names)
    said = [str(w.message) for w in told if w.category is jurn.JurnWarning]
    assert len(said) == 2 and "off in float" in said[0] and "largest gain" in said[1]  # on the device
    assert names["filtered"].shape == names["music"].shape == names["live"].shape
    folder = os.environ.get("JURN_PICTURES", tmp_path)  # to look at
    sizes = []
    for number in pyplot.get_fignums():
        path = os.path.join(folder, f"tutorial-{number}.png")
        pyplot.figure(number).savefig(path)
        sizes.append(os.path.getsize(path))
    pyplot.close("all")
    assert len(sizes) == 3 and min(sizes) > 10000

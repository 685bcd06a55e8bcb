"""What is promised in words: docstrings, stubs, and the guide's chapter."""

import doctest
import inspect
import os
import subprocess
import sys

import numpy as np
import pytest
from scipy import signal

import jurn
from jurn import batch

SOURCE = os.environ["JURN_SOURCE"]
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


def test_stubs_fit_the_module_and_the_package_is_typed():
    check = [sys.executable, "-m", "mypy", "--strict", "--cache-dir",
             os.path.join(os.environ["JURN_BUILD_DIR"], "mypy_cache"),
             os.path.join(SOURCE, "bindings/python/jurn")]
    done = subprocess.run(check, capture_output=True, text=True)
    assert done.returncode == 0, done.stdout + done.stderr
    names = set(vars(jurn._core))
    for line in open(os.path.join(SOURCE, "bindings/python/jurn/_core.pyi"), encoding="utf-8"):
        if line.startswith(("class ", "def ")):
            name = line.split()[1].split("(")[0].rstrip(":")
            assert name in names or name.endswith("Stream"), name

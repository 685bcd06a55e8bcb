"""The wheel and the sdist, built from the project; the wheel installed into a new environment."""

import os
import subprocess
import sys
import tarfile
import zipfile

import pytest

SOURCE = os.environ["JURN_SOURCE"]
PIP = ["-m", "pip", "--quiet", "--disable-pip-version-check"]
ENVIRONMENT = {**os.environ, "PYTHONPATH": ""}
GRAFTED = ("modules", "engine", "files", "tools", "cmake", "bindings/python")


@pytest.fixture(scope="module")
def wheel(tmp_path_factory):
    folder = tmp_path_factory.mktemp("wheel")
    subprocess.run([sys.executable, *PIP, "wheel", "--no-build-isolation", "--no-deps", "--wheel-dir",
                    folder, "."], cwd=SOURCE, env=ENVIRONMENT, check=True)
    wheel, = folder.glob("jurn-*.whl")
    return wheel


def test_a_wheel_is_small_and_says_what_it_is(wheel, tmp_path):
    assert wheel.stat().st_size < 1_000_000
    with zipfile.ZipFile(wheel) as archive:
        archive.extractall(tmp_path)
    texts = {path.name: path.read_text("utf-8") for path in tmp_path.glob("*.dist-info/*")}
    for line in ("License: MIT", "Author: the JURN authors", "Requires-Python: >=3.9",
                 "Programming Language :: Python :: 3.11", "Requires-Dist: numpy"):
        assert line in texts["METADATA"], line
    assert "MIT License" in texts["LICENSE"]
    assert "jurn-batch = jurn.batch:command" in texts["entry_points.txt"]
    extension, = tmp_path.glob("jurn/_core*.so")
    symbols = subprocess.run(["nm", "-D", "--defined-only", extension], capture_output=True, text=True,
                             check=True).stdout.split("\n")[:-1]
    assert [line.split()[-1] for line in symbols] == ["PyInit__core"]


def test_a_wheel_installs_and_runs(wheel, tmp_path):
    subprocess.run([sys.executable, "-m", "venv", "--system-site-packages", tmp_path / "venv"],
                   check=True)
    python = tmp_path / "venv/bin/python"
    subprocess.run([python, *PIP, "install", "--no-index", "--no-deps", wheel], env=ENVIRONMENT,
                   check=True)
    code = ("import jurn, numpy as np, os; print(os.path.dirname(jurn.__file__));"
            "print(jurn.fir([0.5], np.array([8], np.int16))[0]);"
            "print(os.path.exists(os.path.join(os.path.dirname(jurn.__file__), 'py.typed')))")
    done = subprocess.run([python, "-c", code], cwd=tmp_path, env=ENVIRONMENT, check=True,
                          capture_output=True, text=True)
    folder, sample, typed = done.stdout.split()
    assert folder.startswith(str(tmp_path)) and (sample, typed) == ("4", "True")
    done = subprocess.run([tmp_path / "venv/bin/jurn-batch", "missing", "out", "--average", "3"],
                          cwd=tmp_path, env=ENVIRONMENT, capture_output=True, text=True)
    assert done.returncode == 3 and "no recordings" in done.stderr


def test_an_sdist_holds_all_that_the_package_is_built_from(tmp_path):
    before = sorted(os.listdir(SOURCE))
    subprocess.run([sys.executable, "setup.py", "--quiet", "sdist", "--dist-dir", tmp_path], cwd=SOURCE,
                   env={**ENVIRONMENT, "PYTHONDONTWRITEBYTECODE": "1"}, check=True)
    assert sorted(os.listdir(SOURCE)) == before
    archive, = tmp_path.glob("jurn-*.tar.gz")
    with tarfile.open(archive) as tar:
        held = {name.split("/", 1)[1] for name in tar.getnames() if "/" in name}
    assert {"LICENSE", "README.md", "PKG-INFO", "pyproject.toml", "setup.py", "CMakeLists.txt"} <= held
    for folder in GRAFTED:
        for path, folders, files in os.walk(os.path.join(SOURCE, folder)):
            folders[:] = [f for f in folders if f != "__pycache__"]
            place = os.path.relpath(path, SOURCE)
            assert {f"{place}/{file}" for file in files if not file.endswith(".pyc")} <= held, place

"""The wheel, built from the project and installed into a new virtual environment."""

import os
import subprocess
import sys

SOURCE = os.path.join(os.environ["JURN_SOURCE"], "bindings/python")


def test_a_wheel_installs_and_runs(tmp_path):
    pip = [sys.executable, "-m", "pip", "--quiet", "--disable-pip-version-check"]
    environment = {**os.environ, "PYTHONPATH": ""}
    subprocess.run([*pip, "wheel", "--no-build-isolation", "--no-deps", "--wheel-dir", tmp_path, "."],
                   cwd=SOURCE, env=environment, check=True)
    wheel, = tmp_path.glob("jurn-*.whl")
    subprocess.run([sys.executable, "-m", "venv", "--system-site-packages", tmp_path / "venv"],
                   check=True)
    python = tmp_path / "venv/bin/python"
    subprocess.run([python, "-m", "pip", "--quiet", "--disable-pip-version-check", "install",
                    "--no-index", "--no-deps", wheel], env=environment, check=True)
    code = ("import jurn, numpy as np, os; print(os.path.dirname(jurn.__file__));"
            "print(jurn.fir([0.5], np.array([8], np.int16))[0]);"
            "print(os.path.exists(os.path.join(os.path.dirname(jurn.__file__), 'py.typed')))")
    done = subprocess.run([python, "-c", code], cwd=tmp_path, env=environment, check=True,
                          capture_output=True, text=True)
    folder, sample, typed = done.stdout.split()
    assert folder.startswith(str(tmp_path)) and (sample, typed) == ("4", "True")

"""The scripts beside a busy package manager, in a checkout that was copied after it was built, and
outside of git; and what names files, options or steps that others decide: the package for Swift, the
recipes, the workflow."""

import os
import pathlib
import re
import shutil
import subprocess
import tempfile
import unittest

SCRIPTS = os.path.join(os.path.dirname(__file__), "..", "..", "scripts")


class ScriptsTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name

    def command(self, name, text):
        path = os.path.join(self.folder, name)
        with open(path, "w", encoding="ascii") as file:
            file.write("#!/bin/sh\n" + text)
        os.chmod(path, 0o755)

    def install(self, *packages, **variables):
        environment = {**os.environ, "PATH": self.folder + ":" + os.environ["PATH"], **variables}
        return subprocess.run([os.path.join(SCRIPTS, "install-packages"), *packages], env=environment,
                              capture_output=True, text=True, timeout=60)

    def test_waits_for_a_busy_package_manager(self):
        log = os.path.join(self.folder, "log")
        self.command("dpkg-query", 'case $4 in here) echo installed ;; *) exit 1 ;; esac\n')
        self.command("sudo", '"$@"\n')
        self.command("sleep", "exit 0\n")
        # Busy three times, then free.
        self.command("apt-get", f'echo "$@" >>{log}\n[ $(wc -l <{log}) -gt 3 ] && exit 0\n'
                                "echo 'E: Could not get lock /var/lib/apt/lists/lock' >&2; exit 100\n")
        done = self.install("here", "missing")
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertEqual(done.stderr.count("Another package manager is at work"), 1)
        with open(log, encoding="ascii") as file:
            self.assertEqual(file.read().splitlines(),
                             4 * ["-qq update"] +
                             ["-qq install -y --no-install-recommends missing"])
        self.command("apt-get", "echo 'E: Unable to locate package missing' >&2; exit 100\n")
        done = self.install("missing")
        self.assertEqual((done.returncode, done.stderr),
                         (1, "E: Unable to locate package missing\n"))
        self.assertEqual(self.install("here").returncode, 0)

    def test_names_packages_where_there_is_no_apt(self):
        done = self.install("one", "two", PATH=self.folder)
        self.assertEqual(done.returncode, 1)
        self.assertTrue(done.stderr.endswith("JURN_PACKAGES=there: one two\n"), done.stderr)
        done = self.install("one", "two", PATH=self.folder, JURN_PACKAGES="there")
        self.assertEqual((done.returncode, done.stdout + done.stderr), (0, ""))

    def test_swift_knows_every_file(self):
        root = pathlib.Path(SCRIPTS).resolve().parent
        package = (root / "Package.swift").read_text(encoding="utf-8")
        cmake = (root / "files/coefficients/CMakeLists.txt").read_text(encoding="utf-8")
        readers = {os.path.normpath("files/coefficients/" + name) for name in re.findall(r"^  (\S+\.cpp)", cmake, re.M)}
        texts = {path.relative_to(root).as_posix() for folder in ("modules/libJURN", "engine")
                 for ending in ("*.inl", "CMakeLists.txt") for path in (root / folder).rglob(ending)}
        for name, expected in ("readers", readers), ("texts", texts):
            listed = re.search(rf"let {name} = \[(.*?)\]", package, re.S)[1]
            self.assertEqual(set(re.findall('"(.+)"', listed)), expected, name)

    def test_recipes_switch_off_every_part(self):
        root = pathlib.Path(SCRIPTS).resolve().parent
        parts = re.findall(r"jurn_option\(JURN_BUILD_(\w+)", (root / "CMakeLists.txt").read_text(encoding="utf-8"))
        port = (root / "packaging/vcpkg/portfile.cmake").read_text(encoding="utf-8")
        self.assertEqual(sorted(re.findall(r"-DJURN_BUILD_(\w+)=OFF", port)), sorted(parts))
        recipe = (root / "packaging/conan/conanfile.py").read_text(encoding="utf-8")
        chosen = re.search(r"for part in \((.*?)\)", recipe)[1]
        self.assertEqual(sorted(re.findall(r"\w+", chosen)), sorted(parts))

    def test_workflow_has_every_step(self):
        root = pathlib.Path(SCRIPTS).resolve().parent
        workflow = (root / ".github/workflows/ci.yml").read_text(encoding="utf-8")
        run = (root / ".ci/run").read_text(encoding="utf-8")
        for step in re.findall("^(?:step |nice -n 19 scripts/)(.*?)(?: >|$)", run, re.M):
            if step != "checksums":  # whose rows are jobs of their own
                self.assertRegex(workflow, rf"(?m)[ -] scripts/{step}$|step: scripts/{step}$")

    def test_sources_outside_of_git(self):
        def sources(folder):
            return set(subprocess.run([folder / "scripts/sources"], check=True, capture_output=True,
                                      text=True).stdout.splitlines())
        root = pathlib.Path(SCRIPTS).resolve().parent
        if not (root / ".git").exists():
            self.skipTest("no checkout")
        copy = pathlib.Path(self.folder)
        for name in sources(root) | {"build/a", "build-b/c", "bindings/web/node_modules/d"}:
            (copy / name).parent.mkdir(parents=True, exist_ok=True)
            (copy / name).touch()
        shutil.copy(root / "scripts/sources", copy / "scripts")
        self.assertEqual(sources(copy), sources(root))

    def test_a_copied_build_folder_is_configured_afresh(self):
        old, new = (os.path.join(self.folder, name) for name in ("old", "new"))
        os.makedirs(old + "/scripts")
        shutil.copy(os.path.join(SCRIPTS, "forget-moved"), old + "/scripts")
        with open(old + "/CMakeLists.txt", "w", encoding="ascii") as file:
            file.write("cmake_minimum_required(VERSION 3.20)\nproject(x NONE)\n")

        def configure(folder):
            subprocess.run([folder + "/scripts/forget-moved"], check=True, capture_output=True)
            return subprocess.run(["cmake", "-S", folder, "-B", folder + "/build/release"],
                                  capture_output=True, text=True)
        self.assertEqual(configure(old).returncode, 0)
        shutil.copytree(old, new)
        broken = subprocess.run(["cmake", "-S", new, "-B", new + "/build/release"],
                                capture_output=True, text=True)
        self.assertIn("CMakeCache.txt", broken.stderr)
        self.assertEqual(configure(new).returncode, 0)
        cache = old + "/build/release/CMakeCache.txt"
        before = os.path.getmtime(cache)
        self.assertEqual(configure(old).returncode, 0)  # which is as it was
        self.assertEqual(os.path.getmtime(cache), before)


if __name__ == "__main__":
    unittest.main()

"""A file is the same filter in the tool, Python, GStreamer and Node: the same kind, the same bits, the
same refusal, the same warning."""

import contextlib
import io
import json
import os
import re
import subprocess
import tempfile
import unittest
import warnings
from pathlib import Path

import numpy as np
import soundfile
from scipy.io import wavfile

import jurn
import jurn.batch
from files_of_everyone import (NO_RECORDINGS, NO_ROOMS, RATE, READ, RECORDINGS, REFUSED, ROOM, ROOMS,
                               WARNED)

TOOL = os.environ["JURN_FILTER"]
SPEECH = "/usr/share/sounds/alsa/Front_Center.wav"
# Formats that need a library which is not compiled to WebAssembly.
NOT_IN_NODE = (".mat", ".json", ".yml", ".flac")
# Its taps are fewer where it has to run live, and its delay is latency there.
NOT_LIVE = ("graphic.txt",)
# Each front end has its own name for its own option.
REMEDIES = re.compile(r"; (--[a-z-]+|precision=)\S*( double| it)?( avoids it| keeps .*| may be .*)?$")


class Answer:
    def __init__(self, kind=None, samples=None, warned=(), refused=None, coefficients=None):
        self.kind, self.samples, self.refused = kind, samples, refused
        self.coefficients = coefficients  # as they run, of those that tell
        # Python filters with a design, which has no name.
        found = [REMEDIES.sub("", re.sub(r"^\w+\.\w+: ", "", text)) for text in warned]
        # The tool counts what clips in a recording; the others say beforehand that it may.
        self.warned = sorted(text for text in found if "signal would clip" not in text)


def tool(*arguments):
    """The samples, what is said of the file, and the refusal instead."""
    done = subprocess.run([TOOL, *arguments[:1], SPEECH, "tool.wav", "--overwrite", "-q",
                           *arguments[1:]], capture_output=True, text=True, check=False)
    said = re.findall(r"^jurn-filter: (?:warning: )?(.*)$", done.stderr, re.M)
    if done.returncode:
        return None, [], said[-1]
    # What became of this recording is no matter of the file.
    said = [text for text in said if not text.startswith(("tool.wav", "note: "))]
    return wavfile.read("tool.wav")[1], said, None


def gstreamer(*element, recording=SPEECH, decoder=("wavparse",)):
    with subprocess.Popen(
            ["gst-launch-1.0", "filesrc", "location=" + recording, "!", *decoder, "!", *element, "!",
             "wavenc", "!", "filesink", "location=gst.wav"], stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT, text=True) as running:
        try:
            said = running.communicate(timeout=30)[0]
        except subprocess.TimeoutExpired:
            # After an error before the first frame gst-launch itself may wait for ever.
            running.kill()
            said = running.communicate()[0]
    if running.returncode:
        return None, [], re.search(r"^ERROR: from element \S+: (.*)$", said, re.M)[1]
    said = re.findall(r"^WARNING: from element \S+: (.*)$", said, re.M)
    return soundfile.read("gst.wav", dtype="int16" if recording == SPEECH else "float64")[0], said, None


def by_tool(path, kind, precision):
    return Answer(kind, *tool(kind, "-c", path, "--precision", precision,
                              *(["--time-domain"] if kind == "fir" else [])))


def by_python(path, kind, precision):
    with warnings.catch_warnings(record=True) as caught:
        warnings.simplefilter("always")
        try:
            design = jurn.read_coefficients(path, RATE, kind=kind, precision=precision)
        except ValueError as error:
            return Answer(refused=str(error))
        samples = design.filter(wavfile.read(SPEECH)[1], precision=precision)
    runs = jurn.prepare(design, precision=precision).design
    return Answer(design.kind, samples, [str(w.message) for w in caught],
                  coefficients=np.concatenate([runs.b.ravel(), runs.a.ravel()]))


def by_gstreamer(path, kind, precision):
    names = {"fir": "fir", "iir": "iir", "sos": "sections", None: "automatic"}
    samples, said, refused = gstreamer("jurnfilter", f"location={path}", f"precision={precision}",
                                       f"kind={names[kind]}")
    # A live stream lets the filter ring out.
    end = len(wavfile.read(SPEECH)[1])
    return Answer(None, None if samples is None else samples[:end], said, refused)


def ask_node(cases, recordings=()):
    os.makedirs("node", exist_ok=True)
    Path("samples").write_bytes(wavfile.read(SPEECH)[1].tobytes())
    done = subprocess.run(["node", Path(__file__).with_name("node.mjs"), ".", "node"], check=True,
                          input=json.dumps({"rate": RATE, "cases": cases, "recordings": recordings}),
                          capture_output=True, text=True)
    return json.loads(done.stdout)


def by_node(cases, room=False):
    """The answers to many cases of one process: (name, kind or None, precision); taps may be those
    of a room, which convolve."""
    kinds = {"fir": "fir", "iir": "iir", "sos": "sections", None: None}
    asked = ask_node([{"name": name, "path": name, "precision": precision, "room": room,
                       **({"wanted": kinds[kind]} if kind else {})} for name, kind, precision in cases])
    back = {"fir": "fir", "iir": "iir", "sections": "sos"}
    for (name, _, _), answer in zip(cases, asked["answers"]):
        if "refused" in answer:
            yield Answer(refused=answer["refused"])
        else:
            yield Answer(back[answer["kind"]], np.fromfile("node/" + name, np.int16),
                         [f"{name}: {text}" for text in answer["warnings"]],
                         coefficients=answer["coefficients"])


class SameEverywhere(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        cls.addClassCleanup(os.chdir, os.getcwd())
        os.chdir(folder.name)
        everything = READ + REFUSED + WARNED + ROOMS + NO_ROOMS + RECORDINGS + NO_RECORDINGS
        for name, *_, content in everything:
            if callable(content):
                content(name)
            else:
                Path(name).write_text(content, encoding="utf-8")

    def answers(self, table, automatic, precision="double"):
        """Of every file: its name, the tool's answer, and those of the others by their names."""
        cases = [(name, None if automatic else kind, precision) for name, kind, _ in table]
        in_node = [case for case in cases if not case[0].endswith(NOT_IN_NODE)]
        node = dict(zip([name for name, _, _ in in_node], by_node(in_node)))
        for (name, kind, _), (_, wanted, _) in zip(table, cases):
            others = {"Python": by_python(name, wanted, precision)}
            if name not in NOT_LIVE:
                others["GStreamer"] = by_gstreamer(name, wanted, precision)
                if name in node:
                    others["Node"] = node[name]
            yield name, by_tool(name, kind, precision) if kind else others["Python"], others

    def test_files_are_the_same_filter(self):
        for precision in ("double", "int16"):
            for name, tool, others in self.answers(READ, True, precision):
                self.assertIsNone(tool.refused, name)
                for who, answer in others.items():
                    with self.subTest(file=name, precision=precision, by=who):
                        self.assertIsNone(answer.refused)
                        self.assertIn(answer.kind, (tool.kind, None))
                        np.testing.assert_array_equal(answer.samples, tool.samples)
                        self.assertEqual(answer.warned, tool.warned)
                if "Node" in others:
                    with self.subTest(file=name, precision=precision):  # by other compilers and C libraries
                        np.testing.assert_array_equal(others["Node"].coefficients,
                                                      others["Python"].coefficients)

    def test_what_cannot_run_is_refused_in_the_same_words(self):
        for name, tool, others in self.answers(REFUSED, False):
            self.assertIsNotNone(tool.refused, name)
            for who, answer in others.items():
                with self.subTest(file=name, by=who):
                    self.assertEqual(answer.refused, tool.refused)

    def test_what_runs_differently_is_warned_of_in_the_same_words(self):
        for name, kind, precision, content in WARNED:
            for _, tool, others in self.answers([(name, kind, content)], False, precision):
                self.assertTrue(tool.warned, name)
                for who, answer in others.items():
                    with self.subTest(file=name, by=who):
                        self.assertEqual(answer.warned, tool.warned)

    def test_recordings_are_the_same_samples_without_libsndfile(self):
        spellings = [("WAV", "PCM_U8"), ("AIFF", "PCM_S8"), ("AIFF", "PCM_U8"), ("RF64", "PCM_16")]
        spellings += [(form, kind) for form in ("WAV", "WAVEX", "AIFF") for kind in
                      ("PCM_16", "PCM_24", "PCM_32", "FLOAT", "DOUBLE")]
        spellings += [("AIFF", "PCM_16", "LITTLE")]
        wave = np.random.default_rng(2).uniform(-1, 1, (1001, 3))
        wave[:2] = [[1, -1, 0], [-1, 1, 1e-30]]
        names = []
        for i, (form, kind, *endian) in enumerate(spellings):
            names.append(f"{i}-{form}-{kind}.au")
            soundfile.write(names[-1], wave[:, :1 + i % 3], 44100, kind, *endian, format=form)
        soundfile.write("law.wav", wave, RATE, "ULAW")
        *found, law = ask_node([], names + ["law.wav"])["found"]
        self.assertIsNone(law)
        for i, (name, audio) in enumerate(zip(names, found)):
            with self.subTest(file=name):
                self.assertEqual(audio, {"rate": 44100, "channels": 1 + i % 3})
                expected = soundfile.read(name, always_2d=True)[0].T.astype(np.float32)
                np.testing.assert_array_equal(np.fromfile("node/" + name, np.float32), expected.ravel())

    def test_impulse_responses_are_the_same_room(self):
        for name, _ in ROOMS:
            with self.subTest(file=name):
                expected, said, _ = tool("convolve", "--ir", name, "--block", "480")
                samples, warned, _ = gstreamer("jurnconvolve", "block=480", f"location={name}")
                np.testing.assert_array_equal(samples, expected)
                self.assertEqual([said, warned], [[], []])
                np.testing.assert_allclose(jurn.read_response(name, RATE), ROOM, rtol=0,
                                           atol=1 / 32768)
        cases = [(name, "fir", "double") for name, _ in ROOMS if not name.endswith(NOT_IN_NODE)]
        for (name, *_), answer in zip(cases, by_node(cases, room=True)):
            with self.subTest(file=name, by="Node"):
                expected = tool("convolve", "--ir", name, "--block", "128", "--no-tail")[0]
                self.assertIsNone(answer.refused)
                np.testing.assert_array_equal(answer.samples, expected)
        for name, _ in NO_ROOMS:
            with self.subTest(file=name):
                *_, refused = tool("convolve", "--ir", name)
                self.assertEqual(gstreamer("jurnconvolve", f"location={name}")[2], refused)
                with self.assertRaises(ValueError) as raised:
                    jurn.read_response(name, RATE)
                self.assertEqual(str(raised.exception), refused)

    def test_recordings_are_filtered_alike(self):
        """By the tool and by jurn.batch into a folder, and by GStreamer."""
        os.mkdir("recordings")
        for name, *_ in RECORDINGS + NO_RECORDINGS:
            os.rename(name, "recordings/" + name)
        paths = ["recordings/" + name for name, *_ in RECORDINGS + NO_RECORDINGS]
        for tool, batch in ((["sos", "-c", "low.npy"], ["-c", "low.npy"]),
                            (["fir", "-c", "long.txt"], ["-c", "long.txt"]),
                            (["convolve", "--ir", "room.wav"], ["--ir", "room.wav"]),
                            (["average", "--length", "50"], ["--average", "50"])):
            by_tool, by_batch = (f"{who}-{tool[0]}" for who in ("tool", "batch"))
            done = subprocess.run([TOOL, tool[0], *paths, "--output-dir", by_tool, "-q", *tool[1:]],
                                  capture_output=True, text=True, check=False)
            self.assertEqual(done.returncode, 3)
            said = io.StringIO()
            with contextlib.redirect_stderr(said):
                self.assertEqual(jurn.batch.main(["recordings", by_batch, *batch]), 3)
            for name, *_ in RECORDINGS:
                with self.subTest(file=name, filter=tool[0]):
                    if name.endswith(".ogg"):  # which has a random number
                        np.testing.assert_array_equal(*(soundfile.read(f"{folder}/{name}")[0]
                                                        for folder in (by_batch, by_tool)))
                    else:
                        self.assertEqual(*(Path(folder, name).read_bytes()
                                           for folder in (by_batch, by_tool)))
            for name, _ in NO_RECORDINGS:
                refused = re.search(f"^jurn-filter: recordings/{name}: (.*)$", done.stderr, re.M)[1]
                self.assertRegex(said.getvalue(), f"{name}: {re.escape(refused)}")
        for name, samples, _ in RECORDINGS:
            if samples:
                with self.subTest(file=name, by="GStreamer"):
                    result, _, refused = gstreamer(
                        "jurnfilter", "location=low.npy", recording="recordings/" + name,
                        decoder=("decodebin", "!", "audioconvert", "dithering=none", "!",
                                 "audio/x-raw,format=" + samples))
                    self.assertIsNone(refused)
                    expected, _ = soundfile.read("tool-sos/" + name)
                    # Who writes 24 bits rounds the floats that GStreamer keeps.
                    np.testing.assert_allclose(result[:len(expected)], expected, rtol=0,
                                               atol=0.51 / 2**23 if "24" in name else 0)


if __name__ == "__main__":
    unittest.main()

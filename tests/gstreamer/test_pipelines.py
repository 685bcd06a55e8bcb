"""Whole pipelines, as people write them: errors, leaks, seeks, the document."""

import array
import importlib.util
import os
import re
import shutil
import subprocess
import tempfile
import unittest
import wave

TOOL = os.environ["JURN_FILTER"]
SPEECH = "/usr/share/sounds/alsa/Front_Center.wav"
MUSIC = "/usr/share/sonic-pi/samples/loop_garzul.flac"
RESPONSES = "/usr/share/jconvolver/config-files/"
BAND = RESPONSES + "octave-band/oct-48-1k.wav"
AT_44_KHZ = RESPONSES + "octave-band/oct-44-1k.wav"
DOCUMENT = os.path.join(os.path.dirname(__file__), "..", "..", "docs", "gstreamer.md")


def launch(*words, **environment):
    return subprocess.run(
        ["gst-launch-1.0", "-q", *words], capture_output=True, text=True, timeout=60,
        env={**os.environ, **environment})


def samples(path):
    with wave.open(path) as file:
        return file.getnchannels(), array.array("h", file.readframes(file.getnframes()))


class PipelineTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.addCleanup(os.chdir, os.getcwd())
        os.chdir(folder.name)

    @unittest.skipUnless(importlib.util.find_spec("gi"), "python3-gi is not installed")
    def test_after_a_seek_a_filter_starts_anew(self):
        import gi
        gi.require_version("Gst", "1.0")
        from gi.repository import Gst
        Gst.init(None)

        def play(path, element, seek_to=None):
            pipeline = Gst.parse_launch(f"filesrc location={path} ! wavparse ! {element} ! "
                                        "appsink name=sink sync=false max-buffers=1")
            sink = pipeline.get_by_name("sink")
            pipeline.set_state(Gst.State.PLAYING)
            if seek_to is not None:
                for _ in range(20):  # into the speech
                    self.assertIsNotNone(sink.emit("pull-sample"))
                self.assertTrue(pipeline.seek_simple(Gst.Format.TIME, Gst.SeekFlags.FLUSH, seek_to))
            heard = b""
            while (sample := sink.emit("pull-sample")) is not None:
                buffer = sample.get_buffer()
                heard += buffer.extract_dup(0, buffer.get_size())
            pipeline.set_state(Gst.State.NULL)
            return heard

        second = 48000
        with wave.open(SPEECH) as file, wave.open("rest.wav", "wb") as rest:
            file.setpos(second // 2)
            rest.setparams(file.getparams())
            rest.writeframes(file.readframes(file.getnframes()))
        for element in ('jurnfilter equaliser="LS Fc 200 Hz Gain 6 dB; PK Fc 3000 Hz Gain -4 dB Q 2"',
                        f"jurnconvolve gain=-12 location={BAND}", "jurnbinaural azimuth=30"):
            alone = play("rest.wav", element)
            self.assertGreater(len(alone), second // 2)
            self.assertEqual(play(SPEECH, element, Gst.SECOND // 2), alone, element)

    def test_errors_stop_a_pipeline_with_a_sentence(self):
        for words, said in [
            (["jurnfilter"], "no filter"),
            (["jurnfilter", "location=/nowhere.txt"], "/nowhere.txt"),
            (["jurnfilter", "equaliser=PK Fc 3000 Hz Gain -4 dB Q 2; XX Fc 5 Hz"], "XX"),
            (["jurnfilter", "coefficients=<<0.5,0.5>,<0.0,0.1>>"], "starts with 0"),
            (["jurnconvolve"], "no impulse response"),
            (["jurnconvolve", "location=hall.wav", "resample=true", "gain=-14"], "hall.wav"),
            (["jurnconvolve", "location=" + AT_44_KHZ], "44100"),
            (["jurnbinaural", "sofa=/nowhere.sofa"], "/nowhere.sofa"),
        ]:
            running = subprocess.Popen(
                ["gst-launch-1.0", "-q", "filesrc", "location=" + SPEECH, "!", "wavparse", "!", *words,
                 "!", "fakesink"], stderr=subprocess.PIPE, text=True)
            try:
                message = running.communicate(timeout=10)[1]
            except subprocess.TimeoutExpired:
                # After an error before the first frame gst-launch itself may wait for ever, whatever
                # the element: one run in fifty with "identity error-after=1".
                running.kill()
                message = running.communicate()[1]
            self.assertNotEqual(running.returncode, 0, words)
            self.assertIn(said, message, words)

    def test_the_document_is_followed_word_by_word(self):
        shutil.copy(MUSIC, "song.flac")
        shutil.copy(BAND, "hall.wav")
        with open("room.txt", "w", encoding="utf-8") as file:
            file.write("Filter 1: ON PK Fc 3000 Hz Gain -4 dB Q 2\n")
        with open(DOCUMENT, encoding="utf-8") as file:
            commands = re.findall(r"^    (gst-.*)$", file.read().replace("\\\n", ""), re.M)
        self.assertGreaterEqual(len(commands), 6)
        for command in commands:
            # Live ones without a server, from a source that ends.
            command = re.sub(r"\b(pipewire|pulse|jackaudio)src\b",
                             "audiotestsrc num-buffers=50 ! audio/x-raw,rate=48000", command)
            command = re.sub(r"\b(pipewire|pulse|jackaudio)sink\b", "fakesink", command)
            done = subprocess.run(["bash", "-c", command], capture_output=True, text=True, timeout=60)
            self.assertEqual((done.returncode, done.stderr), (0, ""), command)
            self.assertNotRegex(done.stdout, "WARNING", command)
            for name in re.findall(r"\S*out\.wav", command):
                self.assertGreater(max(samples(name.split("=")[1])[1]), 1000)

    @unittest.skipUnless(importlib.util.find_spec("gi"), "python3-gi is not installed")
    def test_the_examples_run(self):
        for name, recording in ("circling_voice", SPEECH), ("changing_equaliser", MUSIC):
            program = os.path.join(os.path.dirname(DOCUMENT), "../examples/gstreamer", name + ".py")
            done = subprocess.run(["/usr/bin/python3", program, recording, "out.wav"], capture_output=True,
                                  text=True, timeout=60)
            self.assertEqual((done.returncode, done.stderr), (0, ""), name)
            self.assertGreater(max(samples("out.wav")[1]), 1000, name)

    def test_setup(self):
        """The tool's samples; a latency for linear phase; and a sentence for what is none."""
        with open("apo.txt", "w", encoding="ascii") as file:
            file.write("Channel: L\nFilter: ON PK Fc 1000 Hz Gain -6 dB Q 1\nChannel: R\nPreamp: -3 dB\n")
        two_way = os.path.join(os.path.dirname(__file__), "../../examples/setups/two-way.yml")
        subprocess.run(["sox", SPEECH, "two.wav", "remix", "1", "1"], check=True)
        for setup, channels in (("apo.txt", 2), (os.path.abspath(two_way), 4)):
            tool = subprocess.run([TOOL, "setup", "two.wav", "tool.wav", "-c", setup, "--overwrite",
                                   "--no-tail"], check=True, capture_output=True, text=True)
            late = re.search(r"late by (\d+) frames", tool.stderr)
            late = int(late[1]) * channels if late else 0
            done = launch("filesrc", "location=two.wav", "!", "wavparse", "!", "jurnconvolve",
                          "setup=" + setup, "tail=false", "block=1024", "!", "wavenc", "!",
                          "filesink", "location=gst.wav")
            self.assertEqual(done.returncode, 0, done.stderr)
            heard, expected = (array.array("h", subprocess.run(
                ["sox", name, "-t", "s16", "-"], check=True, capture_output=True).stdout)
                for name in ("gst.wav", "tool.wav"))
            self.assertEqual(len(expected), channels * len(samples("two.wav")[1]) // 2)
            self.assertEqual(heard[late:], expected[:len(expected) - late], setup)
        with open("apo.txt", "w", encoding="ascii") as file:
            file.write("Channel: C\nPreamp: -3 dB\n")
        done = launch("filesrc", "location=two.wav", "!", "wavparse", "!", "jurnconvolve", "setup=apo.txt",
                      "!", "fakesink")
        self.assertIn("apo.txt:1:", done.stderr)

    def test_nothing_leaks(self):
        for element in (["jurnfilter", "equaliser=PK Fc 3000 Hz Gain -4 dB Q 2"],
                        ["jurnconvolve", "location=" + BAND],
                        ["jurnbinaural", "azimuth=30"]):
            done = launch("filesrc", "location=" + SPEECH, "!", "wavparse", "!", *element, "!",
                          "fakesink", GST_TRACERS="leaks", GST_DEBUG="GST_TRACER:7",
                          GST_DEBUG_NO_COLOR="1")
            self.assertEqual(done.returncode, 0, done.stderr)
            leaked = [line for line in done.stderr.splitlines() if ":: object-alive, " in line]
            self.assertEqual(leaked, [], element)


if __name__ == "__main__":
    unittest.main()

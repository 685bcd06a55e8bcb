"""`jurn-filter live` in a PipeWire of its own, without a sound card: the tool's samples, whatever the
quantum; files saved anew, broken, and of other kinds; other rates; a server that dies; the service.
With a number of minutes: its memory, while one file after the other takes the place of what runs.
"""

import os
import pty
import re
import select
import shlex
import shutil
import signal
import subprocess
import sys
import tempfile
import termios
import time
import warnings

import numpy as np
from scipy.io import wavfile
from scipy.signal import correlate

sys.path.insert(0, os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
from pipewire import Server, begin_a_session, is_node, wait_for  # noqa: E402

warnings.simplefilter("ignore", wavfile.WavFileWarning)  # of chunks that it does not know

TOOL = os.environ["JURN_FILTER"]
SOURCE = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
HALL = "/usr/share/jconvolver/config-files/octave-band/oct-48-1k.wav"
RATE = 48000
EQUALISER = "Preamp: -6 dB\nFilter 1: ON PK Fc 1000 Hz Gain -4 dB Q 1\nFilter 2: ON HP Fc 30 Hz\n"
CROSSOVER = """
devices: {samplerate: 48000}
mixers: {all: {channels: {in: 2, out: 2}, mapping: [{dest: 0, sources: [{channel: 0}]}]}}
filters: {high: {type: Conv, parameters: {type: Values, values: [0.5, -0.5]}}}
pipeline: [{type: Mixer, name: all}, {type: Filter, names: [high]}]
"""
SETTINGS = """
context.properties = { default.clock.allowed-rates = [ 44100 48000 ] default.clock.quantum = 1024 }
context.objects = [
  { factory = adapter
    args = { factory.name = support.null-audio-sink  node.name = cable
             media.class = Audio/Source/Virtual  object.linger = true
             audio.position = [ FL FR ] } }
]
"""


def run(*words, **more):
    return subprocess.run(words, check=True, capture_output=True, text=True, timeout=60, **more).stdout


def is_linked(source, sink):
    links = subprocess.run(["pw-link", "-l"], capture_output=True, text=True, timeout=20,
                           check=False).stdout
    ports = links.split(f"{source}:", 1)
    return len(ports) == 2 and f"|-> {sink}:" in ports[1].split("\n\n")[0]


class Live:
    """The tool, with what it says and prints."""

    def __init__(self, *words, name="JURN", leads_to="silence", seconds=600):
        self.words = words
        self.log = open(f"{name}.log", "w+", encoding="utf-8")
        self.process = subprocess.Popen([TOOL, "live", *words, "--name", name, "--check",
                                         str(seconds)],
                                        stdin=subprocess.DEVNULL, stdout=self.log,
                                        stderr=self.log)
        wait_for(lambda: self.process.poll() is not None or
                 (is_linked(name + ".output", leads_to) if leads_to else is_node(name)),
                 f"{words}: {self.said()}")

    def said(self):
        return read(self.log.name)

    def wait_to_say(self, text):
        wait_for(lambda: text in self.said(), f'"{text}" of {self.words}: {self.said()}')

    def end(self):
        """How many cycles of the graph were missed, as on a machine that is busy."""
        self.process.send_signal(signal.SIGINT)
        if self.process.wait(timeout=30) != 0:
            raise SystemExit(f"live: {self.words}: {self.said()}")
        self.log.close()
        return int(re.search(r"missed +(\d+) cycles", self.said())[1])


def noise(name, seconds, rate=RATE):
    """Whole cycles: pw-play drops a part of one at the end."""
    frames = int(seconds * rate) // 8192 * 8192
    samples = np.random.default_rng(1).uniform(-0.2, 0.2, (frames, 2))
    wavfile.write(name, rate, samples.astype(np.float32))


def fail(text):
    raise SystemExit("live: " + text)


def read(name):
    with open(name, encoding="utf-8") as file:
        return file.read()


def write(name, text):
    """As editors do: another file takes the place."""
    with open(name + ".new", "w", encoding="utf-8") as file:
        file.write(text)
    os.replace(name + ".new", name)


def play(name, to="JURN"):
    return subprocess.Popen(["pw-play", "--target", to, name])


def set_graph(key, value):
    run("pw-metadata", "-n", "settings", "0", f"clock.force-{key}", str(value))


def differing(heard, expected, late):
    """What was heard begins somewhere in silence; from then on every sample is the tool's."""
    heard, expected = wavfile.read(heard)[1], wavfile.read(expected)[1]
    lag = correlate(heard[:, 0].astype(float), expected[:, 0].astype(float), method="fft").argmax()
    lag = int(lag) - len(expected) + 1
    # One node may wake some cycles of silence after the other; the last block is still on its way.
    skipped = max(late - lag, 0)
    part = heard[lag + skipped:lag + len(expected) - late]
    wanted = expected[skipped:len(expected) - late]
    if len(part) < len(wanted) or expected[:skipped].any():
        print(f"lag {lag}, {len(heard)} and {len(expected)} frames", flush=True)
        return len(wanted)
    return int((part != wanted).any(1).sum())


def scene_same_samples(_):
    """Every sample is the tool's, whatever the quantum. A player may drop or repeat something when
    that changes, so a first node keeps what comes. On a busy machine cycles are missed between the
    two: one run of five has to be without."""
    noise("noise.wav", 4)
    write("nothing.txt", "Preamp: 0 dB\n")
    write("eq.txt", EQUALISER)
    for what, command in (("eq.txt", ["eq", "-c", "eq.txt"]),
                          (HALL, ["convolve", "--ir", HALL, "--block", "64", "--no-tail"])):
        for attempt in range(5):
            second = Live(what, "--record", "heard.wav", "--overwrite")
            first = Live("nothing.txt", "--target", "JURN", "--record", "came.wav", "--overwrite",
                         name="first", leads_to="JURN")
            player = play("noise.wav", "first")
            for quantum in [512, 1024, 256, 2048, 768] * 10:
                set_graph("quantum", quantum)
                time.sleep(0.03)
            try:
                player.wait(timeout=20)
            except subprocess.TimeoutExpired:
                player.kill()  # a graph that stalls with the quantum
            set_graph("quantum", 0)
            missed = first.end() + second.end()
            run(TOOL, command[0], "came.wav", "expected.wav", *command[1:], "--bits", "float",
                "--overwrite", "-q")
            other = differing("heard.wav", "expected.wav", 64)
            print(f"{what}: {other} other samples than the tool's, {missed} cycles missed",
                  flush=True)
            if other == 0:
                break
        if other:
            fail(f"{what} gives other samples than the tool")


def scene_file_changes(_):
    """Saved anew it fades in, broken it leaves what runs, and each is said once."""
    tone = 0.5 * np.sin(2 * np.pi * 440 / RATE * np.arange(7 * RATE))
    wavfile.write("tone.wav", RATE, np.stack([tone, tone], 1).astype(np.float32))
    write("gain.txt", "Preamp: 0 dB\n")
    live = Live("gain.txt", "--record", "heard.wav", "--overwrite")
    player = play("tone.wav")
    time.sleep(1)
    write("gain.txt", "Preamp: -12 dB\n")
    time.sleep(1)
    write("gain.txt", "Filter 1: ON PK Fc never Gain 3 dB Q 1\n")
    live.wait_to_say("gain.txt:1: ")
    live.wait_to_say("what ran before runs on")
    time.sleep(1)
    write("gain.txt", "Preamp: -6 dB\n")
    player.wait(timeout=30)
    missed = live.end()
    if live.said().count("never") != 1:
        fail("a broken file is not said once: " + live.said())
    heard = wavfile.read("heard.wav")[1][:, 0].astype(float)
    heard = heard[:np.flatnonzero(heard)[-1] - 8192]  # the player ends as it likes
    # Holes of missed cycles apart, a tone of 0.5 never steps by more than its slope.
    step = np.abs(np.diff(heard)).max()
    levels = [np.abs(heard[i:i + 2400]).max() for i in range(0, len(heard) - 2400, 2400)]
    found = [float(min(np.abs(np.array(levels) - 0.5 * 10 ** (gain / 20)))) for gain in (0, -12, -6)]
    print(f"file saved anew: largest step {step:.4f}, levels off by {max(found):.4f}", flush=True)
    if max(found) > 1e-3 or (missed == 0 and step > 1.05 * 0.5 * 2 * np.pi * 440 / RATE):
        fail("a file that is saved anew does not fade in")


def scene_rates_and_servers(server):
    """Another rate of the graph, and another server."""
    live = Live("eq.txt", "--record", "heard.wav", "--overwrite")
    player = play("tone.wav")
    time.sleep(1)
    for rate in (44100, 48000, 0):
        set_graph("rate", rate)
        time.sleep(1)
    player.wait(timeout=30)
    server.stop()
    live.wait_to_say("the server is gone")
    server.start()
    live.wait_to_say("is there again")
    wait_for(lambda: is_linked("JURN.output", "silence"), "the node on another server")
    run("pw-play", "--target", "JURN", "noise.wav")
    live.end()
    frames = int(re.search(r"frames +(\d+)", live.said())[1])
    print(f"rates and servers: {frames} frames", flush=True)
    if "ends where the rate changes to 44100 Hz" not in live.said() or frames < 7 * RATE:
        fail("another rate or another server ends it: " + live.said())


def scene_record_ends(_):
    """A file that can grow no more keeps what it has, and the filter runs on; one that exists is
    kept and ends the run."""
    limited = 'ulimit -f 1000; exec "$0" "$@"'  # KiB
    with open("limited.log", "w", encoding="utf-8") as log:
        live = subprocess.Popen(["bash", "-c", limited, TOOL, "live", "eq.txt", "--record",
                                 "ends.wav"], stdin=subprocess.DEVNULL, stderr=log)
    wait_for(lambda: is_linked("JURN.output", "silence"), "the node that records")
    run("pw-play", "--target", "JURN", "noise.wav")
    said = read("limited.log")
    runs_on = live.poll() is None and os.path.exists("ends.wav")
    live.send_signal(signal.SIGINT)
    code = live.wait(timeout=30)
    heard = wavfile.read("ends.wav")[1]
    second = Live("eq.txt", "--record", "ends.wav", leads_to=None)
    player = play("noise.wav")
    wait_for(lambda: second.process.poll() is not None, "the end of what cannot record")
    player.kill()
    print(f"record: {len(heard)} frames, then {code}", flush=True)
    if (not runs_on or code != 4 or "the record ends here" not in said or second.process.poll() != 4 or
            not 1000000 < heard.nbytes < 1024000 or not heard.any() or "--overwrite" not in second.said()):
        fail(f"the end of a record: {code}, {heard.nbytes} bytes, {said}, {second.said()}")


def scene_crossover(_):
    """At a rate that its taps are not for, nothing reaches the loudspeakers."""
    write("crossover.yml", CROSSOVER)
    set_graph("rate", 44100)
    live = Live("crossover.yml", "--record", "heard.wav", "--overwrite")
    run("pw-play", "--target", "JURN", "noise.wav")
    live.end()
    set_graph("rate", 0)
    rate, heard = wavfile.read("heard.wav")
    print(f"crossover at {rate} Hz: {len(heard)} frames of silence", flush=True)
    if rate != 44100 or len(heard) < rate or heard.any() or "for 48000 Hz" not in live.said():
        fail(f"a crossover lets pass {np.abs(heard).max()}: {live.said()}")


def scene_long_room(_):
    """Stereo of 96,000 taps in cycles of 64 frames."""
    decay = np.exp(-np.arange(96000) / 20000)[:, None]
    room = 0.01 * np.random.default_rng(2).normal(size=(96000, 2)) * decay
    wavfile.write("room.wav", RATE, room.astype(np.float32))
    live = Live("room.wav")
    set_graph("quantum", 64)
    run("pw-play", "--target", "JURN", "noise.wav")
    set_graph("quantum", 0)
    live.end()
    costs = " ".join(live.said().split("\n", 1)[1].split())
    print("96,000 taps in stereo: " + costs, flush=True)
    if float(re.search(r"share +([0-9.]+)", costs)[1]) > 20:  # 2 on a machine with nothing else
        fail("a long room takes " + costs)


def scene_microphone(_):
    """What a program records from it went through the filter: half of what the source gives."""
    write("half.txt", "Preamp: -6 dB\n")
    live = Live("half.txt", "--input", "--target", "cable", name="microphone", leads_to=None)
    recorder = subprocess.Popen(["pw-record", "--target", "microphone", "recorded.wav"])
    wait_for(lambda: is_linked("microphone", "pw-record"), "a link to the recorder")
    player = play("noise.wav", "0")  # to nothing
    for side in ("FL", "FR"):
        wait_for(lambda end=side: not subprocess.run(
            ["pw-link", f"pw-play:output_{end}", f"cable:input_{end}"], capture_output=True,
            timeout=20, check=False).returncode, "a player")
    player.wait(timeout=30)
    recorder.send_signal(signal.SIGINT)
    recorder.wait(timeout=30)
    live.end()
    peak = np.abs(wavfile.read("recorded.wav")[1]).max() / np.iinfo(np.int16).max
    print(f"microphone: noise of 0.2 comes as {peak:.4f}", flush=True)
    if abs(peak - 0.2 * 10 ** -0.3) > 1e-3:
        fail("the microphone is not filtered")


def scene_service(_):
    """What --install writes runs as it stands, and --uninstall leaves nothing. An install that fails
    leaves what there was, also a service of a name that has the same file."""
    os.makedirs("bin")
    with open("bin/systemctl", "w", encoding="utf-8") as file:
        file.write('#!/bin/sh\necho "$@" >>systemctl.log\n[ "$2" != "$FAILS" ]\n')
    os.chmod("bin/systemctl", 0o755)
    environment = dict(os.environ, PATH=os.path.abspath("bin") + ":" + os.environ["PATH"])
    write("50% of $HOME \"here\".txt", EQUALISER)
    run(TOOL, "live", "50% of $HOME \"here\".txt", "--name", "My room", "--gain", "-3",
        "--install", env=environment)
    unit = os.path.join("systemd", "user", "jurn-filter-my-room.service")
    command = re.search("^ExecStart=(.*)$", read(unit), re.MULTILINE)[1]
    words = shlex.split(command.replace("%%", "%").replace("$$", "$"))
    with subprocess.Popen(words) as service:
        wait_for(lambda: is_linked("My room.output", "silence"), command)
        service.send_signal(signal.SIGTERM)
    run(TOOL, "live", "--name", "My room", "--uninstall", env=environment)
    asked = read("systemctl.log")
    write("eq.txt", EQUALISER)
    folder, texts = os.path.dirname(unit), []
    for name, gain, fails, code in (("Küche", "1", "", 0), ("Köche", "2", "", 2),
                                    ("Küche", "3", "restart", 4), ("New", "4", "restart", 4)):
        done = subprocess.run([TOOL, "live", "eq.txt", "--name", name, "--gain", gain, "--install"],
                              capture_output=True, check=False, env=dict(environment, FAILS=fails))
        texts.append({file: read(os.path.join(folder, file)) for file in os.listdir(folder)})
        if done.returncode != code or len(texts[-1]) != 1 or texts[-1] != texts[0]:
            fail(f"{name}: ended with {done.returncode} and leaves {texts[-1]}")
    print("service:", asked.replace("\n", "; "), flush=True)
    if service.returncode != 0 or os.path.exists(unit) or "disable --now" not in asked:
        fail("the service: " + command + asked)


def scene_keys(_):
    """Keys on a terminal, and the line of levels; whatever ends it, the terminal is as it was."""
    for end in ("q", "\x03"):
        write("eq.txt", EQUALISER)
        pid, terminal = pty.fork()
        if pid == 0:
            os.execv(TOOL, [TOOL, "live", "eq.txt"])
        before = termios.tcgetattr(terminal)

        def wait_to_show(text):
            said, last = "", time.monotonic() + 30
            while text not in said:
                if time.monotonic() > last:
                    os.kill(pid, signal.SIGKILL)
                    fail(f"waited in vain for {text} in {said}")
                if select.select([terminal], [], [], 0.1)[0]:
                    said += os.read(terminal, 4096).decode()

        for key, shown in (("", "gain +0 dB"), ("-", "gain -1 dB"), ("b", "bypassed"),
                           ("b", "gain -1 dB"), ("b", "bypassed")):
            os.write(terminal, key.encode())
            wait_to_show(shown)
        write("eq.txt", CROSSOVER)  # of which the bypass ends
        wait_to_show("gain -1 dB")
        os.write(terminal, end.encode())
        wait_for(lambda: os.waitpid(pid, os.WNOHANG)[0], "the end by " + repr(end))
        after = termios.tcgetattr(terminal)
        os.close(terminal)
        if after != before:
            fail(f"leaves the terminal {after}, which was {before}")
    print("keys: ended twice", flush=True)


def scene_documents(_):
    """What documents, manual and help tell people to type: each runs a second, or installs."""
    text = "".join(read(os.path.join(SOURCE, name)) for name in ("docs/live.md", "README.md"))
    manual = read(os.path.join(SOURCE, "tools/jurn-filter/jurn-filter.1")).replace("\\", "")
    said = run(TOOL, "live", "--help")
    commands = set()
    for pattern, source in ((r"^    (jurn-filter live [^#\n]*)", text),
                            (r"^\.B (jurn-filter live .+)", manual),
                            (r"^  (jurn-filter live .+)", said)):
        found = re.findall(pattern, source, re.MULTILINE)
        commands.update(line.strip() for line in found)
        if not found:
            fail("no commands by " + pattern)
    write("ParametricEQ.txt", EQUALISER)
    write("voice.txt", "HP 90 linear\nPK 3000 3 Q 1\n")
    shutil.copy(os.path.join(SOURCE, "examples/setups/two-way.yml"), ".")
    os.symlink(TOOL, "bin/jurn-filter")
    environment = dict(os.environ, PATH=os.path.abspath("bin") + ":" + os.environ["PATH"])
    for command in sorted(commands, key=lambda line: "--uninstall" in line):
        line = command if "install" in command else command + " --check 1"
        done = subprocess.run(["bash", "-c", line], capture_output=True, text=True, timeout=60,
                              check=False, env=environment)
        print(command, flush=True)
        if done.returncode or "rror" in done.stderr:
            fail(command + ": " + done.stderr)


def soak(minutes):
    """Music without an end, and every second another filter, of another kind."""
    noise("minute.wav", 60)
    write("eq.txt", EQUALISER)
    write("quiet.txt", "Preamp: -12 dB\n")
    shutil.copy("eq.txt", "filter")
    live = Live("filter", seconds=60 * minutes + 60)
    player = play("minute.wav")
    resident, end = [], time.monotonic() + 60 * minutes
    while time.monotonic() < end:
        for file in ("quiet.txt", HALL, "eq.txt"):
            shutil.copy(file, "filter.new")
            os.replace("filter.new", "filter")
            time.sleep(1)
            if live.process.poll() is not None:
                fail("ended: " + live.said())
            with open(f"/proc/{live.process.pid}/status", encoding="ascii") as status:
                resident += [int(line.split()[1]) for line in status if line.startswith("VmRSS")]
            if player.poll() is not None:
                player = play("minute.wav")
    player.kill()
    live.end()
    quarter = len(resident) // 4
    # The least of some measurements, which lie within a fade or behind it.
    early, late = min(resident[quarter:2 * quarter]), min(resident[-quarter:])
    print(f"{len(resident)} files: {early / 1024:.1f} MiB after a quarter, {late / 1024:.1f} at the end, "
          f"at most {max(resident) / 1024:.1f};", *live.said().split("\n", 1)[1].split())
    if late - early > 1024 or "runs on" in live.said():
        fail(f"grew by {late - early} KiB: {live.said()}")


SCENES = [scene_same_samples, scene_file_changes, scene_rates_and_servers, scene_record_ends,
          scene_crossover, scene_long_room, scene_service, scene_microphone, scene_keys, scene_documents]


def main():
    with tempfile.TemporaryDirectory() as folder:
        os.chdir(folder)
        with Server(folder, SETTINGS) as server:
            if sys.argv[1:]:
                soak(float(sys.argv[1]))
            else:
                for scene in SCENES:
                    scene(server)


begin_a_session()
main()

"""Plays music through jurnconvolve and jurnbinaural into a PipeWire server of its own.

The server has no sound card: a sink of silence takes what comes. Buffers that never came back used to
stop such pipelines after a moment, so each has to come to its end, with all of its frames.
"""

import os
import subprocess
import sys
import tempfile
import time
import wave

RATE, SECONDS = 48000, 3
BAND = "/usr/share/jconvolver/config-files/octave-band/oct-48-1k.wav"
SINK = """
context.objects = [
  { factory = adapter
    args = { factory.name = support.null-audio-sink  node.name = silence  media.class = Audio/Sink
             object.linger = true  audio.position = [ FL FR ] } }
]
"""
# Alone: without the services of a desktop.
SESSION = ["dbus-run-session", "--"]


def write_music(path, channels):
    with wave.open(path, "wb") as file:
        file.setparams((channels, 2, RATE, 0, "NONE", ""))
        file.writeframes(bytes(range(0, 128, 2)) * (RATE * SECONDS * channels // 32))


def play(folder):
    failed = []
    for channels, element in ((2, f"jurnconvolve location={BAND}"), (1, "jurnbinaural azimuth=30"),
                              (2, "jurnfilter equaliser=\"PK 1k 3 Q 1\" gain=-4")):
        music = os.path.join(folder, "music%d.wav" % channels)
        write_music(music, channels)
        line = (f"gst-launch-1.0 -q filesrc location={music} ! wavparse ! {element} ! audioconvert ! "
                "pipewiresink")
        begin = time.monotonic()
        try:
            done = subprocess.run(line, shell=True, capture_output=True, text=True,
                                  timeout=10 * SECONDS, check=False)
            problem = done.stderr if done.returncode else None
        except subprocess.TimeoutExpired:
            problem = "did not come to its end"
        taken = time.monotonic() - begin
        if not problem and taken < SECONDS:
            problem = "was not played"
        print("%s: %s" % (element, problem or "%.1f seconds" % taken), flush=True)
        failed += [element] if problem else []
    return 1 if failed else 0


def main():
    with tempfile.TemporaryDirectory() as folder:
        settings = os.path.join(folder, "pipewire", "pipewire.conf.d")
        os.makedirs(settings)
        with open(os.path.join(settings, "silence.conf"), "w", encoding="utf-8") as file:
            file.write(SINK)
        os.chmod(folder, 0o700)
        os.environ.update(XDG_RUNTIME_DIR=folder, XDG_CONFIG_HOME=folder, XDG_STATE_HOME=folder)
        log = open(os.path.join(folder, "log"), "w+", encoding="utf-8")
        servers = []
        try:
            for program in (["pipewire"], ["wireplumber"]):
                servers.append(subprocess.Popen(program, stdout=log, stderr=subprocess.STDOUT))
                time.sleep(1)
            if any(server.poll() is not None for server in servers):
                log.seek(0)
                sys.exit("no server: " + log.read())
            result = play(folder)
        finally:
            for server in reversed(servers):
                server.terminate()
                server.wait()
        sys.exit(result)


if "DBUS_SESSION_BUS_ADDRESS" not in os.environ:
    os.execvp(SESSION[0], [*SESSION, sys.executable, *sys.argv])
main()

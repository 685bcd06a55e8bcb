"""A PipeWire of its own for tests: without a sound card, and without a desktop's services."""

import os
import subprocess
import sys
import time

SILENCE = """
context.objects = [
  { factory = adapter
    args = { factory.name = support.null-audio-sink  node.name = silence  media.class = Audio/Sink
             object.linger = true  audio.position = [ FL FR ] } }
]
"""


def begin_a_session():
    """The program anew, on a bus of its own, unless it has one."""
    if "DBUS_SESSION_BUS_ADDRESS" not in os.environ:
        os.execvp("dbus-run-session", ["dbus-run-session", "--", sys.executable, *sys.argv])


def wait_for(is_there, what):
    """At most 30 seconds, for a machine that is busy with other things."""
    end = time.monotonic() + 30
    while not is_there():
        if time.monotonic() > end:
            raise SystemExit(f"waited in vain for {what}")
        time.sleep(0.05)


def is_node(name):
    nodes = subprocess.run(["pw-cli", "ls", "Node"], capture_output=True, text=True, timeout=20,
                           check=False).stdout
    return f'"{name}"' in nodes


class Server:
    """PipeWire with a sink that swallows, "silence", what `settings` add, and its session manager; all
    that they write lies in `folder`."""

    def __init__(self, folder, settings=""):
        os.chmod(folder, 0o700)
        os.environ.update(XDG_RUNTIME_DIR=folder, XDG_CONFIG_HOME=folder, XDG_STATE_HOME=folder)
        of_server = os.path.join(folder, "pipewire", "pipewire.conf.d")
        os.makedirs(of_server)
        for name, text in (("silence", SILENCE), ("test", settings)):
            with open(os.path.join(of_server, name + ".conf"), "w", encoding="utf-8") as file:
                file.write(text)
        self.running = []

    def start(self):
        for program in ("pipewire", "wireplumber"):
            self.running.append(subprocess.Popen([program], stdout=subprocess.DEVNULL,
                                                 stderr=subprocess.DEVNULL))
        wait_for(lambda: is_node("silence"), "PipeWire")

    def stop(self):
        for program in reversed(self.running):
            program.kill()
            program.wait()
        self.running = []

    def __enter__(self):
        try:
            self.start()
        except BaseException:
            self.stop()
            raise
        return self

    def __exit__(self, *_):
        self.stop()

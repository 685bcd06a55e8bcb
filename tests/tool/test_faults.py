"""jurn-filter when the world fails: one line, an exit code, the old result intact, nothing left."""

import os
import signal
import subprocess
import threading
import time
import unittest

import numpy as np
from scipy.io import wavfile

from tool_test import SPEECH, TOOL, ToolTest, contents, read, write, write_numbers

COMPILER = os.environ["JURN_CC"]


class FaultTest(ToolTest):
    def setUp(self):
        super().setUp()
        write_numbers("one.txt", [[1]])
        wavfile.write("long.wav", 48000, np.arange(3_000_000, dtype=np.int32).astype(np.int16))

    def assert_keeps(self, name, arguments, *words, code=4):
        """The tool fails while a file of an earlier run has the name of the result."""
        write(name, b"old result")
        self.assert_fails([*arguments, "--overwrite"], *words, code=code)
        self.assertEqual(contents(name), b"old result")

    def compile(self, name, text):
        """A library of C, which `preloaded` puts before others."""
        write(name + ".c", text)
        subprocess.run([*COMPILER.split(), "-shared", "-fPIC", "-o", name + ".so", name + ".c"], check=True)

    def preloaded(self, name, arguments, **settings):
        settings = {key: str(value) for key, value in settings.items()}
        return subprocess.run([TOOL, *arguments, "-q"], capture_output=True, text=True,
                              env={**os.environ, **settings, "LD_PRELOAD": os.path.abspath(name + ".so")})

    @unittest.skipUnless(os.geteuid() == 0, "mounting a small file system needs root")
    def test_disk_full(self):
        os.makedirs("disk/small")  # whose time of writing is not compared
        subprocess.run(["mount", "-t", "tmpfs", "-o", "size=256k", "none", "disk/small"], check=True)
        self.addCleanup(subprocess.run, ["umount", os.path.abspath("disk/small")], check=True)
        for ending in ("wav", "flac", "aiff", "raw"):
            name = f"disk/small/out.{ending}"
            options = ["--bits", "16"] if ending != "raw" else []
            self.assert_keeps(name, ["fir", "long.wav", name, "-c", "one.txt", *options], name)
            self.assertEqual(os.listdir("disk/small"), [f"out.{ending}"])
            os.remove(name)
        # A file whose last bytes, not the first ones, find no room.
        wavfile.write("fits.wav", 48000, np.zeros(131_072 - 22, np.int16))
        self.run_tool("fir", "fits.wav", "disk/small/out.wav", "-c", "one.txt")
        os.remove("disk/small/out.wav")
        wavfile.write("almost.wav", 48000, np.zeros(131_072 - 21, np.int16))
        self.assert_fails(["fir", "almost.wav", "disk/small/out.wav", "-c", "one.txt"], "disk/small/out.wav", code=4)
        self.assertEqual(os.listdir("disk/small"), [])
        # Small tables are written at the end.
        write("disk/small/filler", bytes(256 * 1024))
        self.assert_fails(["level", SPEECH, "disk/small/level.csv"], "disk/small/level.csv", code=4)
        self.assertEqual(os.listdir("disk/small"), ["filler"])

    @unittest.skipIf("-fsanitize" in COMPILER, "a sanitizer wants to be loaded first")
    def test_no_failed_write_is_lost(self):
        """One write fails, whichever, and all others succeed: encoders do not always tell."""
        self.compile("fail", """
                #define _GNU_SOURCE
                #include <errno.h>
                #include <stdlib.h>
                #include <sys/syscall.h>
                #include <unistd.h>
                static long count;
                ssize_t pwrite64(int file, const void* from, size_t size, off_t at) {
                  if (++count == atol(getenv("FAILED_WRITE"))) return errno = EIO, -1;
                  return syscall(SYS_pwrite64, file, from, size, at);
                }
                ssize_t pwrite(int file, const void* from, size_t size, off_t at) {
                  return pwrite64(file, from, size, at);
                }""")
        for name in ("out.wav", "out.flac", "out.ogg"):
            failures = 0
            while failures < 1000:
                done = self.preloaded("fail", ["average", SPEECH, name, "--length", "2"],
                                      FAILED_WRITE=failures + 1)
                if done.returncode == 0:
                    break
                failures += 1
                self.assertEqual((done.returncode, os.path.exists(name)), (4, False), done.stderr)
                self.assertRegex(done.stderr, rf"\Ajurn-filter: {name}: [^\n]+\n\Z")
            self.assertGreater(failures, 1, name)

    @unittest.skipIf("-fsanitize" in COMPILER, "a sanitizer wants to be loaded first")
    def test_memory_used_up(self):
        """From one allocation on, whichever, all fail: one line, and nothing half done."""
        self.compile("scarce", """
                #define _GNU_SOURCE
                #include <link.h>
                #include <stdio.h>
                #include <stdlib.h>
                #include <string.h>
                extern void *__libc_malloc(size_t), *__libc_memalign(size_t, size_t);
                static long begun, count, left;
                static struct { char *from, *to; } code[8]; /* the tool's and libstdc++'s */
                static int add(struct dl_phdr_info* file, size_t size, void* codes) {
                  if (*file->dlpi_name && !strstr(file->dlpi_name, "libstdc++")) return 0;
                  for (int i = 0; i < file->dlpi_phnum; ++i)
                    if ((file->dlpi_phdr[i].p_flags & PF_X) && *(int*)codes < 8) {
                      code[*(int*)codes].from = (char*)file->dlpi_addr + file->dlpi_phdr[i].p_vaddr;
                      code[*(int*)codes].to = code[*(int*)codes].from + file->dlpi_phdr[i].p_memsz;
                      ++*(int*)codes;
                    }
                  return 0;
                }
                /* libsndfile and libmysofa fall where they get no memory: they are spared. */
                static int fails(char* caller) {
                  for (int i = 0; begun && i < 8; ++i)
                    if (caller >= code[i].from && caller < code[i].to) return ++count > left;
                  return 0;
                }
                void* malloc(size_t n) {
                  return fails(__builtin_return_address(0)) ? 0 : __libc_malloc(n);
                }
                void* aligned_alloc(size_t to, size_t n) {
                  return fails(__builtin_return_address(0)) ? 0 : __libc_memalign(to, n);
                }
                __attribute__((constructor)) static void begin(void) {
                  int codes = 0;
                  left = atol(getenv("ALLOCATIONS"));
                  dl_iterate_phdr(add, &codes);
                  begun = 1;
                }
                __attribute__((destructor)) static void end(void) {
                  begun = 0;
                  FILE* file = fopen("count", "w");
                  fprintf(file, "%ld", count);
                  fclose(file);
                }""")
        write_numbers("taps.txt", np.hanning(9001)[None] / 4500)
        random = np.random.default_rng(5)
        before = sorted(os.listdir())
        for arguments in (["eq", SPEECH, "out.flac", "PK 1000 -6 Q 1"], ["level", SPEECH, "out.csv"],
                          ["fir", SPEECH, "out.wav", "-c", "taps.txt"],
                          ["convolve", SPEECH, "out.wav", "--ir", "taps.txt", "--gain", "-3"],
                          ["binaural", SPEECH, "out.wav", "--azimuth", "30"]):
            done = self.preloaded("scarce", arguments, ALLOCATIONS=10**9)
            self.assertEqual(done.returncode, 0, done.stderr)
            os.remove(arguments[2])
            whole = int(contents("count"))
            # The command line alone takes thousands; the last ones are where files are open.
            for allocations in sorted({*random.integers(500, whole, 4), *random.integers(whole - 300, whole, 10)}):
                done = self.preloaded("scarce", arguments, ALLOCATIONS=allocations)
                self.assertEqual((done.returncode, done.stderr), (3, "jurn-filter: not enough memory\n"),
                                 (arguments, allocations))
                self.assertEqual(sorted({*os.listdir()} - {"count"}), before, (arguments, allocations))

    @unittest.skipIf("-fsanitize" in COMPILER, "a sanitizer takes more than is left")
    def test_no_room_for_threads(self):
        """One thread does all the work, and says what those would have said."""
        write_numbers("unstable.txt", [[1], [1, -2]])
        said = [self.shell(f"{limits}jurn iir {SPEECH} -c unstable.txt --output-dir out --overwrite -q")[1]
                for limits in ("", "ulimit -s 8000000 -v 4000000; ")]
        self.assertEqual((said[0], said[0].count("warning")), (said[1], 2))

    def test_unreadable(self):
        arguments = ["fir", "secret.wav", "out.wav", "-c", "one.txt"]
        subprocess.run(["cp", SPEECH, "secret.wav"], check=True)
        os.chmod("secret.wav", 0)
        if os.geteuid() != 0:  # root reads everything
            self.assert_keeps("out.wav", arguments, "secret.wav", "denied", code=3)
        os.remove("secret.wav")
        os.mkdir("secret.wav")
        self.assert_keeps("out.wav", arguments, "secret.wav", "directory", code=3)
        # /proc/self/mem opens, but its first page cannot be read.
        self.assert_keeps("out.wav", ["fir", SPEECH, "out.wav", "-c", "/proc/self/mem"],
                          "/proc/self/mem", code=3)

    def test_growing(self):
        """Samples appended while the tool reads are not part of the recording, or are read whole."""
        content = contents("long.wav")
        stop = threading.Event()

        def grow():
            with open("long.wav", "ab") as file:
                while not stop.is_set():
                    file.write(bytes(65536))
                    file.flush()
                    time.sleep(0.001)

        writer = threading.Thread(target=grow)
        writer.start()
        try:
            self.run_tool("fir", "long.wav", "out.wav", "-c", "one.txt")
        finally:
            stop.set()
            writer.join()
        self.assertEqual(read("out.wav")[1].tobytes(), content[44:])

    def start(self, output):
        """The tool in the middle of a stream that goes on for ever."""
        folder = os.path.dirname(output) or "."
        before = len(os.listdir(folder))
        running = subprocess.Popen([TOOL, "fir", "-", output, "--overwrite", "--raw", "48000,1", "-c",
                                    "one.txt"], stdin=subprocess.PIPE, stderr=subprocess.PIPE)
        running.stdin.write(bytes(1 << 20))
        running.stdin.flush()
        for _ in range(500):
            if len(os.listdir(folder)) > before:
                return running
            time.sleep(0.01)
        self.fail("the tool wrote nothing")
        return None

    def finish(self, running, code, *words):
        _, message = running.communicate(timeout=60)
        self.assertEqual(running.returncode, code, message)
        self.assertRegex(message.decode(), r"\Ajurn-filter: [^\n]+\n\Z")
        for word in words:
            self.assertIn(word, message.decode())

    def test_signal_keeps_the_old_result(self):
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            write("out.wav", b"old result")
            before = os.listdir()
            running = self.start("out.wav")
            running.send_signal(number)
            self.finish(running, 130, "interrupted")
            self.assertEqual(os.listdir(), before)
            self.assertEqual(contents("out.wav"), b"old result")

    def test_folder_vanishes(self):
        os.mkdir("folder")
        running = self.start("folder/out.wav")
        os.rename("folder", "elsewhere")
        self.finish(running, 4, "folder/out.wav")
        self.assertFalse(os.path.exists("folder"))
        for name in os.listdir("elsewhere"):
            self.assertTrue(name.startswith(".") and name.endswith(".part"), name)
        os.mkdir("folder")
        running = self.start("folder/out.wav")
        for name in os.listdir("folder"):
            os.remove("folder/" + name)
        os.rmdir("folder")
        self.finish(running, 4, "folder/out.wav")


if __name__ == "__main__":
    unittest.main()

"""Folders of recordings: the manifest, what has changed, and a cluster that loses a worker."""

import hashlib
import os
import shutil
import signal
import sys
import time

import numpy as np
import pytest
import soundfile

import jurn
from jurn import batch

SOUNDS = "/usr/share/sounds/alsa"
TAPS = [0.5, 0.25, 0.25]


@pytest.fixture
def folder(tmp_path):
    shutil.copytree(SOUNDS, tmp_path / "in/speech")
    shutil.copy("/usr/share/sonic-pi/samples/loop_safari.flac", tmp_path / "in")
    (tmp_path / "in/notes.txt").write_text("no recording")
    np.savetxt(tmp_path / "taps.txt", TAPS, fmt="%r")
    return tmp_path


def half(x, rate):
    return jurn.fir(TAPS, x, axis=0)


def test_results_and_manifest_say_what_was_filtered(folder, capsys):
    arguments = [str(folder / "in"), str(folder / "out"), "-c", str(folder / "taps.txt")]
    assert batch.main(arguments) == 0
    entries = batch.read_manifest(folder / "out/manifest.tsv")
    assert [e.name for e in entries][:2] == ["loop_safari.flac", "speech/Front_Center.wav"]
    assert len(entries) == len(os.listdir(SOUNDS)) + 1
    for entry in entries[:2]:
        x = soundfile.read(folder / "in" / entry.name, dtype="int16")[0]
        y = soundfile.read(folder / "out" / entry.name, dtype="int16")[0]
        np.testing.assert_array_equal(y, jurn.fir(TAPS, x, axis=0))
        assert entry.sha256 == hashlib.sha256(y.tobytes()).hexdigest()
        assert (entry.frames, entry.peak) == (len(y), str(np.abs(y.astype(int)).max()))

    assert batch.main(arguments) == 3 and "exists" in capsys.readouterr().err
    check = [*arguments, "--overwrite", "--jobs", "1", "--manifest", str(folder / "new")]
    old = str(folder / "out/manifest.tsv")
    assert batch.main([*check, "--check", old]) == 0
    assert "none has changed" in capsys.readouterr().out
    os.rename(folder / "in/speech/Noise.wav", folder / "in/speech/Hiss.wav")
    np.savetxt(folder / "taps.txt", [1.0], fmt="%r")
    assert batch.main([*check, "--check", old]) == 1
    lines = capsys.readouterr().out.splitlines()
    assert lines[0].startswith("loop_safari.flac: has changed, peak ")
    assert "speech/Hiss.wav: is new" in lines and "speech/Noise.wav: is missing" in lines


def test_one_bad_recording_keeps_no_other_from_its_result(folder, capsys):
    (folder / "in/broken.wav").write_bytes(b"RIFF....")
    assert batch.main([str(folder / "in"), str(folder / "out"), "--average", "5"]) == 3
    assert "broken.wav" in capsys.readouterr().err
    assert len(batch.read_manifest(folder / "out/manifest.tsv")) == len(os.listdir(SOUNDS)) + 1
    with pytest.raises(FileNotFoundError, match="no recordings"):
        batch.filter_folder(folder / "missing", folder / "out", half)
    with pytest.raises(ValueError, match="taps.txt, line 1"):
        batch.read_manifest(folder / "taps.txt")


def test_recordings_of_more_bits_keep_them(folder):
    x = np.random.default_rng(0).normal(size=(1000, 2)) / 10
    for name, subtype in [("a.wav", "PCM_24"), ("b.wav", "FLOAT")]:
        soundfile.write(folder / "in" / name, x, 44100, subtype=subtype)
    batch.filter_folder(folder / "in", folder / "out", half)
    for name, subtype, step in [("a.wav", "PCM_24", 2**-23), ("b.wav", "FLOAT", 1e-7)]:
        assert soundfile.info(folder / "out" / name).subtype == subtype
        y = soundfile.read(folder / "out" / name)[0]
        past = np.concatenate([np.zeros((2, 2)), x])
        ideal = 0.5 * x + 0.25 * past[1:-1] + 0.25 * past[:-2]
        assert np.abs(y - ideal).max() < 2 * step


def test_a_lost_worker_changes_nothing(folder):
    distributed = pytest.importorskip("distributed")
    batch.write_manifest(folder / "alone.tsv",
                         batch.filter_folder(folder / "in", folder / "alone", half, jobs=1))
    started, go_on = folder / "started", folder / "go_on"

    def held(x, rate):  # stops in the middle of the music until the worker has been killed
        if rate == 44100:
            started.write_text(str(os.getpid()))
            while not go_on.exists():
                time.sleep(0.01)
        return jurn.fir(TAPS, x, axis=0)

    def kill(entry):
        if not go_on.exists():
            while not (started.exists() and started.read_text()):
                time.sleep(0.01)
            os.kill(int(started.read_text()), signal.SIGKILL)
            (folder / "shared/.loop_safari.flac.99.part").touch()  # as if it had been writing
            go_on.touch()

    with distributed.LocalCluster(n_workers=2, threads_per_worker=1, processes=True,
                                  dashboard_address=None, silence_logs=False) as cluster:
        entries = batch.filter_folder(folder / "in", folder / "shared", held,
                                      scheduler=cluster.scheduler_address, done=kill)
    assert go_on.exists()
    batch.write_manifest(folder / "shared.tsv", entries)
    assert (folder / "shared.tsv").read_bytes() == (folder / "alone.tsv").read_bytes()
    assert sorted(os.listdir(folder / "shared")) == sorted(os.listdir(folder / "alone"))

"""One filter on arrays of soundfile and librosa and on tensors of torch, with the same result.

librosa and torch are left out where they are not installed.
"""

import importlib.util

import numpy as np
import soundfile

import jurn

recording = "/usr/share/sonic-pi/samples/loop_safari.flac"

# soundfile: (frames, channels), so that the frames are axis 0.
music, rate = soundfile.read(recording, dtype="float32")
equaliser = jurn.eq("HP 80; PK 3k -4 Q 2", rate)
filtered = equaliser.filter(music, axis=0)
print("soundfile:", filtered.shape, filtered.dtype)

# librosa: (channels, frames), which is the default of the functions.
if importlib.util.find_spec("librosa"):
    import librosa

    loaded, _ = librosa.load(recording, sr=None, mono=False)
else:
    loaded = np.ascontiguousarray(music.T)  # has the same layout
by_row = equaliser.filter(loaded)
assert np.array_equal(by_row.T, filtered)
stream = jurn.Stream(equaliser, channels=2, rate=rate)
blocks = [stream.process(loaded[:, i : i + 1024], axis=-1) for i in range(0, loaded.shape[1], 1024)]
assert np.array_equal(np.concatenate(blocks, axis=1), by_row)
print("librosa:", by_row.shape, by_row.dtype)

# torch: a tensor on the CPU and its array share their memory; the result is written to a tensor.
if importlib.util.find_spec("torch"):
    import torch

    tensor = torch.from_numpy(loaded)
    result = torch.empty_like(tensor)
    jurn.Stream(equaliser, channels=2, rate=rate).process(tensor.numpy(), result.numpy(), axis=-1)
    assert np.array_equal(result.numpy(), by_row)
    print("torch:", tuple(result.shape), result.dtype)

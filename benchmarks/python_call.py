"""What a call from Python costs above the call of the library, for blocks of 480 frames.

`run` makes the library's calls in one loop of C++, `process` one of them per call from Python; both
are measured in turn, and the smallest of many counts. Then SciPy's sosfilt beside ours, in double.
scripts/python benchmarks/python_call.py
"""

import time

import numpy as np
from scipy import signal

import jurn

FRAMES, CALLS, ROUNDS = 480, 200, 200


def smallest(*functions):
    best = [float("inf")] * len(functions)
    for _ in range(ROUNDS):
        for i, function in enumerate(functions):
            start = time.perf_counter()
            function()
            best[i] = min(best[i], (time.perf_counter() - start) / CALLS)
    return [1e6 * seconds for seconds in best]


def measure(name, stream, channels=1, dtype=np.int16):
    shape = (FRAMES * CALLS, channels) if channels > 1 else FRAMES * CALLS
    samples = np.random.default_rng(0).integers(-9999, 9999, shape).astype(dtype)
    out = np.empty_like(samples)
    blocks = list(zip(samples.reshape(CALLS, FRAMES, *samples.shape[1:]),
                      out.reshape(CALLS, FRAMES, *samples.shape[1:])))

    def in_one_loop():
        stream.run(samples, FRAMES, out)

    def into_arrays():
        process = stream.process
        for block, result in blocks:
            process(block, result)

    def new_arrays():
        process = stream.process
        for block, _ in blocks:
            process(block)

    library, given, new = smallest(in_one_loop, into_arrays, new_arrays)
    print(f"{name:34} {library:8.2f} {given - library:+8.2f} {new - library:+8.2f}")


print(f"{'µs a block of 480 frames':34} {'library':>8} {'out':>8} {'new':>8}")
measure("moving sum, 2 samples", jurn.MovingSum(2))
measure("FIR, 64 taps", jurn.Filter.fir(np.ones(64) / 64))
measure("8 sections, stereo", jurn.Filter.sos([[0.5, 0.1, 0.1, 1, -0.3, 0.2]] * 8, 2), 2)
measure("float IIR of order 2", jurn.FloatFilter.iir([0.5, 0.2], [1, -0.5]), dtype=np.float32)
measure("FFT, 1024 taps, stereo", jurn.LongFilter.fir(np.ones(1024) / 1024, channels=2), 2)

x = np.random.default_rng(0).standard_normal(100000)
print(f"\n{'ns a frame of doubles':34} {'SciPy':>8} {'jurn':>8}")
for sections in (1, 4, 16):
    sos = signal.butter(2 * sections, 0.1, output="sos")
    times = smallest(lambda: signal.sosfilt(sos, x), lambda: jurn.sosfilt(sos, x))
    theirs, ours = (1000 * CALLS * t / len(x) for t in times)
    print(f"{f'{sections} sections':34} {theirs:8.2f} {ours:8.2f}")

"""The objects for streams: any blocks, exact continuation, fades, threads, and wrong input."""

import copy
import pickle
import subprocess
import sys
import zlib

import numpy as np
import pytest

import jurn

RNG = np.random.default_rng(5)
TAPS = RNG.normal(size=40) / 8
SECTIONS = [[0.2, 0.3, 0.2, 1, -0.9, 0.4], [0.5, -0.4, 0.1, 1, 0.3, 0.2]]

MAKERS = {
    "fir": lambda: jurn.Filter.fir(TAPS),
    "fir stereo": lambda: jurn.Filter.fir(TAPS, channels=2),
    "iir": lambda: jurn.Filter.iir([0.5, 0.2], [1, -0.7, 0.1], channels=2),
    "sos": lambda: jurn.Filter.sos(SECTIONS, channels=2),
    "sos of order 4": lambda: jurn.Filter.sos([[0.5, 0.1, 0, 0, 0.1, 1, -0.5, 0.1, 0, 0.05]]),
    "average": lambda: jurn.Filter.average(300),
    "moving sum": lambda: jurn.MovingSum(30),
    "float fir": lambda: jurn.FloatFilter.fir(TAPS),
    "float iir": lambda: jurn.FloatFilter.iir([0.5, 0.2], [1, -0.7, 0.1]),
    "long time": lambda: jurn.LongFilter.fir(TAPS, channels=2, kind=jurn.Kind.FIR),
    "long time, two filters": lambda: jurn.LongFilter.fir(
        TAPS, TAPS[::-1], channels=2, kind=jurn.Kind.LONG_TWO_FILTERS
    ),
    "long fft": lambda: jurn.LongFilter.fir(TAPS, channels=2),
    "long fft, mono to stereo": lambda: jurn.LongFilter.fir(
        TAPS, TAPS[:9], kind=jurn.Kind.LONG_FFT_MONO_TO_STEREO
    ),
    "long fft, crossed": lambda: jurn.LongFilter.fir(
        TAPS, TAPS[:9], channels=2, kind=jurn.Kind.LONG_FFT_CROSSED
    ),
    "long iir": lambda: jurn.LongFilter.iir([0.5, 0.2], [1, -0.7, 0.1]),
    "convolution": lambda: jurn.Convolution(
        [(0, 0, TAPS), (0, 1, TAPS[:9]), (1, 1, TAPS[::-1])], inputs=2, outputs=2, block=32
    ),
}


def noise(filter_, frames=1600):
    channels = getattr(filter_, "channels", None) or filter_.inputs
    shape = frames if channels == 1 else (frames, channels)
    x = np.random.default_rng(8).integers(-20000, 20000, shape).astype(np.int16)
    return x.astype(np.float32) if isinstance(filter_, jurn.FloatFilter) else x


def blocks_of(filter_):
    return [32] * 50 if isinstance(filter_, jurn.Convolution) else [100, 1, 399, 500, 0, 600]


def run(filter_, x, sizes, in_place=False):
    parts = []
    for size in sizes:
        block, x = x[:size].copy(), x[size:]
        parts.append(filter_.process(block, block) if in_place else filter_.process(block))
    return np.concatenate(parts)


@pytest.mark.parametrize("make", MAKERS.values(), ids=MAKERS)
def test_a_stream_goes_on_exactly_however_it_is_cut_copied_and_stored(make):
    filter_ = make()
    x, sizes = noise(filter_), blocks_of(filter_)
    expected = make().run(x) if isinstance(filter_, jurn.Convolution) else make().run(x, 200)
    if not isinstance(filter_, (jurn.Filter, jurn.FloatFilter)) or filter_.kind != 0:
        np.testing.assert_array_equal(run(make(), x, sizes), expected)  # no output is set to 0
    else:
        expected = run(make(), x, sizes)
    if expected.shape == x.shape:
        np.testing.assert_array_equal(run(make(), x, sizes, in_place=True), expected)

    half = len(sizes) // 2
    done = sum(sizes[:half])
    run(filter_, x, sizes[:half])
    others = [filter_.copy(), copy.copy(filter_), copy.deepcopy(filter_),
              pickle.loads(pickle.dumps(filter_)), type(filter_).from_bytes(bytes(filter_))]
    for other in [*others, filter_]:
        np.testing.assert_array_equal(run(other, x[done:], sizes[half:]), expected[done:])
    filter_.reset()
    np.testing.assert_array_equal(run(filter_, x, sizes), expected)


def test_another_process_continues_a_pickled_stream():
    filter_ = jurn.Filter.sos(SECTIONS)
    x = noise(filter_)
    filter_.process(x[:700])
    code = ("import pickle, sys, numpy as np; f, x = pickle.load(sys.stdin.buffer); "
            "pickle.dump(f.run(x), sys.stdout.buffer)")
    done = subprocess.run([sys.executable, "-c", code], input=pickle.dumps((filter_, x[700:])),
                          stdout=subprocess.PIPE, check=True)
    np.testing.assert_array_equal(pickle.loads(done.stdout), filter_.run(x[700:]))


def sealed(data):
    return data + zlib.crc32(data).to_bytes(4, sys.byteorder)


def test_stored_streams_are_checked():
    filter_ = jurn.Filter.average(300)
    data = bytes(filter_)
    memi = 20 + 2156 * 2
    damaged = {
        "no stored filter": b"",
        "format 9": data[:4] + b"\t" + data[5:],
        "cut": data[:-1],
        "altered": data[:memi] + b"\xff\xff\xff\x7f" + data[memi + 4 :],
        "beyond the limits": sealed(data[:memi] + b"\xff\xff\xff\x7f" + data[memi + 4 : -4]),
    }
    for message, bad in damaged.items():
        with pytest.raises(ValueError, match=message):
            jurn.Filter.from_bytes(bad)
    with pytest.raises(ValueError, match="another kind"):
        jurn.MovingSum.from_bytes(data)


FADES = {
    "fir": (lambda taps: jurn.Filter.fir(taps, channels=2), TAPS[:13]),
    "long, time": (lambda taps: jurn.LongFilter.fir(taps, channels=2, kind=-3), TAPS[::-1]),
    "long, one set": (lambda taps: jurn.LongFilter.fir(taps, channels=2, kind=-1), TAPS[:5]),
    "convolution": (
        lambda taps: jurn.Convolution([(c, c, taps) for c in (0, 1)], inputs=2, outputs=2, block=400),
        TAPS[:20],
    ),
}


@pytest.mark.parametrize("make, new", FADES.values(), ids=FADES)
def test_a_fade_leads_from_one_filter_to_the_other_in_one_block(make, new):
    fading, old, goal = make(TAPS), make(TAPS), make(new)
    x = noise(old, 1200).reshape(3, 400, 2)
    for filter_ in (fading, old, goal):
        filter_.process(x[0])
    if isinstance(fading, jurn.Convolution):
        fading.fade_to([(0, 0, new), (1, 1, new)])
    else:
        fading.fade_to(TAPS[:3] if len(new) < 40 else TAPS)  # a change of mind costs no block
        fading.fade_to(new)
    fading = pickle.loads(pickle.dumps(fading))
    weight = np.linspace(0, 1, 400)[:, None]
    ideal = (1 - weight) * old.process(x[1]) + weight * goal.process(x[1])
    assert np.abs(fading.process(x[1]) - ideal).max() < 2  # truncated up to three times
    np.testing.assert_array_equal(fading.process(x[2]), goal.process(x[2]))


@pytest.mark.parametrize("name, same", [
    ("iir", [[0.5, 0.2], [1, -0.7, 0.1]]), ("sos", [SECTIONS]), ("float iir", [[0.5, 0.2], [1, -0.7, 0.1]]),
    ("float fir", [TAPS]), ("long iir", [[0.5, 0.2], [1, -0.7, 0.1]]),
])
def test_a_fade_to_the_same_filter_changes_no_sample(name, same):
    fading, steady = MAKERS[name](), MAKERS[name]()
    x = noise(steady)
    for filter_ in (fading, steady):
        filter_.process(x[:100])
    fading.fade_to(*same)
    np.testing.assert_array_equal(fading.process(x[100:500]), steady.process(x[100:500]))


def test_views_show_and_change_the_state():
    filter_ = jurn.Filter.fir([0, 0, 1.0], channels=2)
    filter_.process(np.array([[1, -1], [2, -2], [3, -3]], np.int16))
    np.testing.assert_array_equal(filter_.state["inputs"], [[2, 3], [-2, -3]])
    filter_.state["inputs"][0] = [70, 80]
    y = filter_.process(np.zeros((5, 2), np.int16))
    np.testing.assert_array_equal(y[:3], [[70, -2], [80, -3], [0, 0]])
    assert filter_.record["blen"] == 3 and not filter_.record.flags.writeable
    with pytest.raises(ValueError):
        filter_.b[0] = 2
    view = jurn.MovingSum(3).state["ring"]  # outlives its filter
    assert view.tolist() == [0, 0, 0]


def test_the_latency_is_where_an_impulse_comes_out():
    for make in MAKERS.values():
        filter_ = make()
        if type(filter_) is jurn.LongFilter and filter_.kind < -1:
            x = np.zeros_like(noise(filter_))
            x[0] = 32000
            y = filter_.run(x, 100)
            assert np.flatnonzero(y.reshape(len(x), -1).any(axis=1))[0] == filter_.latency
    assert jurn.LongFilter.fir(np.ones(1024)).latency == 1025


def test_arrays_of_any_layout_are_taken_and_outputs_may_overlap():
    x = noise(jurn.Filter.fir([1.0]), 1000)
    expected = jurn.Filter.fir(TAPS).process(x)
    strided = np.zeros(2000, np.int16)[::2]
    strided[:] = x
    read_only = x.copy()
    read_only.flags.writeable = False
    for block in (strided, read_only, x[::-1][::-1]):
        np.testing.assert_array_equal(jurn.Filter.fir(TAPS).process(block), expected)
    carried = pickle.loads(pickle.dumps(x))  # has a type of its own, equal to int16
    np.testing.assert_array_equal(jurn.FloatFilter.fir([0.5]).run(carried), x / 2)
    out = np.zeros((1000, 3), np.int16)
    assert jurn.Filter.fir(TAPS).process(x, out[:, 1]) is not None
    np.testing.assert_array_equal(out, np.stack([0 * x, expected, 0 * x], axis=1))
    memory = np.concatenate([x, [0]]).astype(np.int16)
    jurn.Filter.fir(TAPS).process(memory[:-1], memory[1:])
    np.testing.assert_array_equal(memory[1:], expected)


INT16 = np.zeros(10, np.int16)
WRONG = [
    (TypeError, "int32 of shape", lambda f: f.process(INT16.astype(np.int32))),
    (TypeError, "takes an array of int16", lambda f: f.process([1, 2])),
    (TypeError, "int16", lambda f: f.process(INT16.astype(">i2"))),
    (ValueError, r"\(5, 2\); takes int16 of shape", lambda f: f.process(INT16.reshape(5, 2))),
    (ValueError, "1 to 2154", lambda f: f.process(np.zeros(2155, np.int16))),
    (ValueError, "takes 1 frame or more", lambda f: f.run(INT16, 0)),
    (ValueError, "the result has 10 frames", lambda f: f.process(INT16, INT16[:9].copy())),
    (TypeError, "out: float32", lambda f: f.process(INT16, INT16.astype(np.float32))),
    (ValueError, "not finite", lambda f: f.fade_to([1, np.nan])),
    (ValueError, "1 to 1250", lambda f: f.fade_to(np.ones(1251))),
    (TypeError, "takes no a", lambda f: f.fade_to([1.0], [1.0])),
    (ValueError, "range of float32", lambda f: jurn.Filter.fir([1e39])),
    (ValueError, "one dimension", lambda f: jurn.Filter.fir([[1.0]])),
    (ValueError, "a0 is 2.0", lambda f: jurn.Filter.iir([1.0], [2.0, 1.0])),
    (ValueError, r"\(sections, 6\)", lambda f: jurn.Filter.sos([[1.0, 0, 0]])),
    (ValueError, "1 to 416", lambda f: jurn.Filter.sos([SECTIONS[0]] * 417)),
    (ValueError, "takes 1 or 2", lambda f: jurn.Filter.fir([1.0], channels=3)),
    (ValueError, "takes 1 to 256", lambda f: jurn.MovingSum(257)),
    (ValueError, "1 to 201", lambda f: jurn.FloatFilter.fir(np.ones(202))),
    (ValueError, "1 to 8192", lambda f: jurn.LongFilter.fir(np.ones(8193))),
    (ValueError, "-6 does not exist for 2", lambda f: jurn.LongFilter.fir([1.0], channels=2, kind=-6)),
    (TypeError, "one set of taps", lambda f: jurn.LongFilter.fir([1.0], [1.0])),
    (ValueError, "does not fade", lambda f: jurn.LongFilter.fir([1.0]).fade_to([1.0])),
    (ValueError, "exactly 256", lambda f: jurn.Convolution([(0, 0, [1.0])]).process(INT16)),
    (ValueError, "not one of the channels", lambda f: jurn.Convolution([(0, 1, [1.0])])),
    (TypeError, "tuples", lambda f: jurn.Convolution([1.0])),
    (ValueError, "was made for 1", lambda f: jurn.Convolution([(0, 0, [1.0])]).fade_to([(0, 0, [1, 2])])),
]


@pytest.mark.parametrize("error, message, call", WRONG, ids=[w[1] for w in WRONG])
def test_wrong_input_is_named(error, message, call):
    filter_ = jurn.Filter.fir([1.0, 0.0, 0.0])
    with pytest.raises(error, match=message):
        call(filter_)
    assert filter_.process(INT16).tolist() == [0] * 10  # and nothing has changed

"""The stream of any filter: any cut, type and channels, fades, copies, and threads; designs in words
and in pictures."""

import copy
import pickle
import threading

import numpy as np
import pytest
from scipy import signal

import jurn

RNG = np.random.default_rng(3)
TAPS = RNG.normal(size=40) / 8
ROOM = RNG.normal(size=3000) * np.exp(-np.arange(3000) / 500) / 20
EQ = jurn.eq("HP 80; PK 3k -4 Q 2", 48000)
IIR = jurn.Design("iir", *signal.butter(3, 0.2))
ROUTES = [(0, 0, ROOM), (0, 1, ROOM[:50]), (1, 1, ROOM[::-1])]
KINDS = {
    "fir": (jurn.Design("fir", TAPS), lambda x: jurn.fir(TAPS, x, 0)),
    "iir": (IIR, lambda x: jurn.lfilter(IIR.b, IIR.a, x, 0)),
    "sos": (EQ, lambda x: jurn.sosfilt(EQ.sos, x, 0)),
    "mean": (30, lambda x: jurn.moving_mean(30, x, 0)),
    "none": (None, lambda x: x),
    "routes": (ROUTES, lambda x: np.stack([
        jurn.convolve(x[:, 0], ROOM, tail=False),
        jurn.convolve(x[:, 0].astype(float), ROOM[:50], tail=False)
        + jurn.convolve(x[:, 1].astype(float), ROOM[::-1], tail=False)], 1)),
}
SIZES = [100, 1, 0, 399, 500, 2000, 257, 743]


def noise(dtype, channels=2, frames=4000):
    return np.random.default_rng(8).integers(-9000, 9000, (frames, channels)).astype(dtype)


def run(stream, x, sizes=SIZES, axis=0):
    parts = []
    for size in sizes:
        block, x = x[:size], x[size:]
        parts.append(stream.process(block.T, axis=-1).T if axis else stream.process(block))
    return np.concatenate(parts)


@pytest.mark.parametrize("dtype", [np.int16, np.float32, np.float64])
@pytest.mark.parametrize("kind", KINDS)
def test_a_stream_gives_what_the_whole_array_does_however_it_is_cut(kind, dtype):
    what, whole = KINDS[kind]
    x = noise(dtype)
    stream = jurn.Stream(what, 2)
    y = run(stream, x)
    assert y.dtype == dtype
    # Sums of float within a convolution are in another order; int16 rounds them to the same but for ties.
    error = 0 if kind != "routes" else 1 if dtype is np.int16 else 0.02
    assert np.abs(y.astype(float) - whole(x)).max() <= error
    stream.reset()
    again = run(stream, x, axis=-1)
    np.testing.assert_array_equal(again, y)
    other = jurn.Stream(what, 2)
    run(other, x[:500], SIZES[:4])
    stored = [jurn.Stream.from_bytes(other.to_bytes()), pickle.loads(pickle.dumps(other))]
    for twin in (other.copy(), copy.copy(other), copy.deepcopy(other), *stored, other):
        np.testing.assert_array_equal(run(twin, x[500:], SIZES[4:]), y[500:])


def test_bytes_hold_all_of_a_stream_and_are_checked():
    x = noise(np.float64)
    stream = jurn.Stream(ROUTES, 2, taps=3000)
    stream.process(x[:1111])
    stream.change(EQ, fade=1500)
    stream.process(x[1111:1400])
    twin = jurn.Stream.from_bytes(stream.to_bytes())
    for what in (repr, lambda s: (s.changing, s.latency, s.tail, s.precision), lambda s: s.process(x).tolist()):
        assert what(twin) == what(stream)
    data = bytes(jurn.Stream(30, 2, precision="int16"))
    for wrong in (b"", b"RIFF", data[:-1], data[:100], data[:99] + b"?" + data[100:], data + b"0",
                  bytes(jurn.Filter.average(3))):
        with pytest.raises(ValueError, match="^data: (is cut|was altered|no stream)"):
            jurn.Stream.from_bytes(wrong)


def test_many_channels_are_alike_and_one_is_flat():
    x = noise(np.float32, 70)
    stream = jurn.Stream(EQ, 70)
    np.testing.assert_array_equal(run(stream, x), jurn.sosfilt(EQ.sos, x, 0))
    mono = jurn.Stream(EQ)
    assert mono.process(x[:, 0].copy()).shape == (4000,) and mono.channels == 1
    y = jurn.Stream([(0, 0, [1.0]), (0, 1, [0.5])]).process([1.0, 2.0])
    np.testing.assert_allclose(y, [[1, 0.5], [2, 1]], rtol=1e-6)


@pytest.mark.parametrize("kind", KINDS)
def test_a_change_leads_to_any_kind_and_to_the_same_filter_changes_nothing(kind):
    x = noise(np.float64, frames=8000) / 9000
    what = KINDS[kind][0]
    stream, goal = jurn.Stream(EQ, 2, taps=3000), jurn.Stream(what, 2, taps=3000)
    stream.process(x)
    goal.process(x)
    for exact_from in (6000, 0):
        stream.change(what, fade=600)
        assert stream.changing
        y, expected = stream.process(x), goal.process(x)
        assert not stream.changing
        np.testing.assert_allclose(y[exact_from:], expected[exact_from:], atol=1e-5)


def test_sixteen_bits_are_the_device():
    x = noise(np.int16)
    for what, whole in [(EQ, lambda: jurn.sosfilt(EQ.sos, x, 0, precision="int16")),
                        (30, lambda: jurn.moving_mean(30, x, 0, precision="int16"))]:
        stream = jurn.Stream(what, 2, precision="int16")
        np.testing.assert_array_equal(run(stream, x), whole())
    with pytest.raises(TypeError, match="takes samples of int16"):
        stream.process(x.astype(float))


def test_what_a_stream_says_of_itself():
    late = jurn.Design("fir", [0, 0, 1.0], delay=2)
    assert (jurn.Stream(late).latency, jurn.Stream(late).tail) == (2, 2)
    assert 100 < jurn.Stream(EQ).tail < 480000 and jurn.Stream(ROUTES).tail > 2900
    stream = jurn.Stream(ROUTES, precision="double")
    assert repr(stream) == "<jurn.Stream: 3 routes, 2 channels, double>" and stream.outputs == 2
    with pytest.warns(jurn.JurnWarning, match="count as 0: 2"):
        y = jurn.Stream(3).process([1.0, np.nan, np.inf, 2.0])
    np.testing.assert_allclose(y, [1 / 3, 1 / 3, 1 / 3, 2 / 3])
    loud = jurn.Stream(jurn.Design("fir", [2.0]))
    with pytest.warns(jurn.JurnWarning, match="largest gain"):
        assert loud.process(np.array([20000], np.int16)).tolist() == [32767]
    with pytest.warns(jurn.JurnWarning, match="unstable"):
        jurn.Stream(jurn.Design("iir", [1.0], [1.0, -1.1]))


def test_a_result_may_take_the_place_of_the_samples():
    x = noise(np.float64)
    y = jurn.Stream(EQ, 2).process(x)
    same = x.copy()
    assert jurn.Stream(EQ, 2).process(same, same) is same
    np.testing.assert_array_equal(same, y)
    moved = np.concatenate([x, x[:1]])
    jurn.Stream(EQ, 2).process(moved[:-1], moved[1:])
    np.testing.assert_array_equal(moved[1:], y)


WRONG = [
    (ValueError, r"\(5, 3\); takes \(frames, 2\), or \(2, frames\)", lambda s: s.process(np.zeros((5, 3)))),
    (ValueError, "frames, 2", lambda s: s.process(np.zeros(5))),
    (TypeError, "real numbers", lambda s: s.process(np.zeros((5, 2)) * 1j)),
    (TypeError, "out: float32", lambda s: s.process(np.zeros((5, 2)), np.zeros((5, 2), "f4"))),
    (ValueError, "out: takes", lambda s: s.process(np.zeros((5, 2)), np.zeros((4, 2)))),
    (ValueError, "axis: 2", lambda s: s.process(np.zeros((5, 2)), axis=2)),
    (ValueError, "fade: 0", lambda s: s.change(None, fade=0)),
    (TypeError, "takes a Design", lambda s: s.change("HP 80")),
    (ValueError, "was made without", lambda s: s.change([(0, 0, [1.0])])),
    (ValueError, "length", lambda s: s.change(0)),
    (ValueError, "channels: 0", lambda s: jurn.Stream(EQ, 0)),
    (ValueError, "precision: 'float'", lambda s: jurn.Stream(EQ, precision="float")),
    (ValueError, "need 1 inputs and 6 outputs", lambda s: jurn.Stream([(0, 5, [1.0])], outputs=2)),
    (ValueError, "up to 16", lambda s: jurn.Stream([(0, 0, [1.0])], 17)),
    (ValueError, "count from 0", lambda s: jurn.Stream([(-1, 0, [1.0])])),
    (ValueError, "are none", lambda s: jurn.Stream([])),
    (TypeError, "tuples", lambda s: jurn.Stream([1.0, 0.5])),
    (ValueError, "as many outputs", lambda s: jurn.Stream(EQ, 2, outputs=3)),
    (ValueError, "length: takes 1 to 2156", lambda s: jurn.Stream(3000, precision="int16")),
    (TypeError, "without its constructor", lambda s: jurn.Stream.__new__(jurn.Stream).process([1.0])),
    (TypeError, "without its constructor", lambda s: repr(jurn.Stream.__new__(jurn.Stream))),
    (TypeError, "without its constructor", lambda s: jurn.Stream.__new__(jurn.Stream).change(None)),
]


@pytest.mark.parametrize("error, message, call", WRONG, ids=[w[1] for w in WRONG])
def test_wrong_input_is_named_and_changes_nothing(error, message, call):
    stream = jurn.Stream(EQ, 2)
    with pytest.raises(error, match=message):
        call(stream)
    np.testing.assert_array_equal(run(stream, noise("d")), jurn.sosfilt(EQ.sos, noise("d"), 0))


ONES = np.ones(3000) / 3000
LONG = jurn.Stream(jurn.Design("fir", ONES))
ECHO = jurn.Convolution([(0, 0, ONES)], block=8)
RECORD = jurn.LongFilter.fir(np.ones(30000) / 30000, kind=jurn.Kind.FIR)


@pytest.mark.parametrize("run, samples, calls", [
    (LONG.process, np.zeros(400000), [lambda: LONG.process([1.0]), LONG.copy, LONG.reset,
                                      lambda: LONG.change(None), lambda: LONG.tail]),
    (ECHO.run, np.zeros(1 << 22, np.float32), [lambda: repr(ECHO), ECHO.copy, ECHO.reset]),
    (RECORD.run, np.zeros(200000, np.int16), [lambda: bytes(RECORD), RECORD.copy, RECORD.reset,
                                              lambda: RECORD.fade_to([1.0])]),
], ids=["stream", "convolution", "record"])
def test_an_object_runs_on_one_thread_at_a_time(run, samples, calls):
    runner = threading.Thread(target=run, args=(samples,))
    runner.start()
    refused = set()
    while runner.is_alive() and len(refused) < len(calls):  # the lock is free while the block runs
        for call in calls:
            try:
                call()
            except RuntimeError as error:
                assert "another thread" in str(error)
                refused.add(call)
    runner.join()
    assert len(refused) >= 3


@pytest.mark.parametrize("design", [EQ, IIR, jurn.Design("fir", TAPS)], ids=["sos", "iir", "fir"])
def test_responses_are_those_of_scipy(design):
    rate = 48000
    b, a = signal.sos2tf(design.sos) if design.kind == "sos" else (design.b, design.a if len(design.a) else [1.0])
    w, h = signal.freqz(b, a, 100, fs=rate)
    response = design.response(100, rate)
    np.testing.assert_allclose(response.frequencies, w)
    np.testing.assert_allclose(response.values, h, rtol=1e-6, atol=1e-9)
    _, delay = signal.group_delay((b, a), w[1:-1], fs=rate)
    np.testing.assert_allclose(response.delay[1:-1], delay, rtol=1e-3, atol=1e-3)
    zeros, poles, _ = signal.tf2zpk(b, a)
    for ours, theirs in ((response.zeros, zeros), (response.poles, poles)):
        np.testing.assert_allclose(np.sort_complex(ours.round(6)), np.sort_complex(theirs.round(6)), atol=1e-3)
    assert design.response([0.1, 0.2]).values.shape == (2,)
    for wrong in (0, 1.5, [np.nan]):
        with pytest.raises(ValueError, match="frequencies"):
            design.response(wrong)


def test_an_equaliser_in_words_is_the_one_in_a_file(tmp_path):
    (tmp_path / "eq.txt").write_text("Filter 1: ON PK Fc 3000 Hz Gain -4 dB Q 2\n")
    assert jurn.read_coefficients(tmp_path / "eq.txt", 48000) == jurn.eq("PK 3k -4 Q 2\n", 48000)
    for words, message in (("", "are none"), ("PK 3k", "needs Gain"), ("XX 80", "XX"), ("HP 30k", "30")):
        with pytest.raises(ValueError, match=message):
            jurn.eq(words, 48000)


def test_designs_have_pictures():
    matplotlib = pytest.importorskip("matplotlib")
    matplotlib.use("Agg")
    for design in (EQ, IIR, jurn.Design("fir", TAPS), jurn.Design("fir", [0.0])):
        figure = design.plot(48000)
        assert [axes.get_title() for axes in figure.axes] == [
            "Magnitude", "Phase", "Group delay", "Poles and zeros"]
        figure.canvas.draw()
        matplotlib.pyplot.close(figure)
        page = design._repr_html_()
        assert "<svg" in page and len(page) < 6000 and "nan" not in page
    assert repr(EQ) == "<jurn.Design: 2 sections>"


def test_a_setup_runs_and_fades(tmp_path):
    """Each channel's own filters, as the file says; another setup and a design follow."""
    left = jurn.eq("PK 1k 6 Q 1", 48000)
    file = tmp_path / "apo.txt"
    file.write_text("Channel: L\nFilter: ON PK Fc 1000 Hz Gain 6 dB Q 1\nChannel: R\nPreamp: -6 dB\n")
    setup = jurn.read_setup(file, 48000)
    assert (setup.inputs, setup.outputs, setup.latency, setup.warnings) == (2, 2, 0, ())
    x = noise(np.float64)
    stream = jurn.Stream(setup)
    y = run(stream, x)
    np.testing.assert_array_equal(y[:, 0], jurn.sosfilt(left.sos, x[:, 0]))
    np.testing.assert_allclose(y[:, 1], x[:, 1] * 10 ** -0.3, rtol=1e-14)
    stream.change(left, fade=10)
    np.testing.assert_array_equal(run(stream, x)[400:, 1].shape, (3600,))
    mixer = tmp_path / "mono.yml"
    mixer.write_text("mixers: {m: {channels: {in: 2, out: 1}, mapping: [{dest: 0, sources: "
                     "[{channel: 0}, {channel: 1, inverted: true}]}]}}\n"
                     "pipeline: [{type: Mixer, name: m}]\n")
    mono = jurn.Stream(jurn.read_setup(mixer, 44100))
    np.testing.assert_array_equal(run(mono, x)[:, 0], x[:, 0] - x[:, 1])
    for call, text in ((lambda: jurn.Stream(setup, precision="int16"), "double"),
                       (lambda: jurn.Stream(setup, channels=3), "setup: takes 2 channels, and the stream has 3"),
                       (lambda: jurn.read_setup(file, 48000, 1), "apo.txt:1:")):
        with pytest.raises(ValueError, match=text):
            call()


def test_what_was_prepared_runs_as_it_is(tmp_path):
    tiny = [[1e-12, 0, 0, 1, -0.5, 0], [1e12, 0, 0, 1, -0.25, 0]]
    file = tmp_path / "sos.txt"
    text = "\n".join(" ".join(map(repr, map(float, row))) for row in tiny) + "\n"
    x = noise(np.int16, 1)
    heard = []
    for mark in ("", "# prepared: sections, int16\n"):
        file.write_text(mark + text)
        design = jurn.read_coefficients(file)
        assert design.prepared == ("int16" if mark else None)
        heard.append(jurn.Stream(design, precision="int16").process(x))
        as_is = jurn.prepare(design).design.b[0, 0]
        assert (as_is == np.float32(1e-12)) == bool(mark)
    assert heard[0].any() and not heard[1].any()  # a section so quiet is silent on the device

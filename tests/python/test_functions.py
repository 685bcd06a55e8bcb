"""The functions over whole arrays, against SciPy and the command line; compare; files."""

import os
import subprocess
import sys
import warnings

import numpy as np
import pytest
import soundfile
from scipy import signal

import jurn

TOOL = os.environ["JURN_FILTER"]
SPEECH = "/usr/share/sounds/alsa/Front_Center.wav"  # mono, 48 kHz
MUSIC = "/usr/share/sonic-pi/samples/loop_safari.flac"  # stereo, 44.1 kHz
ROOM = "/usr/share/jconvolver/config-files/demo-reverbs/street2-L.wav"

BA = signal.butter(2, 0.1)
SOS = signal.butter(2, [0.1, 0.3], "band", output="sos")
TAPS = signal.firwin(101, 0.3)
BOOST = [2.0, 0.5]  # clips
DEVICE = {"precision": "int16"}


def read(path):
    return soundfile.read(path, dtype="int16")[0]


def rounded(y):
    return np.clip(np.rint(y), -32768, 32767).astype(np.int16)


def filtered_by_the_tool(tmp_path, path, *arguments):
    out = tmp_path / "out.wav"
    done = subprocess.run([TOOL, *map(str, arguments[:1]), path, out, "--overwrite", "--quiet",
                           *map(str, arguments[1:])], capture_output=True, text=True)
    assert done.returncode == 0, done.stderr
    return soundfile.read(out, dtype="int16")[0]


def test_bits_of_stereo_equal_the_tools(tmp_path):
    """Of means and of convolutions; test_same_everywhere.py has files of coefficients."""
    x = read(MUSIC)
    room = jurn.read_response(ROOM, 44100, resample=True, truncate=3000)
    long_filter = jurn.LongFilter.fir(room, channels=2)
    late = np.concatenate([x, np.zeros((long_filter.latency + len(room) - 1, 2), np.int16)])
    device, convolve = ["--precision", "int16"], ["convolve", "--ir", ROOM, "--resample", "--truncate", 3000]
    for y, arguments in [
        (jurn.moving_mean(31, x, 0, **DEVICE), ["average", "--length", 31, *device]),
        (jurn.moving_mean(5000, x, 0), ["average", "--length", 5000]),
        (jurn.convolve(x, room, axis=0, **DEVICE), [*convolve, *device]),
        (jurn.convolve(x, room, axis=0), convolve),
        (long_filter.run(late)[long_filter.latency :], [*convolve, "--fft"]),
    ]:
        np.testing.assert_array_equal(y, filtered_by_the_tool(tmp_path, MUSIC, *arguments), err_msg=f"{arguments}")


FILTERS = {
    "fir": (lambda x, axis=0, **o: jurn.fir(TAPS, x, axis, **o), lambda x: signal.lfilter(TAPS, 1, x, axis=0)),
    "lfilter": (lambda x, axis=0, **o: jurn.lfilter(*BA, x, axis, **o), lambda x: signal.lfilter(*BA, x, axis=0)),
    "sosfilt": (lambda x, axis=0, **o: jurn.sosfilt(SOS, x, axis, **o), lambda x: signal.sosfilt(SOS, x, axis=0)),
    "moving_mean": (lambda x, axis=0, **o: jurn.moving_mean(9, x, axis, **o),
                    lambda x: signal.lfilter(np.ones(9) / 9, 1, x, axis=0)),
}


@pytest.mark.parametrize("ours, scipys", FILTERS.values(), ids=FILTERS)
def test_outputs_are_scipys_and_keep_type_shape_and_axis(ours, scipys):
    x = read(MUSIC)[:5000]
    ideal = scipys(x.astype(float))
    limited = np.clip(ideal, -32768, 32767)
    # One truncation, and the rounding of float; or one rounding.
    for options, most in ((DEVICE, 1.05), ({}, 0.5 + 1e-9)):
        y = ours(x, **options)
        assert y.dtype == np.int16 and y.shape == x.shape
        assert np.abs(y - limited).max() < most
    for dtype, most in ((np.float32, 2.0**-9), (np.float64, 1e-8)):
        y = ours(x.astype(dtype))
        assert y.dtype == dtype
        assert np.abs(y - ideal).max() < most
    three = np.stack([x[:, 0], x[:, 1], x[:, 0]])
    y = ours(three, axis=-1)
    np.testing.assert_array_equal(y, ours(x)[:, [0, 1, 0]].T)
    np.testing.assert_array_equal(ours(x[:, 1]), ours(x)[:, 1])


@pytest.mark.parametrize("ours", [f[0] for f in FILTERS.values()], ids=FILTERS)
@pytest.mark.parametrize("dtype, options", [(np.int16, DEVICE), (np.int16, {}), (np.float32, {}),
                                            (np.float64, {})])
def test_zi_and_zf_continue_exactly(ours, dtype, options):
    x = read(MUSIC)[:4096].astype(dtype)
    for samples in (x, x[:, 0]):
        expected = ours(samples, zi=0, **options)[0]
        without = ours(samples, **options)
        if options:
            np.testing.assert_array_equal(expected, without)
        else:  # another order of sums: a rounding of the type, or of double
            assert np.abs(expected - without.astype(float)).max() < {"h": 1.1, "f": 2.0**-8, "d": 1e-8}[samples.dtype.char]
        first, z = ours(samples[:1024], zi=0, **options)
        second, _ = ours(samples[1024:], zi=z, **options)
        np.testing.assert_array_equal(np.concatenate([first, second]), expected)


def test_states_are_scipys():
    x = np.random.default_rng(5).normal(size=200)
    b, a = signal.butter(5, 0.2)
    sos = signal.butter(5, 0.2, output="sos")
    for num, den in ((b, a), (TAPS, 1), ([2.0], 2 * a), ([1.0, 2, 3, 4], [2.0, -0.5])):
        zi = np.random.default_rng(6).normal(size=max(np.size(num), np.size(den)) - 1)
        for y, expected in zip(jurn.lfilter(num, den, x, zi=zi), signal.lfilter(num, den, x, zi=zi)):
            np.testing.assert_allclose(y, expected, rtol=0, atol=1e-13 * np.abs(expected).max())
    samples = read(SPEECH)
    y, z = jurn.sosfilt(sos, samples, zi=signal.sosfilt_zi(sos) * samples[0])
    expected, zf = signal.sosfilt(sos, samples.astype(float), zi=signal.sosfilt_zi(sos) * samples[0])
    np.testing.assert_array_equal(y, rounded(expected))
    np.testing.assert_array_equal(z, zf)


def test_quiet_floats_are_rounded_once():
    x = np.concatenate([soundfile.read(SPEECH)[0], np.zeros(4800)]).astype(np.float32)
    sos = signal.butter(4, 20, "high", fs=48000, output="sos")
    b, a = signal.butter(2, 20, "high", fs=48000)
    for y, exact in ((jurn.sosfilt(sos, x), signal.sosfilt(sos, x.astype(float))),
                     (jurn.lfilter(b, a, x), signal.lfilter(b, a, x.astype(float)))):
        assert (np.abs(y - exact) <= 2.0**-24 * np.abs(exact) + 1e-12).all()


def test_direct_forms_of_high_order_are_nearer_to_the_filter_than_scipys():
    x = np.concatenate([soundfile.read(SPEECH)[0], np.zeros(4800)])
    for order in (3, 4, 6):
        b, a = signal.butter(order, 50, "high", fs=48000)
        exact = signal.lfilter(b.astype(np.longdouble), a.astype(np.longdouble), x.astype(np.longdouble))
        ours, theirs = (np.abs(f(b, a, x) - exact).max() for f in (jurn.lfilter, signal.lfilter))
        assert ours < theirs / 100


def test_what_is_no_number_counts_as_0_and_is_told():
    x = np.random.default_rng(8).normal(size=(2, 300))
    clean = x.copy()
    x[0, 7], x[1, 9] = np.nan, np.inf
    clean[0, 7] = clean[1, 9] = 0
    for call in (lambda x: jurn.sosfilt(SOS, x), lambda x: jurn.lfilter(*BA, x.T, 0), lambda x: jurn.fir(TAPS, x),
                 lambda x: jurn.sosfilt(SOS, x, zi=0)[0], lambda x: jurn.moving_mean(9, x)):
        with pytest.warns(jurn.JurnWarning, match="count as 0: 2$"):
            y = call(x)
        np.testing.assert_array_equal(y, call(clean))


def test_convolution_sends_channels_where_they_belong():
    x = read(MUSIC)[:3000]
    rng = np.random.default_rng(2)
    taps = rng.normal(size=(700, 4)) / 40
    ideal = [[signal.oaconvolve(x[:, i].astype(float), taps[:, r]) for r in range(4)] for i in (0, 1)]
    cases = [
        (jurn.convolve(x[:, 0], taps[:, 0]), [ideal[0][0]]),
        (jurn.convolve(x[:, 0], taps[:, :3]), ideal[0][:3]),
        (jurn.convolve(x, taps[:, 0], axis=0), [ideal[0][0], ideal[1][0]]),
        (jurn.convolve(x, taps[:, :2], axis=0), [ideal[0][0], ideal[1][1]]),
        (jurn.convolve(x, taps, axis=0), [ideal[0][0] + ideal[1][2], ideal[0][1] + ideal[1][3]]),
    ]
    for y, expected in cases:
        expected = np.clip(np.stack(expected, axis=1), -32768, 32767)
        assert y.shape == (expected.shape if len(expected[0]) > 1 else expected.shape[:1])
        assert np.abs(y.reshape(expected.shape) - expected).max() <= 0.6
    short = jurn.convolve(x.astype(np.float64).T, taps[:, 0], tail=False)
    assert short.shape == x.T.shape and short.dtype == np.float64


def test_designs_are_prepared_as_the_tool_does_it():
    x = read(SPEECH)
    steep = signal.butter(8, 500, fs=48000, output="sos")  # the whole gain in the first section
    ideal = signal.sosfilt(steep, x.astype(float))
    assert np.abs(jurn.sosfilt(steep, x, **DEVICE) - ideal).max() < 1.5
    assert not jurn.sosfilt(steep, x, prepare=False, **DEVICE).any()  # as a program of C would run it
    for options in ({}, DEVICE):
        with pytest.warns(jurn.JurnWarning, match="clip"):
            jurn.fir(BOOST, x, **options)
    with pytest.warns(jurn.JurnWarning, match="unstable"):
        jurn.lfilter([1.0], [1.0, -1.1], x[:100])
    with warnings.catch_warnings():
        warnings.simplefilter("error")
        jurn.fir(BOOST, x, prepare=False)
        jurn.fir(BOOST, x.astype(float))
        jurn.fir(TAPS / 2, x)


X = np.zeros(10, np.int16)
WRONG = [
    (ValueError, "axis", lambda: jurn.fir([1.0], X, axis=1)),
    (ValueError, "more than 1250 taps", lambda: jurn.fir(np.ones(1251) / 1251, X, **DEVICE)),
    (ValueError, "takes samples of int16", lambda: jurn.fir([1.0], X.astype(np.float32), **DEVICE)),
    (ValueError, "takes 'int16' or 'double'", lambda: jurn.moving_mean(2, X, precision="float")),
    (ValueError, "not finite", lambda: jurn.fir([np.inf], X)),
    (ValueError, r"zi: has the shape \(3,\); takes \(1,\)", lambda: jurn.fir([0.5, 0.5], X, zi=[1, 2, 3])),
    (ValueError, "int16 cannot hold", lambda: jurn.fir([0.5, 0.5], X, zi=[0.5], **DEVICE)),
    (ValueError, "takes 1 to 2156", lambda: jurn.moving_mean(2157, X, **DEVICE)),
    (ValueError, "takes 1 to 16777216", lambda: jurn.moving_mean(0, X.astype(float))),
    (ValueError, "a0 is 2.0", lambda: jurn.lfilter([1.0], [2.0], X, prepare=False, **DEVICE)),
    (ValueError, "run as sections|runs as sections", lambda: jurn.lfilter(*signal.butter(8, 0.05), X, zi=0, **DEVICE)),
    (ValueError, r"takes \(sections, 6\)", lambda: jurn.sosfilt([1.0, 2.0], X)),
    (ValueError, "takes 1 or 2, or 4", lambda: jurn.convolve(np.zeros((2, 9), np.int16), np.ones((5, 3)))),
    (ValueError, "takes one of", lambda: jurn.compare(len, X)),
]


@pytest.mark.parametrize("error, message, call", WRONG, ids=[w[1] for w in WRONG])
def test_wrong_input_is_named(error, message, call):
    with pytest.raises(error, match=message):
        call()


def test_files_are_read_checked_and_reported(tmp_path):
    def written(name, text):
        (tmp_path / name).write_text(text)
        return tmp_path / name

    pair = written("b", "0.2 0.1\n"), written("a", "1 -0.5\n")
    assert jurn.read_coefficients(pair).a.tolist() == [1, -0.5]
    # What has linear phase is in time with the samples, along any axis.
    graphic = jurn.read_coefficients(written("g.txt", "GraphicEQ: 20 -3; 1000 3; 20000 -3\n"), 48000)
    assert graphic.delay == len(graphic.b) // 2 and graphic == graphic
    y = graphic.filter(np.eye(2, 20000)[::-1].T * 0.5, axis=0)
    assert y.shape == (20000, 2) and np.abs(y).argmax(axis=0).tolist() == [1, 0]
    turned = written("turned", "0.1 0\n1 1.5 -0.6\n")
    with pytest.raises(ValueError, match="turned.*look negated"):
        jurn.read_coefficients(turned, kind="iir")
    assert jurn.read_coefficients(turned, negate_a=True, kind="iir").a.tolist() == [1, -1.5, 0.6]
    with pytest.raises(ValueError, match="words.txt"):
        jurn.read_coefficients(written("words.txt", "no numbers"))
    with pytest.raises(FileNotFoundError):
        jurn.read_coefficients("missing")
    for names in ((), (*pair, pair[0])):
        with pytest.raises(ValueError, match="takes one, or numerator and denominator"):
            jurn.read_coefficients(names)
    with pytest.raises(ValueError, match="no file"):
        jurn.read_response([], 48000, normalise=True)
    with pytest.raises(ValueError, match="44100"):
        jurn.read_response(ROOM, 44100)
    assert jurn.read_response([ROOM, ROOM], 48000, truncate=100).shape == (100, 2)


def test_a_decimal_comma_of_the_host_changes_nothing(tmp_path):
    subprocess.run(["localedef", "-i", "de_DE", "-f", "UTF-8", tmp_path / "de_DE.UTF-8"], check=True)
    (tmp_path / "hum.yml").write_text("""
filters: {hum: {type: Biquad, parameters: {type: Peaking, freq: 15.625, q: 0.5, gain: 1.5}}}
pipeline: [{type: Filter, names: [hum]}]
""")
    code = """if True:
        import locale, sys, warnings, numpy, jurn
        locale.setlocale(locale.LC_ALL, sys.argv[1])
        print(locale.localeconv()["decimal_point"])
        design = jurn.read_coefficients("hum.yml", 48000)
        print(*map(float.hex, design.sos.ravel().tolist()))
        with warnings.catch_warnings(record=True) as told:
            design.filter(numpy.zeros(9, numpy.int16))
        print(*(w.message for w in told))
    """
    point, comma = (subprocess.run([sys.executable, "-c", code, name], cwd=tmp_path, text=True, check=True,
                                   env={**os.environ, "LOCPATH": str(tmp_path)}, stdout=subprocess.PIPE).stdout
                    for name in ("C", "de_DE.UTF-8"))
    assert comma[0] == "," and comma[1:] == point[1:] and "1.5 dB" in point


def test_compare_measures_what_the_truncation_adds():
    x = np.random.default_rng(3).integers(-32768, 32768, (30000, 2)).astype(np.int16)
    same = jurn.compare(jurn.fir, [1.0], x, axis=0, rate=44100)
    assert same.largest == same.rms == 0 and same.clipped == np.sum(np.abs(x + 0.5) > 32767)
    half = jurn.compare(jurn.fir, [0.5], x, axis=0, rate=44100)
    assert half.largest == 0.5 and abs(half.rms - 0.5 * np.sqrt(np.mean(x % 2))) < 1e-12
    # White noise of variance 1/16 LSB^2 beside its constant part, in bins with a Hann window.
    level = 10 * np.log10(np.mean(10 ** (half.noise[10:] / 10)))
    expected = 10 * np.log10(np.var(half.difference) * 1.5 / 4096 * 4 / 32768**2)
    assert abs(level - expected) < 0.5 and half.frequencies[-1] == 22050
    mean = jurn.compare(jurn.convolve, x // 4, TAPS[:, None] * [1, 1], axis=0, rate=44100)
    assert mean.largest < 1.1
    # Arguments by position and by name reach both outputs alike.
    assert jurn.compare(jurn.fir, TAPS, x, 0).largest == jurn.compare(jurn.fir, x=x, taps=TAPS, axis=0).largest
    for mode in ("full", "same", "valid"):
        part = jurn.compare(jurn.convolve, x[:50] / 4, TAPS, mode, axis=0)
        assert part.ideal.shape == jurn.convolve(x[:50], TAPS, mode, axis=0).shape and part.largest < 1e-9


def test_short_responses_are_summed_in_double_and_long_ones_nearly():
    rng = np.random.default_rng(4)
    x = rng.uniform(-1, 1, (2, 20000))
    for count, method, least, most in [(10, "auto", 0, 1e-14), (1024, "auto", 0, 1e-14), (3000, "direct", 0, 3e-14),
                                       (10, "fft", 1e-9, 8e-7), (3000, "auto", 1e-9, 8e-7)]:
        taps = rng.normal(size=count) * np.exp(-5 * np.arange(count) / count)
        ideal = np.stack([signal.oaconvolve(row, taps) for row in x])
        error = np.abs(jurn.convolve(x, taps, method=method) - ideal).max() / np.abs(ideal).max()
        assert least <= error <= most, (count, method, error)
    x[0, 50] = np.nan
    spoilt = np.isnan(jurn.convolve(x, np.ones(9)))
    assert spoilt[0, 50:59].all() and spoilt.sum() == 9

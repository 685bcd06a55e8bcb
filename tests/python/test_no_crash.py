"""Nothing that Python says to the package ends the process: the scenes, and random calls."""

import copy
import pickle
import random
import subprocess
import sys
import time

import numpy as np
import pytest

import jurn

CLASSES = [jurn.Filter, jurn.MovingSum, jurn.FloatFilter, jurn.LongFilter, jurn.Convolution]
EXPECTED = (TypeError, ValueError, RuntimeError, OverflowError, MemoryError, IndexError,
            AttributeError)


@pytest.mark.parametrize("make, message", [
    (lambda: jurn.Design("fir", []), "taps: is empty"),
    (lambda: jurn.Design("iir", [], []), "b: is empty"),
    (lambda: jurn.Design("iir", [1.0]), "a: is empty"),
    (lambda: jurn.Design("iir", [1.0], [0.0, 1.0]), "begins with 0"),
    (lambda: jurn.Design("fir", [1.0], [1.0]), "a: a design of taps has none"),
    (lambda: jurn.Design("sos", [[1.0, 0, 0]]), "a: is empty"),
    (lambda: jurn.Design("sos", [[1.0, 0, 0]], [[1.0, 0, 0], [1.0, 0, 0]]), r"\(1, 3\) and \(2, 3\)"),
    (lambda: jurn.Design("sos", [1.0, 0, 0], [1.0, 0, 0]), r"take \(sections, 3\)"),
    (lambda: jurn.Design("iir", [[1.0]], [1.0]), r"takes \(count,\)"),
    (lambda: jurn.Design("fir", [1.0, np.nan]), "number 1 is not finite"),
    (lambda: jurn.Design("bell", [1.0]), "kind: 'bell'"),
    (lambda: jurn.prepare(jurn.Design("iir", np.ones(5000) / 5000, [1.0])), "b: holds 5000"),
    (lambda: jurn.lfilter([1.0], 0.9 ** np.arange(5000), np.zeros(9)), "a: holds 5000"),
    (lambda: jurn.sosfilt([[np.nan, 0, 0, 1, 0, 0]], np.zeros(9), prepare=False), "finite"),
    (lambda: jurn.convolve(np.zeros(9), [np.nan]), "finite"),
    (lambda: jurn._core._prepare(1, [], [], False, False, False, None), "no coefficients"),
    (lambda: jurn._core._prepare(2, [1.0] * 3, [1.0] * 6, False, False, False, None), "a section takes"),
])
def test_what_is_no_design_is_refused(make, message):
    with pytest.raises(ValueError, match=message):
        make()


def test_complex_numbers_are_refused_everywhere():
    x, z = np.zeros(9), np.array([1j])
    sos = np.array([[1, 0, 0, 1, 0, 0j]])
    for call in (lambda: jurn.fir(z, x), lambda: jurn.fir([1], x * 1j), lambda: jurn.lfilter([1], z, x),
                 lambda: jurn.sosfilt(sos, x), lambda: jurn.convolve(x, z), lambda: jurn.convolve(z, x),
                 lambda: jurn.moving_mean(2, z), lambda: jurn.fir([1, 1], x, zi=z),
                 lambda: jurn.Design("fir", z), lambda: jurn.Filter.sos(sos), lambda: jurn.Filter.fir(z),
                 lambda: jurn.Convolution([(0, 0, z)])):
        with pytest.raises(TypeError, match="takes real numbers"):
            call()


def test_a_long_design_is_analysed_in_seconds():
    start = time.monotonic()
    jurn.prepare(jurn.Design("iir", np.ones(1250) / 1250, 0.5 ** np.arange(1250)))
    assert time.monotonic() - start < 30


@pytest.mark.parametrize("kind", CLASSES)
def test_an_object_without_its_constructor_does_nothing(kind):
    class Derived(kind):
        pass

    for cls in (kind, Derived):
        for call in (lambda o: o.process(np.zeros(4, np.int16)), bytes, copy.copy, pickle.dumps, repr,
                     lambda o: o.reset(), lambda o: o.state, lambda o: o.latency):
            with pytest.raises(TypeError, match="without its constructor"):
                call(cls.__new__(cls))


# ---- Random calls, in a process of their own -------------------------------------------------------

rng = random.Random()
objects = []


def pick(*choices):
    chosen = rng.choice(choices)
    return chosen() if callable(chosen) and not isinstance(chosen, type) else chosen


def normal(*shape):
    return np.random.default_rng(rng.getrandbits(32)).normal(size=shape)


def number():
    return pick(0, 1, 2, -1, 3, 0.5, 1e-9, 1e39, 1e300, float("nan"), float("inf"), 7)


def size():
    return pick(0, 1, 2, 3, 5, 6, 9, 10, 30, 201, 202, 256, 257, 480, 1057, 1251)


def channels():
    return pick(1, 1, 1, 2, 2, 2, 0, 3, -1)


def array():
    shape = pick((size(),), (size(),), (size(), pick(1, 2, 3, 6)), (2, size()), (0, 2), (), (2, 3, size()))
    x = np.asarray(1000 * normal(*shape)).astype(pick("i2", "i2", "i2", "i2", *"ffdilbc?OU"))
    change = rng.random()
    if change < 0.1:
        return x[::-1]
    if change < 0.15:
        return x.astype(x.dtype.newbyteorder())
    if change < 0.2 and x.dtype.kind == "f" and x.size:
        x.flat[0] = number()
    return x


def taps():
    if rng.random() < 0.2:
        return pick(None, [], [1j], "taps", {}, 1.0, array, [number()] * 3)
    h = normal(size() or 1) / 50
    return pick(h, list(h), h.astype("f4"))


def sos():
    table = normal(pick(0, 1, 2, 5, 417), pick(6, 6, 6, 10, 3)) / 9
    if rng.random() < 0.9:
        table[:, table.shape[1] // 2] = 1
    return table if rng.random() < 0.9 else taps()


def feedback():
    return [1.0, *([0.1] * pick(0, 1, 2, 200, 201))] if rng.random() < 0.8 else taps()


def routes():
    return [(rng.randrange(2), rng.randrange(-1, 2), taps()) for _ in range(rng.randrange(1, 4))]


def stored():
    """Bytes of an object, cut or altered."""
    data = bytearray(bytes(rng.choice(objects)) if objects else b"")
    for _ in range(pick(0, 1, 3)):
        if data:
            data[rng.randrange(min(len(data), pick(32, len(data))))] = pick(0, 1, 127, 255)
    return bytes(data[: rng.randrange(len(data) + 1)] if rng.random() < 0.2 else data)


def design():
    return pick(lambda: jurn.Design("fir", taps()), lambda: jurn.Design("iir", taps(), feedback()),
                lambda: jurn.eq("HP 80; PK 3k -4 Q 2", 48000))


def fitting(o):
    """Samples that an object takes, perhaps."""
    width = getattr(o, "channels", 0) or o.inputs
    kind = pick("i2", "f4", "f8") if isinstance(o, jurn.Stream) else "f4" if isinstance(o, jurn.FloatFilter) else "i2"
    return np.resize(array().astype(kind), (getattr(o, "block", 0) or size(), width))


def write_state(o):
    for view in o.state.values():
        if view.size and view.flags.writeable:
            view.flat[rng.randrange(view.size)] = 5


MAKE = [
    lambda: jurn.Filter.fir(taps(), channels=channels()),
    lambda: jurn.Filter.iir(taps(), feedback(), channels=channels()),
    lambda: jurn.Filter.sos(sos(), channels=channels()),
    lambda: jurn.Filter.average(size()),
    lambda: jurn.MovingSum(size()),
    lambda: jurn.FloatFilter.fir(taps()),
    lambda: jurn.FloatFilter.iir(taps(), feedback()),
    lambda: jurn.LongFilter.fir(taps(), pick(None, taps), kind=rng.randrange(-8, 3), channels=channels()),
    lambda: jurn.Convolution(routes(), inputs=channels(), outputs=2, block=pick(0, 1, 3, 64, 5000),
                             taps=pick(None, None, 300, 0)),
    lambda: jurn.Stream(pick(None, size, taps, routes, routes, design), pick(None, 1, 2, 2, 3, 17, 0),
                        outputs=pick(None, None, None, 2, 5000), precision=pick("double", "double", "int16", 1),
                        block=pick(1, 64, 256, 5000, -1), taps=pick(None, 300, 0), rate=pick(48000, 1, -1)),
    lambda: rng.choice(CLASSES).__new__(rng.choice(CLASSES)),
    lambda: rng.choice(CLASSES).from_bytes(stored()),
]
USE = [
    lambda o: o.process(array(), pick(None, array)),
    lambda o: o.process(fitting(o)),
    lambda o: (lambda x: o.process(x, x))(fitting(o)),
    lambda o: o.process(fitting(o).T, axis=-1),
    lambda o: o.run(fitting(o), pick(1, 17, 512, 0, -1, 10**9), pick(None, None, array)),
    lambda o: o.push(pick(1, -32768, 70000)),
    lambda o: o.fade_to(pick(taps, sos, routes)),
    lambda o: o.fade_to(taps(), feedback()),
    lambda o: o.change(pick(None, size, taps, routes, design), fade=pick(1, 100, 480, 0)),
    write_state, repr, copy.copy, bytes,
    lambda o: o.reset(),
    lambda o: o.tail + o.changing,
    lambda o: pickle.loads(pickle.dumps(o)),
]


def options():
    some = {"axis": pick(0, -1, 1, 2, None), "zi": pick(0, array), "block": pick(1, 0, -3, 512, 2000), "prepare": True}
    kept = {key: some[key] for key in some if rng.random() < (0.05 if key == "prepare" else 0.2)}
    return {"prepare": False, **kept}  # the analysis takes milliseconds


CALL = [
    lambda: jurn.fir(taps(), array(), **options()),
    lambda: jurn.lfilter(taps(), feedback(), array(), **options()),
    lambda: jurn.sosfilt(sos(), array(), **options()),
    lambda: jurn.moving_mean(size(), array(), pick(0, -1, 1, 2, None), pick(None, 0, array)),
    lambda: jurn.convolve(array(), taps(), pick("full", "same", "valid", ""), axis=pick(0, -1, 1)),
    lambda: jurn.Design(pick("fir", "iir", "sos"), taps(), sos()),
]


def random_calls(seed, count):
    """How many were accepted; whatever is no expected error ends the process."""
    rng.seed(seed)
    accepted = 0
    for _ in range(count):
        what = rng.randrange(4) if objects else 0
        try:
            if what == 0:
                made = rng.choice(MAKE)()
                bytes(made)  # one that has run its constructor
                objects[:] = [*objects[-20:], made]
            elif what < 3:
                rng.choice(USE)(rng.choice(objects))
            else:
                rng.choice(CALL)()
            accepted += 1
        except EXPECTED:
            pass
    return accepted


def test_random_calls_end_in_results_or_errors():
    done = subprocess.run([sys.executable, "-W", "ignore", __file__, str(random.randrange(2**32))],
                          capture_output=True, text=True, timeout=300)
    assert done.returncode == 0, (done.args, done.stdout[-2000:], done.stderr[-2000:])


if __name__ == "__main__":
    np.seterr(all="ignore")
    assert random_calls(int(sys.argv[1]), 20000) > 5000

"""Nothing that Python says to the package ends the process: the scenes, and random calls."""

import copy
import pickle
import random
import subprocess
import sys
import threading
import time

import numpy as np
import pytest

import jurn

EQUALISER = jurn.eq("HP 80; PK 3k -4 Q 2", 48000)
CLASSES = [jurn.Filter, jurn.MovingSum, jurn.FloatFilter, jurn.LongFilter, jurn.Convolution]
EXPECTED = (TypeError, ValueError, RuntimeError, OverflowError, MemoryError, IndexError)


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


def test_one_object_runs_on_one_thread_at_a_time():
    f = jurn.LongFilter.fir(np.ones(30000) / 30000, kind=jurn.Kind.FIR)
    runner = threading.Thread(target=lambda: f.run(np.zeros(200000, np.int16)))
    runner.start()
    refused = set()
    calls = (copy.copy, copy.deepcopy, bytes, lambda o: o.fade_to([1.0]), lambda o: o.reset())
    while runner.is_alive() and len(refused) < len(calls):  # the lock is free while the block runs
        for call in calls:
            try:
                call(f)
            except RuntimeError as error:
                assert "another thread" in str(error)
                refused.add(call)
    runner.join()
    assert len(refused) >= 4


# ---- Random calls, in a process of their own -------------------------------------------------------


class Fuzz:
    """Random objects, arguments and calls; whatever is no expected error ends the process."""

    def __init__(self, seed):
        self.rng = random.Random(seed)
        self.objects = []
        self.done = self.accepted = 0

    def number(self):
        return self.rng.choice([0, 1, 2, -1, 3, 0.5, 1e-9, 1e39, 1e300, float("nan"), float("inf"), 7])

    def size(self):
        return self.rng.choice([0, 1, 2, 3, 5, 6, 9, 10, 30, 201, 202, 256, 257, 480, 1057, 1251])

    def shape(self):
        return self.rng.choice([(self.size(),), (self.size(),), (self.size(), self.rng.choice([1, 2, 3, 6])),
                                (2, self.size()), (0, 2), (), (2, 3, self.size())])

    def array(self):
        kind = self.rng.choice("hhhhffdilbc?OU")
        values = 1000 * np.random.default_rng(self.rng.getrandbits(32)).normal(size=self.shape())
        values = np.asarray(values)
        array = values.astype(kind) if kind != "h" else values.astype("i2")
        change = self.rng.random()
        if change < 0.1:
            array = array[::-1]
        elif change < 0.15:
            array = array.astype(array.dtype.newbyteorder())
        elif change < 0.2 and array.dtype.kind == "f" and array.size:
            array.flat[0] = self.number()
        return array

    def taps(self):
        if self.rng.random() < 0.2:
            return self.rng.choice([None, [], [1j], "taps", {}, 1.0, self.array(), [self.number()] * 3])
        taps = np.random.default_rng(self.rng.getrandbits(32)).normal(size=self.size() or 1) / 50
        return self.rng.choice([taps, list(taps), taps.astype("f4")])

    def sos(self):
        rows, columns = self.rng.choice([0, 1, 2, 5, 417]), self.rng.choice([6, 6, 6, 10, 3])
        table = np.random.default_rng(self.rng.getrandbits(32)).normal(size=(rows, columns)) / 9
        if self.rng.random() < 0.9:
            table[:, columns // 2] = 1
        return table if self.rng.random() < 0.9 else self.taps()

    def a(self):
        return [1.0, *([0.1] * self.rng.choice([0, 1, 2, 200, 201]))] if self.rng.random() < 0.8 else self.taps()

    def data(self):
        """Stored bytes, cut or altered, some with a checksum that fits."""
        data = bytearray(bytes(self.rng.choice(self.objects)) if self.objects else b"")
        for _ in range(self.rng.choice([0, 1, 3])):
            if data:
                place = self.rng.randrange(min(len(data), self.rng.choice([32, len(data)])))
                data[place] = self.rng.choice([0, 1, 127, 255])
        if self.rng.random() < 0.2:
            data = data[: self.rng.randrange(len(data) + 1)]
        return bytes(data)

    def filter(self):
        """What a Stream filters with, perhaps."""
        what = self.rng.randrange(8)
        if what < 3:
            return [None, self.size(), self.taps()][what]
        if what < 6:
            return [(self.rng.randrange(2), self.rng.randrange(-1, 2), self.taps()) for _ in range(what - 3)]
        return jurn.Design("fir", self.taps()) if what == 6 or self.rng.random() < 0.9 else EQUALISER

    def stream(self):
        if self.rng.random() < 0.2:
            return jurn.Stream.from_bytes(self.data())
        return jurn.Stream(self.filter(), self.rng.choice([None, 1, 2, 2, 3, 17, 0]),
                           outputs=self.rng.choice([None, None, None, 2, 5000]),
                           precision=self.rng.choice(["double", "double", "int16", 1]),
                           block=self.rng.choice([1, 64, 256, 5000, -1]),
                           taps=self.rng.choice([None, 300, 0]), rate=self.rng.choice([48000, 1, -1]))

    def use_stream(self, o):
        pick = self.rng.randrange(6)
        if pick < 3:
            x = self.array()
            if pick:  # one that fits
                x = np.resize(x.astype(self.rng.choice(["i2", "f4", "f8"])), (self.size(), o.channels))
            return o.process(x.T, axis=-1) if self.rng.random() < 0.3 else o.process(x, self.rng.choice([None, x]))
        if pick == 3:
            return o.change(self.filter(), fade=self.rng.choice([1, 100, 480, 0]))
        return self.rng.choice([copy.copy, bytes, repr, lambda o: o.reset(), lambda o: o.tail + o.changing,
                                lambda o: pickle.loads(pickle.dumps(o))])(o)

    def make(self):
        if self.rng.random() < 0.15:
            return self.stream()
        kind, pick, c = self.rng.choice(CLASSES), self.rng.random(), self.rng.choice([1, 1, 2, 2, 0, 3, -1])
        if pick < 0.1:
            return kind.__new__(kind)
        if pick < 0.25:
            return kind.from_bytes(self.data())
        if kind is jurn.MovingSum:
            return kind(self.size())
        if kind is jurn.Convolution:
            routes = [(self.rng.randrange(2), self.rng.randrange(-1, 2), self.taps()) for _ in range(2)]
            return kind(routes, inputs=c, outputs=2, block=self.rng.choice([0, 1, 3, 64, 5000]),
                        taps=self.rng.choice([None, None, 300, 0]))
        if kind is jurn.LongFilter and self.rng.random() < 0.9:  # 5 MB each
            kind = jurn.Filter
        maker = self.rng.choice(["fir", "iir", "sos", "average"][: 2 if kind is jurn.FloatFilter else 4])
        channels = {} if kind is jurn.FloatFilter else {"channels": c}
        if maker == "average":
            return kind.average(self.size())
        if maker == "sos":
            return kind.sos(self.sos(), **channels)
        if maker == "iir":
            return kind.iir(self.taps(), self.a(), **channels)
        if kind is jurn.LongFilter:
            return kind.fir(self.taps(), self.rng.choice([None, self.taps()]),
                            kind=self.rng.randrange(-8, 3), **channels)
        return kind.fir(self.taps(), **channels)

    def use(self):
        o, pick = self.rng.choice(self.objects), self.rng.randrange(9)
        if isinstance(o, jurn.Stream):
            return self.use_stream(o)
        if pick < 4:
            x = self.array()
            if pick > 1:  # one that fits
                channels = getattr(o, "channels", 0) or o.inputs
                x = np.resize(x.astype("f4" if isinstance(o, jurn.FloatFilter) else "i2"),
                              (getattr(o, "block", 0) or self.size(), channels))
            out = self.rng.choice([None, None, None, x, self.array()])
            if pick == 3 and not isinstance(o, jurn.Convolution):
                return o.run(x, self.rng.choice([1, 17, 512, 0, -1, 10**9]), out)
            return o.process(x, out)
        if pick == 4:
            if isinstance(o, jurn.Convolution):
                return o.fade_to([(0, 0, self.taps())])
            if isinstance(o, jurn.MovingSum):
                return o.push(self.rng.choice([1, -32768, 70000]))
            return o.fade_to(self.rng.choice([self.taps(), self.sos()]), self.rng.choice([None, self.a()]))
        if pick == 5:
            state = o.state
            for view in state.values() if isinstance(state, dict) else []:
                if view.size and view.flags.writeable:
                    view.flat[self.rng.randrange(view.size)] = 5
            return repr(o)
        return self.rng.choice([copy.copy, bytes, lambda o: o.reset(), lambda o: pickle.loads(pickle.dumps(o))])(o)

    def function(self):
        x, pick = self.array(), self.rng.randrange(6)
        options = {"axis": self.rng.choice([0, -1, 1, 2, None])}
        if self.rng.random() < 0.2:
            options["zi"] = self.rng.choice([0, self.array()])
        if self.rng.random() < 0.2:
            options["block"] = self.rng.choice([1, 0, -3, 512, 2000])
        if pick < 3 and self.rng.random() < 0.95:
            options["prepare"] = False  # the analysis takes milliseconds
        if pick == 0:
            return jurn.fir(self.taps(), x, **options)
        if pick == 1:
            return jurn.lfilter(self.taps(), self.a(), x, **options)
        if pick == 2:
            return jurn.sosfilt(self.sos(), x, **options)
        if pick == 3:
            return jurn.moving_mean(self.size(), x, **options)
        if pick == 4:
            options.pop("zi", None)
            return jurn.convolve(x, self.taps(), self.rng.choice(["full", "same", "valid", ""]), **options)
        return jurn.Design(self.rng.choice(["fir", "iir", "sos"]), self.taps(), self.sos())

    def run(self, calls):
        while self.done < calls:
            self.done += 1
            call = self.rng.choice([self.make, self.use, self.use, self.function] if self.objects else [self.make])
            try:
                result = call()
                self.accepted += 1
                if call == self.make:
                    bytes(result)  # one that has run its constructor
                    self.objects = [*self.objects[-20:], result]
            except EXPECTED:
                pass


def test_random_calls_end_in_results_or_errors():
    done = subprocess.run([sys.executable, "-W", "ignore", __file__, str(random.randrange(2**32))],
                          capture_output=True, text=True, timeout=300)
    assert done.returncode == 0, (done.args, done.stdout[-2000:], done.stderr[-2000:])


if __name__ == "__main__":
    np.seterr(all="ignore")
    fuzz = Fuzz(int(sys.argv[1]))
    fuzz.run(20000)
    print(fuzz.done, "calls,", fuzz.accepted, "accepted")
    assert fuzz.accepted > 5000

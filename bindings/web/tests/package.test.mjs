import assert from 'node:assert/strict';
import { readFileSync } from 'node:fs';
import { test } from 'node:test';
import { fileURLToPath } from 'node:url';
import { loadDesigner } from '../dist/design.node.js';
import { compileLibrary, hasSimd, loadLibrary } from '../dist/index.node.js';
import { examples, native, signal } from './native.mjs';

const libraries = {
  vectors: await loadLibrary({ simd: true }),
  scalar: await loadLibrary({ simd: false }),
};
const CHANNELS = 2;

for (const [name, filter] of Object.entries(examples))
  test(`${name}: the bits of the native library`, () => {
    const input = signal(CHANNELS, 128 * 120);
    const expected = native(filter, input);
    assert.ok(expected[0].some((x) => Math.abs(x) > 0.01));
    const half = 128 * 47;
    for (const [build, library] of Object.entries(libraries)) {
      const stream = library.stream({ channels: CHANNELS });
      stream.change(filter);
      const parts = [[0, half], [half]].map((part) => stream.process(input.map((x) => x.subarray(...part))));
      expected.forEach((all, c) => assert.deepEqual([...parts[0][c], ...parts[1][c]], [...all], build));
      stream.free();
    }
  });

test('16-bit samples of two channels: what each channel gives, until a block that is not complete', () => {
  const filter = { kind: 'iir', b: [0.5, 0.25], a: [1, -0.5] };
  const [stream, left, right] = [2, 1, 1].map((channels) => libraries.vectors.stream({ channels }));
  for (const each of [stream, left, right]) each.change(filter);
  const samples = Int16Array.from({ length: 2 * 300 }, (_, i) => (i * i * 37) % 30000);
  const out = stream.processInt16(samples);
  [left, right].forEach((each, c) => assert.deepEqual(
    each.processInt16(samples.filter((_, i) => i % 2 === c)), out.filter((_, i) => i % 2 === c)));
  // The rest of a block was padded: whoever goes on would be given another filter's output.
  assert.throws(() => stream.processInt16(samples), /ended/);
});

test('a change fades over the frames that are told; the last of several waits; none is the input', () => {
  const stream = libraries.vectors.stream();
  const run = () => stream.process([new Float32Array(128 * 50).fill(1)])[0];
  stream.change({ kind: 'fir', b: [1] });
  run();
  stream.change({ kind: 'sections', b: [-1, 0, 0], a: [1, 0, 0] }, 1000);
  assert.ok(stream.changing);
  run().forEach((x, i) => assert.ok(Math.abs(x - Math.max(-1, 1 - 2 * (i / 1000))) < 0.01, `${x} at ${i}`));
  assert.ok(!stream.changing);
  for (const gain of [0.1, 0.2, 0.3]) stream.change({ kind: 'fir', b: [gain] });
  assert.equal(run().at(-1), Math.fround(0.3));
  stream.change(null);
  assert.equal(run().at(-1), 1);
});

test('convolutions of one reserved length keep their tails', () => {
  const library = libraries.vectors;
  const shape = { inputs: 1, outputs: 2, block: 128 };
  const room = (gain) => ({
    kind: 'convolution', taps: 9000,
    routes: [0, 1].map((output) => ({
      input: 0, output, taps: Float32Array.from({ length: 8000 }, (_, i) => (i % 1000 ? 0 : gain)),
    })),
  });
  const stream = library.stream(shape);
  stream.change(library.prepare(room(0.5), shape));
  const impulse = new Float32Array(128);
  impulse[0] = 1;
  stream.process([impulse]);
  stream.change(room(0.25));
  const [left, right] = stream.process([new Float32Array(128 * 60)]);
  // What the long partitions of the new one give is prepared over some blocks first.
  const echoes = [1, 2, 3, 4, 5, 6, 7].map((k) => Math.round(1e4 * left[1000 * k - 128]) / 1e4);
  assert.deepEqual(echoes.slice(3), [0.25, 0.25, 0.25, 0.25]);
  assert.ok(echoes.every((echo, i) => [0.5, 0.25].includes(echo) && echo <= (echoes[i - 1] ?? 0.5)), `${echoes}`);
  assert.deepEqual(left, right);
});

test('what cannot run is refused with a sentence', () => {
  const library = libraries.vectors;
  const stream = library.stream();
  const refused = [
    [{ kind: 'fir', b: [] }, /b has 0 coefficients; 1 to 1048576/],
    [{ kind: 'fir', b: new Array(1251).fill(0), precision: 'int16' }, /1251 coefficients; 1 to 1250/],
    [{ kind: 'fir', b: [1, NaN] }, /b\[1\] is NaN/],
    [{ kind: 'iir', b: [1], a: [2, 1] }, /a starts with 2/],
    [{ kind: 'sections', b: [1, 0], a: [1, 0] }, /three per section/],
    [{ kind: 'average', length: 2157, precision: 'int16' }, /1 to 2156/],
    [{ kind: 'convolution', routes: [{ input: 0, output: 1, taps: [1] }] }, /output 1/],
    [{ kind: 'convolution', routes: [{ input: 0, output: 0, taps: [] }] }, /no taps/],
    [{ kind: 'echo' }, /no kind/],
    [{ kind: 'fir' }, /b is missing/],
    [{ kind: 'iir', b: [1] }, /a is missing/],
    [{ kind: 'fir', b: '1 2' }, /b is no array/],
    [{ kind: 'fir', b: [1], precision: 'int8' }, /precision 'int8'/],
    [{ kind: 'convolution' }, /routes are missing/],
    [{ kind: 'convolution', routes: [{ input: 0, output: 0 }] }, /routes\[0\].taps is missing/],
    [undefined, /undefined is no filter/],
  ];
  for (const [filter, message] of refused)
    assert.throws(() => stream.change(filter), (e) => e instanceof RangeError && message.test(e.message));
  assert.throws(() => library.stream({ inputs: 17 }), /17 inputs/);
  assert.throws(() => stream.process([new Float32Array(1), new Float32Array(1)]), /2 arrays/);
  stream.free();
  assert.throws(() => stream.process([new Float32Array(128)]), /freed/);
});

test('levels: peaks and clipped samples since the last call', () => {
  const stream = libraries.vectors.stream({ channels: 2 });
  stream.change({ kind: 'fir', b: [2] });
  stream.levels();
  const left = new Float32Array(256).fill(0.25), right = new Float32Array(256).fill(-0.125);
  right[200] = -0.75;
  left[7] = 1;
  stream.process([left, right]);
  assert.deepEqual(stream.levels(), { peaks: [1, 0.75, 2, 1.5], inputClipped: 1, outputClipped: 2 });
  assert.deepEqual(stream.levels(), { peaks: [0, 0, 0, 0], inputClipped: 0, outputClipped: 0 });
});

test('memory is given back', () => {
  const library = libraries.vectors;
  const size = () => library.memory;
  const block = [new Float32Array(128), new Float32Array(128)];
  let before;
  for (let i = 0; i < 300; ++i) {
    const stream = library.stream({ channels: 2 });
    stream.process(block);
    for (const filter of Object.values(examples)) stream.change(filter);
    for (let k = 0; k < 40; ++k) stream.process(block);
    stream.free();
    if (i === 10) before = size();
  }
  assert.equal(size(), before);
});

test('streams that nobody holds are freed', { skip: !globalThis.gc && 'needs --expose-gc' }, async () => {
  const library = await loadLibrary();
  const wide = { kind: 'convolution', routes: [{ input: 0, output: 0, taps: new Float32Array(1 << 18).fill(0.1) }] };
  const round = async () => {
    for (let i = 0; i < 20; ++i) library.stream().change(wide);
    globalThis.gc();
    await new Promise((done) => setTimeout(done, 20));
  };
  await round();
  const before = library.memory;
  for (let i = 0; i < 5; ++i) await round();
  assert.equal(library.memory, before);
});

test('addresses above 2 GiB', async () => {
  const { Instance } = WebAssembly;
  let wasm;
  WebAssembly.Instance = function (...args) {
    const instance = new Instance(...args);
    wasm = instance.exports;
    return instance;
  };
  try {
    const library = await loadLibrary();
    for (let i = 0; i < 2; ++i) assert.notEqual(wasm.jurn_allocate(1.1 * 2 ** 30), 0);
    for (const filter of [examples['sections, double'], examples.convolution]) {
      const [high, low] = [library, libraries.vectors].map((of) => {
        const stream = of.stream({ channels: 2 });
        stream.change(filter);
        return stream.process(signal(2, 2560));
      });
      assert.deepEqual(high, low);
    }
    assert.ok(library.memory > 2 ** 31);
    // The designer's as well.
    const designer = await loadDesigner();
    for (let i = 0; i < 2; ++i) assert.notEqual(wasm.jurn_allocate(1.1 * 2 ** 30), 0);
    const design = { kind: 'fir', b: [1, 2, 3] };
    assert.deepEqual(designer.prepare(design).design.b, [1, 2, 3]);
  } finally {
    WebAssembly.Instance = Instance;
  }
});

test('versions and builds', async () => {
  const { version } = JSON.parse(readFileSync(new URL('../package.json', import.meta.url)));
  assert.equal(libraries.scalar.version, version);
  assert.equal(hasSimd(), true);
  // Whatever names it: a URL, a path, bytes; and what it is, is read from it.
  const file = new URL('../dist/jurn.wasm', import.meta.url);
  for (const wasm of [file, fileURLToPath(file), file.href, readFileSync(file)])
    assert.equal((await compileLibrary({ wasm })).simd, false);
  await assert.rejects(compileLibrary({ wasm: file, simd: true }), /no vectors/);
  await assert.rejects(compileLibrary({ wasm: new URL('../dist/design.wasm', import.meta.url) }), /not the library/);
  await assert.rejects(compileLibrary({ wasm: new Uint8Array([1, 2, 3]) }), /the bytes given: is no WebAssembly/);
});

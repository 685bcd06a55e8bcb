// The native engine as the judge: tests/stream.cpp runs the same filter on the same input.
import { spawnSync } from 'node:child_process';
import { fileURLToPath } from 'node:url';

const program =
  fileURLToPath(new URL('../../../build/release/tests/web_reference', import.meta.url));
const KINDS = { fir: 0, iir: 1, sections: 2, average: 3, convolution: 4 };

/** Filters planar floats; the frames have to be whole blocks. */
export function native(filter, input, outputs = input.length, block = 128) {
  const frames = input[0].length;
  const parts = [];
  const int16 = filter.precision === 'int16' ? 1 : 0;
  const head = [KINDS[filter.kind], int16, input.length, outputs, block, frames];
  if (filter.kind === 'convolution') {
    parts.push(Int32Array.of(...head, filter.routes.length, 0));
    for (const { input: from, output: to, taps } of filter.routes)
      parts.push(Int32Array.of(from, to, taps.length), Float32Array.from(taps));
  } else {
    const b = Float64Array.from(filter.kind === 'average' ? [filter.length] : filter.b);
    const a = Float64Array.from(filter.a ?? []);
    parts.push(Int32Array.of(...head, b.length, a.length), b, a);
  }
  parts.push(...input);
  const bytes = Buffer.concat(parts.map((p) => new Uint8Array(p.buffer, p.byteOffset, p.byteLength)));
  const run = spawnSync(program, { input: bytes, maxBuffer: 1 << 28 });
  if (run.status !== 0) throw new Error(`${program}: ${run.error ?? run.stderr} (${run.status})`);
  const out = new Uint8Array(run.stdout).buffer;
  return Array.from({ length: outputs }, (_, c) => new Float32Array(out, 4 * c * frames, frames));
}

/** Noise and a full-scale square wave on top: it clips. */
export function signal(channels, frames) {
  let state = 1;
  return Array.from({ length: channels }, () =>
    Float32Array.from({ length: frames }, (_, i) => {
      state = (Math.imul(state, 1664525) + 1013904223) | 0;
      return 0.6 * (state / 2 ** 31) + (i % 500 < 60 ? 0.6 : 0);
    }));
}

const decaying = (length, seed) =>
  Float32Array.from({ length }, (_, i) => Math.sin(i * i * 0.37 + seed) * Math.exp((-4 * i) / length) * 0.1);

/** One filter of each kind. */
export const examples = {
  'fir, double': { kind: 'fir', b: Array.from(decaying(255, 1)) },
  'fir, int16': { kind: 'fir', b: Array.from(decaying(255, 1)), precision: 'int16' },
  'iir, double': { kind: 'iir', b: [0.2, 0.1, 0.05], a: [1, -1.2, 0.6] },
  'iir, int16': { kind: 'iir', b: [0.2, 0.1, 0.05], a: [1, -1.2, 0.6], precision: 'int16' },
  'sections, double': {
    kind: 'sections', b: [1.2, -1.5, 0.5, 0.3, 0, -0.3], a: [1, -1.5, 0.7, 1, -1.9, 0.91],
  },
  'sections, int16': {
    kind: 'sections', b: [1.2, -1.5, 0.5, 0.3, 0, -0.3], a: [1, -1.5, 0.7, 1, -1.9, 0.91],
    precision: 'int16',
  },
  // Of order 5, by its roots; and one that stays a direct form, since its roots lie on one spot.
  'iir of order 5, double': {
    kind: 'iir', b: [0.01, 0.05, 0.1, 0.1, 0.05, 0.01], a: [1, -2.2, 2.6, -1.7, 0.66, -0.11],
  },
  'iir of one spot, double': { kind: 'iir', b: [0.1], a: [1, -2.5, 2.5, -1.25, 0.3125, -0.03125] },
  'fir of 5000 taps, double': { kind: 'fir', b: Array.from(decaying(5000, 5)) },
  'average, int16': { kind: 'average', length: 300, precision: 'int16' },
  'average, double': { kind: 'average', length: 3000 },
  convolution: {
    kind: 'convolution',
    routes: [
      { input: 0, output: 0, taps: decaying(5000, 2) },
      { input: 1, output: 1, taps: decaying(4000, 3) },
      { input: 0, output: 1, taps: decaying(700, 4) },
    ],
  },
};

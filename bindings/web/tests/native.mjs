// The native engine as the judge: the package for Python runs the same filter on the same input.
import { spawnSync } from 'node:child_process';
import { fileURLToPath } from 'node:url';

const PYTHONPATH = fileURLToPath(new URL('../../../build/release/bindings/python', import.meta.url));
const PROGRAM = `
import json, sys
import numpy as np
import jurn
f, x = (json.loads(line) for line in sys.stdin)
x = np.array(x, np.float32).T * np.float32(32768)
b, a = (np.array(f.get(key, [])) for key in "ba")
if f["kind"] == "sections":
    b, a = b.reshape(-1, 3), a.reshape(-1, 3)
if f.get("precision") == "int16":  # as it is: the page has prepared it before
    x = np.clip(np.rint(x), -32768, 32767).astype(np.int16)
    as_is = {"axis": 0, "precision": "int16", "prepare": False}
    run = {"fir": lambda: jurn.fir(b, x, **as_is), "iir": lambda: jurn.lfilter(b, a, x, **as_is),
           "sections": lambda: jurn.sosfilt(np.hstack([b, a]), x, **as_is),
           "average": lambda: jurn.moving_mean(f["length"], x, axis=0, precision="int16")}
    y = run[f["kind"]]()
else:
    # In blocks, long taps run as a convolution.
    make = {"fir": lambda: jurn.Design("fir", b) if len(b) < 1000 else [(c, c, b) for c in range(x.shape[1])],
            "iir": lambda: jurn.Design("iir", b, a), "sections": lambda: jurn.Design("sos", b, a),
            "average": lambda: f["length"],
            "convolution": lambda: [(r["input"], r["output"], r["taps"]) for r in f["routes"]]}
    y = jurn.Stream(make[f["kind"]](), x.shape[1], block=128).process(x)
sys.stdout.buffer.write((y.T / np.float32(32768)).tobytes())
`;

/** Filters planar floats; the frames have to be whole blocks. */
export function native(filter, input) {
  const plain = (_, value) => (ArrayBuffer.isView(value) ? Array.from(value) : value);
  const run = spawnSync('/usr/bin/python3', ['-W', 'ignore', '-c', PROGRAM], {
    input: `${JSON.stringify(filter, plain)}\n${JSON.stringify(input, plain)}`, maxBuffer: 1 << 28,
    env: { ...process.env, PYTHONPATH },
  });
  if (run.status !== 0) throw new Error(`${run.stderr || run.error} (${run.status})`);
  const out = new Uint8Array(run.stdout).buffer, frames = input[0].length;
  return input.map((_, c) => new Float32Array(out, 4 * c * frames, frames));
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

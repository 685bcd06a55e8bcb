// What the page draws is what the library does: magnitude, phase and delay against filtered tones.
import assert from 'node:assert/strict';
import { test } from 'node:test';
import { loadLibrary } from '../../bindings/web/dist/index.node.js';
import { examples } from '../../bindings/web/tests/native.mjs';
import { respond, respondLong } from '../../build/web/response.js';

const RATE = 48000, LENGTH = 1 << 15;
const library = await loadLibrary();

/** The transfer function at some radians per sample, from the filter's response to an impulse. */
function measured(filter, w) {
  const stream = library.stream();
  stream.change(filter);
  const impulse = new Float32Array(LENGTH);
  impulse[0] = 1;
  const [h] = stream.process([impulse]);
  stream.free();
  let re = 0, im = 0;
  h.forEach((x, n) => {
    re += x * Math.cos(w * n);
    im -= x * Math.sin(w * n);
  });
  return { magnitude: 20 * Math.log10(Math.hypot(re, im)), phase: Math.atan2(im, re) };
}

for (const name of ['fir, double', 'iir, double', 'sections, double']) {
  test(`${name}: magnitude, phase and group delay`, () => {
    const drawn = respond(examples[name], RATE);
    for (const i of [3, 150, 290, 400, 470]) {
      const w = (2 * Math.PI * drawn.frequency[i]) / RATE;
      const { magnitude, phase } = measured(examples[name], w);
      assert.ok(Math.abs(magnitude - drawn.magnitude[i]) < 0.01, `${magnitude} dB, drawn ${drawn.magnitude[i]}`);
      const turns = (phase - (drawn.phase[i] * Math.PI) / 180) / (2 * Math.PI);
      assert.ok(Math.abs(turns - Math.round(turns)) < 1e-3, `phase ${phase}, drawn ${drawn.phase[i]}`);
      const step = 1e-4;
      let slope = measured(examples[name], w + step).phase - measured(examples[name], w - step).phase;
      slope -= 2 * Math.PI * Math.round(slope / (2 * Math.PI));
      const delay = (-1000 * slope) / (2 * step) / RATE;
      assert.ok(Math.abs(delay - drawn.delay[i]) < 0.01, `${delay} ms, drawn ${drawn.delay[i]}`);
    }
    // The many taps turn it further than that between two points.
    for (let i = 1; i < drawn.phase.length && examples[name].a; ++i)
      assert.ok(Math.abs(drawn.phase[i] - drawn.phase[i - 1]) <= 200, 'the phase is continued');
  });
}

test('an impulse response: the mean power around each frequency', () => {
  const taps = new Float32Array(4000);
  taps[100] = 0.5;
  for (const level of respondLong(taps, RATE).magnitude) assert.ok(Math.abs(level + 6.0206) < 1e-3);
});

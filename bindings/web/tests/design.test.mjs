import assert from 'node:assert/strict';
import { readFileSync } from 'node:fs';
import { test } from 'node:test';
import { DesignError, loadDesigner } from '../dist/design.node.js';

const designer = await loadDesigner();
const bytes = (text) => new TextEncoder().encode(text);
const rate = 48000;

test('the gain of an equaliser at its peak', () => {
  // +3 dB on top of -6 dB at the middle of the band.
  const peak = designer.peakGain(designer.parse(
    'eq.txt', bytes('Preamp: -6 dB\nFilter 1: ON PK Fc 1000 Hz Gain 3 dB Q 1\n'), { rate }));
  assert.ok(Math.abs(20 * Math.log10(peak) + 3) < 0.001, `${peak}`);
});

test('broken files give a sentence that names the file, and the next one is read', () => {
  const broken = {
    '0.5 half': /^taps.txt:1: 'half' is no number/,
    '{\\rtf1': /is an RTF document/,
    // What takes a library says who reads it.
    'filters:\n  a:\n': /holds settings of CamillaDSP, which setup of jurn-filter/,
    'MATLAB 5.0 MAT-file': /is a .mat file, .* export --precision double of jurn-filter makes text of it/,
    '{"b": [1, 2]}': /is JSON, .* export --precision double of jurn-filter makes text of it/,
    'fLaC': /jurn-filter, GStreamer and Python read; read here are WAV and AIFF/,
  };
  for (const [content, message] of Object.entries(broken)) {
    assert.throws(() => designer.parse('taps.txt', bytes(content), { rate }),
                  (error) => error instanceof DesignError && message.test(error.message), content);
    assert.equal(designer.parse('good', bytes('1 2'), { rate }).b.length, 2);
  }
});

test('an equaliser is fitted to a measurement', () => {
  const level = (f) => 70 - 6 / (1 + (Math.log2(f / 800) * 2) ** 2);
  const text = Array.from({ length: 200 }, (_, i) => 20 * 1.03 ** i).map((f) => `${f.toFixed(2)};${level(f).toFixed(3)}\n`).join('');
  const fit = designer.fit('room.txt', bytes(text), { rate, bands: 3 });
  assert.ok(fit.rms < 0.3 && fit.preamp <= 0 && fit.bands.length <= 3, fit.summary);
  assert.equal(fit.text.split('\n').length, fit.bands.length + 2);
  assert.ok(fit.frequency.every((_, i) => Math.abs(fit.corrected[i] - fit.target[i]) <= fit.largest));
  const flat = designer.fit('room.txt', bytes(text), { rate, target: { name: 'same.txt', bytes: bytes(text) } });
  assert.deepEqual([flat.bands, flat.rms], [[], 0]);
  assert.throws(() => designer.fit('room.txt', bytes('20 1\n10 2\n'), { rate }),
                { constructor: DesignError, message: /^room.txt:2: the frequency 10 Hz follows 20 Hz/ });
  assert.throws(() => designer.fit('room.txt', bytes(text), { rate, bands: 33 }), DesignError);
  assert.throws(() => designer.fit('room.txt', bytes(text), { rate: NaN }), RangeError);
  assert.ok(designer.holdsEqualiser(bytes('GraphicEQ: 20 0; 100 3')) && !designer.holdsEqualiser(bytes(text)));
});

test('designs are prepared: scaled and measured', () => {
  const tiny = { kind: 'sections', b: [1e-7, 2e-7, 1e-7, 1e7, 0, 0], a: [1, -1.2, 0.5, 1, -0.5, 0] };
  const scaled = designer.prepare(tiny, 'int16');
  assert.ok(scaled.notices.length > 0 && scaled.design.b[0] > 1e-4);
  assert.ok(scaled.stable && scaled.expectedError < 1);
  const unstable = designer.prepare({ kind: 'iir', b: [1], a: [1, -2.5, 1] });
  assert.equal(unstable.stable, false);
  assert.ok(unstable.notices.some((notice) => notice.warning));
});

test('designs that do not hold together are refused, by every function, and none reads beyond them', () => {
  const broken = [
    [{ kind: 'sections', b: [1, 0, 0, 1, 0, 0], a: [1, 0, 0] }, /b has 6 and a 3 coefficients/],
    [{ kind: 'sections', b: [1, 0], a: [1, 0] }, /three per section/],
    [{ kind: 'iir', b: [1], a: [1, NaN] }, /a\[1\] is NaN/],
    [{ kind: 'iir', b: [1], a: [0, 1] }, /a starts with 0/],
    [{ kind: 'average', length: 3 }, /'average' is no kind of design/],
    [null, /null is no filter/],
  ];
  for (const [design, message] of broken)
    for (const run of [() => designer.prepare(design), () => designer.roots(design), () => designer.peakGain(design),
                       () => designer.export(design, 'text'), () => designer.export(design, 'header')])
      assert.throws(run, (error) => error instanceof RangeError && message.test(error.message));
});

test('what is exported is read again as the same filter', () => {
  const { design } = designer.prepare(
    { kind: 'sections', b: [0.3, 0.1, 0.7, 1, 0, -1], a: [1, -0.3, 0.1, 1, 0.2, 0.3] }, 'double');
  const again = designer.parse('again', bytes(designer.export(design, 'text')), { rate });
  assert.deepEqual([again.b, again.a], [design.b, design.a]);
  assert.match(designer.export(design, 'header', 'my eq'), /my_eq_run\(/);
});

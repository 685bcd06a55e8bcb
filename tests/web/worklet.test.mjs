// The audio node in Chromium: rendered offline, it gives the bits of the native library.
import assert from 'node:assert/strict';
import { after, before, test } from 'node:test';
import { examples, native, signal } from '../../bindings/web/tests/native.mjs';
import { launch, serve } from './browser.mjs';
import { renderIn } from './render.mjs';

let server, browser, page;

before(async () => {
  server = await serve({ '/empty.html': '<!doctype html><title>empty</title>' });
  browser = await launch();
  page = await browser.newPage();
  await page.goto(`${server.url}/empty.html`);
});

after(async () => {
  await browser?.close();
  server?.close();
});

const render = (...what) => renderIn(page, ...what);

for (const [name, filter] of Object.entries(examples)) {
  test(`${name}: through the worklet, the bits of the native library`, async () => {
    const input = signal(2, 128 * 80);
    const expected = native(filter, input);
    for (const simd of [true, false]) {
      const out = await render(filter, input, simd);
      out.forEach((channel, c) => assert.deepEqual(Float32Array.from(channel), expected[c]));
    }
    assert.ok(expected[0].some((x) => Math.abs(x) > 0.01));
  });
}

test('filters of single channels leave the others as they are', async () => {
  const { precision: _, ...design } = examples['sections, double'];
  const input = signal(2, 128 * 20), expected = native(design, input);
  const [left, right] = await render({ kind: 'channels', steps: [{ channels: [1], design }] }, input);
  assert.deepEqual(Float32Array.from(left), input[0]);
  assert.deepEqual(Float32Array.from(right), expected[1]);
  const three = { kind: 'channels', steps: [{ channels: [2], design }] };
  await assert.rejects(render(three, input), /step 0 is for the channels 2; the stream has 2, counted from 0/);
});

test('what cannot work is refused with a sentence: shapes, filters, a closed context, a lost file', async () => {
  const sentences = await page.evaluate(async () => {
    const { createFilterNode } = await import('/jurn/web-audio.js');
    const said = (promise) => promise.then(() => 'nothing', (error) => `${error.name}: ${error.message}`);
    const offline = () => new OfflineAudioContext(2, 128, 48000);
    const closing = new AudioContext(), closed = new AudioContext();
    const [one, other] = await Promise.all([createFilterNode(closing), createFilterNode(closed)]);
    await closed.close();
    const late = closing.close().then(() => said(one.change({ kind: 'fir', b: [1] })));
    const lost = offline();
    return [
      await said((await createFilterNode(offline())).change({ kind: 'iir', b: [1], a: [3, 1] })),
      await said(createFilterNode(offline(), { inputs: 17 })),
      await said(createFilterNode(offline(), { filter: { kind: 'fir' } })),
      await said(createFilterNode(offline(), { filter: { kind: 'fir', b: [1] }, outputs: 1 })),
      await said(other.change({ kind: 'fir', b: [1] })),
      await late,
      await said(createFilterNode(closed)),
      await said(createFilterNode(lost, { worklet: '/nothing.js' })),
      await said(createFilterNode(lost)), // the next attempt finds it
      await said(createFilterNode(offline(), { wasm: '/nothing.wasm' })),
      await said(createFilterNode(offline(), { wasm: '/empty.html' })),
    ];
  });
  const expected = [
    /^RangeError: a starts with 3, not with 1$/, /^RangeError: a stream of 17 inputs/, /^RangeError: b is missing/, /another number of outputs/,
    /audio context is closed/, /audio context is closed/, /audio context is closed/,
    /nothing.js: cannot be loaded as the processor .*option 'worklet'/, /^nothing$/,
    /nothing.wasm: cannot be loaded \(404\)/, /empty.html: is no WebAssembly module .*option 'wasm'/,
  ];
  expected.forEach((sentence, i) => assert.match(sentences[i], sentence));
});

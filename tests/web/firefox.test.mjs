// The page and the audio node in Firefox: the same bits, files of every kind, and what is said where
// there is no sound device.
import assert from 'node:assert/strict';
import { after, before, test } from 'node:test';
import { examples, native, signal } from '../../bindings/web/tests/native.mjs';
import { wav } from '../../build/web/files.js';
import { drop, launchFirefox, says, serve, until, upload } from './browser.mjs';
import { renderIn } from './render.mjs';

let server, browser, page;
const errors = [];

before(async () => {
  server = await serve({ '/empty.html': '<!doctype html><title>empty</title>' });
  browser = await launchFirefox();
}, { timeout: 120000 });

after(async () => {
  await browser?.close();
  server?.close();
}, { timeout: 60000 });

async function visit(path) {
  page = await browser.newPage();
  page.on('console', (message) => ['error', 'warn'].includes(message.type()) && errors.push(message.text()));
  page.on('pageerror', (error) => errors.push(error.message));
  await page.goto(`${server.url}/${path}`);
}

test('every kind through the worklet gives the bits of the native library', { timeout: 120000 }, async () => {
  await visit('empty.html');
  const input = signal(2, 128 * 16);
  for (const [name, filter] of Object.entries(examples)) {
    const out = await renderIn(page, filter, input);
    const expected = native(filter, input);
    out.forEach((channel, c) => assert.deepEqual(Float32Array.from(channel), expected[c], name));
  }
  await page.close();
});

test('the page: filters, files, the checksums, and a word where nothing can sound', { timeout: 120000 }, async () => {
  await visit('');
  await until(page, () => document.body.dataset.ready === 'yes');
  await page.click('[data-kind=design]');
  await until(page, () => document.getElementById('design-family') !== null);
  await page.select('#design-family', 'bessel');
  await says(page, 'command', 'bessel.txt');
  // Taps and a recording from WAV, which a worker reads.
  const recording = wav([Float32Array.from({ length: 480 }, (_, i) => Math.sin(i) / 3)], 48000, true);
  await page.click('[data-kind=file]');
  await drop(page, upload('taps.wav', recording), '[for=coefficients]');
  await says(page, 'file-summary', 'taps.wav: read as 480 taps');
  await drop(page, upload('sine.wav', recording), 'main');
  await until(page, () => document.getElementById('sound').value === 'file:sine.wav');
  await page.click('#save-wav');
  await says(page, 'stamp', 'Stamp of the filtered samples');
  await page.click('#run-checksum');
  await says(page, 'bits-summary', 'kinds give the bits of the native build, with and without vectors');
  await page.click('#play');
  // With a sound device it plays; without one a sentence says so.
  await until(page, () => !document.querySelector('#meter-out output').value.startsWith('−∞') ||
    document.getElementById('message').textContent === 'The sound does not start: is there a sound device, and is it free?');
  assert.deepEqual(errors, []);
  await page.close();
});

// A visit: how much comes first, what the page may load, examples of one click, and no network.
import assert from 'node:assert/strict';
import { readFileSync } from 'node:fs';
import { join } from 'node:path';
import { after, before, test } from 'node:test';
import { fileURLToPath } from 'node:url';
import { launch, open, says, serve, sounds } from './browser.mjs';

const root = fileURLToPath(new URL('../../', import.meta.url));
let browser;

before(async () => {
  browser = await launch();
});

after(() => browser?.close());

/** Until what the service worker fetches for later is there. */
const kept = (page) => page.waitForFunction(() => navigator.serviceWorker.controller?.state === 'activated');

test('a first visit is at most 1 MB, the rest comes when it is used, and nothing breaks the policy', async () => {
  const server = await serve();
  const { page, errors, close } = await open(browser, server.url);
  await kept(page);
  const bytes = server.sent.reduce((sum, file) => sum + file.bytes, 0);
  assert.ok(bytes > 2e5 && bytes <= 1e6, `${bytes} bytes: ${server.sent.map((file) => file.path).join(' ')}`);
  const came = (part) => server.sent.some(({ path }) => path.includes(part));
  for (const part of ['/sounds/', '/rooms/', '/head-', '/jurn-simd', '/checksum-']) assert.ok(!came(part), part);

  await page.click('[data-preset=telephone]');
  await says(page, 'file-summary', 'telephone.txt: read as 255 taps');
  await sounds(page);
  assert.equal(await page.inputValue('#sound'), 'speech');
  assert.ok(came('/jurn-simd') && came('/sounds/speech') && !came('/sounds/music'));
  await page.click('[data-preset=hall]');
  await says(page, 'room-summary', 'Hall: 2.00 s');
  await page.selectOption('#room', 'street');
  await says(page, 'room-summary', 'Street');
  await page.click('[data-preset=head]');
  const around = await page.inputValue('#azimuth');
  await page.waitForFunction((before) => document.getElementById('azimuth').value !== before, around);
  await sounds(page);
  await page.uncheck('#orbit');
  await page.click('#save-wav');
  await says(page, 'stamp', 'Stamp of the filtered samples');
  assert.ok(came('/head-48000.bin') && came('/rooms/street-left.wav'));
  assert.deepEqual(errors, []);

  // The policy holds: a script that somebody brings in does not run.
  await page.evaluate(() => {
    const script = document.createElement('script');
    script.textContent = 'window.broken = true';
    document.body.append(script);
  });
  assert.equal(await page.evaluate(() => window.broken), undefined);
  assert.match(errors.join(), /Content Security Policy/);
  await close();
  server.close();
});

test('without a network: the page of the last visit, sentences for the rest; with one nothing is old', async () => {
  const extra = {};
  const server = await serve(extra);
  const { page, close } = await open(browser, server.url);
  await kept(page);
  await page.click('#play');
  await sounds(page);
  // A new build, whose service worker has not come yet.
  extra['/style.css'] = readFileSync(join(root, 'build/web/style.css'), 'utf8') + 'footer { letter-spacing: 7px; }';
  await page.reload();
  assert.equal(await page.evaluate(() => getComputedStyle(document.querySelector('footer')).letterSpacing), '7px');
  server.close();
  await page.reload();
  await page.waitForFunction(() => document.body.dataset.ready === 'yes');
  await page.click('#play');
  await sounds(page);
  await page.selectOption('#sound', 'drums');
  await says(page, 'message', 'Drums cannot be loaded: the server of this page is not reached.');
  assert.equal(await page.inputValue('#sound'), 'music');
  await page.click('[data-kind=head]');
  await says(page, 'notices', 'The head cannot be loaded: the server of this page is not reached. You hear the original.');
  await page.click('[data-kind=file]');
  await page.selectOption('#example', 'dark.txt');
  await says(page, 'message', 'dark.txt cannot be loaded');
  await page.click('#run-checksum');
  await says(page, 'bits-summary', 'could not run');
  await close();
});

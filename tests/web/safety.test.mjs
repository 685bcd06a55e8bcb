// What protects ears and patience: the limiter, the click before what is loud, blind tests, files
// that do not fit, long recordings, links and undo.
import assert from 'node:assert/strict';
import { test } from 'node:test';
import { fromHash, initial, toHash } from '../../build/web/setting.js';
import { byChance, perCent } from '../../build/web/chance.js';
import { browser, open, playTone, saved, says, serveAndLaunch, server, upload } from './browser.mjs';

serveAndLaunch();

const open_ = (hash = '', options = { viewport: { width: 1300, height: 900 } }) => open(browser, `${server.url}/${hash}`, options);

/** The peak of what has just gone to the loudspeakers. */
const peak = (page) => page.evaluate(() => Math.max(...window.recorded.slice(-8192).map(Math.abs)));

test('loud filters wait for a click, and the limiter holds the loudspeakers', async () => {
  const { page, close } = await playTone(1000, 0.5);
  await page.waitForTimeout(200);
  assert.ok(await page.locator('#limited').isHidden(), 'nothing was loud');
  await page.fill('#preamp', '18');
  await says(page, 'play-loud', '+18.0 dB');
  await page.waitForTimeout(700);
  const quiet = await peak(page);
  assert.ok(Math.abs(quiet - 0.25) < 0.03, `${quiet}, not what was heard before`);
  assert.ok(await page.locator('#limited').isHidden());
  await page.click('#play-loud');
  await page.waitForFunction(() => !document.getElementById('limited').hidden);
  assert.match(await page.locator('#limited').textContent(), /limited by \d+\.\d dB/);
  await page.waitForTimeout(500);
  const loud = await peak(page);
  assert.ok(loud > 0.8 && loud <= 1, `${loud}`);
  assert.ok(await page.locator('#play-loud').isHidden());
  const clips = () => page.textContent('#meter-out .clips');
  assert.ok(parseInt(await clips()) > 1000, await clips());
  await page.fill('#preamp', '0');
  await page.waitForFunction(() => document.getElementById('limited').hidden);
  assert.equal(await clips(), '0 clipped', 'of the filter before');
  await close();
});

test('a band alone: its curve in the chart and its sound, while all bands are taken home', async () => {
  const { page, close } = await playTone(1000, 0.25);
  const heard = (level) => page.waitForFunction(
    (wanted) => Math.abs(Math.max(...window.recorded.slice(-8192).map(Math.abs)) / wanted - 1) < 0.03, level);
  const handle = page.locator('.handle').nth(1);
  for (const [field, value] of [[0, 1000], [1, 6]]) await page.locator('#bands tr').nth(1).locator('input[type=number]').nth(field).fill(String(value));
  for (const [field, value] of [[0, 1000], [1, -12]]) await page.locator('#bands tr').nth(0).locator('input[type=number]').nth(field).fill(String(value));
  await page.locator('#bands select').first().selectOption('PK');
  // A volume of -6 dB and the bands of 6 and -12 dB.
  const at = (db) => 0.25 * 10 ** ((db - 6) / 20);
  await heard(at(-6));
  await handle.focus();
  await page.keyboard.press('s');
  await says(page, 'notices', 'You hear band 2 alone; what you take home has all bands');
  await heard(at(6));
  assert.equal((await saved(page, '#save-coefficients')).bytes.toString().trim().split('\n').length, 5);
  // Its own colour is bold in the chart, beside those of the others.
  const coloured = () => page.evaluate(async () => {
    for (let frame = 0; frame < 3; ++frame) await new Promise(requestAnimationFrame);
    const chart = document.getElementById('chart');
    const { data } = chart.getContext('2d').getImageData(0, 0, chart.width, chart.height);
    const [r, g, b] = getComputedStyle(document.documentElement).getPropertyValue('--second').match(/\w\w/g).map((x) => parseInt(x, 16));
    let count = 0;
    for (let i = 0; i < data.length; i += 4) count += data[i + 3] > 150 && Math.abs(data[i] - r) + Math.abs(data[i + 1] - g) + Math.abs(data[i + 2] - b) < 30;
    return count;
  });
  await page.click('#play');
  const bold = await coloured();
  await page.click('#solo-end');
  await page.waitForFunction(() => document.getElementById('solo-end').hidden);
  const thin = await coloured();
  await page.click('#play');
  await heard(at(-6));
  assert.ok(thin > 100 && bold > 1.3 * thin, `${bold} pixels, then ${thin}`);
  await close();
});

test('the same loudness: the louder one is turned down', async () => {
  const { page, close } = await playTone(1000, 0.25, (p) => p.fill('#preamp', '6'));
  await page.check('#equal');
  await page.waitForTimeout(3000);
  const filtered = await peak(page);
  await page.click('#hear-original');
  await page.waitForTimeout(800);
  const original = await peak(page);
  assert.ok(Math.abs(20 * Math.log10(filtered / original)) < 0.5, `${filtered} and ${original}`);
  await close();
});

test('a blind test: nothing shows which one sounds, and answers are counted', async () => {
  const { page, close } = await playTone(1000, 0.25, (p) => p.fill('#preamp', '-12'));
  await page.click('#blind');
  assert.ok(await page.locator('#hear-original').isDisabled());
  for (let i = 0; i < 4; ++i) await page.click('[data-answer=original]');
  const score = await page.textContent('#score');
  const [, hits, chance] = score.match(/(?:Right|No): X was [AB], .*([0-4]) of 4 right; guessing does as well in ([\d.]+) %/);
  assert.equal(chance, { 0: '100', 1: '94', 2: '69', 3: '31', 4: '6.3' }[hits]);
  await page.keyboard.press('f');
  await page.click('#blind');
  assert.ok(await page.locator('#abx').isHidden());
  assert.equal(await page.getAttribute('#hear-filtered', 'aria-checked'), 'true');
  await close();
  assert.deepEqual([byChance(4, 4), byChance(0, 3), byChance(9, 10)], [1 / 16, 1, 11 / 1024]);
  assert.deepEqual([1, 0.6875, 0.0625, 0.00098, 9.5e-7].map(perCent), ['100', '69', '6.3', '0.098', 'less than 0.001']);
});

test('what does not fit is said at once, and what depends on it is off', async () => {
  const { page, errors, close } = await open_();
  await page.setInputFiles('#coefficients', upload('many.txt', '0.0001\n'.repeat(8001)));
  await says(page, 'file-summary', 'read as 8001 taps');
  await page.selectOption('#precision', 'int16');
  await says(page, 'notices', '8001 coefficients; in 16-bit samples 1 to 1250 are accepted');
  for (const id of ['save-coefficients', 'save-c', 'save-wav']) assert.ok(await page.locator(`#${id}`).isDisabled(), id);
  await page.selectOption('#precision', 'double');
  await page.waitForFunction(() => !document.getElementById('save-wav').disabled);
  await page.setInputFiles('#coefficients', upload('huge.txt', '0'.repeat(5.1e6)));
  await says(page, 'message', 'huge.txt: has 5.1 MB; files of coefficients up to 5 MB are read');
  assert.deepEqual(errors, []);
  await close();
});

test('a recording of three minutes does not hold the page up', async () => {
  const { page, errors, close } = await open_('', { acceptDownloads: true, viewport: { width: 1300, height: 900 } });
  await page.evaluate(async () => {
    const { wav } = await import('/files.js');
    const bytes = wav([1, 2].map(() => new Float32Array(180 * 48000).fill(0.5)), 48000, true);
    window.long = new DataTransfer();
    window.long.items.add(new File([bytes], 'long.wav'));
  });
  // The main thread's own time, which other programs on the machine do not lengthen.
  const client = await page.context().newCDPSession(page);
  await client.send('Performance.enable', { timeDomain: 'threadTicks' });
  const spent = async () => (await client.send('Performance.getMetrics')).metrics.find(({ name }) => name === 'ScriptDuration').value;
  const before = await spent();
  await page.evaluate(() => {
    window.dispatchEvent(new DragEvent('drop', { dataTransfer: window.long, cancelable: true }));
  });
  await page.waitForFunction(() => document.getElementById('time').value.endsWith('/ 3:00'), null, { timeout: 60000 });
  const [download] = await Promise.all([page.waitForEvent('download', { timeout: 60000 }), page.click('#save-wav')]);
  assert.equal(download.suggestedFilename(), 'equaliser-filtered.wav');
  const seconds = (await spent()) - before;
  // Copies of the channels. To filter them there would take some seconds.
  assert.ok(seconds < 1, `${seconds} s of the main thread`);
  assert.deepEqual(errors, []);
  await close();
});

test('links: short, read again, and those of before', async () => {
  const setting = { ...initial(), kind: 'file', file: { name: 'x', kind: 'fir', b: Array.from({ length: 100 }, (_, i) => Math.sin(i)), a: [] } };
  const hash = await toHash(setting);
  assert.deepEqual((await fromHash('#' + hash)).file, setting.file);
  assert.deepEqual((await fromHash('#' + hash)).bands, initial().bands, 'what the file does not use is left out');
  assert.ok((await toHash(initial())).length < 350);
  const old = Buffer.from(JSON.stringify({ ...initial(), kind: 'mean', mean: 77 })).toString('base64url');
  assert.equal((await fromHash('#' + old)).mean, 77);
  // Designs in links are checked as any other.
  const broken = { ...initial(), kind: 'file', file: { name: 'x', kind: 'sections', b: [1, 0, 0, 1, 0, 0], a: [1, 0, 0] } };
  assert.equal((await fromHash('#' + await toHash(broken))).file, null);
});

test('another link in the same tab, undo and redo, a link that is too long, a room of one\'s own', async () => {
  const { page, errors, close } = await open_();
  const gain = (value) => page.waitForFunction(
    (wanted) => document.querySelectorAll('#bands tr:first-child input')[2].value === wanted, value);
  await page.evaluate((hash) => (location.hash = hash), await toHash({ ...initial(), kind: 'mean', mean: 123 }));
  const mean = (length) => page.waitForFunction(
    (wanted) => document.getElementById('mean').value === wanted && !document.getElementById('kind-mean').hidden, length);
  await mean('123');
  // Pasted just while the page writes its own link into the address.
  await page.evaluate((hash) => {
    const original = window.btoa;
    window.btoa = (text) => {
      window.btoa = original;
      location.hash = hash;
      return original.call(window, text);
    };
    document.querySelector('[data-kind=eq]').click(); // what it writes
  }, await toHash({ ...initial(), kind: 'mean', mean: 77 }));
  await mean('77');
  await page.click('[data-kind=eq]');
  await page.locator('.handle').first().focus();
  await page.keyboard.press('ArrowUp');
  await gain('4.5');
  await page.waitForFunction(() => !document.getElementById('undo').disabled);
  await page.waitForTimeout(600);
  await page.keyboard.press('ArrowUp');
  await page.keyboard.press('Control+z'); // at once, before anything is remembered
  await gain('4.5');
  await page.click('#undo');
  await gain('4');
  await page.click('#redo');
  await page.keyboard.press('Control+Shift+z');
  await gain('5');
  await page.waitForFunction(() => document.getElementById('redo').disabled);
  let state = 1;
  const noise = Array.from({ length: 8001 }, () => (state = (Math.imul(state, 1664525) + 1013904223) | 0) / 2 ** 40);
  await page.setInputFiles('#coefficients', upload('many.txt', noise.join('\n')));
  await says(page, 'file-summary', 'read as 8001 taps');
  await page.click('#share');
  await says(page, 'message', 'too long for a link');
  await page.waitForFunction(() => location.hash.length < 400);
  await page.evaluate((hash) => (location.hash = hash), await toHash({ ...initial(), kind: 'room', room: 'file' }));
  await says(page, 'message', 'impulse response of its own');
  assert.deepEqual(errors, []);
  await close();
});

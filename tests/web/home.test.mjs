// "Take it home" tells the literal truth: the command shown, run with the files saved, gives the
// samples of "Filtered WAV" and its stamp.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { mkdtempSync, readFileSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { dirname, join, resolve } from 'node:path';
import { test } from 'node:test';
import { fileURLToPath } from 'node:url';
import { wav } from '../../build/web/files.js';
import { browser, open, saved, says, serveAndLaunch, server, upload } from './browser.mjs';

const root = fileURLToPath(new URL('../../', import.meta.url));
const tool = resolve(root, process.env.JURN_FILTER ?? 'build/release/tools/jurn-filter/jurn-filter');
serveAndLaunch();

const noise = (length, seed, level) => {
  let state = seed;
  return Float32Array.from({ length }, () => level * ((state = (Math.imul(state, 1664525) + 1013904223) | 0) / 2 ** 31));
};
const taps = (length) => Array.from(noise(length, 9, 0.3), (x, i) => x * Math.exp((-5 * i) / length)).join('\n');
const recordings = {
  mono: upload('my voice.wav', wav([noise(20011, 1, 0.9)], 48000, true)),
  stereo: upload("it's.wav", wav([noise(20011, 2, 0.9), noise(20011, 3, 0.5)], 48000, true)),
  four: upload('four.wav', wav([4, 5, 6, 7].map((seed) => noise(9001, seed, 0.9)), 48000, false)),
};

/** The samples of a WAV file with a plain header or one that is extended. */
function samplesOf(bytes) {
  let at = 12;
  const fmt = { format: 0, channels: 0 };
  for (;;) {
    const name = bytes.toString('latin1', at, at + 4), size = bytes.readUInt32LE(at + 4);
    if (name === 'fmt ') Object.assign(fmt, { format: bytes.readUInt16LE(at + 8), channels: bytes.readUInt16LE(at + 10), bits: bytes.readUInt16LE(at + 22) });
    if (name === 'data') return { channels: fmt.channels, bits: fmt.bits, data: bytes.subarray(at + 8, at + 8 + size) };
    at += 8 + size + (size % 2);
  }
}

/** Waits until what was chosen runs, then does literally what the page says. */
async function takeHome(page, name) {
  const folder = mkdtempSync(join(tmpdir(), 'jurn home '));
  try {
    await page.waitForTimeout(600);
    await page.waitForFunction(() => !document.getElementById('save-wav').disabled);
    const command = await page.textContent('#command');
    for (const button of ['#save-recording', '#save-coefficients']) await saved(page, button, folder);
    const wanted = samplesOf((await saved(page, '#save-wav', folder)).bytes);
    await page.waitForFunction(() => /[0-9a-f]{8}/.test(document.getElementById('stamp').textContent));
    const [stamp] = /[0-9a-f]{8}/.exec(await page.textContent('#stamp'));
    const said = execFileSync('/bin/sh', ['-c', command], {
      cwd: folder, env: { ...process.env, PATH: `${dirname(tool)}:${process.env.PATH}` }, stdio: 'pipe',
    }).toString();
    const found = samplesOf(readFileSync(join(folder, 'out.wav')));
    assert.deepEqual([found.channels, found.bits, found.data.length], [wanted.channels, wanted.bits, wanted.data.length], `${name}: ${command}`);
    assert.ok(found.data.equals(wanted.data), `${name}: ${command}: other samples`);
    assert.ok(wanted.data.some((byte) => byte !== 0), name);
    assert.match(said, new RegExp(`stamp +${stamp}\\b`), `${name}: ${command}`);
  } finally {
    rmSync(folder, { recursive: true });
  }
}

const kind = (name) => (page) => page.click(`[data-kind=${name}]`);
const file = (name, content, said) => async (page) => {
  await page.setInputFiles('#coefficients', upload(name, content));
  await says(page, 'file-summary', said);
};
const scenes = {
  equaliser: kind('eq'),
  'FIR of 255 taps': file('taps 1.txt', taps(255), '255 taps'),
  'FIR of 1251 taps': file('long.txt', taps(1251), '1251 taps'),
  'FIR of 6000 taps': file('longer.txt', taps(6000), '6000 taps'),
  'IIR of order 4': file('iir.txt', '0.1 0.2 0.3 0.2 0.1\n1 -0.9 0.6 -0.2 0.05\n', 'numerator and denominator of 5 and 5'),
  sections: file('sos.csv', '1.2,-1.5,0.5,1,-1.5,0.7\n0.3,0,-0.3,1,-1.9,0.91\n', '2 sections'),
  'single channels': file('two.txt', 'Preamp: -6 dB\nFilter 1: ON PK Fc 900 Hz Gain 4 dB Q 2\nChannel: L\nFilter: ON LPQ Fc 500 Hz Q 0.7\n', 'read as filters of single channels'),
  mean: kind('mean'),
  'a design': async (page) => {
    await page.click('[data-kind=design]');
    await says(page, 'command', 'butterworth.txt');
  },
  'room of two channels': async (page) => {
    await page.click('[data-kind=room]');
    await page.selectOption('#room', 'street');
  },
  'room of one': async (page) => {
    await page.click('[data-kind=room]');
    await page.setInputFiles('#response', upload('one.wav', wav([noise(3000, 8, 0.2)], 48000, false)));
    await says(page, 'room-summary', 'one.wav');
  },
  'room of four': async (page) => {
    await page.click('[data-kind=room]');
    await page.setInputFiles('#response', upload('true.wav', wav([1, 2, 3, 4].map((seed) => noise(3000, seed, 0.2)), 48000, false)));
    await says(page, 'room-summary', 'true.wav');
  },
  head: kind('head'),
};

/** What the tool refuses, too. */
const unfit = (scene, precision, channels) =>
  (precision === 'int16' && /1251|6000|room|head|single/.test(scene)) || (channels === 'four' && /room of two|head/.test(scene)) ||
  (channels === 'mono' && /single/.test(scene));

for (const [channels, recording] of Object.entries(recordings))
  test(`a recording of ${channels} channels: the command shown gives the filtered file`, async () => {
    const { page, errors, close } = await open(browser, server.url, { acceptDownloads: true });
    await page.setInputFiles('#recording', recording);
    for (const precision of ['double', 'int16']) {
      await page.click('[data-kind=eq]');
      await page.selectOption('#precision', precision);
      for (const [name, choose] of Object.entries(scenes)) {
        if (unfit(name, precision, channels)) continue;
        await choose(page);
        await takeHome(page, `${name}, ${precision}`);
      }
    }
    assert.deepEqual(errors, []);
    await close();
  });

// The page in Chromium, as a person uses it.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { readFileSync } from 'node:fs';
import { join } from 'node:path';
import { test } from 'node:test';
import { fileURLToPath, pathToFileURL } from 'node:url';
import { wav } from '../../build/web/files.js';
import { browser, drop, linkOf, open, playTone, saved, says, serveAndLaunch, server, sounds, tone, upload } from './browser.mjs';

const root = fileURLToPath(new URL('../../', import.meta.url));
serveAndLaunch('--use-fake-device-for-media-stream', '--deny-permission-prompts');

const open_ = (options, hash = '') => open(browser, `${server.url}/${hash}`, options);

const recording = (channels) => upload('tone.wav', wav(channels, 48000, true));

const responseAt = (page, x) => page.evaluate((at) => {
  const view = document.getElementById('view');
  const box = view.getBoundingClientRect();
  view.dispatchEvent(new PointerEvent('pointermove', { clientX: box.left + at * box.width, clientY: box.top + 20 }));
  return document.getElementById('readout').value;
}, x);

/** A file that soundfile or NumPy writes with these statements about `w`, 64 samples in double. */
const written = (name, statements) => upload(name, execFileSync('/usr/bin/python3', ['-c', `import io, sys, struct
import numpy as np
import scipy.io.wavfile
w = np.sin(np.arange(64)) / 3
f = io.BytesIO()
${statements}
sys.stdout.buffer.write(f.getvalue())`]));

/** Of the recorded output, the highest magnitude in a range and the largest step of all. */
const measured = (page, from, to) => page.evaluate(([begin, end]) => {
  let peak = 0, step = 0;
  const out = window.recorded;
  const first = out.findIndex((x) => x !== 0);
  for (let i = first + 1; i < out.length; ++i) step = Math.max(step, Math.abs(out[i] - out[i - 1]));
  for (const x of out.slice(begin, end)) peak = Math.max(peak, Math.abs(x));
  return { peak, step };
}, [from, to]);

test('a dragged band changes the response and the sound, without a step', async () => {
  const { page, errors, close } = await playTone(100, 0.2);
  const before = await responseAt(page, 0.2);
  const handle = await page.locator('.handle').first().boundingBox();
  const [x, y] = [handle.x + handle.width / 2, handle.y + handle.height / 2];
  const start = await page.evaluate(() => window.recorded.length);
  await page.mouse.move(x, y);
  await page.mouse.down();
  for (let i = 1; i <= 40; ++i) {
    await page.mouse.move(x + 2 * i, y - 3 * i);
    await page.waitForTimeout(15);
  }
  await page.mouse.up();
  const end = await page.evaluate(() => window.recorded.length);
  await page.waitForFunction((n) => window.recorded.length > n + 24000, end);
  assert.notEqual(await responseAt(page, 0.2), before);
  const { peak: quiet } = await measured(page, start - 8000, start);
  const { peak: loud, step: most } = await measured(page, -8000);
  assert.ok(loud > 1.5 * quiet, `${quiet} became ${loud}`);
  // The tone's own slope at the end, and the ramps between filters over 960 frames.
  const slope = (loud * 2 * Math.PI * 100) / 48000;
  assert.ok(most < 1.3 * slope + loud / 480, `a step of ${most}, the tone's slope is ${slope}`);
  assert.deepEqual(errors, []);
  await close();
});

test('a source that goes around the head, and rooms in between, make no step', async () => {
  const { page, errors, close } = await playTone(400, 0.3);
  await page.click('[data-kind=head]');
  await page.check('#orbit');
  await page.waitForTimeout(2500);
  await page.uncheck('#orbit');
  const source = await page.locator('#source').boundingBox();
  await page.mouse.move(source.x + 18, source.y + 18);
  await page.mouse.down();
  for (let i = 1; i <= 30; ++i) await page.mouse.move(source.x + 18 - 4 * i, source.y + 18 + 3 * i);
  await page.mouse.up();
  await page.click('[data-kind=room]');
  await page.waitForTimeout(300);
  await page.selectOption('#room', 'street');
  await page.waitForTimeout(300);
  await page.click('[data-kind=mean]');
  await page.waitForTimeout(500);
  const { peak: loud, step: most } = await measured(page, 0);
  // The tone's own slope, and ramps of 128 frames between neighbouring directions and rooms.
  const bound = (1.5 * loud * 2 * Math.PI * 400) / 48000 + (2 * loud) / 128;
  assert.ok(loud > 0.05 && most < bound, `a step of ${most}, up to ${bound} is right`);
  assert.deepEqual(errors, []);
  await close();
});

test('broken files get a sentence, and the filter stays', async () => {
  const { page, errors, close } = await open_({});
  const message = page.locator('#message');
  const broken = [
    ['#coefficients', upload('taps.txt', '1 2 three'), "taps.txt:1: 'three' is no number"],
    ['#coefficients', upload('empty.csv', ''), 'empty.csv: holds no numbers'],
    ['#coefficients', upload('photo.txt', '\xff\xd8\xff\xe0 JFIF'), 'photo.txt'],
    ['#coefficients', upload('silence.wav', wav([new Float32Array(0)], 48000, true)), 'silence.wav: holds no samples'],
    ['#coefficients', upload('flac.txt', 'fLaC\0\0\0\x22'), 'flac.txt: is audio of a kind'],
    ['#coefficients', upload('graphic.txt', 'Channel: L\nGraphicEQ: 100 1; 1000 2\n'), 'graphic.txt: has GraphicEQ or linear filters for single channels'],
    ['#coefficients', upload('three.txt', 'Channel: 3\nFilter: ON PK Fc 900 Hz Gain 4 dB Q 2\n'), "three.txt:1: there is no channel '3' among 2 channels"],
    ['#recording', upload('cut.wav', wav([tone(50, 0.1, 1)], 48000, true).subarray(0, 500)), 'cut.wav: was cut off (its header counts 96044 bytes, the file has 500).'],
    ['#recording', upload('noise.wav', 'RIFF....WAVEfmt nothing'), 'noise.wav: this browser cannot read it'],
    ['#recording', upload('nothing.wav', ''), 'nothing.wav: the file is empty.'],
    ['#recording', upload('zero.wav', wav([new Float32Array(0)], 48000, true)), 'zero.wav: it holds no sample.'],
    ['#response', upload('short.wav', wav([new Float32Array(0)], 44100, false)), 'short.wav: it holds no sample.'],
    ['#response', upload('room.wav', 'RIFF'), 'room.wav: this browser cannot read it'],
    ['#response', upload('mute.wav', wav([new Float32Array(1000)], 48000, true)), 'mute.wav: the response is silent'],
    ['#response', upload('long.wav', wav([tone(50, 0.1, 11)], 48000, true)), 'up to 10 s'],
  ];
  for (const [field, file, sentence] of broken) {
    await page.setInputFiles(field, file);
    await says(page, 'message', sentence);
    assert.doesNotMatch(await message.textContent(), /\bat \w+ \(|undefined|\[object/);
  }
  // Dropped on the page like from a desktop; and a good file after all the others.
  await page.evaluate(() => {
    const data = new DataTransfer();
    data.items.add(new File(['0.25 0.5 0.25\n'], 'smooth.txt'));
    window.dispatchEvent(new DragEvent('drop', { dataTransfer: data, cancelable: true }));
  });
  await page.waitForFunction(() => document.getElementById('file-summary').textContent === 'smooth.txt: read as 3 taps.');
  // Feedback of the other sign: refused, and played once the signs are turned.
  await page.setInputFiles('#coefficients', upload('other.csv', '1 0 0 1 1.8 -0.9\n'));
  await page.waitForFunction(() => document.getElementById('file-summary').textContent === 'other.csv: read as 1 section.');
  await page.click('text=Read as 6 taps instead');
  await page.waitForFunction(() => document.getElementById('file-summary').textContent === 'other.csv: read as 6 taps.');
  await page.click('text=Read as 1 section instead');
  await says(page, 'notices', 'unstable');
  await page.click('#turn');
  await page.waitForFunction(() => !/unstable/.test(document.getElementById('notices').textContent));
  assert.deepEqual(errors, []);
  await close();
});

test('archives of NumPy, recordings as taps, AIFF and double: read as the tool reads them', async () => {
  const { page, errors, close } = await open_({ acceptDownloads: true });
  const wide = written('w.wav', 'scipy.io.wavfile.write(f, 48000, w)');
  const aiff = (rate) => written(`${rate}.aiff`, `
form = b'COMM' + struct.pack('>ihIh', 18, 1, 64, 24) + struct.pack('>hQ', 16383 + 15, ${rate} << 48)
form += b'SSND' + struct.pack('>iii', 200, 0, 0) + b''.join(struct.pack('>i', int(x * 2 ** 23))[1:] for x in w)
f.write(b'FORM' + struct.pack('>i', 4 + len(form)) + b'AIFF' + form)`);
  const samples = Float32Array.from({ length: 64 }, (_, i) => Math.sin(i) / 3);
  const steps = samples.map((_, i) => Math.trunc((Math.sin(i) / 3) * 2 ** 23) / 2 ** 23);
  await page.setInputFiles('#coefficients', written('b and a.npz', 'np.savez_compressed(f, b=[1, 0.5], a=[1, -0.5], x="text")'));
  await says(page, 'file-summary', 'b and a.npz: read as numerator and denominator of 2 and 2');
  await page.setInputFiles('#coefficients', wide);
  await says(page, 'file-summary', 'w.wav: read as 64 taps');
  const taps = (await saved(page, '#save-coefficients')).bytes.toString().trim().split('\n').slice(1).map(Number);
  assert.deepEqual(Float32Array.from(taps), samples);
  // On the field for coefficients a recording is taps; elsewhere it is heard.
  await drop(page, aiff(48000), '[for=coefficients]');
  await says(page, 'file-summary', '48000.aiff: read as 64 taps');
  for (const [file, expected] of [[wide, samples], [aiff(48000), steps]]) {
    await drop(page, file, 'main');
    await page.waitForFunction((key) => document.getElementById('sound').value === key, `file:${file.name}`);
    const { bytes } = await saved(page, '#save-recording');
    assert.deepEqual(new Float32Array(new Uint8Array(bytes.subarray(44)).buffer), expected, file.name);
  }
  // Of another rate: as many seconds.
  await page.setInputFiles('#recording', aiff(24000));
  await page.waitForFunction(() => document.getElementById('sound').value === 'file:24000.aiff');
  const { bytes } = await saved(page, '#save-recording');
  assert.equal(bytes.length, 44 + 4 * 128);
  assert.deepEqual(errors, []);
  await close();
});

test('the microphone: denied with a sentence, allowed it is heard', async () => {
  const denied = await open_({});
  await denied.page.selectOption('#sound', 'microphone');
  await says(denied.page, 'message', 'microphone was not allowed');
  assert.equal(await denied.page.inputValue('#sound'), 'music');
  await denied.close();
  const allowed = await open_({ permissions: ['microphone'] });
  await allowed.page.selectOption('#sound', 'microphone');
  await allowed.page.waitForFunction(() => document.getElementById('time').value === 'microphone');
  // The fake device beeps.
  await sounds(allowed.page);
  // Asked for twice before it is there, one is heard, and pausing leaves none open.
  await allowed.page.evaluate(() => {
    const devices = navigator.mediaDevices, ask = devices.getUserMedia.bind(devices);
    window.tracks = [];
    const allowed = new Promise((allow) => { window.allow = allow; });
    devices.getUserMedia = async (wanted) => {
      const stream = await ask(wanted);
      window.tracks.push(...stream.getTracks());
      await allowed;
      return stream;
    };
  });
  const live = (count) => allowed.page.waitForFunction(
    (wanted) => window.tracks.length === 2 && window.tracks.filter((track) => track.readyState === 'live').length === wanted, count);
  for (let i = 0; i < 3; ++i) await allowed.page.click('#play');
  await live(2);
  await allowed.page.evaluate(() => window.allow());
  await live(1);
  await allowed.page.click('#play');
  await live(0);
  assert.deepEqual([...denied.errors, ...allowed.errors], []);
  await allowed.close();
});

const bandOf = (page, i) => page.locator('#bands tr').nth(i).locator('input[type=number]').evaluateAll(
  (fields) => fields.map((field) => Number(field.value)));

test('a double click adds a band and resets one, a menu at it chooses its type, two fingers its width', async () => {
  const { page, errors, close } = await open_({ viewport: { width: 1300, height: 900 }, hasTouch: true, reducedMotion: 'reduce' });
  const count = (n) => page.waitForFunction((wanted) => document.querySelectorAll('.handle').length === wanted, n);
  const view = await page.locator('#view').boundingBox();
  await page.mouse.dblclick(view.x + 0.35 * view.width, view.y + 40);
  await count(5);
  const [frequency, gain] = await bandOf(page, 4);
  assert.ok(frequency > 100 && frequency < 400 && gain > 6, `${frequency} Hz, ${gain} dB`);
  const handle = page.locator('.handle').nth(4);
  const box = await handle.boundingBox();
  assert.ok(Math.abs(box.x + box.width / 2 - view.x - 0.35 * view.width) < 3, 'where it was clicked');
  // Taken at its edge it does not jump, and says where it is on the way.
  await page.mouse.move(box.x + 4, box.y + 8);
  await page.mouse.down();
  await page.mouse.move(box.x + 5, box.y + 8);
  const near = await bandOf(page, 4);
  assert.ok(Math.abs(near[0] / frequency - 1) < 0.03 && Math.abs(near[1] - gain) < 0.2, `${near}`);
  assert.match(await page.textContent('#band-readout'), /^\d+ Hz   \d+\.\d dB   Q 1$/);
  await page.mouse.up();
  assert.ok(await page.locator('#band-readout').isHidden());
  await handle.dblclick();
  assert.equal((await bandOf(page, 4))[1], 0);
  await count(5);
  // New bands from the button lie apart.
  for (let i = 0; i < 3; ++i) await page.click('#add-band');
  const places = await Promise.all([0, 1, 2, 3, 4, 5, 6, 7].map(async (i) => (await bandOf(page, i))[0]));
  places.sort((a, b) => a - b).forEach((f, i) => assert.ok(i === 0 || f > 1.3 * places[i - 1], `${places}`));
  await handle.click({ button: 'right' });
  await page.keyboard.press('End');
  await page.keyboard.press('ArrowDown'); // the first again: the peak
  for (let i = 0; i < 3; ++i) await page.keyboard.press('ArrowDown');
  await page.keyboard.press('Enter');
  assert.equal(await page.locator('#bands select').nth(4).inputValue(), 'HPQ');
  assert.ok(await handle.evaluate((x) => document.activeElement === x));
  // Two fingers, apart from each other: twice as wide.
  const client = await page.context().newCDPSession(page);
  const fingers = (type, apart) => client.send('Input.dispatchTouchEvent', { type,
    touchPoints: apart ? [-1, 1].map((side, id) => ({ id, x: view.x + view.width / 2 + (side * apart) / 2, y: view.y + 60 })) : [] });
  await fingers('touchStart', 100);
  await fingers('touchMove', 150);
  await fingers('touchMove', 200);
  await fingers('touchEnd');
  assert.equal((await bandOf(page, 4))[2], 0.5);
  // Who wants less motion: the spectrogram is written over in its place.
  await page.click('#play');
  const columns = () => page.evaluate(() => {
    const { width, height } = document.getElementById('spectrogram');
    const { data } = document.getElementById('spectrogram').getContext('2d').getImageData(0, 0, width, height);
    return [...Array(width).keys()].filter((x) => data[4 * (width * (height >> 1) + x) + 3] > 0);
  });
  await sounds(page);
  await page.waitForTimeout(400);
  const written = await columns();
  // From the left, where the first moments may be silent; a moving one begins at the right.
  assert.ok(written[0] < 20 && written.at(-1) < 400, `${written[0]} to ${written.at(-1)}`);
  assert.deepEqual(errors, []);
  await close();
});

test('keys: bands, tabs, play, original and filtered; a link brings all back', async () => {
  const { page, errors, close } = await open_({});
  const band = page.locator('.handle').nth(1);
  await band.focus();
  for (const key of ['ArrowUp', 'ArrowUp', 'ArrowRight', 'PageUp', 'Shift+ArrowDown']) await page.keyboard.press(key);
  assert.deepEqual(await bandOf(page, 1), [445, -4.1, 1.38]);
  assert.match(await band.getAttribute('aria-valuetext'), /Peak, 445 hertz, -4.1 decibels/);
  await page.keyboard.press('End');
  assert.equal((await bandOf(page, 1))[0], 20000);
  await page.keyboard.press('Home');
  assert.equal((await bandOf(page, 1))[0], 20);
  await page.locator('#hear-filtered').focus();
  await page.keyboard.press('ArrowLeft');
  assert.equal(await page.getAttribute('#hear-original', 'aria-checked'), 'true');
  await page.keyboard.press('End');
  await band.focus();
  await page.keyboard.press('f');
  assert.equal(await page.getAttribute('#hear-original', 'aria-checked'), 'true');
  await page.locator('footer').click();
  await page.keyboard.press('Space');
  await says(page, 'play', 'Pause');
  await sounds(page);
  await band.focus();
  await page.keyboard.press('Delete');
  assert.equal(await page.locator('#bands tr').count(), 3);
  await page.locator('[data-kind=eq]').focus();
  for (let i = 0; i < 4; ++i) await page.keyboard.press('ArrowRight');
  assert.equal(await page.getAttribute('[data-kind=head]', 'aria-selected'), 'true');
  await page.locator('#source').focus();
  for (let i = 0; i < 6; ++i) await page.keyboard.press('ArrowLeft');
  assert.match(await page.getAttribute('#source', 'aria-valuetext'), /30 degrees right, 1.0 metres/);
  await page.keyboard.press('Home');
  assert.match(await page.getAttribute('#source', 'aria-valuetext'), /^0 degrees/);
  for (let i = 0; i < 6; ++i) await page.keyboard.press('ArrowRight');
  const again = await open_({}, await linkOf(page));
  assert.equal(await again.page.inputValue('#azimuth'), '30');
  assert.equal(await again.page.locator('#bands tr').count(), 3);
  const damaged = await open_({}, '#bm90IGEgc2V0dGluZw');
  assert.equal(await damaged.page.locator('#bands tr').count(), 4);
  assert.deepEqual([...errors, ...again.errors, ...damaged.errors], []);
  await Promise.all([close(), again.close(), damaged.close()]);
});

test('what is taken home: coefficients and C code that compiles', async () => {
  const { page, errors, close } = await open_({ acceptDownloads: true });
  await page.selectOption('#precision', 'int16');
  await says(page, 'notices', 'LSB');
  const coefficients = await saved(page, '#save-coefficients');
  assert.equal(coefficients.name, 'equaliser.txt');
  // Behind a comment that says what they were prepared for.
  assert.match(coefficients.bytes.toString(), /^# .*int16\n/);
  // A file that says what it was prepared for runs as it is, saved again and by its link.
  const asIs = '# prepared: sections, int16\n1024 0 0 1 -0.5 0.25\n0.0009765625 0 0 1 0.5 0.25\n';
  const numbers = (text) => text.split('\n').slice(1).join().match(/[-\d.e]+/g).map(Number);
  const again = async (of) => numbers((await saved(of, '#save-coefficients')).bytes.toString());
  for (const [text, same] of [[asIs.replace('int16', 'double'), false], [asIs, true]]) {
    await page.setInputFiles('#coefficients', upload(`${same}.txt`, text));
    await page.waitForFunction((start) => document.getElementById('file-summary').textContent.startsWith(start), `${same}.txt`);
    await says(page, 'command', `${same}.txt`);
    assert[same ? 'deepEqual' : 'notDeepEqual'](await again(page), numbers(asIs));
  }
  const linked = await open_({ acceptDownloads: true }, await linkOf(page));
  assert.deepEqual(await again(linked.page), numbers(asIs));
  await linked.close();
  await page.click('[data-kind=eq]');
  await says(page, 'command', 'equaliser.txt');
  const code = await saved(page, '#save-c');
  execFileSync('cc', ['-std=c99', '-Wall', '-Werror', '-fsyntax-only', '-x', 'c', '-',
                      ...['common', 'Delay/Delay_LIB', 'filter/Filter_LIB'].map((f) => `-I${root}modules/libJURN/${f}`)],
               { input: code.bytes });
  assert.deepEqual(errors, []);
  await close();
});

test('another rate: the recording and the response that were dropped come along', async () => {
  const { page, errors, close } = await open_({});
  await page.setInputFiles('#recording', recording([tone(300, 0.5, 1)]));
  await page.click('[data-kind=room]');
  await page.setInputFiles('#response', upload('ring.wav', wav([tone(900, 0.5, 0.5)], 48000, true)));
  await says(page, 'room-summary', 'ring.wav: 0.50 s, 24000 taps, mono');
  await page.click('#play');
  await says(page, 'play', 'Pause');
  await page.selectOption('#rate', '96000');
  await says(page, 'room-summary', 'ring.wav: 0.50 s, 48000 taps');
  await says(page, 'play', 'Pause');
  assert.equal(await page.inputValue('#sound'), 'file:tone.wav');
  await page.waitForFunction(() => document.getElementById('time').value.endsWith('/ 0:01'));
  await page.selectOption('#sound', 'speech');
  await page.selectOption('#sound', 'file:tone.wav');
  assert.deepEqual(errors, []);
  await close();
});

test('the panel of the same bits: every line, with vectors and without', async () => {
  const { page, close } = await open_({});
  await page.click('#run-checksum');
  await says(page, 'bits-summary', 'kinds give the bits', { timeout: 60000 });
  const lines = readFileSync(join(root, 'tests/reliability/checksum.txt'), 'utf8').trim().split('\n').length;
  assert.equal(await page.locator('#bits .same').count(), 2 * lines);
  await close();
});

test('every kind and view on a phone and a desktop: nothing beside the page', async () => {
  for (const [width, colorScheme] of [[360, 'light'], [768, 'dark'], [1400, 'light']]) {
    const { page, errors, close } = await open_({ viewport: { width, height: 800 }, colorScheme, isMobile: width === 360, hasTouch: width === 360 });
    for (const kind of ['eq', 'design', 'file', 'room', 'head', 'mean']) {
      await page.click(`[data-kind=${kind}]`);
      for (const view of ['magnitude', 'phase', 'delay', 'roots', 'impulse', 'step']) await page.click(`[data-view=${view}]`);
      const wide = await page.evaluate(() => document.scrollingElement.scrollWidth - innerWidth);
      assert.ok(wide <= 0, `${kind} at ${width}: ${wide} pixels too wide`);
    }
    await page.click('[data-kind=eq]');
    await page.click('[data-view=magnitude]');
    const top = () => page.evaluate(() => document.getElementById('view').getBoundingClientRect().top);
    const before = await top();
    assert.match(await responseAt(page, 0.5), /dB/);
    assert.equal(await top(), before, 'the chart slips away under the pointer');
    assert.match(await page.textContent('#chart-hint'), width === 360 ? /two fingers.*long press/ : /wheel.*right button/);
    assert.equal(await page.locator('.keys').isVisible(), width !== 360);
    const cut = await page.evaluate(() => [...document.querySelectorAll('.bands, .bands input')]
      .filter((x) => x.scrollWidth > x.clientWidth || x.offsetWidth > x.parentElement.clientWidth).map((x) => x.outerHTML.slice(0, 80)));
    assert.deepEqual(cut, [], `at ${width}`);
    // A finger on the chart scrolls the page; one on a band moves the band.
    assert.deepEqual(await page.evaluate(() => ['.chart', '.handle'].map((x) => getComputedStyle(document.querySelector(x)).touchAction)),
                     ['pan-y', 'none']);
    assert.deepEqual(errors, []);
    await close();
  }
});

test('opened as a file, the page says what to do', async () => {
  const page = await browser.newPage();
  await page.goto(pathToFileURL(join(root, 'build/web/index.html')).href);
  assert.ok(await page.locator('.file-note').isVisible());
  await page.close();
});

// The design tab: its filters are SciPy's, and what it writes for other programs gives their response.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { mkdtempSync, readFileSync, rmSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { after, test } from 'node:test';
import { fileURLToPath } from 'node:url';
import { loadDesigner } from '../../bindings/web/dist/design.node.js';
import { browser, linkOf, open, saved, says, serveAndLaunch, server, upload } from './browser.mjs';

const root = fileURLToPath(new URL('../../', import.meta.url));
const tool = process.env.JURN_FILTER ?? join(root, 'build/release/tools/jurn-filter/jurn-filter');
const folder = mkdtempSync(join(tmpdir(), 'jurn-design-'));
const designer = await loadDesigner();
serveAndLaunch();
after(() => rmSync(folder, { recursive: true }));

/** The path of what a button saves. */
const file = async (page, button) => join(folder, (await saved(page, button, folder)).name);

/** The difference of a .npy file from what SciPy says. */
const difference = (path, expression) => Number(execFileSync('/usr/bin/python3', ['-c', `import sys
import numpy as np
from scipy import signal
print(np.abs(np.load(sys.argv[1]) - ${expression}).max())`, path]));

// What CMSIS-DSP's manual says of its functions, as far as the exported file uses them. They print what they get:
// of a section three of the numerator and two of the denominator with the other sign, or taps, the last one first.
const ARM_MATH = `#include <stdint.h>
#include <stdio.h>
typedef float float32_t;
typedef struct { int n; } arm_biquad_cascade_df2T_instance_f32, arm_fir_instance_f32;
static void arm_biquad_cascade_df2T_init_f32(arm_biquad_cascade_df2T_instance_f32* f, uint8_t n, const float* c, float* s) {
  for (int i = 0; i < 5 * n; ++i) printf("%.9g\\n", c[i]);
}
static void arm_fir_init_f32(arm_fir_instance_f32* f, uint16_t n, const float* c, float* s, uint32_t block) {
  for (int i = 0; i < n; ++i) printf("%.9g\\n", c[i]);
}
`;

const LENGTH = 256;

/** What an exported C file has in it once it is compiled; `rest` are arguments of its function. */
function runC(path, name, type, rest = '') {
  writeFileSync(join(folder, 'arm_math.h'), ARM_MATH);
  const source = `#include "${path}"\nint main(void) { static float state[4096]; ${type} f; ${name}_init(&f, state${rest}); return 0; }`;
  execFileSync('cc', ['-x', 'c', '-std=c99', '-Wall', '-Werror', '-Wno-unused-function', '-I', folder, '-o', join(folder, 'run'), '-'], { input: source });
  return execFileSync(join(folder, 'run')).toString().trim().split('\n').map(Number);
}

/** The impulse response of an exported module in Chromium. */
const runWebAudio = (page, code, name) => page.evaluate(async ([text, from, length]) => {
  const module = await import(URL.createObjectURL(new Blob([text], { type: 'text/javascript' })));
  const context = new OfflineAudioContext(1, length, 48000);
  const buffer = new AudioBuffer({ length, sampleRate: 48000 });
  buffer.copyToChannel(Float32Array.of(1), 0);
  const source = new AudioBufferSourceNode(context, { buffer });
  const nodes = [module[from](context)].flat();
  source.connect(nodes[0]);
  nodes.at(-1).connect(context.destination);
  source.start();
  return [...(await context.startRendering()).getChannelData(0)];
}, [code, name, LENGTH]);

function assertClose(found, expected, message) {
  assert.ok(expected.some((x) => Math.abs(x) > 0.01), message);
  found.forEach((x, i) => assert.ok(Math.abs(x - (expected[i] ?? 0)) < 1e-4, `${message}: sample ${i} is ${x}, not ${expected[i]}`));
}

test('designs of the tab are SciPy\'s, and run elsewhere as they run here', async () => {
  const { page, errors, close } = await open(browser, server.url, { acceptDownloads: true, bypassCSP: true });
  assert.ok(!server.sent.some(({ path }) => path === '/design_tab.js'), 'before it is used');
  await page.click('[data-kind=design]');
  await page.selectOption('#design-family', 'elliptic');
  await page.selectOption('#design-pass', 'band');
  for (const [key, value] of [['order', 3], ['low', 700], ['high', 5000], ['ripple', 0.5], ['attenuation', 55]])
    await page.fill(`#design-${key}`, String(value));
  assert.ok(await page.locator('#design-taps').isHidden());
  await says(page, 'design-summary', '3 sections');
  await page.click('[data-view=step]');
  await says(page, 'command', 'elliptic.txt');
  // The settled change has the last number that was typed.
  await page.waitForFunction((before) => location.hash !== before, '');
  const npy = await file(page, '#save-npy');
  assert.ok(difference(npy, "signal.ellip(3, 0.5, 55, [700, 5000], 'bandpass', output='sos', fs=48000)") < 1e-9);
  const design = designer.parse('elliptic.npy', readFileSync(npy), { rate: 48000 });
  const { impulse, step } = designer.timeResponses(design);
  assert.ok(Math.abs(step.at(-1)) < 0.01 && Math.abs(step[5] - impulse.slice(0, 6).reduce((a, b) => a + b)) < 1e-12);
  const sections = [0, 3, 6].flatMap((i) => [...design.b.slice(i, i + 3), -design.a[i + 1], -design.a[i + 2]]);
  assert.deepEqual(runC(await file(page, '#save-cmsis'), 'elliptic', 'arm_biquad_cascade_df2T_instance_f32').map(Math.fround), sections.map(Math.fround));
  assertClose(await runWebAudio(page, readFileSync(await file(page, '#save-web-audio'), 'utf8'), 'elliptic'), impulse, 'Web Audio');
  // Lines of an equaliser are read back as the same numbers, by the tool as well.
  const lines = await file(page, '#save-lines');
  assert.match(readFileSync(lines, 'utf8'), /^Filter: ON IIR Order 2 Coefficients/m);
  const read = designer.parse('lines.txt', readFileSync(lines), { rate: 48000 });
  assert.deepEqual([read.b, read.a], [design.b, design.a]);
  assert.ok(execFileSync(tool, ['response', '--sos', lines, '--rate', '48000', '--csv', '-']).toString().split('\n').length > 100);

  // A link brings the design along; an FIR has taps, and no lines.
  await page.selectOption('#design-family', 'equiripple');
  await page.selectOption('#design-pass', 'high');
  for (const [key, value] of [['taps', 64], ['transition', 900]]) await page.fill(`#design-${key}`, String(value));
  await says(page, 'notices', '64 taps, an even number, let nothing pass');
  await page.fill('#design-taps', '65');
  await says(page, 'design-summary', '65 taps, late by 32 frames, 0.67 ms');
  await page.waitForFunction(() => document.getElementById('save-lines').disabled);
  const fir = await file(page, '#save-npy');
  assert.ok(difference(fir, "signal.remez(65, [0, 250, 1150, 24000], [0, 1], fs=48000)") < 1e-9);
  const taps = designer.parse('fir.npy', readFileSync(fir), { rate: 48000 }).b;
  assert.deepEqual(runC(await file(page, '#save-cmsis'), 'equiripple', 'arm_fir_instance_f32', ', 256').map(Math.fround),
                   taps.map(Math.fround).reverse());
  assertClose(await runWebAudio(page, readFileSync(await file(page, '#save-web-audio'), 'utf8'), 'equiripple'), taps, 'Web Audio');
  const linked = await open(browser, `${server.url}/${await linkOf(page)}`);
  await says(linked.page, 'design-summary', '65 taps');
  await linked.page.waitForFunction(() => document.getElementById('design-transition')?.value === '900');
  assert.deepEqual([...errors, ...linked.errors], []);
  await linked.close();
  await close();
});

/** A loudspeaker as REW exports it: bumps, a slope, and noise that is the same each time. */
function measured() {
  let seed = 7;
  const noise = () => ((seed = (seed * 48271) % 2147483647) / 2147483647 - 0.5) * 3;
  const lines = ['* Measurement data measured by REW V5.31', '* 1/48 octave smoothing', '* Freq(Hz) SPL(dB) Phase(degrees)'];
  for (let i = 1; i <= 4000; ++i) {
    const f = 5.5 * i, bump = (at, gain, width) => gain * Math.exp(-((Math.log2(f / at) / width) ** 2));
    lines.push(`${f.toFixed(2)} ${(78 + bump(60, 7, 0.5) + bump(400, -4, 0.7) + bump(3000, 6, 0.4) - f / 4000 + noise()).toFixed(3)} 0.0`);
  }
  return lines.join('\n') + '\n';
}

test('an equaliser is fitted to a measurement, and is the tool\'s', async () => {
  const { page, errors, close } = await open(browser, server.url, { acceptDownloads: true });
  const fit = (...options) => execFileSync(tool, ['fit', 'speaker.txt', 'bands.txt', '--overwrite', ...options], { cwd: folder }).toString();
  const same = async () => assert.equal(readFileSync(await file(page, '#save-lines'), 'utf8'), readFileSync(join(folder, 'bands.txt'), 'utf8'));
  writeFileSync(join(folder, 'speaker.txt'), measured());
  writeFileSync(join(folder, 'wanted.csv'), 'frequency,raw\n20,4\n100,3\n1000,0\n20000,-6\n');
  await page.click('[data-kind=design]');
  await page.selectOption('#design-family', 'fitted');
  await says(page, 'design-summary', 'No measurement yet');
  assert.ok(await page.locator('#design-low').isHidden() && await page.locator('#save-lines').isDisabled());
  await page.setInputFiles('#measurement', join(folder, 'speaker.txt'));
  const said = fit().trim().replace('bands.txt: ', 'speaker.txt: ');
  await says(page, 'design-summary', `${said}.`);
  await says(page, 'command', '-c fitted.txt');
  await same();
  // The field of a limit fits anew, and a target, a second file, does.
  await page.fill('#design-bands', '4');
  await says(page, 'design-summary', fit('--bands', '4').trim().replace('bands.txt: ', ''));
  await page.setInputFiles('#target', join(folder, 'wanted.csv'));
  await says(page, 'design-summary', `speaker.txt to wanted.csv: ${fit('--bands', '4', '--target', 'wanted.csv').trim().replace('bands.txt: ', '')}`);
  await same();
  const rows = readFileSync(join(folder, 'bands.txt'), 'utf8').trim().split('\n').length - 1;
  // What is no measurement is said and changes nothing.
  await page.setInputFiles('#measurement', upload('broken.txt', '20 75\n50 76\nhello 3\n'));
  await says(page, 'message', "broken.txt:3: 'hello' is no number");
  await says(page, 'design-summary', 'speaker.txt to wanted.csv');
  // A link brings the bands along.
  const linked = await open(browser, `${server.url}/${await linkOf(page)}`);
  await says(linked.page, 'design-summary', 'speaker.txt to wanted.csv: ');
  await says(linked.page, 'command', '-c fitted.txt');
  await page.click('#fit-edit');
  assert.equal(await page.locator('#bands tr').count(), rows);
  await same();
  // AutoEq's own equalisers run as they are.
  await page.click('[data-kind=design]');
  for (const [name, text, read] of [['ParametricEQ.txt', 'Preamp: -6 dB\nFilter 1: ON PK Fc 100 Hz Gain 3 dB Q 1\n', '1 section'],
                                    ['GraphicEQ.txt', 'GraphicEQ: 20 0; 1000 3; 20000 -2\n', 'taps']]) {
    await page.click('[data-kind=design]');
    await page.setInputFiles('#measurement', upload(name, text));
    await says(page, 'message', `${name} is an equaliser already`);
    await says(page, 'file-summary', read);
  }
  assert.deepEqual([...errors, ...linked.errors], []);
  await linked.close();
  await close();
});

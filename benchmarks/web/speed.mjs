// Microseconds per block of 128 stereo frames, in Node and in Chromium, beside Web Audio's own nodes.
// Writes the table of docs/web.md between its marks.
import { readFileSync, writeFileSync } from 'node:fs';
import { cpus } from 'node:os';
import { fileURLToPath } from 'node:url';
import { loadLibrary } from '../../bindings/web/dist/index.node.js';
import { launch, serve } from '../../tests/web/browser.mjs';

const document_ = fileURLToPath(new URL('../../docs/web.md', import.meta.url));
const RUNS = 7;
const taps = (length, seed) =>
  Array.from({ length }, (_, i) => Math.sin(i * i * 0.37 + seed) * Math.exp((-5 * i) / length) * 0.05);
const sections = (precision) => ({
  kind: 'sections', precision,
  b: Array.from({ length: 8 }, () => [1.02, -1.8, 0.85]).flat(),
  a: Array.from({ length: 8 }, () => [1, -1.8, 0.87]).flat(),
});
const room = (length) => ({
  kind: 'convolution', routes: [0, 1].map((c) => ({ input: c, output: c, taps: taps(length, c) })),
});
const filters = {
  'eight sections, double': sections('double'),
  'eight sections, 16 bits': sections('int16'),
  'FIR of 255 taps, double': { kind: 'fir', b: taps(255, 1) },
  'FIR of 255 taps, 16 bits': { kind: 'fir', b: taps(255, 1), precision: 'int16' },
  'convolution, 255 taps': room(255),
  'convolution, 96,000 taps': room(96000),
};
const peers = {
  'eight sections, double': '8 BiquadFilterNodes',
  'eight sections, 16 bits': '8 IIRFilterNodes',
  'FIR of 255 taps, double': 'ConvolverNode',
  'convolution, 255 taps': 'ConvolverNode',
  'convolution, 96,000 taps': 'ConvolverNode',
};

/** The least of several means over 4 s of noise; the first run warms up. */
function timeStream(library, filter, runs) {
  const blocks = 1500;
  const noise = [0, 1].map(() => Float32Array.from({ length: 128 * blocks }, () => Math.random() - 0.5));
  const stream = library.stream({ channels: 2 });
  stream.change(filter);
  const out = noise.map((x) => new Float32Array(x.length));
  let least = Infinity;
  for (let run = 0; run <= runs; ++run) {
    const start = performance.now();
    stream.process(noise, out);
    if (run > 0) least = Math.min(least, (1000 * (performance.now() - start)) / blocks);
  }
  stream.free();
  return least;
}

const node = {};
for (const [name, filter] of Object.entries(filters)) {
  node[name] = {};
  for (const simd of [true, false])
    node[name][simd] = timeStream(await loadLibrary({ simd }), filter, RUNS);
}

const server = await serve({ '/empty.html': '<!doctype html><title>empty</title>' });
const browser = await launch();
const page = await browser.newPage();
await page.goto(`${server.url}/empty.html`);
const chromium = await page.evaluate(async ({ filters, peers, RUNS, timer }) => {
  const { createFilterNode } = await import('/jurn/web-audio.js');
  const { loadLibrary } = await import('/jurn/index.js');
  const timeStream = new Function(`return ${timer}`)();
  const library = await loadLibrary();
  const seconds = 4, rate = 48000;
  const noise = new AudioBuffer({ length: seconds * rate, numberOfChannels: 2, sampleRate: rate });
  for (let c = 0; c < 2; ++c)
    noise.copyToChannel(Float32Array.from({ length: noise.length }, () => Math.random() - 0.5), c);
  const impulse = (routes) => {
    const buffer = new AudioBuffer({ length: routes[0].length, numberOfChannels: routes.length, sampleRate: rate });
    routes.forEach((b, c) => buffer.copyToChannel(Float32Array.from(b), c));
    return buffer;
  };
  async function render(connect) {
    const context = new OfflineAudioContext(2, noise.length, rate);
    const source = new AudioBufferSourceNode(context, { buffer: noise });
    let last = source;
    for (const next of await connect(context)) last = last.connect(next);
    last.connect(context.destination);
    source.start();
    const start = performance.now();
    await context.startRendering();
    return (1000 * (performance.now() - start)) / (noise.length / 128);
  }
  const peerNodes = (name, filter, context) => {
    if (peers[name] === 'ConvolverNode')
      return [new ConvolverNode(context, {
        buffer: impulse(filter.routes?.map((r) => r.taps) ?? [filter.b, filter.b]), disableNormalization: true,
      })];
    return Array.from({ length: 8 }, () => peers[name] === '8 BiquadFilterNodes'
      ? new BiquadFilterNode(context, { type: 'peaking', frequency: 1000, gain: 3 })
      : new IIRFilterNode(context, { feedforward: filter.b.slice(0, 3), feedback: filter.a.slice(0, 3) }));
  };
  const results = {};
  const least = async (measure) => {
    let time = Infinity;
    for (let run = 0; run < RUNS; ++run) time = Math.min(time, await measure());
    return time;
  };
  const empty = await least(() => render(async () => []));
  for (const [name, filter] of Object.entries(filters)) {
    results[name] = {
      kernel: timeStream(library, filter, RUNS),
      node: (await least(() => render(async (context) => [await createFilterNode(context, { filter })]))) - empty,
      peer: peers[name] ? (await least(() => render(async (context) => peerNodes(name, filter, context)))) - empty : null,
    };
  }
  return results;
}, { filters, peers, RUNS, timer: timeStream.toString() });
const version = browser.version();
await browser.close();
server.close();

const number = (x) => (x === null ? '' : x < 10 ? x.toFixed(1) : x.toFixed(0));
const rows = Object.keys(filters).map((name) => {
  const c = chromium[name];
  return `| ${name} | ${number(node[name].true)} | ${number(node[name].false)} | ${number(c.kernel)} | ` +
    `${number(c.node)} | ${c.peer === null ? '' : `${number(c.peer)}, ${peers[name]}`} |`;
});
const date = new Date().toISOString().slice(0, 10);
const table = [
  '| filter | Node, vectors | Node, scalar | Chromium, stream | Chromium, audio node | Web Audio\'s own |',
  '| --- | --: | --: | --: | --: | --: |', ...rows, '',
  `${cpus()[0].model}, one core; Node ${process.versions.node}, Chromium ${version}; ${date}.`,
].join('\n');
console.log(table);
const text = readFileSync(document_, 'utf8');
writeFileSync(document_, text.replace(/(<!-- speed -->\n)[^]*(<!-- end -->)/, `$1${table}\n$2`));

// Chromium and a server for the built page, for the tests beside this file.
import { existsSync, readFileSync, statSync } from 'node:fs';
import { createServer } from 'node:http';
import { createRequire } from 'node:module';
import { extname, join, normalize } from 'node:path';
import { after, before } from 'node:test';
import { fileURLToPath } from 'node:url';
import { wav } from '../../build/web/files.js';

const root = fileURLToPath(new URL('../../', import.meta.url));
const require = createRequire(join(root, 'bindings/web/package.json'));
const { chromium } = require('playwright-core');
const TYPES = {
  '.html': 'text/html', '.js': 'text/javascript', '.css': 'text/css', '.wasm': 'application/wasm',
  '.svg': 'image/svg+xml', '.webmanifest': 'application/manifest+json',
};

/** Serves the page; other paths come from `extra`, a map from path to content. `sent` lists what went out. */
export async function serve(extra = {}) {
  const sent = [];
  const server = createServer((request, response) => {
    const path = normalize(decodeURIComponent(new URL(request.url, 'http://x').pathname));
    const file = join(root, 'build/web', path === '/' ? 'index.html' : path);
    if (path in extra) {
      response.writeHead(200, { 'content-type': TYPES[extname(path)] ?? 'text/html' }).end(extra[path]);
    } else if (existsSync(file) && statSync(file).isFile()) {
      const modified = statSync(file).mtime.toUTCString();
      if (request.headers['if-modified-since'] === modified) return response.writeHead(304).end();
      const bytes = readFileSync(file);
      sent.push({ path, bytes: bytes.length });
      response.writeHead(200, { 'content-type': TYPES[extname(file)] ?? 'application/octet-stream', 'last-modified': modified });
      response.end(bytes);
    } else {
      response.writeHead(404).end();
    }
  });
  await new Promise((done) => server.listen(0, '127.0.0.1', done));
  return { url: `http://127.0.0.1:${server.address().port}`, sent, close: () => {
    server.close();
    server.closeAllConnections();
  } };
}

export const launch = (...args) =>
  chromium.launch({
    executablePath: process.env.CHROMIUM ?? '/usr/bin/chromium',
    args: ['--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run',
           '--disable-background-networking', '--disable-component-update', '--disable-sync', ...args],
  });

/** What a test file has between its first and its last test, once it calls serveAndLaunch(). */
export let server, browser;

export function serveAndLaunch(...args) {
  before(async () => {
    server = await serve();
    browser = await launch(...args);
  });
  after(async () => {
    await browser?.close();
    server?.close();
  });
}

/** Debian's Firefox, over WebDriver BiDi. */
export const launchFirefox = () => require('puppeteer-core').launch({
  browser: 'firefox', executablePath: process.env.FIREFOX ?? '/usr/bin/firefox-esr', headless: true, timeout: 60000, protocolTimeout: 60000,
});

/** Playwright's own wait evaluates text in the page, which the page's policy forbids. */
export async function until(page, condition, arg, { timeout = 30000 } = {}) {
  for (const end = Date.now() + timeout; !(await page.evaluate(condition, arg));) {
    if (Date.now() > end) throw new Error(`not within ${timeout} ms: ${condition} of ${arg}`);
    await new Promise((done) => setTimeout(done, 30));
  }
}

export const says = (page, id, text, options) => until(
  page, ([at, part]) => document.getElementById(at).textContent.includes(part), [id, text], options);
export const sounds = (page) => until(page, () => !document.querySelector('#meter-out output').value.startsWith('−∞'));

export const tone = (frequency, level, seconds) =>
  Float32Array.from({ length: 48000 * seconds }, (_, i) => level * Math.sin((2 * Math.PI * frequency * i) / 48000));
export const upload = (name, content) => ({ name, mimeType: '', buffer: Buffer.from(content) });

/** Drops what upload() gives. */
export const drop = (page, { name, buffer }, place) => page.evaluate(([title, content, at]) => {
  const data = new DataTransfer();
  data.items.add(new File([Uint8Array.from(content)], title));
  document.querySelector(at).dispatchEvent(new DragEvent('drop', { dataTransfer: data, bubbles: true, cancelable: true }));
}, [name, [...buffer], place]);

/** A page of the site once it is ready; `errors` collects what the console would show. */
export async function open(browser, url, options = {}) {
  const context = await browser.newContext(options);
  const page = await context.newPage();
  const errors = [];
  page.on('console', (message) => {
    if (['error', 'warning'].includes(message.type())) errors.push(message.text());
  });
  page.on('pageerror', (error) => errors.push(error.message));
  page.waitForFunction = (...condition) => until(page, ...condition);
  await page.goto(url);
  await page.waitForFunction(() => document.body.dataset.ready === 'yes' &&
    document.getElementById('engine').textContent !== '');
  return { page, errors, close: () => context.close() };
}

/** The link of the page as it is now, from "#" on: it is in the address before it is copied, or that is refused. */
export async function linkOf(page) {
  await page.click('#share');
  await page.waitForFunction(() => document.getElementById('share').textContent === 'Copied' ||
    /The link is in the address bar/.test(document.getElementById('message').textContent));
  return new URL(page.url()).hash;
}

/** What a click on a button saves, into a folder if one is told. */
export async function saved(page, button, folder) {
  const [download] = await Promise.all([page.waitForEvent('download'), page.click(button)]);
  const name = download.suggestedFilename();
  if (folder) await download.saveAs(join(folder, name));
  return { name, bytes: readFileSync(await download.path()) };
}

/** Records on the audio thread what goes to the loudspeakers, in `recorded`. */
function recordOutput(page) {
  return page.addInitScript(() => {
    const code = `registerProcessor('recorder', class extends AudioWorkletProcessor {
      process([input]) { if (input[0]) this.port.postMessage(input[0].slice()); return true; } });`;
    const connect = AudioNode.prototype.connect;
    window.recorded = [];
    AudioNode.prototype.connect = function (to, ...rest) {
      if (to instanceof AudioDestinationNode && to.context instanceof AudioContext)
        void to.context.audioWorklet.addModule(URL.createObjectURL(new Blob([code], { type: 'text/javascript' })))
          .then(() => {
            const recorder = new AudioWorkletNode(to.context, 'recorder', { numberOfOutputs: 0 });
            recorder.port.onmessage = ({ data }) => window.recorded.push(...data);
            connect.call(this, recorder);
          });
      return connect.call(this, to, ...rest);
    };
  });
}

/** A page that plays a tone of both channels and records what it gives. */
export async function playTone(frequency, level, prepare) {
  // The policy of the page lets no such recorder in.
  const context = await browser.newContext({ viewport: { width: 1300, height: 900 }, bypassCSP: true });
  const page = await context.newPage();
  const errors = [];
  page.on('console', (message) => errors.push(message.text()));
  await recordOutput(page);
  await page.goto(server.url);
  await page.waitForFunction(() => document.getElementById('engine').textContent !== '');
  await page.click('#flat');
  const channel = tone(frequency, level, 2);
  await page.setInputFiles('#recording', upload('tone.wav', wav([channel, channel], 48000, true)));
  await prepare?.(page);
  await page.click('#play');
  await page.waitForFunction(() => window.recorded.length > 24000);
  return { page, errors, close: () => context.close() };
}

// Chromium and a server for the built page, for the tests beside this file.
import { existsSync, readFileSync, statSync } from 'node:fs';
import { createServer } from 'node:http';
import { createRequire } from 'node:module';
import { extname, join, normalize } from 'node:path';
import { after, before } from 'node:test';
import { fileURLToPath } from 'node:url';

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

// Chromium and a server for the built page, for the tests beside this file.
import { createReadStream, existsSync, statSync } from 'node:fs';
import { createServer } from 'node:http';
import { createRequire } from 'node:module';
import { extname, join, normalize } from 'node:path';
import { fileURLToPath } from 'node:url';

const root = fileURLToPath(new URL('../../', import.meta.url));
const { chromium } = createRequire(join(root, 'bindings/web/package.json'))('playwright-core');
const TYPES = {
  '.html': 'text/html', '.js': 'text/javascript', '.css': 'text/css', '.wasm': 'application/wasm',
};

/** Serves the page; other paths come from `extra`, a map from path to content. */
export async function serve(extra = {}) {
  const server = createServer((request, response) => {
    const path = normalize(decodeURIComponent(new URL(request.url, 'http://x').pathname));
    const file = join(root, 'build/web', path === '/' ? 'index.html' : path);
    if (path in extra) {
      response.writeHead(200, { 'content-type': 'text/html' }).end(extra[path]);
    } else if (existsSync(file) && statSync(file).isFile()) {
      response.writeHead(200, { 'content-type': TYPES[extname(file)] ?? 'application/octet-stream' });
      createReadStream(file).pipe(response);
    } else {
      response.writeHead(404).end();
    }
  });
  await new Promise((done) => server.listen(0, '127.0.0.1', done));
  return { url: `http://127.0.0.1:${server.address().port}`, close: () => server.close() };
}

export const launch = (...args) =>
  chromium.launch({
    executablePath: process.env.CHROMIUM ?? '/usr/bin/chromium',
    args: ['--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run',
           '--disable-background-networking', '--disable-component-update', '--disable-sync', ...args],
  });

/** A page of the site once it is ready; `errors` collects what the console would show. */
export async function open(browser, url, options = {}) {
  const context = await browser.newContext(options);
  const page = await context.newPage();
  const errors = [];
  page.on('console', (message) => {
    if (['error', 'warning'].includes(message.type())) errors.push(message.text());
  });
  page.on('pageerror', (error) => errors.push(error.message));
  await page.goto(url);
  await page.waitForFunction(() => document.body.dataset.ready === 'yes' &&
    document.getElementById('engine').textContent !== '');
  return { page, errors, close: () => context.close() };
}

// Fresh projects that install the packed archive, built by Vite and esbuild, and heard in Chromium.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { cpSync, existsSync, mkdirSync, mkdtempSync, readFileSync, rmSync, statSync, writeFileSync } from 'node:fs';
import { createServer } from 'node:http';
import { createRequire } from 'node:module';
import { tmpdir } from 'node:os';
import { extname, join } from 'node:path';
import { after, before, test } from 'node:test';
import { fileURLToPath, pathToFileURL } from 'node:url';
import { launch } from './browser.mjs';

const here = fileURLToPath(new URL('../../bindings/web/', import.meta.url));
const tool = (name) => import(pathToFileURL(join(here, 'node_modules', name)).href);
const TYPES = { '.html': 'text/html', '.js': 'text/javascript', '.wasm': 'application/wasm' };

// Renders a constant of 1 through an FIR, and reads a file of coefficients.
const hear = (options) => `
  window.heard = (async () => {
    const context = new OfflineAudioContext(2, 12800, 48000);
    const node = await createFilterNode(context, { filter: { kind: 'fir', b: [0.25, 0.5] }${options.node} });
    const source = new ConstantSourceNode(context);
    source.connect(node).connect(context.destination);
    source.start();
    const rendered = await context.startRendering();
    const design = (await loadDesigner(${options.design})).parse('taps.txt', new TextEncoder().encode('1 2 3'), { rate: 48000 });
    return [rendered.getChannelData(1)[12000], design.b];
  })();`;
const imports = `import { createFilterNode } from 'jurn-filter/web-audio';
import { loadDesigner } from 'jurn-filter/design';\n`;

let folder, browser;

before(async () => {
  folder = mkdtempSync(join(tmpdir(), 'jurn-bundlers-'));
  const [{ filename }] = JSON.parse(execFileSync('npm', ['pack', '--json', '--pack-destination', folder], { cwd: here, encoding: 'utf8' }));
  writeFileSync(join(folder, 'package.json'), '{"type": "module", "private": true}');
  execFileSync('npm', ['install', '--offline', '--no-audit', '--no-fund', join(folder, filename)], { cwd: folder });
  browser = await launch();
});

after(async () => {
  await browser?.close();
  rmSync(folder, { recursive: true });
});

/** A project of its own with these files, and the installed package. */
function project(name, files) {
  const root = join(folder, name);
  mkdirSync(root);
  cpSync(join(folder, 'node_modules'), join(root, 'node_modules'), { recursive: true });
  for (const [file, content] of Object.entries({ 'package.json': '{"type": "module"}', ...files }))
    writeFileSync(join(root, file), content);
  return root;
}

async function heard(url) {
  const page = await browser.newPage();
  const errors = [];
  page.on('pageerror', (error) => errors.push(error.message));
  page.on('response', (response) => {
    if (response.status() >= 400 && !/favicon/.test(response.url())) errors.push(`${response.status()}: ${response.url()}`);
  });
  await page.goto(url);
  try {
    await page.waitForFunction(() => window.heard, null, { timeout: 20000 });
    assert.deepEqual(await page.evaluate(() => window.heard), [0.75, [1, 2, 3]]);
  } finally {
    assert.deepEqual(errors, []);
    await page.close();
  }
}

/** Static files, as any server gives them away. */
async function heardFrom(root) {
  const server = createServer((request, response) => {
    const path = join(root, new URL(request.url, 'http://x').pathname.replace(/\/$/, '/index.html'));
    if (!existsSync(path) || !statSync(path).isFile()) return response.writeHead(404).end();
    response.writeHead(200, { 'content-type': TYPES[extname(path)] ?? 'application/octet-stream' }).end(readFileSync(path));
  });
  await new Promise((done) => server.listen(0, '127.0.0.1', done));
  try {
    await heard(`http://127.0.0.1:${server.address().port}/`);
  } finally {
    server.close();
  }
}

const html = '<!doctype html><script type="module" src="./main.js"></script>';
const plain = { 'index.html': html, 'main.js': imports + hear({ node: '', design: '' }) };

for (const [name, folder_] of [['Vite', 'vite'], ['Vite 6', 'vite-6']]) {
  const skip = name === 'Vite' && Number(process.versions.node.split('.')[0]) < 20 && 'it needs Node 20';
  const vite = () => tool(`${folder_}/dist/node/index.js`);

  test(`${name}: the build`, { skip }, async () => {
    const root = project(`${folder_}-build`, plain);
    await (await vite()).build({ root, configFile: false, logLevel: 'error' });
    await heardFrom(join(root, 'dist'));
  });

  test(`${name}: the development server`, { skip }, async () => {
    // Before Vite 8, a package with files of its own needs the line of the README.
    const optimizeDeps = name === 'Vite' ? {} : { exclude: ['jurn-filter'] };
    const server = await (await vite()).createServer({
      root: project(`${folder_}-serve`, plain), configFile: false, logLevel: 'error', optimizeDeps,
      server: { host: '127.0.0.1', port: 0 },
    });
    try {
      await server.listen();
      await heard(`http://127.0.0.1:${server.httpServer.address().port}/`);
    } finally {
      await server.close();
    }
  });
}

const esbuild = (root, options) => createRequire(join(here, 'package.json'))('esbuild').build({
  absWorkingDir: root, bundle: true, outdir: 'out', logLevel: 'silent', ...options,
});

test('esbuild: the files copied beside the bundle', async () => {
  const root = project('esbuild', { ...plain, 'index.html': html.replace('main', 'out/main') });
  await esbuild(root, { entryPoints: ['main.js'], format: 'esm' });
  execFileSync('sh', ['-c', 'cp node_modules/jurn-filter/dist/*.wasm node_modules/jurn-filter/dist/worklet.js out/'], { cwd: root });
  await heardFrom(root);
});

test('esbuild: a classic script, the files named by the options', async () => {
  const wasms = `import wasm from 'jurn-filter/jurn.wasm';\nimport designs from 'jurn-filter/design.wasm';\n`;
  const root = project('esbuild-options', {
    'index.html': '<!doctype html><script src="./out/main.js"></script>',
    'main.js': imports + wasms + hear({ node: `, wasm, worklet: 'out/filter.js'`, design: '{ wasm: designs }' }),
  });
  await esbuild(root, {
    entryPoints: { main: 'main.js', filter: 'jurn-filter/worklet' }, format: 'iife',
    loader: { '.wasm': 'file' }, publicPath: 'out',
  });
  await heardFrom(root);
});

test('no bundler: an import map', async () => {
  const root = project('plain', {
    'index.html': `<!doctype html><script type="importmap">{"imports": {
      "jurn-filter/web-audio": "./node_modules/jurn-filter/dist/web-audio.js",
      "jurn-filter/design": "./node_modules/jurn-filter/dist/design.js"}}</script>
      <script type="module" src="./main.js"></script>`,
    'main.js': plain['main.js'],
  });
  await heardFrom(root);
});

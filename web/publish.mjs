// Completes the built page: the content security policy with the hashes of the scripts in index.html,
// and the service worker with the list of all files and a version from their contents.
//   node web/publish.mjs build/web
import { createHash } from 'node:crypto';
import { readdirSync, readFileSync, writeFileSync } from 'node:fs';
import { join } from 'node:path';

const folder = process.argv[2];
const hash = (content) => createHash('sha256').update(content).digest('base64');

const html = readFileSync('web/index.html', 'utf8');
const inline = [...html.matchAll(/<script(?: type="importmap")?>([^]*?)<\/script>/g)].map(([, content]) => `'sha256-${hash(content)}'`);
writeFileSync(join(folder, 'index.html'), html.replace('SCRIPTS', inline.join(' ')));

// The rest comes when it is used: what is heard, the sums, and what was not chosen of two.
const LATER = /^(sounds|rooms|coefficients)\/|^head-|^checksum|^preview|^design_tab|\.wasm$/;
const FIRST = ['jurn/design.wasm'];
const files = readdirSync(folder, { recursive: true, withFileTypes: true }).filter((entry) => entry.isFile())
  .map((entry) => join(entry.parentPath ?? entry.path, entry.name).slice(join(folder, '/').length)).filter((name) => name !== 'service-worker.js').sort();
const version = createHash('sha256');
for (const name of files) version.update(`${name}\n`).update(readFileSync(join(folder, name)));
const lists = {
  VERSION: version.digest('hex').slice(0, 16),
  FIRST: files.filter((name) => FIRST.includes(name) || !LATER.test(name)),
  ALL: files,
};
const worker = readFileSync('web/service-worker.js', 'utf8')
  .replace(/^const (VERSION|FIRST|ALL) = .*$/gm, (_, name) => `const ${name} = ${JSON.stringify(lists[name])};`);
writeFileSync(join(folder, 'service-worker.js'), worker);

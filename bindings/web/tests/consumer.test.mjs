// The packed archive in a project of its own: it installs, its types check, it filters.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { mkdtempSync, rmSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { test } from 'node:test';
import { fileURLToPath } from 'node:url';

const here = fileURLToPath(new URL('..', import.meta.url));

test('npm pack gives an archive that a project installs and uses', () => {
  const folder = mkdtempSync(join(tmpdir(), 'jurn-consumer-'));
  try {
    const run = (command, ...args) =>
      execFileSync(command, args, { cwd: folder, encoding: 'utf8', stdio: ['ignore', 'pipe', 'pipe'] });
    const packed = JSON.parse(
      execFileSync('npm', ['pack', '--json', '--pack-destination', folder], { cwd: here, encoding: 'utf8' }));
    writeFileSync(join(folder, 'package.json'), '{"type": "module", "private": true}');
    run('npm', 'install', '--offline', '--no-audit', '--no-fund', join(folder, packed[0].filename));
    writeFileSync(join(folder, 'consumer.ts'), `
      import { loadLibrary, type Sections } from 'jurn-filter';
      import { createFilterNode } from 'jurn-filter/web-audio';
      const filter: Sections = { kind: 'sections', b: [0.5, 0, 0], a: [1, 0, 0], precision: 'int16' };
      const stream = (await loadLibrary()).stream({ channels: 2 });
      stream.change(filter);
      const out: Int16Array = stream.processInt16(Int16Array.of(1000, -1000, 32767, -32768));
      console.log(out.join(' '));
      export const forBrowsers = (context: AudioContext) => createFilterNode(context, { filter });
    `);
    run(join(here, 'node_modules/.bin/tsc'), '--strict', '--target', 'es2022', '--module', 'nodenext',
        '--lib', 'es2022,dom', '--types', '', 'consumer.ts');
    // The part for browsers is left out here: Node has no audio nodes.
    run('sed', '-i', '/web-audio/d;/createFilterNode/d', 'consumer.js');
    assert.equal(run('node', 'consumer.js').trim(), '500 -500 16383 -16384');
  } finally {
    rmSync(folder, { recursive: true });
  }
});

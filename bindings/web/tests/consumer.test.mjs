// The packed archive in a project of its own: it installs, its types check, it filters.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { mkdtempSync, readdirSync, readFileSync, rmSync, writeFileSync } from 'node:fs';
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
    writeFileSync(join(folder, 'package.json'), '{"type": "module", "private": true}');
    // As the guide says it.
    const guide = readFileSync(join(here, '../../docs/web.md'), 'utf8');
    const install = guide.match(/^    (npm pack .*)$/m)[1].replace('../JURN/bindings/web', `"${here}"`);
    run('sh', '-c', `export npm_config_offline=true; ${install}`);
    const tsc = (file, lib) => run(join(here, 'node_modules/.bin/tsc'), '--strict', '--target', 'es2022',
                                   '--module', 'nodenext', '--lib', lib, '--types', '', '--skipLibCheck', 'false', file);
    // Without the DOM library, as programs for Node are.
    writeFileSync(join(folder, 'consumer.ts'), `
      import { loadLibrary, type Sections } from 'jurn-filter';
      import { loadDesigner } from 'jurn-filter/design';
      declare const console: { log(text: string): void };
      const filter: Sections = { kind: 'sections', b: [0.5, 0, 0], a: [1, 0, 0], precision: 'int16' };
      const stream = (await loadLibrary()).stream({ channels: 2 });
      stream.change((await loadDesigner()).prepare(filter, 'int16').design);
      const out: Int16Array = stream.processInt16(Int16Array.of(1000, -1000, 32767, -32768));
      console.log(out.join(' '));
      export const internal = [
        // @ts-expect-error
        stream.address, stream.library, stream.wasm,
      ];
    `);
    tsc('consumer.ts', 'es2022');
    assert.equal(run('node', 'consumer.js').trim(), '500 -500 16383 -16384');
    // The program with which the guide opens.
    writeFileSync(join(folder, 'guide.js'), guide.split('```js\n')[1].split('```')[0]);
    assert.equal(run('node', 'guide.js'), '1280 frames, the last one 0.251, the other side 0\n');
    // What the package's own page shows, but for the audio node, with what it takes for granted.
    const [stream, , files, designs, fit] = readFileSync(join(here, 'README.md'), 'utf8').split('```js\n').slice(1)
      .map((text) => text.split('```')[0]);
    writeFileSync(join(folder, 'shown.js'), `
      const leftIn = new Float32Array(256), rightIn = leftIn, interleaved = new Int16Array(512);
      const b = [0.5, 0, 0], a = [1, 0, 0], text = new TextEncoder(), archive = text.encode('0.5 0.5');
      const wanted = text.encode('20 0\\n20000 0');
      let bytes = archive;
      ${stream} ${files} ${designs}
      bytes = text.encode('20 1\\n100 5\\n1000 0\\n3000 8\\n20000 -10');
      ${fit}
      if (samples.length !== 512 || !(nodes.length > 0 && equaliser.kind === 'sections')) throw new Error('not as shown');
    `);
    run('node', 'shown.js');
    writeFileSync(join(folder, 'page.ts'), `
      import { createFilterNode } from 'jurn-filter/web-audio';
      export const node = (context: AudioContext) =>
        createFilterNode(context, { filter: { kind: 'average', length: 3 }, worklet: 'filter.js', wasm: 'jurn.wasm' });
    `);
    tsc('page.ts', 'es2022');
    // What is inside is not in the declarations, nor are files without declarations of their own.
    const dist = join(folder, 'node_modules/jurn-filter/dist');
    for (const name of readdirSync(dist).filter((file) => file.endsWith('.d.ts')))
      assert.doesNotMatch(readFileSync(join(dist, name), 'utf8'), /@internal|private |PROCESSOR|jurn_|constructor\(\)/, name);
    assert.doesNotMatch(readFileSync(join(dist, 'worklet.js'), 'utf8'), /\bimport\b/);
  } finally {
    rmSync(folder, { recursive: true });
  }
});

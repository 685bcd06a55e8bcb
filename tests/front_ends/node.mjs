// Filters samples with coefficient files, for the test beside this file:
//   node node.mjs IN OUT < CASES > ANSWERS
// IN and OUT are folders; each case names a file of IN, and its result is written to OUT.
import { readFileSync, writeFileSync } from 'node:fs';
import { join } from 'node:path';
import { loadDesigner } from '../../bindings/web/dist/design.node.js';
import { loadLibrary } from '../../bindings/web/dist/index.node.js';

const [from, to] = process.argv.slice(2);
const { rate, cases } = JSON.parse(readFileSync(0, 'utf8'));
const designer = await loadDesigner();
const library = await loadLibrary();
const bytes = readFileSync(join(from, 'samples'));
const samples = new Int16Array(bytes.buffer, bytes.byteOffset, bytes.length / 2);

const answers = cases.map(({ name, path, wanted, precision }) => {
  try {
    const design = designer.parse(path, readFileSync(join(from, name)), { rate, wanted, precision });
    const prepared = designer.prepare(design, precision);
    const stream = library.stream({ block: 128 });
    stream.change(prepared.design);
    const padded = new Int16Array(Math.ceil(samples.length / 128) * 128);
    padded.set(samples);
    writeFileSync(join(to, name), stream.processInt16(padded).slice(0, samples.length));
    stream.free();
    return { kind: design.kind, warnings: prepared.notices.filter((n) => n.warning).map((n) => n.text) };
  } catch (error) {
    return { refused: error.message };
  }
});
console.log(JSON.stringify(answers));

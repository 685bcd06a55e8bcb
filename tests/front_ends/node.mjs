// Filters samples with coefficient files, for the test beside this file:
//   node node.mjs IN OUT < CASES > ANSWERS
// IN and OUT are folders; each case names a file of IN, and its result is written to OUT. So are the
// samples of recordings, channel after channel.
import { readFileSync, writeFileSync } from 'node:fs';
import { join } from 'node:path';
import { loadDesigner } from '../../bindings/web/dist/design.node.js';
import { loadLibrary } from '../../bindings/web/dist/index.node.js';

const [from, to] = process.argv.slice(2);
const { rate, cases, recordings } = JSON.parse(readFileSync(0, 'utf8'));
const designer = await loadDesigner();
const library = await loadLibrary();
const bytes = readFileSync(join(from, 'samples'));
const samples = new Int16Array(bytes.buffer, bytes.byteOffset, bytes.length / 2);

const answers = await Promise.all(cases.map(async ({ name, path, wanted, precision, room }) => {
  try {
    const design = await designer.read(path, readFileSync(join(from, name)), { rate, wanted, precision });
    const prepared = designer.prepare(design, precision);
    const stream = library.stream({ block: 128 });
    stream.change(room ? library.connect([design.b], 1) : prepared.design);
    const padded = new Int16Array(Math.ceil(samples.length / 128) * 128);
    padded.set(samples);
    writeFileSync(join(to, name), stream.processInt16(padded).slice(0, samples.length));
    stream.free();
    const { b, a } = prepared.design;
    return { kind: design.kind, coefficients: [...b, ...(a ?? [])], warnings: prepared.notices.filter((n) => n.warning).map((n) => n.text) };
  } catch (error) {
    return { refused: error.message };
  }
}));
const found = recordings.map((name) => {
  const audio = designer.readAudio(name, readFileSync(join(from, name)));
  if (audio) writeFileSync(join(to, name), Buffer.concat(audio.channels.map(({ buffer }) => Buffer.from(buffer))));
  return audio && { rate: audio.rate, channels: audio.channels.length };
});
console.log(JSON.stringify({ answers, found }));

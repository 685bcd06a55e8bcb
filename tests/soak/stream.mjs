// Node's stream, from standard input to standard output.
import { loadDesigner } from '../../bindings/web/dist/design.node.js';
import { loadLibrary } from '../../bindings/web/dist/index.node.js';

const bytes = 6400 * 4;
const library = await loadLibrary();
const designer = await loadDesigner();
const equaliser = (text) => designer.prepare(designer.parse('eq.txt', new TextEncoder().encode(text), { rate: 16000 })).design;
const taps = Float32Array.from({ length: 16000 }, (_, i) => (i ? 0.01 * Math.sin(i * i) * Math.exp(-i / 2000) : 0.5));
const filters = [equaliser('Filter 1: ON PK Fc 1000 Hz Gain 6 dB Q 1'), library.connect([taps], 1), { kind: 'fir', b: [0.5, 0.5] }, equaliser('Filter 1: ON LS Fc 200 Hz Gain -4 dB'),
  { kind: 'average', length: 24 }];
const stream = library.stream({ block: 128 });
stream.change(filters[0]);
let held = Buffer.alloc(0);
let count = 0;
for await (const chunk of process.stdin) {
  held = Buffer.concat([held, chunk]);
  for (; held.length >= bytes; held = held.subarray(bytes)) {
    if (++count % 2 === 0) stream.change(filters[(count / 2) % filters.length]);
    const block = new Float32Array(new Uint8Array(held.subarray(0, bytes)).buffer);
    const [out] = stream.process([block]);
    process.stdout.write(Buffer.from(out.slice().buffer));
  }
}

// ZIP archives, of which .npz is one: their list of members is read here, and what is deflated unfolds
// in the browser or Node.
import { DesignError } from './errors.js';

const FILE = 0x04034b50, ENTRY = 0x02014b50, END = 0x06054b50;
const STORED = 0, DEFLATED = 8;
const MOST_BYTES = 64 << 20; // no array of coefficients comes near

const viewOf = (bytes: Uint8Array) => new DataView(bytes.buffer, bytes.byteOffset, bytes.byteLength);

/** @internal */
export const isArchive = (bytes: Uint8Array): boolean =>
  bytes.length > 30 && viewOf(bytes).getUint32(0, true) === FILE;

/** Streams of deflated data alone came to Node and browsers later than those of gzip. */
async function inflate(bytes: Uint8Array, sum: number, size: number): Promise<Uint8Array> {
  const packed = new Uint8Array(10 + bytes.length + 8), view = viewOf(packed);
  packed.set([0x1f, 0x8b, 8]);
  packed.set(bytes, 10);
  view.setUint32(10 + bytes.length, sum, true);
  view.setUint32(14 + bytes.length, size, true);
  const stream = new Blob([packed]).stream().pipeThrough(new DecompressionStream('gzip'));
  return new Uint8Array(await new Response(stream).arrayBuffer());
}

/** @internal The names and contents of an archive's arrays; the name is for errors. */
export async function unfold(name: string, bytes: Uint8Array): Promise<[Uint8Array, Uint8Array][]> {
  const view = viewOf(bytes), damaged = new DesignError(`${name}: damaged: the archive cannot be unfolded`);
  const members: [Uint8Array, Uint8Array][] = [];
  try {
    let end = bytes.length - 22;
    while (view.getUint32(end, true) !== END) --end;
    let at = view.getUint32(end + 16, true);
    for (let left = view.getUint16(end + 10, true); left > 0; --left) {
      if (view.getUint32(at, true) !== ENTRY) throw damaged;
      const [method, sum, packed, size] = [view.getUint16(at + 10, true), ...[16, 20, 24].map((i) => view.getUint32(at + i, true))];
      const [nameLength, extra, comment] = [28, 30, 32].map((i) => view.getUint16(at + i, true));
      const member = bytes.subarray(at + 46, at + 46 + nameLength);
      const file = view.getUint32(at + 42, true);
      at += 46 + nameLength + extra + comment;
      const title = new TextDecoder().decode(member);
      if (!title.endsWith('.npy')) continue;
      if (size > MOST_BYTES) throw new DesignError(`${name}: '${title}' is larger than any array of coefficients`);
      const from = file + 30 + view.getUint16(file + 26, true) + view.getUint16(file + 28, true);
      const content = bytes.subarray(from, from + packed);
      if (content.length !== packed || (method !== STORED && method !== DEFLATED)) throw damaged;
      members.push([member, method === STORED ? content : await inflate(content, sum, size)]);
    }
  } catch (error) {
    throw error instanceof DesignError ? error : damaged;
  }
  return members;
}

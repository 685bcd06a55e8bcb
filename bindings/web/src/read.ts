// Bytes from where a program keeps them. Files are read by Node alone, which says how in node.ts:
// bundlers for browsers meet none of its modules.

/** An address, relative to the page where it is a string, or the bytes themselves. */
export type Source = string | { readonly href: string } | ArrayBuffer | ArrayBufferView;

type Reader = (file: string | URL) => Promise<ArrayBufferView>;
let readFile: Reader | null = null;

/** @internal */
export function readFilesWith(reader: Reader): void {
  readFile = reader;
}

/** @internal */
export async function read(source: Source): Promise<BufferSource> {
  if (typeof source !== 'string' && !('href' in source)) return source as BufferSource;
  const address = typeof source === 'string' ? source : source.href;
  // In Node a string without a scheme is a path. A letter alone is a drive.
  const scheme = /^([a-z][a-z0-9+.-]+):/i.exec(address)?.[1].toLowerCase();
  if (readFile && (scheme === undefined || scheme === 'file'))
    return (await readFile(scheme ? new URL(address) : address)) as BufferSource;
  const response = await fetch(address).catch((error: Error) => {
    throw new Error(`${address}: cannot be loaded (${error.message})`);
  });
  if (!response.ok) throw new Error(`${address}: cannot be loaded (${response.status})`);
  return response.arrayBuffer();
}

/** @internal Compiles, and says what was compiled: a server that answers with a page is common. */
export async function compile(source: Source): Promise<WebAssembly.Module> {
  const bytes = await read(source);
  try {
    return await WebAssembly.compile(bytes);
  } catch (error) {
    const name = typeof source === 'string' ? source : 'href' in source ? source.href : 'the bytes given';
    throw new Error(`${name}: is no WebAssembly module (${(error as Error).message}). ` +
      "Where a bundler moves the .wasm, the option 'wasm' names it.");
  }
}

// Loading: the build with vectors where the engine has them, the other elsewhere.

/** A function of one instruction of 128-bit vectors. */
const PROBE = new Uint8Array([
  0, 97, 115, 109, 1, 0, 0, 0, 1, 5, 1, 96, 0, 1, 123, 3, 2, 1, 0, 10, 10, 1, 8, 0, 65, 0, 253, 15,
  253, 98, 11,
]);

/** Whether this engine runs 128-bit vectors. */
export function hasSimd(): boolean {
  return WebAssembly.validate(PROBE);
}

/** The compiled library, as it can be sent to a worklet or a worker. */
export interface CompiledLibrary {
  module: WebAssembly.Module;
  simd: boolean;
}

export interface CompileOptions {
  /** false runs the build without vectors, which gives the same bits; true insists on vectors. */
  simd?: boolean;
  /** Where the .wasm is, or its bytes; by default it lies beside this file. */
  source?: URL | BufferSource;
}

/** @internal */
export async function read(url: URL): Promise<BufferSource> {
  if (url.protocol === 'file:' && typeof process !== 'undefined' && process.versions?.node) {
    const { readFile } = await import('node:fs/promises');
    return readFile(url);
  }
  const response = await fetch(url);
  if (!response.ok) throw new Error(`${url.href}: cannot be loaded (${response.status})`);
  return response.arrayBuffer();
}

export async function compileLibrary(options: CompileOptions = {}): Promise<CompiledLibrary> {
  const simd = options.simd ?? hasSimd();
  if (simd && !hasSimd()) throw new Error('this WebAssembly engine has no 128-bit vectors');
  const source =
    options.source ?? new URL(simd ? './jurn-simd.wasm' : './jurn.wasm', import.meta.url);
  const bytes = source instanceof URL ? await read(source) : source;
  return { module: await WebAssembly.compile(bytes), simd };
}

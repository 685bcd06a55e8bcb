// Loading: the build with vectors where the engine has them, the other elsewhere.
import { compile, type Source } from './read.js';

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
  /** A WebAssembly.Module. */
  readonly module: object;
  readonly simd: boolean;
}

export interface CompileOptions {
  /** false runs the build without vectors, which gives the same bits; true insists on vectors. */
  simd?: boolean;
  /**
   * Where the .wasm is, or its bytes: for bundlers that move it. By default it lies beside this
   * file.
   */
  wasm?: Source;
}

export async function compileLibrary({ simd, wasm }: CompileOptions = {}): Promise<CompiledLibrary> {
  if (simd === true && !hasSimd()) throw new Error('this WebAssembly engine has no 128-bit vectors');
  // Bundlers find the files by these literals. A classic script has no address of its own, hence
  // no look at them where the caller names the file.
  const beside = () => simd ?? hasSimd()
    ? new URL('./jurn-simd.wasm', import.meta.url) : new URL('./jurn.wasm', import.meta.url);
  const module = await compile(wasm ?? beside());
  const names = WebAssembly.Module.exports(module).map(({ name }) => name);
  if (!names.includes('jurn_make_stream')) throw new Error('the WebAssembly given is not the library of this package');
  const vectors = names.includes('jurn_vectors');
  if (simd !== undefined && simd !== vectors)
    throw new Error(`the WebAssembly given has ${vectors ? '' : 'no '}vectors, and simd is ${simd}`);
  return { module, simd: vectors };
}

// The library for Node and for any thread of a browser; './web-audio' has the audio node.
import { Library } from './library.js';
import { compileLibrary, type CompileOptions } from './module.js';

export * from './filters.js';
export { compileLibrary, hasSimd, type CompiledLibrary, type CompileOptions } from './module.js';
export type { Source } from './read.js';
export { checkDesign } from './check.js';
export { Library } from './library.js';
export type { Stream } from './library.js';

/** Loads the library: with 128-bit vectors where the engine has them, with the same bits without. */
export async function loadLibrary(options?: CompileOptions): Promise<Library> {
  return new Library(await compileLibrary(options));
}

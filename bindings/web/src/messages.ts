// What the audio node and its processor tell each other.
import type { Filter } from './filters.js';
import type { CompiledLibrary } from './module.js';

/** @internal */
export const PROCESSOR = 'jurn-filter';

/** @internal */
export interface ProcessorOptions {
  library: CompiledLibrary;
  inputs: number;
  outputs: number;
  filter: Filter | null;
  levels: boolean;
}

/** @internal */
export interface Change {
  number: number;
  filter: Filter | null;
  fade: number;
}

/** The levels of about 30 ms. */
export interface Levels {
  /** The highest magnitude of each channel, before and after the filter; 1 is full scale. */
  inputPeaks: number[];
  outputPeaks: number[];
  /** Samples at or beyond full scale since the node was made. */
  inputClipped: number;
  outputClipped: number;
}

/** @internal */
export type Reply =
  | { type: 'changed'; number: number; error?: string }
  | { type: 'levels'; levels: Levels };

/// <reference lib="dom" preserve="true" />
// The node of a Web Audio graph whose processor runs the library.
import { checkShape } from './check.js';
import type { Filter, Shape } from './filters.js';
import { Library } from './library.js';
import { PROCESSOR, type Change, type Levels, type ProcessorOptions, type Reply } from './messages.js';
import { compileLibrary, type CompiledLibrary } from './module.js';
import type { Source } from './read.js';

export type { Levels } from './messages.js';

export interface FilterNodeOptions {
  /** Channels in and out, up to 16; 2 by default. Other inputs are mixed to it. */
  inputs?: number;
  outputs?: number;
  /** What it starts with; by default it passes its input on. */
  filter?: Filter | null;
  /** Measures the levels for `onlevels`. */
  levels?: boolean;
  /** From compileLibrary; by default it is loaded here. */
  library?: CompiledLibrary;
  /** Where the .wasm is, or its bytes, as for compileLibrary. */
  wasm?: Source;
  /** Where worklet.js is: for bundlers that move it. By default it lies beside this file. */
  worklet?: string | URL;
}

const added = new WeakMap<BaseAudioContext, Promise<void>>();

/**
 * An audio node that filters. `createFilterNode` makes it.
 *
 * @example
 *   const node = await createFilterNode(context, { filter: { kind: 'fir', b: [0.5, 0.5] } });
 *   source.connect(node).connect(context.destination);
 *   await node.change({ kind: 'sections', b, a });   // fades
 */
class FilterNode extends AudioWorkletNode {
  /** Receives the levels about thirty times a second, of a node made with `levels`. */
  onlevels: ((levels: Levels) => void) | null = null;
  readonly #library: Library;
  readonly #shape: Shape;
  readonly #waiting = new Map<number, { done(): void; failed(error: Error): void }>();
  #count = 0;
  #broken = false;

  /** @internal */
  constructor(context: BaseAudioContext, library: Library, options: ProcessorOptions) {
    super(context, PROCESSOR, {
      numberOfInputs: 1,
      numberOfOutputs: 1,
      outputChannelCount: [options.outputs],
      channelCount: options.inputs,
      channelCountMode: 'explicit',
      processorOptions: options,
    });
    this.#library = library;
    this.#shape = { inputs: options.inputs, outputs: options.outputs, block: 128 };
    this.port.onmessage = ({ data }: MessageEvent<Reply>) => this.#receive(data);
    this.addEventListener('processorerror', () => {
      this.#broken = true;
      this.#fail(new Error(BROKEN));
    });
  }

  /**
   * Changes the filter, as Stream.change does; resolves once the audio thread has it and the fade
   * begins. A filter that cannot run is refused with a RangeError, and the sound goes on. On a
   * context that is closed, or closes meanwhile, it is an Error.
   */
  async change(filter: Filter | null, fadeSeconds = 0.02): Promise<void> {
    const ready = prepared(this.#library, filter, this.#shape);
    if (this.context.state === 'closed') throw new Error(CLOSED);
    if (this.#broken) throw new Error(BROKEN);
    if (!(Number.isFinite(fadeSeconds) && fadeSeconds >= 0))
      throw new RangeError(`a fade of ${fadeSeconds} seconds; 0 or more are accepted`);
    const fade = Math.max(1, Math.round(fadeSeconds * this.context.sampleRate));
    const number = ++this.#count;
    // An audio thread that is gone answers nobody.
    const onstate = () => {
      if (this.context.state === 'closed') this.#fail(new Error(CLOSED));
    };
    this.context.addEventListener('statechange', onstate);
    try {
      await new Promise<void>((done, failed) => {
        this.#waiting.set(number, { done, failed });
        const message: Change = { number, filter: ready, fade };
        this.port.postMessage(message, ready && 'bytes' in ready ? [ready.bytes.buffer as ArrayBuffer] : []);
      });
    } finally {
      this.context.removeEventListener('statechange', onstate);
    }
  }

  #fail(error: Error): void {
    for (const { failed } of this.#waiting.values()) failed(error);
    this.#waiting.clear();
  }

  #receive(reply: Reply): void {
    if (reply.type === 'levels') {
      this.onlevels?.(reply.levels);
      return;
    }
    const change = this.#waiting.get(reply.number);
    this.#waiting.delete(reply.number);
    if (reply.error === undefined) change?.done();
    else change?.failed(new RangeError(reply.error));
  }
}

const CLOSED = 'the audio context is closed';
const BROKEN = 'the audio thread could not make or run the filter';

/** Refuses on this thread what the audio thread could not run, and does the long work here. */
function prepared(library: Library, filter: Filter | null, shape: Shape): Filter | null {
  if (filter === null) return null;
  const ready = library.prepare(filter, shape);
  // Spectra are moved to the audio thread; the caller keeps its own.
  return 'bytes' in ready && ready === filter ? { ...ready, bytes: ready.bytes.slice() } : ready;
}

export type { FilterNode };

/** Adds the processor once per context; what failed is tried anew. */
function addProcessor(context: BaseAudioContext, worklet: string | URL): Promise<void> {
  let module = added.get(context);
  if (module === undefined) {
    module = context.audioWorklet.addModule(worklet).catch((error: unknown) => {
      added.delete(context);
      throw new Error(`${worklet}: cannot be loaded as the processor (${error instanceof Error ? error.message : error}). ` +
        "Where a bundler moves worklet.js, the option 'worklet' names it.");
    });
    added.set(context, module);
  }
  return module;
}

export async function createFilterNode(
  context: BaseAudioContext,
  options: FilterNodeOptions = {},
): Promise<FilterNode> {
  if (!context.audioWorklet)
    throw new Error('audio worklets need a page from https: or from localhost');
  if (context.state === 'closed') throw new Error(CLOSED);
  const inputs = options.inputs ?? 2;
  const outputs = options.outputs ?? inputs;
  const shape: Shape = { inputs, outputs, block: 128 };
  checkShape(shape);
  // Bundlers find the file by this literal. It imports nothing.
  const module = addProcessor(context, options.worklet ?? new URL('./worklet.js', import.meta.url));
  const [compiled] = await Promise.all([options.library ?? compileLibrary({ wasm: options.wasm }), module]);
  const library = new Library(compiled);
  const filter = prepared(library, options.filter ?? null, shape);
  return new FilterNode(context, library, {
    library: compiled, inputs, outputs, filter, levels: options.levels ?? false,
  });
}

// The node of a Web Audio graph whose processor runs the library.
import type { Filter, Shape } from './filters.js';
import { Library } from './library.js';
import { PROCESSOR, type Change, type Levels, type ProcessorOptions, type Reply } from './messages.js';
import { compileLibrary, type CompiledLibrary } from './module.js';

export type { Levels } from './messages.js';

export interface FilterNodeOptions {
  /** Channels in and out, 1 or 2; 2 by default. Other inputs are mixed to it. */
  inputs?: number;
  outputs?: number;
  /** What it starts with; by default it passes its input on. */
  filter?: Filter | null;
  /** Measures the levels for `onlevels`. */
  levels?: boolean;
  /** From compileLibrary; by default it is loaded here. */
  library?: CompiledLibrary;
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
export class FilterNode extends AudioWorkletNode {
  /** Receives the levels about thirty times a second, of a node made with `levels`. */
  onlevels: ((levels: Levels) => void) | null = null;
  private readonly shape: Shape;
  private readonly waiting = new Map<number, { done(): void; failed(error: Error): void }>();
  private count = 0;

  /** @internal */
  constructor(
    context: BaseAudioContext,
    private readonly library: Library,
    options: ProcessorOptions,
  ) {
    super(context, PROCESSOR, {
      numberOfInputs: 1,
      numberOfOutputs: 1,
      outputChannelCount: [options.outputs],
      channelCount: options.inputs,
      channelCountMode: 'explicit',
      processorOptions: options,
    });
    this.shape = { inputs: options.inputs, outputs: options.outputs, block: 128 };
    this.port.onmessage = ({ data }: MessageEvent<Reply>) => this.receive(data);
  }

  /**
   * Changes the filter, as Stream.change does; resolves once the audio thread has it and the fade
   * begins. A filter that cannot run is refused with a RangeError, and the sound goes on.
   */
  async change(filter: Filter | null, fadeSeconds = 0.02): Promise<void> {
    const ready = prepared(this.library, filter, this.shape);
    const fade = Math.max(1, Math.round(fadeSeconds * this.context.sampleRate));
    const number = ++this.count;
    await new Promise<void>((done, failed) => {
      this.waiting.set(number, { done, failed });
      const message: Change = { number, filter: ready, fade };
      this.port.postMessage(message, ready?.kind === 'prepared' ? [ready.bytes.buffer] : []);
    });
  }

  private receive(reply: Reply): void {
    if (reply.type === 'levels') {
      this.onlevels?.(reply.levels);
      return;
    }
    const change = this.waiting.get(reply.number);
    this.waiting.delete(reply.number);
    if (reply.error === undefined) change?.done();
    else change?.failed(new RangeError(reply.error));
  }
}

/** Refuses on this thread what the audio thread could not run, and does the long work here. */
function prepared(library: Library, filter: Filter | null, shape: Shape): Filter | null {
  if (filter === null) return null;
  if (filter.kind === 'convolution') return library.prepare(filter, shape);
  library.check(filter, shape);
  // Prepared spectra are moved to the audio thread; the caller keeps its own.
  return filter.kind === 'prepared' ? { ...filter, bytes: filter.bytes.slice() } : filter;
}

export async function createFilterNode(
  context: BaseAudioContext,
  options: FilterNodeOptions = {},
): Promise<FilterNode> {
  if (!context.audioWorklet)
    throw new Error('audio worklets need a page from https: or from localhost');
  const module = added.get(context) ??
    context.audioWorklet.addModule(new URL('./worklet.js', import.meta.url));
  added.set(context, module);
  const [compiled] = await Promise.all([options.library ?? compileLibrary(), module]);
  const library = new Library(compiled);
  const inputs = options.inputs ?? 2;
  const outputs = options.outputs ?? inputs;
  const filter = prepared(library, options.filter ?? null, { inputs, outputs, block: 128 });
  return new FilterNode(context, library, {
    library: compiled, inputs, outputs, filter, levels: options.levels ?? false,
  });
}

// One instance of the library and the streams that run in it. Used on the main thread, in Node and
// inside the worklet, hence without anything that only one of them has.
import type { Filter, PreparedConvolution, Route, Shape } from './filters.js';
import type { CompiledLibrary } from './module.js';
import { check, checkConvolution, checkDesign, checkObject, checkShape } from './check.js';

interface Exports {
  memory: WebAssembly.Memory;
  _initialize(): void;
  jurn_allocate(bytes: number): number;
  jurn_free(address: number): void;
  jurn_version(): number;
  jurn_most_coefficients(kind: number, int16: number): number;
  jurn_make_filter(
    kind: number, int16: number, channels: number, block: number,
    b: number, bCount: number, a: number, aCount: number,
  ): number;
  jurn_response_size(
    inputs: number, outputs: number, block: number, taps: number, routes: number, count: number,
  ): number;
  jurn_prepare_response(
    response: number, size: number, inputs: number, outputs: number, block: number, taps: number,
    routes: number, count: number, b: number,
  ): number;
  jurn_make_convolution(
    inputs: number, outputs: number, block: number, taps: number, response: number,
  ): number;
  jurn_make_stream(inputs: number, outputs: number, block: number): number;
  jurn_free_stream(stream: number): void;
  jurn_floats(stream: number): number;
  jurn_samples(stream: number): number;
  jurn_change(stream: number, filter: number, fade: number): void;
  jurn_changing(stream: number): number;
  jurn_levels(stream: number): number;
  jurn_measure(stream: number): void;
  jurn_run_floats(stream: number): void;
  jurn_run_samples(stream: number): void;
}

const KINDS = { fir: 0, iir: 1, sections: 2, average: 3 } as const;
/**
 * Streams that nobody holds any more: their memory is given back. What holds a stream's instance
 * does not hold the stream.
 */
const forgotten = new FinalizationRegistry<{ wasm: Exports; address: number }>(({ wasm, address }) =>
  wasm.jurn_free_stream(address));

/** An instance of the compiled library, with memory of its own. */
export class Library {
  readonly simd: boolean;
  readonly #wasm: Exports;

  constructor(compiled: CompiledLibrary) {
    this.simd = compiled.simd;
    const module = compiled.module as WebAssembly.Module;
    // The C library asks for output, which only a failed assertion would use.
    const none = () => 52;
    const imports: Record<string, Record<string, () => number>> = {};
    for (const { module: from, name } of WebAssembly.Module.imports(module))
      (imports[from] ??= {})[name] = none;
    this.#wasm = new WebAssembly.Instance(module, imports).exports as unknown as Exports;
    this.#wasm._initialize();
  }

  get version(): string {
    const bytes = new Uint8Array(this.#wasm.memory.buffer, this.#wasm.jurn_version() >>> 0, 32);
    return String.fromCharCode(...bytes.subarray(0, bytes.indexOf(0)));
  }

  /** Bytes of memory that the instance holds: they grow as needed, and are used again. */
  get memory(): number {
    return this.#wasm.memory.buffer.byteLength;
  }

  /** A stream of blocks; `shape` is mono in blocks of 128 frames unless it says otherwise. */
  stream(shape: Partial<Shape> & { channels?: number } = {}): Stream {
    const inputs = shape.inputs ?? shape.channels ?? 1;
    return new Stream(this, this.#wasm, {
      inputs,
      outputs: shape.outputs ?? shape.channels ?? inputs,
      block: shape.block ?? 128,
    });
  }

  /**
   * Throws a RangeError with a sentence for whoever chose the filter, when a stream of this shape
   * could not run it.
   */
  check(filter: Filter, shape: Shape): void {
    checkShape(shape);
    checkObject(filter);
    if (filter.kind === 'prepared') {
      check(filter.bytes instanceof Uint8Array && filter.inputs === shape.inputs && filter.outputs === shape.outputs &&
              filter.block === shape.block && filter.simd === this.simd,
            'the convolution was prepared for another shape or another build');
      return;
    }
    if (filter.kind === 'convolution') return checkConvolution(filter, shape);
    check(filter.kind in KINDS, `'${filter.kind}' is no kind of filter`);
    check(shape.inputs === shape.outputs,
          'only a convolution has another number of outputs than inputs');
    if (filter.kind === 'average') {
      const most = this.#wasm.jurn_most_coefficients(KINDS.average, 1);
      check(Number.isInteger(filter.length) && filter.length >= 1 && filter.length <= most,
            `the mean of ${filter.length} samples; 1 to ${most} are accepted`);
      return;
    }
    checkDesign(filter, this.#wasm.jurn_most_coefficients(KINDS[filter.kind],
                                                          filter.precision === 'int16' ? 1 : 0));
  }

  /**
   * Computes the spectra of a convolution, for streams of this shape in any instance of the same
   * build. It takes some milliseconds per second of response: keep it off the audio thread.
   */
  prepare(filter: { routes: readonly Route[]; taps?: number }, shape: Shape): PreparedConvolution {
    checkShape(shape);
    checkConvolution(filter, shape);
    const { inputs, outputs, block } = shape;
    const count = filter.routes.length;
    const taps = filter.taps ?? filter.routes.reduce((n, r) => Math.max(n, r.taps.length), 1);
    const total = filter.routes.reduce((n, r) => n + r.taps.length, 0);
    const held: number[] = [];
    try {
      const list = this.#allocate(12 * count, held);
      const b = this.#allocate(4 * total, held);
      const integers = new Int32Array(this.#wasm.memory.buffer, list, 3 * count);
      const floats = new Float32Array(this.#wasm.memory.buffer, b, total);
      let at = 0;
      filter.routes.forEach((route, i) => {
        integers.set([route.input, route.output, route.taps.length], 3 * i);
        floats.set(route.taps, at);
        at += route.taps.length;
      });
      const size = this.#wasm.jurn_response_size(inputs, outputs, block, taps, list, count) >>> 0;
      check(size > 0, 'the convolution is beyond what the library takes');
      const response = this.#allocate(size, held);
      const error = this.#wasm.jurn_prepare_response(
        response, size, inputs, outputs, block, taps, list, count, b);
      check(error === 0, `the convolution cannot be prepared (${error})`);
      const bytes = new Uint8Array(this.#wasm.memory.buffer, response, size).slice();
      return { kind: 'prepared', inputs, outputs, block, taps, simd: this.simd, bytes };
    } finally {
      for (const address of held) this.#wasm.jurn_free(address);
    }
  }

  /** @internal The address of a filter, which the stream that it is handed to owns. */
  make(filter: Filter, shape: Shape): number {
    checkObject(filter);
    if (filter.kind === 'convolution') filter = this.prepare(filter, shape);
    else this.check(filter, shape);
    if (filter.kind === 'prepared') {
      const response = this.#allocate(filter.bytes.length);
      new Uint8Array(this.#wasm.memory.buffer).set(filter.bytes, response);
      return this.#made(this.#wasm.jurn_make_convolution(
        filter.inputs, filter.outputs, filter.block, filter.taps, response));
    }
    const held: number[] = [];
    try {
      const bValues = filter.kind === 'average' ? [filter.length] : filter.b;
      const aValues = filter.kind === 'iir' || filter.kind === 'sections' ? filter.a : [];
      const int16 = filter.kind === 'average' || filter.precision === 'int16' ? 1 : 0;
      const b = this.#allocate(8 * bValues.length, held);
      const a = this.#allocate(8 * aValues.length, held);
      new Float64Array(this.#wasm.memory.buffer, b, bValues.length).set(bValues);
      new Float64Array(this.#wasm.memory.buffer, a, aValues.length).set(aValues);
      return this.#made(this.#wasm.jurn_make_filter(
        KINDS[filter.kind], int16, shape.inputs, shape.block, b, bValues.length, a,
        aValues.length));
    } finally {
      for (const address of held) this.#wasm.jurn_free(address);
    }
  }

  #allocate(bytes: number, held?: number[]): number {
    const address = this.#made(this.#wasm.jurn_allocate(Math.max(bytes, 8)));
    held?.push(address);
    return address;
  }

  /** Addresses come signed, which those above 2 GiB are not. */
  #made(address: number): number {
    if (address === 0) throw new Error('no memory is left for the filter');
    return address >>> 0;
  }
}

function areAll(arrays: readonly Float32Array[], count: number, frames: number): boolean {
  for (let c = 0; c < arrays.length; ++c) if (arrays[c].length !== frames) return false;
  return arrays.length === count;
}

/** On the audio thread the whole array is the block: nothing is allocated there. */
function part(array: Float32Array, from: number, count: number): Float32Array {
  return count === array.length ? array : array.subarray(from, from + count);
}

/**
 * A stream of blocks through one filter after another; without a filter it passes its input on.
 * Every change of the filter fades, along a linear ramp, from the first block on that was run.
 */
export class Stream {
  readonly shape: Readonly<Shape>;
  readonly #library: Library;
  readonly #wasm: Exports;
  #address: number;
  #ended = false;
  #measuring = false;
  #buffer: ArrayBufferLike | undefined;
  #floats: Float32Array[] = [];
  #samples: Int16Array[] = [];

  /** @internal */
  constructor(library: Library, wasm: Exports, shape: Shape) {
    checkShape(shape);
    this.shape = shape;
    this.#library = library;
    this.#wasm = wasm;
    this.#address = wasm.jurn_make_stream(shape.inputs, shape.outputs, shape.block) >>> 0;
    forgotten.register(this, { wasm, address: this.#address }, this);
  }

  /**
   * Changes the filter; null stands for none. Before the first block the filter is there at once.
   * Later it runs unheard for up to 1024 frames, to fill its past, then the output fades to it over
   * `fade` frames. Convolutions of one reserved length fade within one block. While a change goes
   * on, the last of further ones waits its turn.
   */
  change(filter: Filter | null, fade = 1024): void {
    if (!Number.isInteger(fade) || fade < 1 || fade > 1 << 24)
      throw new RangeError(`a fade of ${fade} frames; 1 to ${1 << 24} are accepted`);
    const address = filter === null ? 0 : this.#library.make(filter, this.shape);
    this.#wasm.jurn_change(this.#live(), address, fade);
  }

  /** Whether a change is under way. */
  get changing(): boolean {
    return this.#wasm.jurn_changing(this.#live()) !== 0;
  }

  /**
   * Filters frames of floats at a full scale of 1: one array per input, all of one length. Any
   * number of whole blocks may be given at a time; a rest of a block ends the stream, because the
   * filters continue exactly only from whole blocks. `output`, where given, receives the result and
   * may be `input`.
   */
  process(input: readonly Float32Array[], output?: Float32Array[]): Float32Array[] {
    const { inputs, outputs, block } = this.shape;
    const frames = input[0]?.length ?? 0;
    if (!areAll(input, inputs, frames))
      throw new RangeError(`${input.length} arrays; ${inputs} of one length are needed`);
    output ??= Array.from({ length: outputs }, () => new Float32Array(frames));
    if (!areAll(output, outputs, frames))
      throw new RangeError(
        `${output.length} arrays for the output; ${outputs} of the input's length are needed`);
    this.#begin(frames);
    for (let at = 0; at < frames; at += block) {
      const count = Math.min(block, frames - at);
      this.#views();
      for (let c = 0; c < inputs; ++c) {
        if (count < block) this.#floats[c].fill(0, count);
        this.#floats[c].set(part(input[c], at, count));
      }
      this.#wasm.jurn_run_floats(this.#address);
      if (this.#measuring) this.#wasm.jurn_measure(this.#address);
      for (let c = 0; c < outputs; ++c) {
        output[c].set(part(this.#floats[inputs + c], 0, count), at);
      }
    }
    return output;
  }

  /** The same for interleaved 16-bit samples. */
  processInt16(input: Int16Array, output?: Int16Array): Int16Array {
    const { inputs, outputs, block } = this.shape;
    const frames = input.length / inputs;
    check(Number.isInteger(frames), `${input.length} samples are no whole frames of ${inputs}`);
    output ??= new Int16Array(frames * outputs);
    check(output.length === frames * outputs,
          `room for ${output.length} samples; ${frames * outputs} are needed`);
    if (output === input && outputs > inputs) input = input.slice();
    this.#begin(frames);
    for (let at = 0; at < frames; at += block) {
      const count = Math.min(block, frames - at);
      this.#views();
      const [samplesIn, samplesOut] = this.#samples;
      if (count < block) samplesIn.fill(0);
      samplesIn.set(input.subarray(at * inputs, (at + count) * inputs));
      this.#wasm.jurn_run_samples(this.#address);
      output.set(samplesOut.subarray(0, count * outputs), at * outputs);
    }
    return output;
  }

  /**
   * The levels since the last call, whose first one begins to measure: the peak of each input and
   * output at a full scale of 1, and the clipped samples of all inputs and of all outputs.
   */
  levels(): { peaks: number[]; inputClipped: number; outputClipped: number } {
    this.#measuring = true;
    const values = new Float32Array(this.#wasm.memory.buffer, this.#wasm.jurn_levels(this.#live()) >>> 0, 6);
    const peaks = Array.from(values.subarray(0, this.shape.inputs + this.shape.outputs));
    const [inputClipped, outputClipped] = values.subarray(4);
    values.fill(0);
    return { peaks, inputClipped, outputClipped };
  }

  /**
   * Gives the memory back at once; that of a dropped stream comes back when it is collected. The
   * stream cannot be used after it.
   */
  free(): void {
    if (this.#address === 0) return;
    forgotten.unregister(this);
    this.#wasm.jurn_free_stream(this.#address);
    this.#address = 0;
  }

  #live(): number {
    if (this.#address === 0) throw new Error('the stream was freed');
    return this.#address;
  }

  #begin(frames: number): void {
    this.#live();
    if (this.#ended) throw new Error('the stream ended with a rest of a block; make a new one');
    this.#ended = frames % this.shape.block !== 0;
  }

  /** Memory that grows moves to another buffer. */
  #views(): void {
    const buffer = this.#wasm.memory.buffer;
    if (buffer === this.#buffer) return;
    this.#buffer = buffer;
    const { inputs, outputs, block } = this.shape;
    const floats = this.#wasm.jurn_floats(this.#address) >>> 0;
    const samples = this.#wasm.jurn_samples(this.#address) >>> 0;
    this.#floats = Array.from({ length: inputs + outputs },
                             (_, c) => new Float32Array(buffer, floats + 4 * c * block, block));
    this.#samples = [
      new Int16Array(buffer, samples, inputs * block),
      new Int16Array(buffer, samples + 2 * inputs * block, outputs * block),
    ];
  }
}

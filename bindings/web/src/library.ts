// One instance of the library and the streams that run in it. Used on the main thread, in Node and
// inside the worklet, hence without anything that only one of them has.
import type { ChannelFilters, Convolution, Filter, Numbers, Prepared, PreparedConvolution, Runs, Shape } from './filters.js';
import type { CompiledLibrary } from './module.js';
import { check, checkChannels, checkConvolution, checkDesign, checkObject, checkPrecision, checkShape, MOST_TAPS } from './check.js';

interface Exports {
  memory: WebAssembly.Memory;
  _initialize(): void;
  jurn_allocate(bytes: number): number;
  jurn_free(address: number): void;
  jurn_version(): number;
  jurn_most_coefficients(kind: number, int16: number): number;
  jurn_settle(kind: number, b: number, bCount: number, a: number, aCount: number): number;
  jurn_free_settled(settled: number): void;
  jurn_make_voice(
    kind: number, int16: number, inputs: number, block: number,
    b: number, bCount: number, a: number, aCount: number,
  ): number;
  jurn_make_channel_filters(inputs: number, block: number, numbers: number, steps: number): number;
  jurn_prepare_response(
    inputs: number, outputs: number, block: number, taps: number, routes: number, count: number, b: number,
  ): number;
  jurn_response_bytes(response: number): number;
  jurn_response_size(response: number): number;
  jurn_free_response(response: number): void;
  jurn_make_convolution(
    inputs: number, outputs: number, block: number, taps: number, int16: number, response: number, size: number,
  ): number;
  jurn_connect(channels: number, inputs: number, routes: number): void;
  jurn_make_stamp(): number;
  jurn_free_stamp(stamp: number): void;
  jurn_stamp_floats(stamp: number, samples: number, count: number): void;
  jurn_stamp_samples(stamp: number, samples: number, count: number): void;
  jurn_stamp_text(stamp: number): number;
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
// What runs a design, as the engine numbers it.
const SECTIONS = 1, CONVOLUTION = 3;

/**
 * Streams that nobody holds any more: their memory is given back. What holds a stream's instance
 * does not hold the stream.
 */
const forgotten = new FinalizationRegistry<{ wasm: Exports; address: number }>(({ wasm, address }) =>
  wasm.jurn_free_stream(address));

const NO_MEMORY = 'no memory is left for the filter';

/** An instance of the compiled library, with memory of its own. */
export class Library {
  readonly simd: boolean;
  readonly #wasm: Exports;

  constructor(compiled: CompiledLibrary) {
    this.simd = compiled.simd;
    const module = compiled.module as WebAssembly.Module;
    // The C library asks for output, which only a failed assertion would use.
    const imports: Record<string, Record<string, (value: number) => number>> = {};
    for (const { module: from, name } of WebAssembly.Module.imports(module))
      (imports[from] ??= {})[name] = () => 52;
    (imports.env ??= {}).jurn_refuse = (message) => {
      const sentence = this.#text(message);
      throw sentence === 'std::bad_alloc' ? new Error(NO_MEMORY) : new RangeError(sentence);
    };
    this.#wasm = new WebAssembly.Instance(module, imports).exports as unknown as Exports;
    this.#wasm._initialize();
  }

  get version(): string {
    return this.#text(this.#wasm.jurn_version());
  }

  /** On the audio thread there is no TextDecoder. */
  #text(signed: number): string {
    const bytes = new Uint8Array(this.#wasm.memory.buffer), address = signed >>> 0;
    return String.fromCharCode(...bytes.subarray(address, bytes.indexOf(0, address)));
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
      check(filter.inputs === shape.inputs && filter.outputs === shape.outputs && filter.block === shape.block &&
              (!('bytes' in filter) || (filter.bytes instanceof Uint8Array && filter.simd === this.simd)),
            'the filter was prepared for another shape or another build');
      if (!('bytes' in filter)) this.check(filter.runs, shape);
      return;
    }
    if (filter.kind === 'convolution') return checkConvolution(filter, shape);
    if (filter.kind === 'channels') return checkChannels(filter, shape);
    check(filter.kind in KINDS, `'${filter.kind}' is no kind of filter`);
    check(shape.inputs === shape.outputs,
          'only a convolution has another number of outputs than inputs');
    checkPrecision(filter.precision);
    const most = this.#wasm.jurn_most_coefficients(KINDS[filter.kind], filter.precision === 'int16' ? 1 : 0) || MOST_TAPS;
    if (filter.kind === 'average')
      check(Number.isInteger(filter.length) && filter.length >= 1 && filter.length <= most,
            `the mean of ${filter.length} samples; 1 to ${most} are accepted`);
    else
      checkDesign(filter, most);
  }

  /**
   * Does the long part of a change: chooses what runs a design, computes the spectra of a
   * convolution, for streams of this shape in any instance of the same build. It takes some
   * milliseconds per second of response, or for a direct form of high order: keep it off the audio
   * thread.
   */
  prepare(filter: Filter, shape: Shape): Prepared {
    this.check(filter, shape);
    if (filter.kind === 'prepared') return filter;
    if (filter.kind === 'convolution') return this.#transform(filter, shape);
    const { inputs, outputs, block } = shape;
    if (filter.kind === 'channels' || filter.kind === 'average' || filter.precision === 'int16' || filter.kind === 'sections')
      return { kind: 'prepared', inputs, outputs, block, runs: filter };
    return this.#with(filter, (kind, b, bCount, a, aCount) => {
      const settled = this.#made(this.#wasm.jurn_settle(kind, b, bCount, a, aCount));
      try {
        const view = new DataView(this.#wasm.memory.buffer, settled);
        const [runs, numerators, denominators, bAt, aAt] = [0, 4, 8, 12, 16].map((at) => view.getUint32(at, true));
        if (runs === CONVOLUTION)
          return this.#transform({
            kind: 'convolution',
            routes: Array.from({ length: inputs }, (_, c) => ({ input: c, output: c, taps: filter.b })),
          }, shape);
        if (runs !== SECTIONS) return { kind: 'prepared', inputs, outputs, block, runs: filter };
        const numbers = (at: number, count: number) => Array.from(new Float64Array(this.#wasm.memory.buffer, at, count));
        return {
          kind: 'prepared', inputs, outputs, block,
          runs: { kind: 'sections', b: numbers(bAt, numerators), a: numbers(aAt, denominators) },
        };
      } finally {
        this.#wasm.jurn_free_settled(settled);
      }
    });
  }

  /**
   * The convolution with a response's channels, as the command-line tool connects them: one filters
   * every input, as many as there are inputs filter one each, several make as many outputs of a
   * mono input, and four of a stereo one lead left to left, left to right, right to left, right to
   * right.
   */
  connect(response: readonly Numbers[], inputs: number): Convolution & { outputs: number } {
    const isCount = (n: number) => n >= 1 && n <= 16;
    check(isCount(response.length) && isCount(inputs),
          `an impulse response of ${response.length} channels for ${inputs}; 1 to 16 are accepted`);
    const held: number[] = [];
    try {
      const at = this.#allocate(4 * (2 + 3 * 16), held);
      this.#wasm.jurn_connect(response.length, inputs, at);
      const [outputs, count, ...list] = new Int32Array(this.#wasm.memory.buffer, at, 2 + 3 * 16);
      return {
        kind: 'convolution', outputs,
        routes: Array.from({ length: count }, (_, i) => ({
          input: list[3 * i], output: list[3 * i + 1], taps: response[list[3 * i + 2]],
        })),
      };
    } finally {
      for (const address of held) this.#wasm.jurn_free(address);
    }
  }

  /**
   * The CRC-32 of interleaved samples as a WAV file holds them, in hexadecimal: what the
   * command-line tool shows with --stamp.
   */
  stamp(samples: Float32Array | Int16Array): string {
    const stamp = this.#wasm.jurn_make_stamp() >>> 0, held: number[] = [];
    try {
      const most = 65536, at = this.#allocate(4 * most, held);
      for (let done = 0; done < samples.length; done += most) {
        const part = samples.subarray(done, done + most);
        if (part instanceof Int16Array) {
          new Int16Array(this.#wasm.memory.buffer, at, part.length).set(part);
          this.#wasm.jurn_stamp_samples(stamp, at, part.length);
        } else {
          new Float32Array(this.#wasm.memory.buffer, at, part.length).set(part);
          this.#wasm.jurn_stamp_floats(stamp, at, part.length);
        }
      }
      return this.#text(this.#wasm.jurn_stamp_text(stamp));
    } finally {
      for (const address of held) this.#wasm.jurn_free(address);
      this.#wasm.jurn_free_stamp(stamp);
    }
  }

  #transform(filter: Convolution, shape: Shape): PreparedConvolution {
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
      const response = this.#made(this.#wasm.jurn_prepare_response(inputs, outputs, block, taps, list, count, b));
      const size = this.#wasm.jurn_response_size(response) >>> 0;
      const from = this.#wasm.jurn_response_bytes(response) >>> 0;
      const bytes = new Uint8Array(this.#wasm.memory.buffer, from, size).slice();
      this.#wasm.jurn_free_response(response);
      return { kind: 'prepared', inputs, outputs, block, taps, precision: filter.precision, simd: this.simd, bytes };
    } finally {
      for (const address of held) this.#wasm.jurn_free(address);
    }
  }

  /** @internal The address of a voice, which the stream that it is handed to owns. */
  make(filter: Filter, shape: Shape): number {
    const ready = this.prepare(filter, shape);
    if ('bytes' in ready) {
      const held: number[] = [];
      try {
        const response = this.#allocate(ready.bytes.length, held);
        new Uint8Array(this.#wasm.memory.buffer).set(ready.bytes, response);
        return this.#made(this.#wasm.jurn_make_convolution(
          ready.inputs, ready.outputs, ready.block, ready.taps, ready.precision === 'int16' ? 1 : 0,
          response, ready.bytes.length));
      } finally {
        for (const address of held) this.#wasm.jurn_free(address);
      }
    }
    const { runs } = ready;
    if (runs.kind === 'channels') return this.#makeChannels(runs, shape);
    return this.#with(runs, (kind, ...coefficients) => this.#made(this.#wasm.jurn_make_voice(
      kind, runs.precision === 'int16' ? 1 : 0, shape.inputs, shape.block, ...coefficients)));
  }

  #makeChannels({ steps }: ChannelFilters, shape: Shape): number {
    const numbers = steps.flatMap(({ channels, design: { b, a } }) =>
      [channels.length, ...channels, b.length, ...Array.from(b), ...Array.from(a)]);
    const held: number[] = [];
    try {
      const at = this.#allocate(8 * numbers.length, held);
      new Float64Array(this.#wasm.memory.buffer, at, numbers.length).set(numbers);
      return this.#made(this.#wasm.jurn_make_channel_filters(shape.inputs, shape.block, at, steps.length));
    } finally {
      for (const address of held) this.#wasm.jurn_free(address);
    }
  }

  /** Runs with copies of a filter's coefficients. */
  #with<T>(filter: Runs, run: (kind: number, b: number, bCount: number, a: number, aCount: number) => T): T {
    const bValues = filter.kind === 'average' ? [filter.length] : filter.b;
    const aValues = filter.kind === 'iir' || filter.kind === 'sections' ? filter.a : [];
    const held: number[] = [];
    try {
      const b = this.#allocate(8 * bValues.length, held);
      const a = this.#allocate(8 * aValues.length, held);
      new Float64Array(this.#wasm.memory.buffer, b, bValues.length).set(bValues);
      new Float64Array(this.#wasm.memory.buffer, a, aValues.length).set(aValues);
      return run(KINDS[filter.kind], b, bValues.length, a, aValues.length);
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
    if (address === 0) throw new Error(NO_MEMORY);
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
   * Later it first hears the past: it takes over the state of the one before, or is given the last
   * 16384 frames of input; then the output fades to it over `fade` frames. A change during a change
   * fades from what sounds, up to four at once; of more, the last waits its turn. Convolutions of
   * one reserved length fade within one block.
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
    const values = new Float32Array(this.#wasm.memory.buffer, this.#wasm.jurn_levels(this.#live()) >>> 0, this.shape.inputs + this.shape.outputs + 2);
    const peaks = Array.from(values.subarray(0, -2));
    const [inputClipped, outputClipped] = values.subarray(-2);
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

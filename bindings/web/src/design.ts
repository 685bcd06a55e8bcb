// Coefficient files and designs: the command-line tool's own code, compiled along.
import type { ChannelFilters, Fir, Iir, Numbers, Precision, Sections } from './filters.js';
import { checkDesign, checkPrecision } from './check.js';
import { compile, type Source } from './read.js';
import { isArchive, unfold } from './archive.js';
import { DesignError } from './errors.js';
import type { Fit, FitOptions } from './fit.js';

export type { Fit, FitOptions, FittedBand } from './fit.js';
export type { Source } from './read.js';
export { DesignError } from './errors.js';

export type Design = (Fir | Iir | Sections) & {
  b: number[];
  a?: number[];
  /** The precision that a file says it was prepared for: there it runs as it is. */
  prepared?: Precision;
};

export interface ParseOptions {
  /** What is expected; by default whatever the file holds. */
  wanted?: 'fir' | 'iir' | 'sections';
  /** The sample rate that lines of an equaliser are designed for, in Hz. */
  rate: number;
  precision?: Precision;
  /**
   * Of the feedback, which some programs write with the signs turned: `keep` or `turn` them. By
   * default a filter that is stable only with its signs turned is refused.
   */
  signs?: 'keep' | 'turn';
}

/** The samples of a recording, as the command-line tool reads them. */
export interface Audio {
  rate: number;
  /** Rounded to floats; the full scale of whole numbers is 1. */
  channels: Float32Array<ArrayBuffer>[];
  /** Samples that were infinite or no number, which became 0. */
  notFinite: number;
}

const FAMILIES = ['butterworth', 'chebyshev1', 'chebyshev2', 'elliptic', 'bessel', 'windowed', 'equiripple'] as const;
const PASSES = ['low', 'high', 'band', 'stop'] as const;
const WINDOWS = ['rectangular', 'hann', 'hamming', 'blackman', 'blackman-harris', 'kaiser'] as const;

/** A filter by the name of its family; what the family does not know may be left out. */
export interface FamilyDesign {
  family: (typeof FAMILIES)[number];
  /** Of the prototype, 1 to 50; a band-pass or band-stop has twice as many poles. */
  order?: number;
  /** Of the FIRs. */
  taps?: number;
  pass: (typeof PASSES)[number];
  /** The corner in Hz, or the lower one of a band. */
  low: number;
  high?: number;
  /** In dB where it lets pass, and where it stops. */
  ripple?: number;
  attenuation?: number;
  window?: (typeof WINDOWS)[number];
  /** Of Kaiser's window. */
  beta?: number;
  /** Of an equiripple FIR: from passing to stopping in Hz, and how much more an error counts where it stops. */
  transition?: number;
  weight?: number;
}

/** What an impulse and a step become. */
export interface TimeResponses {
  impulse: number[];
  step: number[];
}

const FORMATS = { header: 0, npy: 1, mat: 2, text: 3 } as const;
const CODES = { cmsis: 0, 'web-audio': 1, equaliser: 2 } as const;

/** What preparing a design found. */
export interface Notice {
  text: string;
  /** Whether the result differs from the design. */
  warning: boolean;
}

export interface Prepared {
  /** What runs: scaled, factored and rounded as the precision needs it. */
  design: Design;
  stable: boolean;
  poleRadius: number;
  /** Largest difference from the design in steps of 16 bits; null where it is infinite. */
  expectedError: number | null;
  notices: Notice[];
}

/** Pairs of real and imaginary part, one after another. */
export interface Roots {
  zeros: number[];
  poles: number[];
}

interface Exports {
  memory: WebAssembly.Memory;
  _initialize(): void;
  jurn_allocate(bytes: number): number;
  jurn_free(address: number): void;
  jurn_most_coefficients(kind: number, int16: number): number;
  jurn_parse(name: number, nameLength: number, bytes: number, length: number, wanted: number,
             int16: number, rate: number, negate: number): number;
  jurn_parse_archive(name: number, nameLength: number, members: number, lengths: number, count: number,
                     wanted: number, int16: number, rate: number, negate: number): number;
  jurn_parse_channels(name: number, nameLength: number, bytes: number, length: number, channels: number, rate: number): number;
  jurn_find_audio(name: number, nameLength: number, bytes: number, length: number): number;
  jurn_read_audio(first: number, count: number, channel: number, samples: number): number;
  jurn_prepare(kind: number, b: number, bCount: number, a: number, aCount: number,
               int16: number, prepared: number): number;
  jurn_export(kind: number, b: number, bCount: number, a: number, aCount: number, int16: number,
              format: number, name: number, nameLength: number): number;
  jurn_length(): number;
  jurn_design(numbers: number, rate: number): number;
  jurn_holds_equaliser(bytes: number, length: number): number;
  jurn_fit(name: number, nameLength: number, bytes: number, length: number, targetName: number, targetNameLength: number,
           target: number, targetLength: number, numbers: number): number;
  jurn_time_responses(kind: number, b: number, bCount: number, a: number, aCount: number): number;
  jurn_code(kind: number, b: number, bCount: number, a: number, aCount: number, format: number, name: number,
            nameLength: number, rate: number): number;
  jurn_describe(kind: number, b: number, bCount: number, a: number, aCount: number): number;
  jurn_roots(kind: number, b: number, bCount: number, a: number, aCount: number): number;
  jurn_peak_gain(kind: number, b: number, bCount: number, a: number, aCount: number): number;
}

const KINDS = { fir: 0, iir: 1, sections: 2 } as const;
/** Reads, prepares and writes designs; `loadDesigner` makes it. */
class Designer {
  readonly #module: WebAssembly.Module;
  #wasm: Exports;

  /** @internal */
  constructor(module: WebAssembly.Module) {
    this.#module = module;
    this.#wasm = this.#instance();
  }

  /**
   * Reads a coefficient file, mono WAV and AIFF files among them; throws a DesignError that names the
   * file, the line and the value. Archives of NumPy take `read`.
   */
  parse(name: string, bytes: Uint8Array, options: ParseOptions): Design {
    const path = new TextEncoder().encode(name);
    const design = this.#call<Design>([path, bytes], ([nameAt, bytesAt]) =>
      this.#wasm.jurn_parse(nameAt, path.length, bytesAt, bytes.length, ...numbersOf(options)));
    return { ...design, precision: options.precision };
  }

  /** The same of any file, .npz archives of NumPy included. */
  async read(name: string, bytes: Uint8Array, options: ParseOptions): Promise<Design> {
    if (!isArchive(bytes)) return this.parse(name, bytes, options);
    const members = await unfold(name, bytes);
    if (members.length === 0) return this.parse(name, bytes, options); // which says what it is
    const path = new TextEncoder().encode(name), parts = members.flat();
    const all = new Uint8Array(parts.reduce((sum, part) => sum + part.length, 0));
    parts.reduce((at, part) => (all.set(part, at), at + part.length), 0);
    const lengths = new Uint8Array(Int32Array.from(parts, (part) => part.length).buffer);
    const design = this.#call<Design>([path, all, lengths], ([nameAt, allAt, lengthsAt]) =>
      this.#wasm.jurn_parse_archive(nameAt, path.length, allAt, lengthsAt, members.length, ...numbersOf(options)));
    return { ...design, precision: options.precision };
  }

  /**
   * The filters of an equaliser's text with lines of `Channel`, for so many channels; null where it
   * filters all channels alike.
   */
  parseChannels(name: string, bytes: Uint8Array, channels: number, rate: number): ChannelFilters | null {
    const path = new TextEncoder().encode(name);
    const steps = this.#call<ChannelFilters['steps'] | null>([path, bytes], ([nameAt, bytesAt]) =>
      this.#wasm.jurn_parse_channels(nameAt, path.length, bytesAt, bytes.length, channels, rate));
    return steps && { kind: 'channels', steps };
  }

  /**
   * The recording in a WAV or AIFF file of whole numbers or floats; null for other files. Without
   * frames its channels are empty. Throws a DesignError for one that is cut off.
   */
  readAudio(name: string, bytes: Uint8Array): Audio | null {
    const path = new TextEncoder().encode(name), part = 65536;
    return this.#call([path, bytes, new Float64Array(part / 2)], ([nameAt, bytesAt, samplesAt]) => {
      const found = this.#wasm.jurn_find_audio(nameAt, path.length, bytesAt, bytes.length) >>> 0;
      if (found === 0) return null;
      const [rate, count, frames] = new Uint32Array(this.#wasm.memory.buffer, found, 3);
      const audio: Audio = { rate, channels: [], notFinite: 0 };
      for (let c = 0; c < count; ++c) {
        const channel = new Float32Array(frames);
        for (let at = 0; at < frames; at += part) {
          const now = Math.min(part, frames - at);
          audio.notFinite += this.#wasm.jurn_read_audio(at, now, c, samplesAt);
          channel.set(new Float32Array(this.#wasm.memory.buffer, samplesAt, now), at);
        }
        audio.channels.push(channel);
      }
      return audio;
    });
  }

  /** Prepares a design to run, as the command-line tool does. */
  prepare(design: (Fir | Iir | Sections) & { prepared?: Precision }, precision: Precision = 'double'): Prepared {
    checkDesign(design);
    checkPrecision(design.prepared);
    const limit = this.#wasm.jurn_most_coefficients(KINDS[design.kind], precision === 'int16' ? 1 : 0);
    if (design.b.length > limit)
      throw new RangeError(`${design.b.length} coefficients; ` +
        `${precision === 'int16' ? 'in 16-bit samples ' : ''}1 to ${limit} are accepted`);
    const prepared = this.#withDesign(design, (...coefficients) =>
      this.#wasm.jurn_prepare(...coefficients, precision === 'int16' ? 1 : 0,
                              design.prepared === undefined ? -1 : design.prepared === 'int16' ? 1 : 0)) as Prepared;
    prepared.design.precision = precision;
    return prepared;
  }

  /** What a design is, in words: "12 taps", "2 sections". */
  describe(design: Fir | Iir | Sections): string {
    return this.#withDesign(design, (...coefficients) => this.#wasm.jurn_describe(...coefficients), (words) => words) as string;
  }

  roots(design: Fir | Iir | Sections): Roots {
    return this.#withDesign(design, (...coefficients) => this.#wasm.jurn_roots(...coefficients)) as Roots;
  }

  /** The largest gain over all frequencies, on a fine grid: some tens of milliseconds per section. */
  peakGain(design: Fir | Iir | Sections): number {
    return this.#withDesign(design, (...coefficients) => this.#wasm.jurn_peak_gain(...coefficients)) as number;
  }

  /**
   * A filter of a family, at a rate in Hz: the coefficients of scipy.signal's butter, cheby1, cheby2, ellip,
   * bessel, firwin and remez. Throws a DesignError for what the family cannot do.
   */
  design(wanted: FamilyDesign, rate: number): Design {
    const { family, order = 4, taps = 101, pass, low, high = 0, ripple = 1, attenuation = 60, window = 'hamming', beta = 8,
            transition = 0, weight = 1 } = wanted;
    const isFir = family === 'windowed' || family === 'equiripple';
    const places = [FAMILIES.indexOf(family), PASSES.indexOf(pass), WINDOWS.indexOf(window)];
    const numbers = [places[0], isFir ? taps : order, places[1], low, high, ripple, attenuation, places[2], beta, transition, weight];
    if (places.includes(-1) || !numbers.every((x) => Math.abs(x) < 1e9) || !(rate >= 1 && rate <= 1e7))
      throw new RangeError('the family, pass or window is none of those that are known, or a number is none');
    return this.#call<Design>([Float64Array.from(numbers)], ([at]) => this.#wasm.jurn_design(at, rate));
  }

  /** Whether a text is an equaliser, of AutoEq for example, and no measurement. */
  holdsEqualiser(bytes: Uint8Array): boolean {
    return this.#call<boolean>([bytes], ([at]) => this.#wasm.jurn_holds_equaliser(at, bytes.length) !== 0);
  }

  /**
   * An equaliser for a measured response, as REW, AutoEq and others export it as text: some tenths of a
   * second of work. Throws a DesignError that names the file, the line and the value.
   */
  fit(name: string, bytes: Uint8Array, options: FitOptions): Fit {
    const { rate, bands = 10, mostGain = 12, mostQ = 6, low = 20, high = 20000, target } = options;
    const numbers = [rate, bands, mostGain, mostQ, low, high];
    if (!numbers.every((x) => Math.abs(x) < 1e9) || !(rate >= 1)) throw new RangeError('an option of the fit is no number');
    const encode = (text: string) => new TextEncoder().encode(text);
    const files = [encode(name), bytes, encode(target?.name ?? ''), target?.bytes ?? new Uint8Array()];
    return this.#call<Fit>([...files, Float64Array.from(numbers)], (at) =>
      this.#wasm.jurn_fit(at[0], files[0].length, at[1], files[1].length, at[2], files[2].length, at[3], files[3].length, at[4]));
  }

  /** What an impulse and a step become, until they have decayed by 60 dB. */
  timeResponses(design: Fir | Iir | Sections): TimeResponses {
    return this.#withDesign(design, (...coefficients) => this.#wasm.jurn_time_responses(...coefficients)) as TimeResponses;
  }

  /**
   * A prepared design as a file: `text` for the command-line tool and other programs, `header` for C
   * and C++, with the functions that set up and run the library's filter, `npy` for NumPy, `mat` for
   * MATLAB.
   */
  export(design: Fir | Iir | Sections, format: 'text' | 'header', name?: string): string;
  export(design: Fir | Iir | Sections, format: 'npy' | 'mat', name?: string): Uint8Array<ArrayBuffer>;
  export(design: Fir | Iir | Sections, format: keyof typeof FORMATS, name = 'filter'): string | Uint8Array<ArrayBuffer> {
    return this.#named(design, name, (coefficients, at, length) =>
      this.#wasm.jurn_export(...coefficients, design.precision === 'int16' ? 1 : 0, FORMATS[format], at, length),
      format === 'npy' || format === 'mat');
  }

  /**
   * A design for what other programs run: C for CMSIS-DSP, nodes of Web Audio, lines of Equalizer APO.
   * Throws a DesignError where they have no such filter.
   */
  code(design: Fir | Iir | Sections, format: keyof typeof CODES, name: string, rate: number): string {
    return this.#named(design, name, (coefficients, at, length) =>
      this.#wasm.jurn_code(...coefficients, CODES[format], at, length, rate), false) as string;
  }

  #named(design: Fir | Iir | Sections, name: string,
         run: (coefficients: [number, number, number, number, number], at: number, length: number) => number,
         binary: boolean): string | Uint8Array<ArrayBuffer> {
    const path = new TextEncoder().encode(name);
    let address = 0;
    const file = this.#withDesign(design, (...coefficients) => {
      const at = this.#copy(path);
      address = run(coefficients, at, path.length) >>> 0;
      this.#wasm.jurn_free(at);
      return address;
    }, (content) => binary ? new Uint8Array(this.#wasm.memory.buffer).slice(address, address + this.#wasm.jurn_length()) : content);
    return file as string | Uint8Array<ArrayBuffer>;
  }

  #withDesign(
    design: Fir | Iir | Sections,
    run: (kind: number, b: number, bCount: number, a: number, aCount: number) => number,
    read: (text: string) => unknown = JSON.parse,
  ): unknown {
    checkDesign(design);
    const a: Numbers = design.kind === 'fir' ? [] : design.a;
    return this.#call([Float64Array.from(design.b), Float64Array.from(a)], ([bAt, aAt]) =>
      run(KINDS[design.kind], bAt, design.b.length, aAt, a.length), read);
  }

  #copy(array: Uint8Array | Float64Array): number {
    const address = this.#wasm.jurn_allocate(Math.max(array.byteLength, 8)) >>> 0;
    if (address === 0) throw new DesignError('no memory is left');
    new Uint8Array(this.#wasm.memory.buffer).set(
      new Uint8Array(array.buffer, array.byteOffset, array.byteLength), address);
    return address;
  }

  /** Runs with copies of the arrays in the instance's memory; a number is the address of a text. */
  #call<T>(arrays: (Uint8Array | Float64Array)[], run: (at: number[]) => number | T,
           read: (text: string) => T = JSON.parse): T {
    try {
      const addresses = arrays.map((array) => this.#copy(array));
      const result = run(addresses);
      const taken = typeof result === 'number' ? read(text(this.#wasm, result)) : result;
      for (const address of addresses) this.#wasm.jurn_free(address);
      return taken;
    } catch (error) {
      // Nothing was unwound inside.
      this.#wasm = this.#instance();
      if (error instanceof WebAssembly.RuntimeError)
        throw new DesignError('it is beyond what fits into memory');
      throw error;
    }
  }

  #instance(): Exports {
    const imports: Record<string, Record<string, (message: number) => number>> = {};
    for (const { module, name } of WebAssembly.Module.imports(this.#module))
      (imports[module] ??= {})[name] = () => 52;
    let wasm: Exports;
    (imports.env ??= {}).jurn_refuse = (message) => {
      throw new DesignError(text(wasm, message));
    };
    wasm = new WebAssembly.Instance(this.#module, imports).exports as unknown as Exports;
    wasm._initialize();
    return wasm;
  }
}

function numbersOf({ wanted, precision, rate, signs }: ParseOptions): [number, number, number, number] {
  return [wanted === undefined ? -1 : KINDS[wanted], precision === 'int16' ? 1 : 0, rate,
          signs === undefined ? -1 : signs === 'turn' ? 1 : 0];
}

function text(wasm: Exports, signed: number): string {
  const address = signed >>> 0;
  const bytes = new Uint8Array(wasm.memory.buffer);
  return new TextDecoder().decode(bytes.subarray(address, bytes.indexOf(0, address)));
}

export type { Designer };

/** `wasm` says where design.wasm is, for bundlers that move it; by default beside this file. */
export async function loadDesigner({ wasm }: { wasm?: Source } = {}): Promise<Designer> {
  return new Designer(await compile(wasm ?? new URL('./design.wasm', import.meta.url)));
}

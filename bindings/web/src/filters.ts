// What a filter is, to the caller.

/** Numbers in order of use: a plain array or any typed one. */
export type Numbers = ArrayLike<number>;

/**
 * What computes: `double` is exact to the last bit of a float, recursive filters as sections, FIRs
 * from 4096 taps on by convolution; `int16` is the library's filter for 16-bit streams, which sums
 * floats and truncates its output to 16 bits, as a device does. `double` unless it is said.
 */
export type Precision = 'double' | 'int16';

/** y[n] = sum over j of b[j] x[n-j]. */
export interface Fir {
  kind: 'fir';
  b: Numbers;
  precision?: Precision;
}

/** y[n] = sum over j of b[j] x[n-j] - sum over j >= 1 of a[j] y[n-j]; a[0] has to be 1. */
export interface Iir {
  kind: 'iir';
  b: Numbers;
  a: Numbers;
  precision?: Precision;
}

/** Second-order sections, one after another: three coefficients of each in `b` and in `a`. */
export interface Sections {
  kind: 'sections';
  b: Numbers;
  a: Numbers;
  precision?: Precision;
}

/** The mean of the last `length` samples; in 16 bits of up to 2156. */
export interface Average {
  kind: 'average';
  length: number;
  precision?: Precision;
}

/** One way through a convolution: from an input to an output, both from 0. */
export interface Route {
  input: number;
  output: number;
  taps: Numbers;
}

/**
 * Convolution with impulse responses of any length, without latency. `taps` may reserve a length
 * beyond the longest route: convolutions of one reserved length fade into each other with their
 * tails kept.
 */
export interface Convolution {
  kind: 'convolution';
  routes: readonly Route[];
  taps?: number;
  /** `double` convolves floats, whose sums are floats. */
  precision?: Precision;
}

/** Sections on single channels, counted from 0, step after step: of a setup of loudspeakers. */
export interface ChannelFilters {
  kind: 'channels';
  steps: readonly { channels: readonly number[]; design: Sections }[];
  precision?: 'double';
}

/** What streams run without more ado. */
export type Runs = Fir | Iir | Sections | Average;

interface PreparedFor extends Shape {
  kind: 'prepared';
}

/** A filter that is ready for streams of the shape that it names; `Library.prepare` makes it. */
export interface PreparedFilter extends PreparedFor {
  runs: Runs | ChannelFilters;
}

/** A convolution whose spectra are computed. */
export interface PreparedConvolution extends PreparedFor {
  taps: number;
  precision?: Precision;
  simd: boolean;
  bytes: Uint8Array;
}

export type Prepared = PreparedFilter | PreparedConvolution;

export type Filter = Runs | ChannelFilters | Convolution | Prepared;

/** The channels and the block length of a stream. */
export interface Shape {
  inputs: number;
  outputs: number;
  /** Frames that are computed at once; Web Audio's quantum has 128. */
  block: number;
}

// Frequency responses, computed from the coefficients that run.
import type { Filter, Numbers } from 'jurn-filter';

export interface Response {
  frequency: Float64Array; // Hz, rising by a constant factor
  magnitude: Float64Array; // dB
  phase: Float64Array; // degrees, continued past 180
  delay: Float64Array; // ms
}

export const LOWEST = 20;
const POINTS = 480;
const FLOOR = -200;

/** The value of a polynomial in z^-1 and, by the rule of products, its group delay in samples. */
function evaluate(coefficients: Numbers, from: number, to: number, w: number, out: Float64Array): void {
  const c = Math.cos(w), s = -Math.sin(w);
  let re = 0, im = 0, slopeRe = 0, slopeIm = 0;
  for (let k = to - 1; k >= from; --k) {
    // Horner's scheme for the value, and for the value of the sum of k b[k] z^-k.
    const r = re * c - im * s, sr = slopeRe * c - slopeIm * s;
    im = re * s + im * c;
    slopeIm = slopeRe * s + slopeIm * c;
    re = r + coefficients[k];
    slopeRe = sr + (k - from) * coefficients[k];
  }
  const power = re * re + im * im;
  out[0] = power;
  out[1] = Math.atan2(im, re);
  out[2] = power > 0 ? (slopeRe * re + slopeIm * im) / power : 0;
}

export function respond(filter: Filter, rate: number): Response {
  const top = Math.min(20000, rate / 2 - 1);
  const response: Response = {
    frequency: new Float64Array(POINTS), magnitude: new Float64Array(POINTS),
    phase: new Float64Array(POINTS), delay: new Float64Array(POINTS),
  };
  const part = new Float64Array(3);
  let average: Float64Array | undefined;
  if (filter.kind === 'average') average = new Float64Array(filter.length).fill(1 / filter.length);
  let turns = 0, before = 0;
  for (let i = 0; i < POINTS; ++i) {
    const f = LOWEST * Math.pow(top / LOWEST, i / (POINTS - 1));
    const w = (2 * Math.PI * f) / rate;
    let power = 1, phase = 0, delay = 0;
    const add = (values: Numbers, from: number, to: number, sign: number) => {
      evaluate(values, from, to, w, part);
      power *= sign > 0 ? part[0] : 1 / part[0];
      phase += sign * part[1];
      delay += sign * part[2];
    };
    if (average) {
      add(average, 0, average.length, 1);
    } else if (filter.kind === 'fir') {
      add(filter.b, 0, filter.b.length, 1);
    } else if (filter.kind === 'iir') {
      add(filter.b, 0, filter.b.length, 1);
      add(filter.a, 0, filter.a.length, -1);
    } else if (filter.kind === 'sections') {
      for (let k = 0; k < filter.b.length; k += 3) {
        add(filter.b, k, k + 3, 1);
        add(filter.a, k, k + 3, -1);
      }
    }
    // The group delay foretells the phase; what is left is whole turns.
    const previous = i === 0 ? phase : response.phase[i - 1] * (Math.PI / 180);
    const step = i === 0 ? 0 : -((delay + before) / 2) * (w - (2 * Math.PI * response.frequency[i - 1]) / rate);
    // Where it jumps by half a turn, at a zero on the unit circle, it jumps up.
    turns = Math.round((previous + step - phase) / (2 * Math.PI) + 0.05);
    before = delay;
    response.frequency[i] = f;
    response.magnitude[i] = power > 0 ? Math.max(FLOOR, 10 * Math.log10(power)) : FLOOR;
    response.phase[i] = ((phase + turns * 2 * Math.PI) * 180) / Math.PI;
    response.delay[i] = (1000 * delay) / rate;
  }
  return response;
}

/** The magnitude of a long impulse response, as the mean power around each frequency. */
export function respondLong(taps: Float32Array, rate: number): Response {
  let size = 1024;
  while (size < taps.length && size < 1 << 18) size *= 2;
  const re = new Float64Array(size), im = new Float64Array(size);
  re.set(taps.subarray(0, size));
  fft(re, im);
  const top = Math.min(20000, rate / 2 - 1);
  const empty = () => new Float64Array(POINTS).fill(NaN);
  const response: Response = { frequency: empty(), magnitude: empty(), phase: empty(), delay: empty() };
  const factor = Math.pow(top / LOWEST, 1 / (POINTS - 1));
  for (let i = 0; i < POINTS; ++i) {
    const f = LOWEST * Math.pow(factor, i);
    const from = Math.max(1, Math.floor((f / Math.pow(factor, 4)) * size / rate));
    const to = Math.max(from + 1, Math.ceil((f * Math.pow(factor, 4)) * size / rate));
    let power = 0;
    for (let k = from; k < to; ++k) power += re[k] * re[k] + im[k] * im[k];
    response.frequency[i] = f;
    response.magnitude[i] = Math.max(FLOOR, 10 * Math.log10(power / (to - from)));
  }
  return response;
}

const turns = new Map<number, { cos: Float64Array; sin: Float64Array }>();

/** Half a turn in steps of one n-th of a turn. */
function turnOf(n: number): { cos: Float64Array; sin: Float64Array } {
  let turn = turns.get(n);
  if (!turn) {
    turn = { cos: new Float64Array(n / 2), sin: new Float64Array(n / 2) };
    for (let k = 0; k < n / 2; ++k) {
      turn.cos[k] = Math.cos((2 * Math.PI * k) / n);
      turn.sin[k] = Math.sin((2 * Math.PI * k) / n);
    }
    turns.set(n, turn);
  }
  return turn;
}

function fft(re: Float64Array, im: Float64Array): void {
  const n = re.length;
  for (let i = 1, j = 0; i < n; ++i) {
    let bit = n >> 1;
    for (; j & bit; bit >>= 1) j ^= bit;
    j ^= bit;
    if (i < j) {
      [re[i], re[j]] = [re[j], re[i]];
      [im[i], im[j]] = [im[j], im[i]];
    }
  }
  const { cos, sin } = turnOf(n);
  for (let length = 2; length <= n; length *= 2) {
    const half = length / 2, step = n / length;
    for (let from = 0; from < n; from += length) {
      for (let k = 0; k < half; ++k) {
        const c = cos[k * step], s = -sin[k * step];
        const i = from + k, j = i + half;
        const r = re[j] * c - im[j] * s, m = re[j] * s + im[j] * c;
        re[j] = re[i] - r;
        im[j] = im[i] - m;
        re[i] += r;
        im[i] += m;
      }
    }
  }
}

// Everything that a link holds.
import type { FamilyDesign } from 'jurn-filter/design';
import { checkDesign } from 'jurn-filter';

export const BAND_TYPES = {
  PK: 'Peak', LSC: 'Low shelf', HSC: 'High shelf', HPQ: 'High-pass', LPQ: 'Low-pass', NO: 'Notch',
} as const;
export type BandType = keyof typeof BAND_TYPES;

export interface Band {
  on: boolean;
  type: BandType;
  frequency: number;
  gain: number;
  q: number;
}

export const hasGain = (type: BandType) => type === 'PK' || type === 'LSC' || type === 'HSC';

export type Kind = 'eq' | 'design' | 'file' | 'room' | 'head' | 'mean';

export interface Setting {
  rate: number;
  sound: string;
  kind: Kind;
  precision: 'double' | 'int16';
  preamp: number;
  bands: Band[];
  /** A design that was read from a file, as it was before it was prepared. */
  file: { name: string; kind: 'fir' | 'iir' | 'sections'; b: number[]; a: number[]; prepared?: 'double' | 'int16' } | null;
  /** A text that filters channels in different ways; it takes the place of `file`. */
  channels: { name: string; text: string } | null;
  design: Required<Omit<FamilyDesign, 'family'>> & {
    family: FamilyDesign['family'] | 'fitted';
    bands: number; mostGain: number; mostQ: number; from: number; to: number;
  };
  /** What was fitted to a measurement. */
  fit: { name: string; summary: string; preamp: number; bands: Band[] } | null;
  room: string;
  wet: number;
  azimuth: number;
  distance: number;
  mean: number;
}

export const initial = (): Setting => ({
  rate: 48000,
  sound: 'music',
  kind: 'eq',
  precision: 'double',
  preamp: 0,
  bands: [
    { on: true, type: 'LSC', frequency: 90, gain: 4, q: 0.7 },
    { on: true, type: 'PK', frequency: 420, gain: -5, q: 1.2 },
    { on: true, type: 'PK', frequency: 2600, gain: 3.5, q: 1.4 },
    { on: true, type: 'HSC', frequency: 9000, gain: -3, q: 0.7 },
  ],
  file: null,
  channels: null,
  design: {
    family: 'butterworth', order: 4, taps: 101, pass: 'low', low: 1000, high: 4000, ripple: 1, attenuation: 60,
    window: 'hamming', beta: 8, transition: 1000, weight: 1, bands: 10, mostGain: 12, mostQ: 6, from: 20, to: 20000,
  },
  fit: null,
  room: 'hall',
  wet: 40,
  azimuth: 60,
  distance: 1,
  mean: 24,
});

export const LIMITS = {
  frequency: [20, 20000], gain: [-24, 24], q: [0.1, 20], preamp: [-40, 20], wet: [0, 100],
  azimuth: [-180, 180], distance: [0.3, 5], mean: [1, 2156],
} as const;

/** What a design may have, beyond what the engine says of the combination. */
export const DESIGN_LIMITS = {
  order: [1, 50], taps: [1, 32767], low: [0.001, 1e6], high: [0.001, 1e6], ripple: [1e-6, 60], attenuation: [0.1, 300],
  beta: [0, 100], transition: [0.1, 1e6], weight: [1e-4, 1e6], bands: [1, 32], mostGain: [0.1, 24], mostQ: [0.5, 20],
  from: [20, 20000], to: [20, 20000],
} as const;

export const DESIGN_NAMES = {
  family: {
    butterworth: 'Butterworth', chebyshev1: 'Chebyshev I', chebyshev2: 'Chebyshev II', elliptic: 'Elliptic', bessel: 'Bessel',
    windowed: 'FIR, windowed', equiripple: 'FIR, equiripple', fitted: 'Fitted equaliser',
  },
  pass: { low: 'Low-pass', high: 'High-pass', band: 'Band-pass', stop: 'Band-stop' },
  window: {
    rectangular: 'Rectangular', hann: 'Hann', hamming: 'Hamming', blackman: 'Blackman', 'blackman-harris': 'Blackman-Harris', kaiser: 'Kaiser',
  },
} as const;

export function clamp(value: number, [low, high]: readonly [number, number]): number {
  return Math.min(high, Math.max(low, value));
}

/** The highest frequency that a band may have at a rate. */
export const highest = (rate: number) => Math.min(LIMITS.frequency[1], 0.49 * rate);

/** Characters that mail and chat programs leave whole in a link. */
export const LONGEST_LINK = 8000;

export const isFitted = (setting: Setting) => setting.kind === 'design' && setting.design.family === 'fitted';

/** What a link has to hold: the rest has its initial value, or is a file that is not used. */
function needed(setting: Setting): Partial<Setting> {
  const before: Record<string, unknown> = { ...initial() };
  return Object.fromEntries(Object.entries(setting).filter(([key, value]) =>
    JSON.stringify(value) !== JSON.stringify(before[key]) && (key !== 'file' || setting.kind === 'file') && (key !== 'channels' || setting.kind === 'file') &&
    (key !== 'design' || setting.kind === 'design') && (key !== 'fit' || isFitted(setting))));
}

async function through(bytes: Uint8Array<ArrayBuffer>, stream: CompressionStream | DecompressionStream): Promise<Uint8Array<ArrayBuffer>> {
  return new Uint8Array(await new Response(new Blob([bytes]).stream().pipeThrough(stream)).arrayBuffer());
}

/** Deflated; a dot tells these links from those of before. */
export async function toHash(setting: Setting): Promise<string> {
  const bytes = await through(new TextEncoder().encode(JSON.stringify(needed(setting))), new CompressionStream('deflate-raw'));
  let text = '';
  for (const byte of bytes) text += String.fromCharCode(byte);
  return '.' + btoa(text).replaceAll('+', '-').replaceAll('/', '_').replaceAll('=', '');
}

/** The setting of a link; what is missing or wrong in it keeps its initial value. */
export async function fromHash(hash: string): Promise<Setting> {
  try {
    const text = hash.replace(/^#/, '');
    const packed = text.startsWith('.');
    const bytes = Uint8Array.from(atob(text.slice(packed ? 1 : 0).replaceAll('-', '+').replaceAll('_', '/')), (c) => c.charCodeAt(0));
    return fromJson(new TextDecoder().decode(packed ? await through(bytes, new DecompressionStream('deflate-raw')) : bytes));
  } catch {
    return initial();
  }
}

export function fromJson(json: string): Setting {
  const setting = initial();
  const given: Record<string, unknown> = JSON.parse(json);
  if (typeof given !== 'object' || given === null) return setting;
  const number = (key: keyof typeof LIMITS & keyof Setting) => {
    if (Number.isFinite(given[key])) (setting[key] as number) = clamp(given[key] as number, LIMITS[key]);
  };
  for (const key of ['preamp', 'wet', 'azimuth', 'distance', 'mean'] as const) number(key);
  setting.mean = Math.round(setting.mean);
  if ([44100, 48000, 96000].includes(given.rate as number)) setting.rate = given.rate as number;
  if (['eq', 'design', 'file', 'room', 'head', 'mean'].includes(given.kind as string)) setting.kind = given.kind as Kind;
  if (given.precision === 'int16') setting.precision = 'int16';
  if (typeof given.sound === 'string') setting.sound = given.sound;
  if (typeof given.room === 'string') setting.room = given.room;
  const bandsOf = (list: unknown[]): Band[] => (list as Band[]).slice(0, 32).filter((band) => band && band.type in BAND_TYPES).map((band) => ({
    on: band.on !== false,
    type: band.type,
    frequency: clamp(Number(band.frequency) || 1000, [LIMITS.frequency[0], highest(setting.rate)]),
    gain: clamp(Number(band.gain) || 0, LIMITS.gain),
    q: clamp(Number(band.q) || 1, LIMITS.q),
  }));
  if (Array.isArray(given.bands)) setting.bands = bandsOf(given.bands);
  const fit = given.fit as Setting['fit'];
  if (Array.isArray(fit?.bands))
    setting.fit = { name: String(fit.name), summary: String(fit.summary), preamp: clamp(Number(fit.preamp) || 0, LIMITS.preamp), bands: bandsOf(fit.bands) };
  const channels = given.channels as Setting['channels'];
  if (typeof channels?.text === 'string') setting.channels = { name: String(channels.name), text: channels.text };
  const wanted = given.design;
  if (typeof wanted === 'object' && wanted !== null) {
    const design: Record<string, unknown> = setting.design, from = wanted as Record<string, unknown>;
    for (const [key, limits] of Object.entries(DESIGN_LIMITS))
      if (Number.isFinite(from[key])) design[key] = clamp(from[key] as number, limits);
    for (const [key, names] of Object.entries(DESIGN_NAMES)) if (Object.hasOwn(names, String(from[key]))) design[key] = from[key];
    for (const key of ['order', 'taps', 'bands']) design[key] = Math.round(design[key] as number);
  }
  const file = given.file as Setting['file'];
  if (file) {
    try {
      checkDesign(file);
      setting.file = { name: String(file.name), kind: file.kind, b: file.b, a: file.a ?? [] };
      if (file.prepared === 'int16' || file.prepared === 'double') setting.file.prepared = file.prepared;
    } catch {
      // A damaged file is none.
    }
  }
  return setting;
}

/** Lines that the tool and the designer of this page read as the same equaliser. */
export function equaliserText(setting: Pick<Setting, 'preamp' | 'bands'>): string {
  return [`Preamp: ${setting.preamp} dB`, ...setting.bands.map(bandLine)].join('\n') + '\n';
}

export function bandLine(band: Band, i: number): string {
  const gain = hasGain(band.type) ? ` Gain ${band.gain} dB` : '';
  return `Filter ${i + 1}: ${band.on ? 'ON' : 'OFF'} ${band.type} Fc ${band.frequency} Hz${gain} Q ${band.q}`;
}

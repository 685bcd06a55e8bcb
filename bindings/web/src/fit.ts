// Equalisers that are fitted to measurements.

/** How an equaliser is fitted to a measurement. */
export interface FitOptions {
  /** The sample rate in Hz at which the equaliser runs. */
  rate: number;
  /** At most, 1 to 32; 10 by default. */
  bands?: number;
  /** Of a band up and down in dB, 12 by default, and of a peak, 6 by default. */
  mostGain?: number;
  mostQ?: number;
  /** Where it corrects, in Hz; 20 and 20000 by default. */
  low?: number;
  high?: number;
  /** What the response should become, as text like the measurement; by default it becomes flat. */
  target?: { name: string; bytes: Uint8Array };
}

/** A band in the words of Equalizer APO: peak, low and high shelf. */
export interface FittedBand {
  type: 'PK' | 'LSC' | 'HSC';
  frequency: number;
  gain: number;
  q: number;
}

export interface Fit {
  bands: FittedBand[];
  /** In dB, so that the equaliser does not clip. */
  preamp: number;
  /** From the target, in dB. */
  rms: number;
  largest: number;
  /** The lines of Equalizer APO, and how good they are in words. */
  text: string;
  summary: string;
  /** For a picture, in Hz and dB. */
  frequency: number[];
  measured: number[];
  target: number[];
  corrected: number[];
}

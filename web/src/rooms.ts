// Impulse responses of rooms, and of a head.
export interface ImpulseResponse {
  name: string;
  /** One channel for all sides, one for each, or four: left to left, left to right, right to left, right to right. */
  channels: Float32Array[];
}

export const MOST_SECONDS = 10;

/** A hall of decaying noise, the same each time. */
export function hall(rate: number): ImpulseResponse {
  const frames = 2 * rate;
  let state = 12345;
  const channels = [0, 1].map(() => {
    const taps = new Float32Array(frames);
    let low = 0;
    for (let i = 0; i < frames; ++i) {
      state = (Math.imul(state, 1664525) + 1013904223) | 0;
      const seconds = i / rate;
      // 60 dB in 1.8 s, the highs sooner; the first 12 ms are the way to the walls.
      const dull = Math.exp(-2.2 * seconds);
      low += dull * (state / 2 ** 31 - low);
      taps[i] = seconds < 0.012 ? 0 : low * Math.exp((-6.9 / 1.8) * seconds);
    }
    return taps;
  });
  return { name: 'Hall', channels };
}

/** The response mixed with the sound itself; its energy is made 1 so that all rooms are as loud. */
export function roomResponse(room: ImpulseResponse, wet: number): Float32Array[] {
  const energy = Math.max(...room.channels.map((x) => x.reduce((sum, tap) => sum + tap * tap, 0)));
  const gain = energy > 0 ? wet / Math.sqrt(energy) : 0;
  return room.channels.map((channel, c) => {
    const taps = channel.map((tap) => tap * gain);
    // Of four, the middle ones lead to the other side.
    if (room.channels.length !== 4 || c === 0 || c === 3) taps[0] += 1 - wet;
    return taps;
  });
}

/** Pairs of responses around a head, from the file that web/head.cpp writes. */
export class Head {
  private readonly directions: number;
  private readonly length: number;
  private readonly taps: Float32Array;

  constructor(bytes: ArrayBuffer) {
    [this.directions, this.length] = new Int32Array(bytes, 0, 2);
    this.taps = new Float32Array(bytes, 8);
    // As loud as the sound itself, in the nearer ear of the loudest direction.
    let most = 0;
    for (let at = 0; at < this.taps.length; at += this.length) {
      const ear = this.taps.subarray(at, at + this.length);
      most = Math.max(most, ear.reduce((sum, tap) => sum + tap * tap, 0));
    }
    for (let i = 0; i < this.taps.length; ++i) this.taps[i] /= Math.sqrt(most);
  }

  /** The nearest measured direction; `azimuth` in degrees to the right of the front. */
  pair(azimuth: number): [Float32Array, Float32Array] {
    const step = 360 / this.directions;
    const index = ((Math.round(-azimuth / step) % this.directions) + this.directions) % this.directions;
    const at = 2 * index * this.length;
    return [this.taps.subarray(at, at + this.length), this.taps.subarray(at + this.length, at + 2 * this.length)];
  }

  /** Both channels of the sound as one source in a direction, quieter with the distance. */
  response(azimuth: number, distance: number, inputs: number): Float32Array[] {
    const gain = 1 / inputs / distance;
    const ears = this.pair(azimuth).map((ear) => ear.map((tap) => tap * gain));
    return Array.from({ length: inputs }, () => ears).flat();
  }
}

// Files that the page brings along, gives away, and which kinds it is given.

/** The bytes of a file that the page brings along; else a sentence. */
export async function load(address: string, name: string): Promise<ArrayBuffer> {
  const gone = () => {
    throw new Error(`${name} cannot be loaded: the server of this page is not reached.`);
  };
  const response = await fetch(address).catch(gone);
  if (!response.ok) throw new Error(`${name} cannot be loaded: the server answers ${response.status}.`);
  return response.arrayBuffer().catch(gone);
}

export function download(name: string, content: BlobPart): void {
  const link = document.createElement('a');
  link.href = URL.createObjectURL(new Blob([content]));
  link.download = name;
  link.click();
  setTimeout(() => URL.revokeObjectURL(link.href), 10000);
}

export const WAV_HEADER = 44; // bytes before the samples

/** A WAV file: 16-bit samples, or floats where the filter runs in floats. */
export function wav(channels: Float32Array[], rate: number, int16: boolean): Uint8Array<ArrayBuffer> {
  const frames = channels[0].length, width = int16 ? 2 : 4;
  const bytes = new Uint8Array(WAV_HEADER + frames * channels.length * width);
  const view = new DataView(bytes.buffer);
  const mark = (at: number, text: string) => [...text].forEach((c, i) => view.setUint8(at + i, c.charCodeAt(0)));
  mark(0, 'RIFF');
  view.setUint32(4, bytes.length - 8, true);
  mark(8, 'WAVEfmt ');
  view.setUint32(16, 16, true);
  view.setUint16(20, int16 ? 1 : 3, true);
  view.setUint16(22, channels.length, true);
  view.setUint32(24, rate, true);
  view.setUint32(28, rate * channels.length * width, true);
  view.setUint16(32, channels.length * width, true);
  view.setUint16(34, 8 * width, true);
  mark(36, 'data');
  view.setUint32(40, bytes.length - WAV_HEADER, true);
  channels.forEach((channel, c) => {
    let at = WAV_HEADER + c * width;
    for (let i = 0; i < frames; ++i, at += channels.length * width) {
      if (int16) view.setInt16(at, Math.max(-32768, Math.min(32767, Math.round(channel[i] * 32768))), true);
      else view.setFloat32(at, channel[i], true);
    }
  });
  return bytes;
}

const MOST_CHANNELS = 16;

export interface Recording {
  rate: number;
  channels: Float32Array<ArrayBuffer>[];
}

/**
 * The samples of a WAV file of whole numbers or floats, exactly, and its rate; null for other files.
 * A file without a sample has no channels.
 * Browsers read it too, but Chromium scales positive samples by 32768/32767.
 */
export function readWav(bytes: ArrayBuffer): Recording | null {
  const view = new DataView(bytes);
  const mark = (at: number) => String.fromCharCode(...new Uint8Array(bytes, at, 4));
  if (bytes.byteLength < 12 || mark(0) !== 'RIFF' || mark(8) !== 'WAVE') return null;
  let format = 0, count = 0, rate = 0, bits = 0;
  for (let at = 12; at + 8 <= bytes.byteLength;) {
    const name = mark(at), from = at + 8;
    const size = Math.min(view.getUint32(at + 4, true), bytes.byteLength - from);
    if (name === 'fmt ' && size >= 16) {
      format = view.getUint16(from, true);
      count = view.getUint16(from + 2, true);
      rate = view.getUint32(from + 4, true);
      bits = view.getUint16(from + 14, true);
      if (format === 0xfffe && size >= 26) format = view.getUint16(from + 24, true);
    } else if (name === 'data') {
      const read: Record<string, (at: number) => number> = {
        '1 16': (i) => view.getInt16(i, true) / 2 ** 15,
        '1 24': (i) => (view.getUint16(i, true) + view.getInt8(i + 2) * 65536) / 2 ** 23,
        '1 32': (i) => view.getInt32(i, true) / 2 ** 31,
        '3 32': (i) => view.getFloat32(i, true),
        '3 64': (i) => view.getFloat64(i, true),
      };
      const sample = read[`${format} ${bits}`];
      const width = bits / 8, frames = Math.floor(size / (count * width));
      if (!sample || count < 1 || count > MOST_CHANNELS || rate < 1) return null;
      if (frames === 0) return { rate, channels: [] };
      const channels: Float32Array<ArrayBuffer>[] = [];
      for (let c = 0; c < count; ++c) {
        const channel = new Float32Array(frames);
        for (let i = 0, at = from + c * width; i < frames; ++i, at += count * width) {
          channel[i] = sample(at);
          if (!Number.isFinite(channel[i])) return null;
        }
        channels.push(channel);
      }
      return { rate, channels };
    }
    at = from + size + (size % 2);
  }
  return null;
}

/** The size of the largest file of coefficients that is read: 32767 numbers take a fifth of it. */
export const MOST_COEFFICIENT_BYTES = 5e6;

const AUDIO = /\.(wav|flac|mp3|ogg|oga|opus|m4a|aac|aif|aiff|weba|webm)$/i;

export const isAudio = (file: File) => file.type.startsWith('audio/') || AUDIO.test(file.name);

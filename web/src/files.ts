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

/** The size of the largest file of coefficients that is read: 32767 numbers take a fifth of it. */
export const MOST_COEFFICIENT_BYTES = 5e6;

/** The bytes of a file of numbers, which none is larger than. */
export async function readCoefficientBytes(file: File): Promise<Uint8Array> {
  if (file.size > MOST_COEFFICIENT_BYTES)
    throw new Error(`${file.name}: has ${(file.size / 1e6).toFixed(1)} MB; files of coefficients up to ${MOST_COEFFICIENT_BYTES / 1e6} MB are read.`);
  return new Uint8Array(await file.arrayBuffer());
}

const AUDIO = /\.(wav|flac|mp3|ogg|oga|opus|m4a|aac|aif|aiff|weba|webm)$/i;

export const isAudio = (file: File) => file.type.startsWith('audio/') || AUDIO.test(file.name);

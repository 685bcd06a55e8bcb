// What takes long, away from the page: reading long recordings, filtering them, fitting an equaliser.
import { Library, type CompiledLibrary, type Filter } from 'jurn-filter';
import { loadDesigner, type Audio, type Fit, type FitOptions } from 'jurn-filter/design';
import { wav, WAV_HEADER } from './files.js';

export type Job =
  | { kind: 'fit'; name: string; bytes: Uint8Array; options: FitOptions }
  | { kind: 'read'; name: string; bytes: ArrayBuffer; rate: number }
  | { kind: 'filter'; library: CompiledLibrary; filter: Filter; channels: Float32Array[]; rate: number; int16: boolean };

export type Answer = { part: number } | { fit: Fit } | { read: Audio | null; bytes: ArrayBuffer } | { file: Uint8Array<ArrayBuffer>; stamp: string } | { error: string };

const answer = (message: Answer, transfer: Transferable[] = []) =>
  (self as unknown as { postMessage(m: Answer, t: Transferable[]): void }).postMessage(message, transfer);

/** In blocks of the command-line tool, from which the bits of a convolution follow. */
const BLOCK = 1024;

function filtered({ library: compiled, filter, channels, rate, int16 }: Job & { kind: 'filter' }): { file: Uint8Array<ArrayBuffer>; stamp: string } {
  const library = new Library(compiled);
  const inputs = channels.length;
  const { outputs = inputs, tail = 0 } = filter.kind === 'convolution'
    ? { outputs: 1 + Math.max(...filter.routes.map(({ output }) => output)), tail: Math.max(...filter.routes.map(({ taps }) => taps.length)) - 1 }
    : {};
  const stream = library.stream({ inputs, outputs, block: BLOCK });
  stream.change(filter);
  const frames = channels[0].length, step = BLOCK * 480;
  const result = Array.from({ length: outputs }, () => new Float32Array(frames + tail));
  for (let at = 0; at < frames + tail; at += step) {
    answer({ part: at / (frames + tail) });
    const end = Math.min(at + step, frames + tail);
    const part = channels.map((channel) => {
      if (end <= frames) return channel.subarray(at, end);
      const padded = new Float32Array(end - at);
      if (at < frames) padded.set(channel.subarray(at));
      return padded;
    });
    stream.process(part, result.map((channel) => channel.subarray(at, end)));
  }
  const file = wav(result, rate, int16);
  const samples = int16 ? new Int16Array(file.buffer, WAV_HEADER) : new Float32Array(file.buffer, WAV_HEADER);
  return { file, stamp: library.stamp(samples) };
}

const loadOwnDesigner = () => loadDesigner({ wasm: new URL('./jurn/design.wasm', import.meta.url) });

/** The recording at the page's rate; of another rate, or of a kind that only browsers know, bytes for
 * the browser. */
async function read({ name, bytes, rate }: Job & { kind: 'read' }): Promise<{ read: Audio | null; bytes: ArrayBuffer }> {
  const audio = (await loadOwnDesigner()).readAudio(name, new Uint8Array(bytes));
  if (!audio || audio.rate === rate || audio.channels[0].length === 0) return { read: audio, bytes };
  const floats = wav(audio.channels, audio.rate, false).buffer;
  return { read: { ...audio, channels: [] }, bytes: floats };
}

self.onmessage = async ({ data }: MessageEvent<Job>) => {
  try {
    if (data.kind === 'read') {
      const result = await read(data);
      answer(result, [result.bytes, ...(result.read?.channels ?? []).map((channel) => channel.buffer)]);
    } else if (data.kind === 'fit') {
      answer({ fit: (await loadOwnDesigner()).fit(data.name, data.bytes, data.options) });
    } else {
      const result = filtered(data);
      answer(result, [result.file.buffer]);
    }
  } catch (error) {
    answer({ error: error instanceof Error ? error.message : String(error) });
  }
};

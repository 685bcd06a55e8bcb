// What takes long with a long recording, away from the page: reading a WAV file, filtering one.
import { Library, type CompiledLibrary, type Filter } from 'jurn-filter';
import { readWav, wav, type Recording } from './files.js';

export type Job =
  | { kind: 'read'; bytes: ArrayBuffer }
  | { kind: 'filter'; library: CompiledLibrary; filter: Filter; channels: Float32Array[]; rate: number; int16: boolean };

export type Answer = { part: number } | { read: Recording | null; bytes: ArrayBuffer } | { file: Uint8Array<ArrayBuffer> } | { error: string };

const answer = (message: Answer, transfer: Transferable[] = []) =>
  (self as unknown as { postMessage(m: Answer, t: Transferable[]): void }).postMessage(message, transfer);

function filtered({ library, filter, channels, rate, int16 }: Job & { kind: 'filter' }): Uint8Array<ArrayBuffer> {
  const stream = new Library(library).stream({ channels: 2 });
  stream.change(filter);
  const step = 128 * 3750, frames = channels[0].length;
  for (let at = 0; at < frames; at += step) {
    answer({ part: at / frames });
    const part = channels.map((channel) => channel.subarray(at, at + step));
    stream.process(part, part);
  }
  return wav(channels, rate, int16);
}

self.onmessage = ({ data }: MessageEvent<Job>) => {
  try {
    if (data.kind === 'read') {
      const read = readWav(data.bytes);
      answer({ read, bytes: data.bytes }, [data.bytes, ...(read ? read.channels.map((channel) => channel.buffer) : [])]);
    } else {
      const file = filtered(data);
      answer({ file }, [file.buffer]);
    }
  } catch (error) {
    answer({ error: error instanceof Error ? error.message : String(error) });
  }
};

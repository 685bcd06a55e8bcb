// Hands long work to worker.ts, one worker per piece.
import type { CompiledLibrary, Filter } from 'jurn-filter';
import type { Audio, Fit, FitOptions } from 'jurn-filter/design';
import type { Answer, Job } from './worker.js';

function run<T>(job: Job, transfer: Transferable[], take: (answer: Answer) => T | undefined): Promise<T> {
  const worker = new Worker(new URL('./worker.js', import.meta.url), { type: 'module' });
  return new Promise<T>((done, failed) => {
    worker.onmessage = ({ data }: MessageEvent<Answer>) => {
      if ('error' in data) failed(new Error(data.error));
      const result = take(data);
      if (result !== undefined) done(result);
    };
    worker.onerror = (event) => failed(new Error(event.message || 'the work in the background could not be loaded'));
    worker.postMessage(job, transfer);
  }).finally(() => worker.terminate());
}

/** The recording in WAV and AIFF files. The bytes are taken away; for what the browser has to read, or
 * to bring to the rate, bytes come back. */
export const readInBackground = (name: string, bytes: ArrayBuffer, rate: number): Promise<{ read: Audio | null; bytes: ArrayBuffer }> =>
  run({ kind: 'read', name, bytes, rate }, [bytes], (answer) => ('read' in answer ? answer : undefined));

export const fitInBackground = (name: string, bytes: Uint8Array, options: FitOptions): Promise<Fit> =>
  run({ kind: 'fit', name, bytes, options }, [], (answer) => ('fit' in answer ? answer.fit : undefined));

/** The filtered channels, which are taken away, as a WAV file, and its stamp. */
export const filterInBackground = (
  library: CompiledLibrary, filter: Filter, channels: Float32Array[], rate: number, int16: boolean,
  progress: (part: number) => void,
): Promise<{ file: Uint8Array<ArrayBuffer>; stamp: string }> =>
  run({ kind: 'filter', library, filter, channels, rate, int16 }, channels.map((channel) => channel.buffer as ArrayBuffer),
      (answer) => {
        if ('part' in answer) progress(answer.part);
        return 'file' in answer ? answer : undefined;
      });

// The processor on the audio thread. The compiled library comes with the options, so that nothing is
// loaded here.
import { Library, type Stream } from './library.js';
import { PROCESSOR, type Change, type Levels, type ProcessorOptions, type Reply } from './messages.js';

declare class AudioWorkletProcessor {
  readonly port: MessagePort;
}
declare function registerProcessor(name: string, processor: unknown): void;
declare const sampleRate: number;

const QUANTUM = 128;
/** The largest 16-bit sample: what a saturated one becomes. */
const CLIPPED = 32767 / 32768;

class Processor extends AudioWorkletProcessor {
  private readonly stream: Stream;
  private readonly silence = new Float32Array(QUANTUM);
  private readonly inputs: number;
  private levels: Levels;
  private framesToReport = 0;

  constructor({ processorOptions }: { processorOptions: ProcessorOptions }) {
    super();
    const { library, inputs, outputs, filter } = processorOptions;
    this.inputs = inputs;
    this.levels = {
      inputPeaks: Array(inputs).fill(0), outputPeaks: Array(outputs).fill(0),
      inputClipped: 0, outputClipped: 0,
    };
    this.stream = new Library(library).stream({ inputs, outputs, block: QUANTUM });
    if (filter) this.stream.change(filter);
    this.port.onmessage = ({ data }: MessageEvent<Change>) => this.change(data);
  }

  private change({ number, filter, fade }: Change): void {
    const reply: Reply = { type: 'changed', number };
    try {
      this.stream.change(filter, fade);
    } catch (error) {
      reply.error = error instanceof Error ? error.message : String(error);
    }
    this.port.postMessage(reply);
  }

  process(inputs: Float32Array[][], outputs: Float32Array[][]): boolean {
    // Without a source the input has no channels, and a tail may still sound.
    const input = inputs[0];
    const channels: Float32Array[] = [];
    for (let c = 0; c < this.inputs; ++c) channels.push(input[c] ?? input[0] ?? this.silence);
    this.stream.process(channels, outputs[0]);
    this.levels.inputClipped += measure(channels, this.levels.inputPeaks);
    this.levels.outputClipped += measure(outputs[0], this.levels.outputPeaks);
    this.framesToReport += QUANTUM;
    if (this.framesToReport >= 0.03 * sampleRate) {
      this.framesToReport = 0;
      this.port.postMessage({ type: 'levels', levels: this.levels } satisfies Reply);
      this.levels.inputPeaks.fill(0);
      this.levels.outputPeaks.fill(0);
    }
    return true;
  }
}

/** Raises the peaks, and returns how many samples are at full scale or beyond it. */
function measure(channels: Float32Array[], peaks: number[]): number {
  let clipped = 0;
  for (let c = 0; c < channels.length; ++c) {
    let peak = peaks[c];
    for (const x of channels[c]) {
      const magnitude = Math.abs(x);
      if (magnitude > peak) peak = magnitude;
      if (magnitude >= CLIPPED) ++clipped;
    }
    peaks[c] = peak;
  }
  return clipped;
}

registerProcessor(PROCESSOR, Processor);

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

class Processor extends AudioWorkletProcessor {
  private readonly stream: Stream;
  private readonly silence = new Float32Array(QUANTUM);
  private readonly channels: Float32Array[];
  private readonly levels: Levels | null;
  private framesToReport = 0;

  constructor({ processorOptions }: { processorOptions: ProcessorOptions }) {
    super();
    const { library, inputs, outputs, filter, levels } = processorOptions;
    this.channels = Array(inputs).fill(this.silence);
    this.stream = new Library(library).stream({ inputs, outputs, block: QUANTUM });
    if (filter) this.stream.change(filter);
    this.levels = levels
      ? { inputPeaks: [], outputPeaks: [], inputClipped: 0, outputClipped: 0 } : null;
    if (levels) this.stream.levels();
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

  private report(levels: Levels): void {
    const { peaks, inputClipped, outputClipped } = this.stream.levels();
    levels.inputPeaks = peaks.slice(0, this.channels.length);
    levels.outputPeaks = peaks.slice(this.channels.length);
    levels.inputClipped += inputClipped;
    levels.outputClipped += outputClipped;
    this.port.postMessage({ type: 'levels', levels } satisfies Reply);
  }

  process(inputs: Float32Array[][], outputs: Float32Array[][]): boolean {
    // Without a source the input has no channels, and a tail may still sound.
    const input = inputs[0];
    const { channels } = this;
    for (let c = 0; c < channels.length; ++c) channels[c] = input[c] ?? input[0] ?? this.silence;
    this.stream.process(channels, outputs[0]);
    this.framesToReport += QUANTUM;
    if (this.levels && this.framesToReport >= 0.03 * sampleRate) {
      this.framesToReport = 0;
      this.report(this.levels);
    }
    return true;
  }
}

registerProcessor(PROCESSOR, Processor);

// What sounds: a recording in a loop or the microphone, through the filter and past it.
import { createFilterNode, type FilterNode, type Levels } from 'jurn-filter/web-audio';
import { readWav } from './files.js';
import { compileLibrary, type CompiledLibrary, type Filter } from 'jurn-filter';

const SWITCH_SECONDS = 0.02;

export class Sound {
  readonly library: Promise<CompiledLibrary> = compileLibrary();
  onlevels: ((levels: Levels) => void) | null = null;
  onended: (() => void) | null = null;
  private context: AudioContext | null = null;
  private node: FilterNode | null = null;
  private dry!: GainNode;
  private wet!: GainNode;
  private master!: GainNode;
  private analyser!: AnalyserNode;
  private source: AudioBufferSourceNode | MediaStreamAudioSourceNode | null = null;
  private stream: MediaStream | null = null;
  private buffer: AudioBuffer | null = null;
  private startedAt = 0;
  private offset = 0;
  private wanted: Filter | null = null;
  private changing = false;
  private original = false;
  private gain = 0.5;
  private generation = 0;

  constructor(private rate: number) {}

  get playing(): boolean {
    return this.source !== null;
  }

  get microphone(): boolean {
    return this.stream !== null;
  }

  get recording(): AudioBuffer | null {
    return this.buffer;
  }

  get duration(): number {
    return this.buffer?.duration ?? 0;
  }

  get position(): number {
    if (!this.context || !this.buffer) return 0;
    if (!(this.source instanceof AudioBufferSourceNode)) return this.offset;
    return (this.offset + this.context.currentTime - this.startedAt) % this.buffer.duration;
  }

  get latency(): number {
    return (this.context?.baseLatency ?? 0) + (this.context?.outputLatency ?? 0);
  }

  /** The graph; made on the first click, before which browsers allow no sound. */
  private async ready(): Promise<AudioContext> {
    if (this.context && this.node) return this.context;
    const context = (this.context ??= new AudioContext({ sampleRate: this.rate, latencyHint: 'interactive' }));
    const generation = this.generation;
    const node = await createFilterNode(context, { filter: this.wanted, library: await this.library, levels: true });
    if (generation !== this.generation || this.node) return this.ready();
    this.node = node;
    node.onlevels = (levels) => this.onlevels?.(levels);
    this.dry = context.createGain();
    this.wet = context.createGain();
    this.master = context.createGain();
    this.analyser = context.createAnalyser();
    this.analyser.fftSize = 4096;
    this.analyser.smoothingTimeConstant = 0.6;
    this.dry.gain.value = this.original ? 1 : 0;
    this.wet.gain.value = this.original ? 0 : 1;
    this.master.gain.value = this.gain;
    node.connect(this.wet);
    this.wet.connect(this.analyser);
    this.dry.connect(this.analyser);
    this.analyser.connect(this.master).connect(context.destination);
    return context;
  }

  /** Reads a recording in any format that the browser knows. */
  async decode(bytes: ArrayBuffer): Promise<AudioBuffer> {
    const exact = readWav(bytes);
    if (exact?.rate !== this.rate) return new OfflineAudioContext(2, 1, this.rate).decodeAudioData(bytes);
    const { channels } = exact;
    const buffer = new AudioBuffer({ length: channels[0].length, numberOfChannels: channels.length, sampleRate: this.rate });
    channels.forEach((channel, c) => buffer.copyToChannel(channel, c));
    return buffer;
  }

  async use(buffer: AudioBuffer): Promise<void> {
    const wasPlaying = this.playing;
    this.stop();
    this.buffer = buffer;
    this.offset = 0;
    if (wasPlaying) await this.play();
  }

  async play(): Promise<void> {
    if (this.playing) return;
    const context = await this.ready();
    await context.resume();
    if (this.playing || !this.buffer) return;
    const source = context.createBufferSource();
    source.buffer = this.buffer;
    source.loop = true;
    this.connect(source);
    source.start(0, this.offset);
    this.startedAt = context.currentTime;
  }

  /** Takes the microphone; rejects with a sentence when that is not allowed. */
  async listen(): Promise<void> {
    if (!navigator.mediaDevices) throw new Error('The microphone needs a page from https: or from localhost.');
    let stream: MediaStream;
    try {
      stream = await navigator.mediaDevices.getUserMedia({
        audio: { echoCancellation: false, noiseSuppression: false, autoGainControl: false },
      });
    } catch (error) {
      const name = error instanceof DOMException ? error.name : '';
      throw new Error(name === 'NotFoundError'
        ? 'No microphone was found.'
        : 'The microphone was not allowed. Allow it in the settings of this page, or choose another sound.');
    }
    this.stop();
    const context = await this.ready();
    await context.resume();
    this.stream = stream;
    this.connect(context.createMediaStreamSource(stream));
  }

  private connect(source: AudioBufferSourceNode | MediaStreamAudioSourceNode): void {
    source.connect(this.node!);
    source.connect(this.dry);
    this.source = source;
  }

  stop(): void {
    const { source } = this;
    if (!source) return;
    this.offset = this.position;
    if (source instanceof AudioBufferSourceNode) source.stop();
    source.disconnect();
    this.source = null;
    this.stream?.getTracks().forEach((track) => track.stop());
    this.stream = null;
  }

  async seek(seconds: number): Promise<void> {
    const wasPlaying = this.playing && !this.microphone;
    if (wasPlaying) this.stop();
    this.offset = seconds;
    if (wasPlaying) await this.play();
  }

  set volume(db: number) {
    this.gain = Math.pow(10, db / 20);
    if (this.context && this.node)
      this.master.gain.setTargetAtTime(this.gain, this.context.currentTime, 0.01);
  }

  /** Original or filtered; both run, so that the switch is exact in time. */
  set hearOriginal(original: boolean) {
    this.original = original;
    if (!this.context || !this.node) return;
    const now = this.context.currentTime;
    for (const [gain, value] of [[this.dry.gain, original ? 1 : 0], [this.wet.gain, original ? 0 : 1]] as const) {
      gain.cancelScheduledValues(now);
      gain.setValueAtTime(gain.value, now);
      gain.linearRampToValueAtTime(value, now + SWITCH_SECONDS);
    }
  }

  /** Fades to a filter. While a change is on its way only the last of further ones is kept. */
  async filter(filter: Filter | null): Promise<void> {
    this.wanted = filter;
    if (this.changing || !this.node) return;
    this.changing = true;
    try {
      let sent: Filter | null | undefined;
      while (sent !== this.wanted && this.node) {
        sent = this.wanted;
        await this.node.change(sent);
      }
    } finally {
      this.changing = false;
    }
  }

  spectrum(out: Float32Array<ArrayBuffer>): boolean {
    if (!this.node || !this.playing) return false;
    this.analyser.getFloatFrequencyData(out);
    return true;
  }

  get bins(): number {
    return 2048;
  }

  /** Another sample rate: everything is made anew. */
  async setRate(rate: number): Promise<void> {
    this.stop();
    ++this.generation;
    this.rate = rate;
    this.node = null;
    this.buffer = null;
    await this.context?.close();
    this.context = null;
  }
}

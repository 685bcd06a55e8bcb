// What sounds: a recording in a loop or the microphone, through the filter and past it.
import { createFilterNode, type FilterNode, type Levels } from 'jurn-filter/web-audio';
import { readInBackground } from './background.js';
import { compileLibrary, type CompiledLibrary, type Filter } from 'jurn-filter';
import type { Audio } from 'jurn-filter/design';

const SWITCH_SECONDS = 0.02;
// The limiter before the loudspeakers. What a compressor adds by itself to make up for it is undone.
const LIMIT = { threshold: -1, ratio: 20, knee: 0, attack: 0.001, release: 0.1 };
const MADE_UP = 0.6 * (1 - 1 / LIMIT.ratio) * -LIMIT.threshold;
// Frames whose peak says whether there was anything to limit: longer than a picture takes to draw.
const PEAK_FRAMES = 8192;
const LOUDNESS_SECONDS = 1.5;

const fromDb = (db: number) => Math.pow(10, db / 20);
const LOUDEST_UNLIMITED = fromDb(LIMIT.threshold);
const MOST_CHANNELS = 16;
/** "RIFF", "RF64" and "FORM": of files that the engine may read. */
const MARKS = [0x52494646, 0x52463634, 0x464f524d];

/** The sentence about a file that nothing is heard of. */
export class Refused extends Error {}

/** The loudness of a path: its power weighted as hearing weights it, over the last seconds. */
class Loudness {
  private readonly analyser: AnalyserNode;
  private readonly samples: Float32Array<ArrayBuffer>;
  power = 0;

  constructor(context: AudioContext, from: AudioNode) {
    const shelf = new BiquadFilterNode(context, { type: 'highshelf', frequency: 1500, gain: 4 });
    const low = new BiquadFilterNode(context, { type: 'highpass', frequency: 40 });
    this.analyser = new AnalyserNode(context, { fftSize: 2048 });
    this.samples = new Float32Array(2048);
    from.connect(shelf).connect(low).connect(this.analyser);
  }

  measure(share: number): void {
    this.analyser.getFloatTimeDomainData(this.samples);
    const now = this.samples.reduce((sum, x) => sum + x * x, 0) / this.samples.length;
    this.power += share * (now - this.power);
  }
}

/** Without an audio device some browsers never start, and say nothing. */
async function started(context: AudioContext): Promise<void> {
  const late = new Promise<never>((_, failed) =>
    setTimeout(() => failed(new Error('The sound does not start: is there a sound device, and is it free?')), 4000));
  await Promise.race([context.resume(), late]);
}

export class Sound {
  private compiled: Promise<CompiledLibrary> | null = null;
  onlevels: ((levels: Levels) => void) | null = null;
  /** Receives what is to be said of a recording that is played all the same. */
  onremark: ((sentence: string) => void) | null = null;
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
  private limiter: { node: DynamicsCompressorNode; before: AnalyserNode; samples: Float32Array<ArrayBuffer> } | null = null;
  private loudness: { dry: Loudness; wet: Loudness; source: GainNode } | null = null;
  private equal = false;
  private measuredAt = 0;
  /** Nothing is shown of what sounds: who listens blind must not see it. */
  blind = false;

  constructor(private rate: number) {}

  /** Loaded when it is used first; what failed is tried again. */
  get library(): Promise<CompiledLibrary> {
    return (this.compiled ??= compileLibrary().catch((error) => {
      this.compiled = null;
      throw error;
    }));
  }

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

  /** The graph; made on the first click, before which browsers allow no sound. */
  private async ready(): Promise<AudioContext> {
    if (this.context && this.node) return this.context;
    this.wake();
    const context = this.context!;
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
    this.limiter = {
      node: new DynamicsCompressorNode(context, LIMIT),
      before: new AnalyserNode(context, { fftSize: PEAK_FRAMES }),
      samples: new Float32Array(PEAK_FRAMES),
    };
    const end = new GainNode(context, { gain: fromDb(-MADE_UP) });
    this.analyser.connect(this.master).connect(this.limiter.node).connect(end).connect(context.destination);
    this.master.connect(this.limiter.before);
    const source = context.createGain();
    this.loudness = { dry: new Loudness(context, source), wet: new Loudness(context, node), source };
    return context;
  }

  /** Reads a recording: WAV and AIFF by the engine, whose samples are exact, others by the browser. */
  async decode(name: string, bytes: ArrayBuffer): Promise<AudioBuffer> {
    if (bytes.byteLength === 0) throw new Refused(`${name}: the file is empty.`);
    let exact: Audio | null = null;
    if (bytes.byteLength >= 12 && MARKS.includes(new DataView(bytes).getUint32(0)))
      ({ read: exact, bytes } = await readInBackground(name, bytes, this.rate).catch((error: Error) => {
        throw new Refused(`${error.message}.`);
      }));
    const channels = exact?.channels ?? [];
    if (channels.length > MOST_CHANNELS) throw new Refused(`${name}: has ${channels.length} channels; up to ${MOST_CHANNELS} are played.`);
    if (channels[0]?.length === 0) throw new Refused(`${name}: it holds no sample.`);
    if (exact?.notFinite) this.onremark?.(`${name}: ${exact.notFinite} samples are infinite or no numbers; they count as silence.`);
    if (channels.length === 0) return new OfflineAudioContext(2, 1, this.rate).decodeAudioData(bytes);
    const buffer = new AudioBuffer({ length: channels[0].length, numberOfChannels: channels.length, sampleRate: this.rate });
    channels.forEach((channel, c) => buffer.copyToChannel(channel, c));
    return buffer;
  }

  /** To be called by the click itself, since some browsers let no sound begin after a wait. */
  wake(): void {
    this.context ??= new AudioContext({ sampleRate: this.rate, latencyHint: 'interactive' });
    if (!this.playing) void this.context.resume().catch(() => {});
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
    await started(context);
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
    try {
      const context = await this.ready();
      await started(context);
      this.stop(); // what began meanwhile, too
      this.stream = stream;
      this.connect(context.createMediaStreamSource(stream));
    } catch (error) {
      stream.getTracks().forEach((track) => track.stop());
      throw error;
    }
  }

  private connect(source: AudioBufferSourceNode | MediaStreamAudioSourceNode): void {
    source.connect(this.node!);
    source.connect(this.dry);
    source.connect(this.loudness!.source);
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
    this.gain = fromDb(db);
    if (this.context && this.node)
      this.master.gain.setTargetAtTime(this.gain, this.context.currentTime, 0.01);
  }

  /**
   * By how many decibels the limiter before the loudspeakers holds the sound down. After its start a
   * compressor tells a reduction for seconds where there is nothing to reduce: the peak has to agree.
   */
  get limited(): number {
    if (!this.playing || !this.limiter) return 0;
    const { node, before, samples } = this.limiter;
    before.getFloatTimeDomainData(samples);
    return samples.some((x) => Math.abs(x) > LOUDEST_UNLIMITED) ? Math.max(0, -node.reduction) : 0;
  }

  /** Both at the same loudness: the louder one is turned down. */
  set equalLoudness(equal: boolean) {
    this.equal = equal;
    this.mix(0.2);
  }

  /** Follows the loudness of both; to be called while it plays. */
  measureLoudness(now: number): void {
    if (!this.loudness || !this.playing) return;
    const share = Math.min(1, Math.max(0, (now - this.measuredAt) / 1000 / LOUDNESS_SECONDS));
    this.measuredAt = now;
    this.loudness.dry.measure(share);
    this.loudness.wet.measure(share);
    if (this.equal) this.mix(0.2);
  }

  /** Gains of the original and of the filtered sound. */
  private get gains(): [number, number] {
    const { dry, wet } = this.loudness ?? { dry: { power: 0 }, wet: { power: 0 } };
    const ratio = this.equal && dry.power > 1e-8 && wet.power > 1e-8 ? Math.sqrt(wet.power / dry.power) : 1;
    return [Math.max(0.03, Math.min(1, ratio)), Math.max(0.03, Math.min(1, 1 / ratio))];
  }

  /** Original or filtered; both run, so that the switch is exact in time. */
  set hearOriginal(original: boolean) {
    this.original = original;
    this.mix(SWITCH_SECONDS);
  }

  private mix(seconds: number): void {
    if (!this.context || !this.node) return;
    const now = this.context.currentTime;
    const [dry, wet] = this.gains;
    for (const [gain, value] of [[this.dry.gain, this.original ? dry : 0], [this.wet.gain, this.original ? 0 : wet]] as const) {
      gain.cancelScheduledValues(now);
      gain.setValueAtTime(gain.value, now);
      gain.linearRampToValueAtTime(value, now + seconds);
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
    if (!this.node || !this.playing || this.blind) return false;
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
    this.limiter = this.loudness = null;
    this.buffer = null;
    await this.context?.close();
    this.context = null;
  }
}

// The plot of a response: magnitude, phase and delay over frequency, or poles and zeros.
import { colour, frequencyLabel, levelBetween, surface } from './canvas.js';
import { LOWEST, type Response } from './response.js';

export type View = 'magnitude' | 'phase' | 'delay' | 'roots' | 'impulse' | 'step';
export const isTime = (view: View): view is 'impulse' | 'step' => view === 'impulse' || view === 'step';

export interface Curve {
  response: Response;
  colour: string;
  name?: string;
}

/** What an impulse and a step become, sample by sample. */
export interface TimeCurve {
  impulse: ArrayLike<number>;
  step: ArrayLike<number> | null;
  colour: string;
  name?: string;
}

export interface Roots {
  zeros: number[];
  poles: number[];
}

const MARGIN = { left: 44, right: 12, top: 10, bottom: 24 };
const UNITS = { magnitude: 'dB', phase: '°', delay: 'ms', roots: '', impulse: '', step: '' };
const FREQUENCIES = [20, 50, 100, 200, 500, 1000, 2000, 5000, 10000, 20000];
const FONT = '11px system-ui, "DejaVu Sans", sans-serif';

export class Chart {
  view: View = 'magnitude';
  curves: Curve[] = [];
  /** Of the bands of an equaliser, each alone; nothing of those that are off. */
  bands: (Response | null)[] = [];
  selected = 0;
  solo: number | null = null;
  roots: Roots | null = null;
  time: TimeCurve[] = [];
  /** Magnitudes in dB of what sounds, evenly spaced up to half the rate; drawn behind. */
  spectrum: Float32Array | null = null;
  rate = 48000;
  private range: [number, number] = [-24, 24];

  constructor(private readonly canvas: HTMLCanvasElement) {}

  get top(): number {
    return Math.min(20000, this.rate / 2 - 1);
  }

  x(frequency: number): number {
    const width = this.canvas.clientWidth - MARGIN.left - MARGIN.right;
    return MARGIN.left + (width * Math.log(frequency / LOWEST)) / Math.log(this.top / LOWEST);
  }

  frequencyAt(x: number): number {
    const width = this.canvas.clientWidth - MARGIN.left - MARGIN.right;
    return LOWEST * Math.pow(this.top / LOWEST, (x - MARGIN.left) / width);
  }

  y(value: number): number {
    const height = this.canvas.clientHeight - MARGIN.top - MARGIN.bottom;
    const [low, high] = this.range;
    return MARGIN.top + (height * (high - value)) / (high - low);
  }

  valueAt(y: number): number {
    const height = this.canvas.clientHeight - MARGIN.top - MARGIN.bottom;
    const [low, high] = this.range;
    return high - ((y - MARGIN.top) / height) * (high - low);
  }

  /** What the curves say at a frequency. */
  readout(frequency: number): string {
    if (this.view === 'roots' || isTime(this.view) || this.curves.length === 0) return '';
    const f = this.curves[0].response.frequency;
    const i = Math.max(0, f.findIndex((x) => x >= frequency));
    const parts = [`${Math.round(frequency)} Hz`];
    for (const curve of this.curves) {
      const value = curve.response[this.view][i];
      if (Number.isFinite(value))
        parts.push(`${curve.name ? curve.name + ' ' : ''}${value.toFixed(this.view === 'delay' ? 3 : 1)} ${UNITS[this.view]}`);
    }
    return parts.join('   ');
  }

  /** Chooses the range of the values; not while a band is dragged, or the curve would slip away. */
  fit(): void {
    if (this.view === 'roots' || isTime(this.view)) return;
    let low = Infinity, high = -Infinity;
    for (const { response } of this.curves) {
      const peak = Math.max(...response.magnitude);
      for (let i = 0; i < response.frequency.length; ++i) {
        const value = response[this.view][i];
        // Phase and delay far below the filter's peak are noise.
        if (!Number.isFinite(value) || response.magnitude[i] < peak - 80) continue;
        low = Math.min(low, value);
        high = Math.max(high, value);
      }
    }
    if (!(low <= high)) [low, high] = [-1, 1];
    if (this.view === 'magnitude') {
      this.range = [Math.max(-90, Math.min(-18, Math.floor(low / 6 - 0.3) * 6)), Math.max(18, Math.ceil(high / 6 + 0.3) * 6)];
    } else {
      const least = this.view === 'phase' ? 45 : 0.2;
      const pad = Math.max(0.08 * (high - low), (least - (high - low)) / 2, 1e-6);
      this.range = [low - pad, high + pad];
    }
  }

  draw(): void {
    const s = surface(this.canvas);
    if (!s) return;
    s.context.clearRect(0, 0, s.width, s.height);
    s.context.font = FONT;
    if (this.view === 'roots') this.drawRoots(s.context, s.width, s.height);
    else if (isTime(this.view)) this.drawTime(s.context, s.width, s.height, this.view);
    else this.drawCurves(s.context, s.width, s.height);
  }

  private drawTime(g: CanvasRenderingContext2D, width: number, height: number, view: 'impulse' | 'step'): void {
    const curves = this.time.flatMap(({ [view]: values, colour: name, name: title }) => values ? [{ values, name, title }] : []);
    if (curves.length === 0)
      return this.note(g, this.time.length > 0 ? 'Of a room the impulse response is shown.' : 'No filter yet: the sound passes as it is.');
    const count = Math.max(2, ...curves.map(({ values }) => values.length));
    let low = 0, high = 0;
    for (const { values } of curves) for (let i = 0; i < values.length; ++i) {
      low = Math.min(low, values[i]);
      high = Math.max(high, values[i]);
    }
    if (!(high > low && Number.isFinite(high - low))) [low, high] = [-1, 1];
    const pad = 0.06 * (high - low), bottom = height - MARGIN.bottom, right = width - MARGIN.right;
    const x = (i: number) => MARGIN.left + ((right - MARGIN.left) * i) / (count - 1);
    const y = (v: number) => MARGIN.top + ((bottom - MARGIN.top) * (high + pad - v)) / (high - low + 2 * pad);
    g.lineWidth = 1;
    g.fillStyle = colour('dim');
    g.textAlign = 'right';
    g.textBaseline = 'middle';
    const step = niceStep((high - low) / Math.max(3, height / 55), 'delay');
    for (let v = Math.ceil((low - pad) / step) * step; v <= high + pad; v += step) {
      g.strokeStyle = colour(Math.abs(v) < step / 2 ? 'line' : 'grid');
      line(g, MARGIN.left, Math.round(y(v)) + 0.5, right, Math.round(y(v)) + 0.5);
      g.fillText(`${+v.toPrecision(3)}`, MARGIN.left - 6, y(v));
    }
    g.textAlign = 'center';
    g.textBaseline = 'top';
    g.strokeStyle = colour('grid');
    const milliseconds = (1000 * (count - 1)) / this.rate, every = niceStep(milliseconds / Math.max(3, width / 90), 'delay');
    for (let t = 0; t <= milliseconds * 1.0001; t += every) {
      const at = Math.round(x((t * this.rate) / 1000)) + 0.5;
      line(g, at, MARGIN.top, at, bottom);
      g.fillText(`${+t.toPrecision(6)}${t === 0 ? ' ms' : ''}`, Math.min(at, right - 8), bottom + 6);
    }
    curves.forEach(({ values, name, title }, index) => {
      g.beginPath();
      for (let i = 0; i < values.length; ++i) g.lineTo(x(i), y(values[i]));
      g.strokeStyle = colour(name);
      g.lineWidth = values.length > 4 * width ? 1 : 2 - 0.4 * index;
      g.stroke();
      // Few samples are dots, too.
      g.fillStyle = colour(name);
      if (values.length < width / 8) for (let i = 0; i < values.length; ++i) g.fillRect(x(i) - 2.5, y(values[i]) - 2.5, 5, 5);
      if (curves.length < 2) return;
      g.textAlign = 'right';
      g.fillText(title ?? '', right - 6, MARGIN.top + 4 + 15 * index);
    });
  }

  private drawCurves(g: CanvasRenderingContext2D, width: number, height: number): void {
    const bottom = height - MARGIN.bottom, right = width - MARGIN.right;
    g.lineWidth = 1;
    g.strokeStyle = colour('grid');
    g.fillStyle = colour('dim');
    g.textAlign = 'center';
    g.textBaseline = 'top';
    for (const f of FREQUENCIES) {
      if (f > this.top * 1.01) continue;
      const x = Math.round(this.x(Math.min(f, this.top))) + 0.5;
      line(g, x, MARGIN.top, x, bottom);
      if (width > 420 || [20, 100, 1000, 10000].includes(f))
        g.fillText(frequencyLabel(f), Math.min(x, right - 8), bottom + 6);
    }
    g.textAlign = 'right';
    g.textBaseline = 'middle';
    const [low, high] = this.range;
    const step = niceStep((high - low) / Math.max(3, height / 55), this.view);
    for (let v = Math.ceil(low / step) * step; v <= high + 1e-9; v += step) {
      const y = Math.round(this.y(v)) + 0.5;
      g.strokeStyle = colour(Math.abs(v) < step / 2 ? 'line' : 'grid');
      line(g, MARGIN.left, y, right, y);
      g.fillText(`${+v.toPrecision(6)}`, MARGIN.left - 6, y);
    }
    g.textAlign = 'left';
    g.textBaseline = 'top';
    g.fillText(UNITS[this.view], 6, MARGIN.top);
    g.save();
    g.beginPath();
    g.rect(MARGIN.left, MARGIN.top, right - MARGIN.left, bottom - MARGIN.top);
    g.clip();
    if (this.spectrum && this.view === 'magnitude') this.drawSpectrum(g, bottom);
    g.lineJoin = 'round';
    if (this.view === 'magnitude') this.drawBands(g);
    this.curves.forEach(({ response, colour: name }, index) => {
      this.trace(g, response);
      g.strokeStyle = colour(name);
      g.lineWidth = index > 0 || this.solo !== null ? 1.6 : 2.4;
      g.stroke();
    });
    g.restore();
    if (this.curves.length === 0) this.note(g, 'No filter yet: the sound passes as it is.');
    else if (!this.curves.some(({ response }) => response[this.view as 'phase'].some(Number.isFinite)))
      this.note(g, 'Of a long impulse response the magnitude is shown.');
    // Names of several curves.
    if (this.curves.length > 1) {
      g.textAlign = 'right';
      this.curves.forEach((curve, i) => {
        g.fillStyle = colour(curve.colour);
        g.fillText(curve.name ?? '', right - 6, MARGIN.top + 4 + 15 * i);
      });
    }
  }

  private trace(g: CanvasRenderingContext2D, response: Response): void {
    const peak = Math.max(...response.magnitude);
    g.beginPath();
    let drawing = false;
    for (let i = 0; i < response.frequency.length; ++i) {
      const value = response[this.view as 'magnitude'][i];
      if (!Number.isFinite(value) || (this.view !== 'magnitude' && response.magnitude[i] < peak - 80)) {
        drawing = false;
        continue;
      }
      const x = this.x(response.frequency[i]), y = this.y(value);
      if (drawing) g.lineTo(x, y);
      else g.moveTo(x, y);
      drawing = true;
    }
  }

  /** What each band does by itself; the selected one is filled, the one that is heard alone is bold. */
  private drawBands(g: CanvasRenderingContext2D): void {
    g.strokeStyle = g.fillStyle = colour('second');
    this.bands.forEach((response, i) => {
      if (!response) return;
      this.trace(g, response);
      g.lineWidth = i === this.solo ? 2.4 : 1.2;
      g.globalAlpha = i === this.selected || i === this.solo ? 1 : 0.55;
      g.stroke();
      if (i !== this.selected) return;
      g.lineTo(this.x(this.top), this.y(0));
      g.lineTo(this.x(LOWEST), this.y(0));
      g.globalAlpha = 0.14;
      g.fill();
    });
    g.globalAlpha = 1;
  }

  private note(g: CanvasRenderingContext2D, text: string): void {
    g.fillStyle = colour('dim');
    g.textAlign = 'center';
    g.textBaseline = 'middle';
    g.fillText(text, this.canvas.clientWidth / 2, this.canvas.clientHeight / 2);
  }

  private drawSpectrum(g: CanvasRenderingContext2D, bottom: number): void {
    const spectrum = this.spectrum!;
    const bins = spectrum.length;
    const height = bottom - MARGIN.top;
    g.beginPath();
    g.moveTo(MARGIN.left, bottom);
    const right = this.canvas.clientWidth - MARGIN.right;
    for (let x = MARGIN.left; x <= right; x += 2) {
      const from = (this.frequencyAt(x) / (this.rate / 2)) * bins;
      const to = (this.frequencyAt(x + 2) / (this.rate / 2)) * bins;
      const level = levelBetween(spectrum, from, to);
      g.lineTo(x, MARGIN.top + height * Math.min(1, Math.max(0, -(level + 10) / 90)));
    }
    g.lineTo(right, bottom);
    g.fillStyle = colour('spectrum');
    g.globalAlpha = 0.42;
    g.fill();
    g.globalAlpha = 1;
  }

  private drawRoots(g: CanvasRenderingContext2D, width: number, height: number): void {
    if (!this.roots) return this.note(g, 'Poles and zeros are shown of equalisers and of files with up to 400 coefficients.');
    const { zeros, poles } = this.roots;
    let extent = 1.15;
    for (let i = 0; i < zeros.length; i += 2) {
      const r = Math.hypot(zeros[i], zeros[i + 1]);
      if (r < 3) extent = Math.max(extent, r * 1.1);
    }
    const scale = (Math.min(width, height) / 2 - 14) / extent;
    const cx = width / 2, cy = height / 2;
    g.strokeStyle = colour('grid');
    line(g, cx - extent * scale, cy, cx + extent * scale, cy);
    line(g, cx, cy - extent * scale, cx, cy + extent * scale);
    g.strokeStyle = colour('dim');
    g.beginPath();
    g.arc(cx, cy, scale, 0, 2 * Math.PI);
    g.stroke();
    g.fillStyle = colour('dim');
    g.textBaseline = 'top';
    g.textAlign = 'left';
    const count = (name: string, n: number) => `${n} ${name}${n === 1 ? '' : 's'}`;
    g.fillText(`○ ${count('zero', zeros.length / 2)}   × ${count('pole', poles.length / 2)}`, 8, 8);
    g.lineWidth = 1.8;
    g.strokeStyle = colour('second');
    for (let i = 0; i < zeros.length; i += 2) {
      g.beginPath();
      g.arc(cx + zeros[i] * scale, cy - zeros[i + 1] * scale, 4.5, 0, 2 * Math.PI);
      g.stroke();
    }
    for (let i = 0; i < poles.length; i += 2) {
      const x = cx + poles[i] * scale, y = cy - poles[i + 1] * scale;
      g.strokeStyle = colour(Math.hypot(poles[i], poles[i + 1]) >= 1 ? 'bad' : 'curve');
      line(g, x - 4.5, y - 4.5, x + 4.5, y + 4.5);
      line(g, x - 4.5, y + 4.5, x + 4.5, y - 4.5);
    }
  }
}

function line(g: CanvasRenderingContext2D, x0: number, y0: number, x1: number, y1: number): void {
  g.beginPath();
  g.moveTo(x0, y0);
  g.lineTo(x1, y1);
  g.stroke();
}

function niceStep(least: number, view: View): number {
  if (view === 'magnitude') return [3, 6, 12, 18, 24, 36].find((step) => step >= least) ?? 48;
  if (view === 'phase') return [15, 30, 45, 90, 180, 360, 720].find((step) => step >= least) ?? Math.ceil(least / 3600) * 3600;
  const power = Math.pow(10, Math.floor(Math.log10(least)));
  return power * ([1, 2, 5, 10].find((m) => m * power >= least) ?? 10);
}

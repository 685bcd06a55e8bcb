// Level meters and the running spectrogram.
import { colour, frequencyLabel, lessMotion, levelBetween, surface } from './canvas.js';

const FLOOR = -60;

export class Meter {
  private peaks: number[] = [];
  private held: number[] = [];
  private clipped = 0;
  private clippedBefore = 0;
  private readonly canvas: HTMLCanvasElement;
  private readonly value: HTMLOutputElement;
  private readonly clips: HTMLButtonElement;

  constructor(root: HTMLElement) {
    this.canvas = root.querySelector('canvas')!;
    this.value = root.querySelector('output')!;
    this.clips = root.querySelector('button')!;
    this.clips.onclick = () => this.restart();
  }

  /** Counts the clips anew. */
  restart(): void {
    this.clippedBefore = this.clipped;
    this.show();
  }

  set(peaks: number[], clipped: number): void {
    // What falls falls by 20 dB a second; the highest stays for a while.
    this.peaks = peaks.map((peak, i) => Math.max(peak, (this.peaks[i] ?? 0) * 0.93));
    this.held = peaks.map((peak, i) => Math.max(peak, (this.held[i] ?? 0) * 0.99));
    if (clipped < this.clipped) this.clippedBefore = 0;
    this.clipped = clipped;
    this.show();
  }

  private show(): void {
    const db = (x: number) => 20 * Math.log10(Math.max(x, 1e-9));
    const highest = db(Math.max(0, ...this.held));
    const text = highest < FLOOR - 30 ? '−∞ dB' : `${highest.toFixed(1).replace('-', '−')} dB`;
    if (this.value.value !== text) this.value.value = text;
    const count = this.clipped - this.clippedBefore;
    const clips = `${count} clipped`;
    if (this.clips.textContent !== clips) this.clips.textContent = clips;
    this.clips.classList.toggle('some', count > 0);
    const s = surface(this.canvas);
    if (!s) return;
    const { context: g, width, height } = s;
    g.clearRect(0, 0, width, height);
    const x = (level: number) => width * Math.min(1, Math.max(0, (level - FLOOR) / -FLOOR));
    const rows = Math.max(1, this.peaks.length);
    this.peaks.forEach((peak, i) => {
      const y = (height * i) / rows, h = height / rows - 1;
      g.fillStyle = colour('good');
      g.fillRect(0, y, x(Math.min(db(peak), -12)), h);
      if (db(peak) > -12) {
        g.fillStyle = colour(db(peak) > -1 ? 'bad' : 'accent');
        g.fillRect(x(-12), y, x(db(peak)) - x(-12), h);
      }
      g.fillStyle = colour('text');
      g.fillRect(x(db(this.held[i])) - 1, y, 1.5, h);
    });
  }
}

const LOW = 30, HIGH = 20000;

/** Dark blue over red to white, for levels from 0 to 1. */
function heat(level: number): [number, number, number] {
  const stops = [[5, 7, 10], [28, 28, 84], [122, 28, 109], [214, 72, 60], [248, 168, 50], [253, 246, 200]];
  const at = Math.min(0.9999, Math.max(0, level)) * (stops.length - 1);
  const i = Math.floor(at), part = at - i;
  return [0, 1, 2].map((c) => stops[i][c] + part * (stops[i + 1][c] - stops[i][c])) as [number, number, number];
}

const HEAT = Uint8ClampedArray.from({ length: 256 * 4 }, (_, i) =>
  i % 4 === 3 ? 255 : heat(Math.floor(i / 4) / 255)[i % 4]);

const PIXELS_A_SECOND = 100;
const MARKS = [100, 300, 1000, 3000, 10000];

/**
 * The last seconds of a spectrum: they move to the left, or, for who asks for less motion, stay and
 * are written over from the left.
 */
export class Spectrogram {
  private before = 0;
  private at = 0;

  constructor(private readonly canvas: HTMLCanvasElement, private readonly axes: HTMLCanvasElement) {
    lessMotion.addEventListener('change', () => this.drawAxes());
  }

  /** Appends the time since the last call, of levels in dB evenly spaced up to half the rate. */
  push(spectrum: Float32Array, rate: number, now: number): void {
    const { clientWidth: width, clientHeight } = this.canvas;
    const height = Math.round(clientHeight * Math.min(2, devicePixelRatio || 1));
    if (width === 0 || height === 0) return;
    const passed = now - this.before;
    // After a pause it goes on where it was.
    const columns = passed > 1000 ? 2 : Math.min(width, Math.floor((passed / 1000) * PIXELS_A_SECOND));
    if (columns < 1) return;
    this.before = passed > 1000 ? now : this.before + (columns / PIXELS_A_SECOND) * 1000;
    const g = this.canvas.getContext('2d', { willReadFrequently: false })!;
    if (this.canvas.width !== width || this.canvas.height !== height) {
      this.canvas.width = width;
      this.canvas.height = height;
      this.at = 0;
    }
    const column = g.createImageData(columns, height);
    const bin = (f: number) => (f / (rate / 2)) * spectrum.length;
    for (let y = 0; y < height; ++y) {
      const f = LOW * Math.pow(HIGH / LOW, 1 - y / height);
      const from = bin(f), to = bin(f * Math.pow(HIGH / LOW, 1 / height));
      const level = levelBetween(spectrum, from, to);
      const shade = Math.round(255 * Math.min(1, Math.max(0, (level + 100) / 80)));
      for (let x = 0; x < columns; ++x) column.data.set(HEAT.subarray(4 * shade, 4 * shade + 4), 4 * (columns * y + x));
    }
    if (lessMotion.matches) {
      g.putImageData(column, this.at, 0);
      this.at = (this.at + columns) % width;
      g.clearRect(this.at, 0, 6, height);
    } else {
      g.drawImage(this.canvas, -columns, 0);
      g.putImageData(column, width - columns, 0);
    }
  }

  drawAxes(): void {
    const s = surface(this.axes);
    if (!s) return;
    const { context: g, width, height } = s;
    g.clearRect(0, 0, width, height);
    g.font = '11px system-ui, "DejaVu Sans", sans-serif';
    g.shadowColor = '#000';
    g.shadowBlur = 3;
    g.textBaseline = 'middle';
    for (const f of MARKS) {
      const y = height * (1 - Math.log(f / LOW) / Math.log(HIGH / LOW));
      g.fillStyle = 'rgba(255,255,255,.18)';
      g.fillRect(0, Math.round(y), width, 1);
      g.fillStyle = '#dde3ea';
      g.fillText(frequencyLabel(f) + (f === MARKS.at(-1) ? ' Hz' : ''), 6, y);
    }
    if (lessMotion.matches) return;
    g.textAlign = 'center';
    g.textBaseline = 'bottom';
    for (let seconds = 2; seconds * PIXELS_A_SECOND < width - 40; seconds += 2)
      g.fillText(`−${seconds} s`, width - seconds * PIXELS_A_SECOND, height - 4);
  }
}

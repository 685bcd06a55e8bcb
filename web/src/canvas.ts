// Drawing: canvases that are sharp on every screen, in the colours of the theme.

export interface Surface {
  context: CanvasRenderingContext2D;
  width: number; // CSS pixels
  height: number;
}

/** Fits a canvas to its place; null while it has none. */
export function surface(canvas: HTMLCanvasElement): Surface | null {
  const { clientWidth: width, clientHeight: height } = canvas;
  if (width === 0 || height === 0) return null;
  const scale = devicePixelRatio || 1;
  const w = Math.round(width * scale), h = Math.round(height * scale);
  if (canvas.width !== w || canvas.height !== h) {
    canvas.width = w;
    canvas.height = h;
  }
  const context = canvas.getContext('2d')!;
  context.setTransform(scale, 0, 0, scale, 0, 0);
  return { context, width, height };
}

export const lessMotion = matchMedia('(prefers-reduced-motion: reduce)');

let colours: Record<string, string> = {};

export function colour(name: string): string {
  return (colours[name] ??= getComputedStyle(document.documentElement).getPropertyValue(`--${name}`).trim());
}

export function forgetColours(): void {
  colours = {};
}

export const frequencyLabel = (f: number) => (f >= 1000 ? `${+(f / 1000).toPrecision(3)}k` : `${+f.toPrecision(3)}`);

/** The highest level between two places of a spectrum, in bins; between two bins a line leads. */
export function levelBetween(spectrum: Float32Array, from: number, to: number): number {
  const last = spectrum.length - 1;
  const at = Math.min(from, last - 1), k = Math.floor(at);
  let level = spectrum[k] + (at - k) * (spectrum[k + 1] - spectrum[k]);
  for (let i = k + 1; i <= Math.min(to, last); ++i) level = Math.max(level, spectrum[i]);
  return level;
}

// The curves of the last fit, for the chart.
import type { Fit } from 'jurn-filter/design';
import type { Curve } from './chart.js';
import { setting } from './page.js';
import { equaliserText } from './setting.js';

let last: { text: string; fit: Fit } | null = null;

export function keepFit(fit: Fit): void {
  last = { text: fit.text, fit };
}

/** Of the bands that are shown; nothing of those that came with a link. */
export function fittedCurves(): Curve[] {
  if (!last || !setting.fit || equaliserText(setting.fit) !== last.text) return [];
  const { frequency, measured, target, corrected } = last.fit;
  const none = new Float64Array(frequency.length).fill(NaN);
  return ([['measured', measured, 'dim'], ['target', target, 'good'], ['corrected', corrected, 'second']] as const).map(([name, level, colour]) =>
    ({ name, colour, response: { frequency: Float64Array.from(frequency), magnitude: Float64Array.from(level), phase: none, delay: none } }));
}

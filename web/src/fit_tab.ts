// The part of the design tab that fits an equaliser to a measurement.
import { fitInBackground } from './background.js';
import { showBands } from './bands.js';
import { readCoefficientBytes } from './files.js';
import { keepFit } from './fitted.js';
import { useCoefficients } from './opened.js';
import { changed, designer, element, input, say, sayError, sayNothing, setting } from './page.js';
import { isFitted } from './setting.js';
import { showKind } from './tabs.js';

interface Text {
  name: string;
  bytes: Uint8Array;
}

let measurement: Text | null = null;
let target: Text | null = null;

/** What fits now, so that a slower one before it is forgotten. */
let latest = 0;
let timer = 0;

/** The fields of the fit and what came of it. */
export function showFit(): void {
  const fitted = isFitted(setting), { fit } = setting;
  element('fit').hidden = !fitted;
  element('target-flat').hidden = !target;
  element('fit-edit').hidden = !fit;
  if (fitted) element('design-summary').textContent = fit ? `${fit.name}: ${fit.summary}.` : 'No measurement yet.';
}

async function fit(): Promise<void> {
  if (!measurement) return;
  const now = ++latest, { name, bytes } = measurement;
  const { bands, mostGain, mostQ, from, to } = setting.design;
  element('design-summary').textContent = `${name} is being fitted`;
  try {
    const found = await fitInBackground(name, bytes, { rate: setting.rate, bands, mostGain, mostQ, low: from, high: to, ...(target && { target }) });
    if (now !== latest) return;
    sayNothing();
    keepFit(found);
    const title = target ? `${name} to ${target.name}` : name;
    setting.fit = { name: title, summary: found.summary, preamp: found.preamp, bands: found.bands.map((band) => ({ on: true, ...band })) };
    showFit();
    changed();
  } catch (error) {
    if (now !== latest) return;
    showFit();
    sayError(error, '');
  }
}

/** After a change of what limits the fit, once it has settled. */
export function refit(): void {
  clearTimeout(timer);
  timer = window.setTimeout(() => void fit(), 300);
}

export async function useMeasurement(file: File, asTarget: boolean): Promise<void> {
  try {
    const text = { name: file.name, bytes: await readCoefficientBytes(file) };
    if ((await designer).holdsEqualiser(text.bytes)) {
      await useCoefficients(text.name, text.bytes);
      say(`${text.name} is an equaliser already: it runs as it is.`);
      return;
    }
    if (asTarget) target = text;
    else measurement = text;
    setting.design = { ...setting.design, family: 'fitted' };
    showFit();
    await fit();
    if (!measurement) say('The target is there; a measurement is missing.');
  } catch (error) {
    sayError(error, '');
  }
}

for (const id of ['measurement', 'target'])
  input(id).onchange = () => {
    const file = input(id).files?.[0];
    if (file) void useMeasurement(file, id === 'target');
    input(id).value = '';
  };
element('target-flat').onclick = () => {
  target = null;
  showFit();
  void fit();
};
element('fit-edit').onclick = () => {
  if (!setting.fit) return;
  setting.bands = setting.fit.bands.map((band) => ({ ...band }));
  setting.preamp = setting.fit.preamp;
  input('preamp').value = String(setting.preamp);
  showBands();
  showKind('eq');
  changed();
};

// The fields of a design by its family; loaded when the tab is opened first.
import { changed, element, setting } from './page.js';
import { refit, showFit } from './fit_tab.js';
import { clamp, DESIGN_LIMITS, DESIGN_NAMES, type Setting } from './setting.js';

type Key = keyof Setting['design'];
type Numbers = keyof typeof DESIGN_LIMITS;

const LABELS: Record<Key, [string, string]> = {
  family: ['Family', ''], pass: ['Lets pass', ''], order: ['Order', ''], taps: ['Taps', ''], low: ['Corner', 'Hz'], high: ['Upper corner', 'Hz'],
  ripple: ['Ripple', 'dB'], attenuation: ['Attenuation', 'dB'], window: ['Window', ''], beta: ['Beta', ''],
  transition: ['Transition', 'Hz'], weight: ['Stop band counts', 'times'],
  bands: ['Bands, at most', ''], mostGain: ['Gain up to', 'dB'], mostQ: ['Q up to', ''], from: ['From', 'Hz'], to: ['To', 'Hz'],
};

const USES: Record<Setting['design']['family'], Key[]> = {
  butterworth: ['order'], bessel: ['order'], chebyshev1: ['order', 'ripple'], chebyshev2: ['order', 'attenuation'],
  elliptic: ['order', 'ripple', 'attenuation'], windowed: ['taps', 'window'], equiripple: ['taps', 'transition', 'weight'],
  fitted: ['bands', 'mostGain', 'mostQ', 'from', 'to'],
};

const field = (key: Key) => element<HTMLInputElement | HTMLSelectElement>(`design-${key}`);

function make(key: Key): HTMLElement {
  const label = document.createElement('label');
  label.className = 'field small';
  const [name, unit] = LABELS[key];
  if (key in DESIGN_NAMES) {
    const select = document.createElement('select');
    for (const [value, text] of Object.entries(DESIGN_NAMES[key as keyof typeof DESIGN_NAMES])) select.add(new Option(text, value));
    select.id = `design-${key}`;
    select.onchange = () => take(key, select.value);
    label.append(`${name} `, select);
  } else {
    const input = document.createElement('input');
    const limits = DESIGN_LIMITS[key as Numbers], whole = key === 'order' || key === 'taps' || key === 'bands';
    Object.assign(input, { id: `design-${key}`, type: 'number', min: limits[0], max: limits[1], step: whole ? '1' : 'any' });
    input.oninput = () => {
      const value = input.valueAsNumber;
      if (Number.isFinite(value) && (!whole || Number.isInteger(value)) && value === clamp(value, limits)) take(key, value);
    };
    input.onchange = () => (input.value = String(setting.design[key]));
    label.append(`${name} `, input, ` ${unit}`);
  }
  return label;
}

function take(key: Key, value: string | number): void {
  setting.design = { ...setting.design, [key]: value };
  showDesign();
  if (setting.design.family === 'fitted') refit();
  changed();
}

/** The fields of the family, with the values of the setting. */
export function showDesign(): void {
  const root = element('design-fields'), { design } = setting;
  if (root.children.length === 0)
    root.append(...(Object.keys(LABELS) as Key[]).map(make));
  const fitted = design.family === 'fitted';
  const used = new Set<Key>(['family', ...USES[design.family], ...(fitted ? [] : ['pass', 'low'] as const)]);
  if (!fitted && (design.pass === 'band' || design.pass === 'stop')) used.add('high');
  if (used.has('window') && design.window === 'kaiser') used.add('beta');
  for (const key of Object.keys(LABELS) as Key[]) {
    if (document.activeElement !== field(key)) field(key).value = String(design[key]);
    field(key).parentElement!.hidden = !used.has(key);
  }
  showFit();
}

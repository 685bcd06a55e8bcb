// The equaliser: its bands as handles on the curve and as rows of a table.
import { openMenu } from './menu.js';
import { changed, chart, element, say, setting } from './page.js';
import { BAND_TYPES, clamp, hasGain, highest, LIMITS, type Band, type BandType } from './setting.js';

/** The handle that is dragged, and where on it: so it does not jump when it is taken. */
let drag: { handle: HTMLElement; pointer: number; x: number; y: number } | null = null;
let selected = 0;

export const bandIsDragged = () => drag !== null;

/** The band that is heard alone. */
let alone: Band | null = null;

/** Its index; what is no band any more, or switched off, is not heard alone. */
export function soloBand(): number | null {
  const i = alone ? setting.bands.indexOf(alone) : -1;
  if (i < 0 || !setting.bands[i].on || setting.kind !== 'eq') alone = null;
  return alone ? i : null;
}

export const selectedBand = () => selected;

/** Hears one band alone, or all again. */
export function solo(i: number | null): void {
  alone = i === null || soloBand() === i ? null : setting.bands[i];
  if (alone) setBand(i!, { on: true });
  else changed();
}

const FLATTEST = 0.707; // of a pass of second order

const describeBand = (band: Band) =>
  `${BAND_TYPES[band.type]}, ${Math.round(band.frequency)} hertz` +
  (hasGain(band.type) ? `, ${band.gain.toFixed(1)} decibels` : '') + `, Q ${band.q}${band.on ? '' : ', off'}`;

let readoutTimer = 0;

/** At the side of the chart where the handle is not. */
function showReadout(i: number): void {
  const band = setting.bands[i], readout = element('band-readout');
  readout.textContent = [`${frequencyText(band.frequency)} Hz`, ...(hasGain(band.type) ? [`${band.gain.toFixed(1).replace('-', '−')} dB`] : []),
                         `Q ${band.q}`].join('   ');
  readout.classList.toggle('left', chart.x(band.frequency) > element('view').clientWidth / 2);
  readout.hidden = false;
  clearTimeout(readoutTimer);
  readoutTimer = window.setTimeout(() => (readout.hidden = drag === null), 1500);
}

const frequencyText = (frequency: number) => String(frequency < 100 ? frequency : Math.round(frequency));

export function placeHandles(): void {
  const root = element('handles');
  const shown = setting.kind === 'eq' && chart.view === 'magnitude';
  root.hidden = !shown;
  if (!shown) return;
  while (root.children.length > setting.bands.length) root.lastElementChild!.remove();
  setting.bands.forEach((band, i) => {
    const handle = (root.children[i] as HTMLButtonElement) ?? root.appendChild(makeHandle(i));
    handle.style.left = `${chart.x(band.frequency)}px`;
    const level = band.on && hasGain(band.type) ? band.gain + setting.preamp : setting.preamp;
    handle.style.top = `${Math.min(Math.max(chart.y(level), 14), chart['canvas'].clientHeight - 30)}px`;
    handle.setAttribute('aria-valuenow', String(Math.round(band.frequency)));
    handle.setAttribute('aria-valuetext', describeBand(band));
    handle.setAttribute('aria-disabled', String(!band.on));
    handle.classList.toggle('selected', i === selected);
    handle.classList.toggle('solo', i === soloBand());
  });
}

function makeHandle(i: number): HTMLButtonElement {
  const handle = document.createElement('button');
  handle.type = 'button';
  handle.className = 'handle';
  handle.textContent = String(i + 1);
  handle.setAttribute('role', 'slider');
  handle.setAttribute('aria-label', `Band ${i + 1}`);
  handle.setAttribute('aria-valuemin', String(LIMITS.frequency[0]));
  handle.setAttribute('aria-valuemax', String(LIMITS.frequency[1]));
  handle.onfocus = () => selectBand(i);
  handle.setAttribute('aria-haspopup', 'menu');
  handle.onpointerdown = (event) => {
    if (event.button !== 0) return;
    const band = setting.bands[i];
    handle.setPointerCapture(event.pointerId);
    drag = { handle, pointer: event.pointerId, x: event.clientX - chart.x(band.frequency), y: event.clientY - chart.y(band.gain) };
    selectBand(i);
    showReadout(i);
  };
  handle.onpointermove = (event) => {
    if (drag?.pointer !== event.pointerId || drag.handle !== handle) return;
    const band = setting.bands[i];
    moveBand(i, chart.frequencyAt(event.clientX - drag.x), hasGain(band.type) ? chart.valueAt(event.clientY - drag.y) : band.gain);
  };
  handle.onpointerup = handle.onpointercancel = letGo;
  handle.ondblclick = (event) => {
    event.stopPropagation();
    if (hasGain(setting.bands[i].type)) setBand(i, { gain: 0 });
    else setBand(i, { q: FLATTEST });
    showReadout(i);
  };
  handle.oncontextmenu = (event) => {
    event.preventDefault();
    letGo();
    selectBand(i);
    openMenu(handle, [
      ...Object.entries(BAND_TYPES).map(([type, name]) =>
        ({ name, chosen: setting.bands[i].type === type, run: () => setBand(i, { type: type as BandType }) })),
      { name: soloBand() === i ? 'Hear all bands' : 'Solo', run: () => solo(i) },
      { name: setting.bands[i].on ? 'Off' : 'On', run: () => setBand(i, { on: !setting.bands[i].on }) },
      { name: 'Remove', run: () => removeBand(i) },
    ]);
  };
  handle.onwheel = (event) => {
    event.preventDefault();
    setQ(i, setting.bands[i].q * Math.pow(1.1, -Math.sign(event.deltaY)));
  };
  handle.onkeydown = (event) => {
    const band = setting.bands[i];
    const fine = event.shiftKey;
    const ratio = fine ? 1.01 : Math.pow(2, 1 / 12), step = fine ? 0.1 : 0.5;
    const actions: Record<string, () => void> = {
      ArrowLeft: () => moveBand(i, band.frequency / ratio, band.gain),
      ArrowRight: () => moveBand(i, band.frequency * ratio, band.gain),
      ArrowUp: () => moveBand(i, band.frequency, band.gain + step),
      ArrowDown: () => moveBand(i, band.frequency, band.gain - step),
      PageUp: () => setQ(i, band.q * 1.15),
      PageDown: () => setQ(i, band.q / 1.15),
      Home: () => moveBand(i, LIMITS.frequency[0], band.gain),
      End: () => moveBand(i, LIMITS.frequency[1], band.gain),
      Enter: () => setBand(i, { on: !band.on }),
      Delete: () => removeBand(i),
      s: () => solo(i),
    };
    if (!actions[event.key]) return;
    event.preventDefault();
    actions[event.key]();
  };
  return handle;
}

/** Ends the drag, if there is one. */
export function letGo(): void {
  if (!drag) return;
  const { handle, pointer } = drag;
  drag = null;
  if (handle.hasPointerCapture(pointer)) handle.releasePointerCapture(pointer);
  element('band-readout').hidden = true;
  changed();
}

function selectBand(i: number): void {
  selected = i;
  chart.selected = i;
  placeHandles();
  chart.draw();
  document.querySelectorAll('#bands tr').forEach((row, k) => row.classList.toggle('selected', k === i));
}

const rounded = (frequency: number) => +frequency.toPrecision(frequency < 100 ? 3 : 4);

function moveBand(i: number, frequency: number, gain: number): void {
  setBand(i, {
    frequency: rounded(clamp(frequency, [LIMITS.frequency[0], highest(setting.rate)])),
    gain: +clamp(gain, LIMITS.gain).toFixed(1),
  });
  showReadout(i);
}

function setQ(i: number, q: number): void {
  setBand(i, { q: +clamp(q, LIMITS.q).toPrecision(3) });
  showReadout(i);
}

/** The Q of the chosen band, for who changes it away from its handle. */
export const chosenQ = (): number | undefined => setting.bands[selected]?.q;
export const setChosenQ = (q: number): void => setQ(selected, q);

function setBand(i: number, change: Partial<Band>): void {
  Object.assign(setting.bands[i], change);
  showBands();
  changed();
}

function removeBand(i: number): void {
  setting.bands.splice(i, 1);
  selected = Math.max(0, Math.min(selected, setting.bands.length - 1));
  showBands();
  changed();
  (element('handles').children[selected] as HTMLElement | undefined)?.focus();
}

/** The table of the bands; a field that is being typed into keeps its text. */
export function showBands(): void {
  const body = element('bands');
  while (body.children.length > setting.bands.length) body.lastElementChild!.remove();
  setting.bands.forEach((band, i) => {
    const row = (body.children[i] as HTMLTableRowElement) ?? body.appendChild(makeRow(i));
    const [on, type, frequency, gain, q] = row.querySelectorAll<HTMLInputElement>('input, select');
    on.checked = band.on;
    type.value = band.type;
    for (const [field, value] of [[frequency, band.frequency], [gain, band.gain], [q, band.q]] as const)
      if (document.activeElement !== field || drag) field.value = String(value);
    gain.disabled = !hasGain(band.type);
    row.classList.toggle('selected', i === selected);
  });
}

function makeRow(i: number): HTMLTableRowElement {
  const row = document.createElement('tr');
  const types = Object.entries(BAND_TYPES).map(([key, name]) => `<option value="${key}">${name}</option>`).join('');
  const number = (label: string, [low, high]: readonly number[], step: string) =>
    `<td><input type="number" aria-label="${label} of band ${i + 1}" min="${low}" max="${high}" step="${step}"></td>`;
  row.innerHTML =
    `<td><input type="checkbox" aria-label="Band ${i + 1} on"></td>` +
    `<td><select aria-label="Type of band ${i + 1}">${types}</select></td>` +
    number('Frequency', LIMITS.frequency, 'any') + number('Gain', LIMITS.gain, '0.1') + number('Q', LIMITS.q, 'any') +
    `<td><button type="button" aria-label="Remove band ${i + 1}">✕</button></td>`;
  const [on, type, frequency, gain, q] = row.querySelectorAll<HTMLInputElement>('input, select');
  on.onchange = () => setBand(i, { on: on.checked });
  type.onchange = () => setBand(i, { type: type.value as BandType });
  const take = (field: HTMLInputElement, key: 'frequency' | 'gain' | 'q', limits: readonly [number, number]) => {
    field.oninput = () => {
      if (field.value !== '' && Number.isFinite(field.valueAsNumber) && field.valueAsNumber >= limits[0] && field.valueAsNumber <= limits[1])
        setBand(i, { [key]: key === 'frequency' ? Math.min(field.valueAsNumber, highest(setting.rate)) : field.valueAsNumber });
    };
    field.onchange = () => showBands();
  };
  take(frequency, 'frequency', LIMITS.frequency);
  take(gain, 'gain', LIMITS.gain);
  take(q, 'q', LIMITS.q);
  row.querySelector('button')!.onclick = () => removeBand(i);
  row.onfocus = () => selectBand(i);
  return row;
}

/** The middle of the widest gap between the bands, as ears space frequencies. */
function gap(): number {
  const places = [...setting.bands.map(({ frequency }) => frequency), LIMITS.frequency[0], highest(setting.rate)].sort((a, b) => a - b);
  let widest = 1;
  for (let i = 2; i < places.length; ++i)
    if (places[i] / places[i - 1] > places[widest] / places[widest - 1]) widest = i;
  return Math.sqrt(places[widest] * places[widest - 1]);
}

export function addBand(frequency = gap(), gain = 0): void {
  if (setting.bands.length >= 32) return say('32 bands are the most that the page shows.');
  setting.bands.push({ on: true, type: 'PK', frequency: 1000, gain: 0, q: 1 });
  selected = setting.bands.length - 1;
  moveBand(selected, frequency, gain);
}

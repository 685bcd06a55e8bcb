// From the setting to the filter that runs, its curves and what is to be said of it.
import type { Filter } from 'jurn-filter';
import type { Design, FamilyDesign, Notice } from 'jurn-filter/design';
import { bandIsDragged, placeHandles, selectedBand, soloBand } from './bands.js';
import { isTime, type Curve } from './chart.js';
import { fittedCurves } from './fitted.js';
import { bring } from './opened.js';
import { chart, designer, element, loaded, running, sayError, setting, sound } from './page.js';
import { respond, respondLong, type Response } from './response.js';
import { roomResponse } from './rooms.js';
import { bandLine, equaliserText, isFitted, type Band } from './setting.js';
import { averageAsFir, showCommand } from './take_home.js';

/** Gains in dB up to which a filter is played without asking; a click raises it. */
const UNASKED = 12;
let allowed = UNASKED;
let asked = 0;
let wasLoud = false;

/** What was asked for is heard. */
export function playLoud(): void {
  allowed = asked + 1;
}

/** The responses of bands alone, while their lines and the rate stay. */
let ofBands = new Map<string, Response>();

function respondBands(parse: (text: string) => Design, bands: Band[]): (Response | null)[] {
  const before = ofBands;
  ofBands = new Map();
  return bands.map((band) => {
    if (!band.on) return null;
    const line = bandLine(band, 0), key = `${line} at ${setting.rate}`;
    const response = ofBands.get(key) ?? before.get(key) ?? respond(parse(line), setting.rate);
    ofBands.set(key, response);
    return response;
  });
}

/** The exact peak takes too long while something is dragged; the drawn curve's does till then. */
export async function update(exactPeak: boolean): Promise<void> {
  const design = await designer;
  const notices: (Notice & { good?: boolean })[] = [];
  const curves: Curve[] = [];
  let filter: Filter | null = null;
  let runs: Design | null = null;
  let response: ((inputs: number) => Float32Array[]) | null = null;
  let channels: typeof running.channels = null;
  const loading = bring();
  if (loading) {
    showNotices([{ text: 'Being loaded', warning: false }]);
    // What was chosen before is heard on, but nobody takes it home for the new one.
    Object.assign(running, { filter: null, design: null, response: null, channels: null });
    showCommand();
  }
  const failure = await loading?.catch((error: unknown) => error);
  const connect = (channels: Float32Array[]) => loaded.library!.connect(channels, 2);
  let peak = 0;
  const sayGain = () => {
    if (peak > 0.05)
      notices.push({ text: `Gain up to +${peak.toFixed(1)} dB: a full-scale sound can clip`, warning: peak > 12 });
  };
  chart.rate = setting.rate;
  chart.roots = null;
  chart.bands = [];
  chart.time = [];
  chart.selected = selectedBand();
  const alone = soloBand();
  chart.solo = alone;
  element('solo-end').hidden = alone === null;
  let heard: Filter | null = null; // of a band that is heard alone
  element('turn').hidden = true;
  try {
    if (failure) throw failure;
    if (setting.kind === 'file' && setting.channels) {
      const { name, text } = setting.channels, bytes = new TextEncoder().encode(text);
      channels = (inputs) => design.parseChannels(name, bytes, inputs, setting.rate)!;
      const { steps } = channels(2);
      for (const [c, side] of ['left', 'right'].entries()) {
        const own = steps.filter((step) => step.channels.includes(c)).map((step) => step.design);
        const whole: Design = {
          kind: 'sections', b: [1, 0, 0, ...own.flatMap(({ b }) => Array.from(b))], a: [1, 0, 0, ...own.flatMap(({ a }) => Array.from(a))],
        };
        const shown = { colour: ['curve', 'second'][c], name: side };
        curves.push({ response: respond(whole, setting.rate), ...shown });
        if (isTime(chart.view)) chart.time.push({ ...design.timeResponses(whole), ...shown });
        peak = Math.max(peak, exactPeak ? 20 * Math.log10(design.peakGain(whole)) : Math.max(...curves[c].response.magnitude));
      }
      filter = { kind: 'channels', steps };
      sayGain();
    } else if (setting.kind === 'eq' || setting.kind === 'file' || setting.kind === 'design') {
      const parse = (text: string) =>
        design.parse('equaliser', new TextEncoder().encode(text), { rate: setting.rate, wanted: 'sections' });
      const wanted = setting.kind === 'eq' ? parse(equaliserText(setting))
        : isFitted(setting) ? setting.fit && parse(equaliserText(setting.fit))
        : setting.kind === 'design' ? design.design(setting.design as FamilyDesign, setting.rate)
        : setting.file ? ({ ...setting.file } as Design) : null;
      if (wanted) {
        if (setting.kind === 'design' && !isFitted(setting)) showDelay(wanted, design.describe(wanted));
        const prepared = design.prepare(wanted, setting.precision);
        runs = prepared.design;
        notices.push(...prepared.notices);
        chart.roots = runs.b.length <= 400 ? design.roots(runs) : null;
        curves.push({ response: respond(runs, setting.rate), colour: 'curve', name: isFitted(setting) ? 'equaliser' : '' });
        if (isFitted(setting) && chart.view === 'magnitude') curves.push(...fittedCurves());
        if (isTime(chart.view)) chart.time = [{ ...design.timeResponses(runs), colour: 'curve' }];
        if (!prepared.stable) {
          notices.push({ text: 'Not played, since it is unstable: you hear the original', warning: true });
          element('turn').hidden = !setting.file || !design.prepare(turned(wanted), setting.precision).stable;
        } else {
          filter = runs;
          let sounding = runs;
          if (setting.kind === 'eq') chart.bands = respondBands(parse, setting.bands);
          if (alone !== null) {
            const one = parse(equaliserText({ ...setting, bands: [setting.bands[alone]] }));
            heard = sounding = design.prepare(one, setting.precision).design;
            notices.push({ text: `You hear band ${alone + 1} alone; what you take home has all bands`, warning: false });
          }
          peak = exactPeak ? 20 * Math.log10(design.peakGain(sounding))
            : Math.max(...(alone === null ? curves[0].response : respond(sounding, setting.rate)).magnitude);
          sayGain();
          // Beyond one step the preparation warns by itself.
          if (setting.precision === 'int16' && runs.kind !== 'fir' && (prepared.expectedError ?? 1) < 1)
            notices.push({ text: `At most ${prepared.expectedError!.toPrecision(2)} LSB off in float, on noise at full scale`, warning: false, good: true });
        }
      }
    } else if (setting.kind === 'mean') {
      filter = { kind: 'average', length: setting.mean, precision: setting.precision };
      curves.push({ response: respond(filter, setting.rate), colour: 'curve' });
      if (isTime(chart.view)) chart.time = [{ ...design.timeResponses(averageAsFir(setting.mean)), colour: 'curve' }];
    } else if (setting.kind === 'room') {
      const room = loaded.rooms[setting.room];
      if (room) {
        const channels = roomResponse(room, setting.wet / 100);
        response = () => channels;
        // A length is reserved, so that rooms fade into each other with their tails.
        filter = { ...connect(channels), taps: Math.max(2 * setting.rate, channels[0].length) };
        const names = channels.length === 4 ? ['left', '', '', 'right'] : ['left', 'right'];
        names.forEach((name, c) => {
          if (!name) return;
          const impulse = channels[c % channels.length], colour = c === 0 ? 'curve' : 'second';
          curves.push({ response: respondLong(impulse, setting.rate), colour, name });
          chart.time.push({ impulse, step: null, colour, name });
        });
        element('room-summary').textContent =
          `${room.name}: ${(room.channels[0].length / setting.rate).toFixed(2)} s, ` +
          `${room.channels[0].length} taps, ${['', 'mono', 'stereo'][room.channels.length] ?? `${room.channels.length} channels`}. No latency is added.`;
      }
    } else if (loaded.head) {
      const { head } = loaded;
      const { azimuth, distance } = setting;
      response = (inputs) => head.response(azimuth, distance, inputs);
      filter = connect(response(2));
      head.pair(setting.azimuth).forEach((ear, c) => {
        const impulse = ear.map((tap) => tap / setting.distance);
        const shown = { colour: ['curve', 'second'][c], name: ['left ear', 'right ear'][c] };
        curves.push({ response: respond({ kind: 'fir', b: impulse }, setting.rate), ...shown });
        chart.time.push({ ...design.timeResponses({ kind: 'fir', b: impulse }), ...shown });
      });
    }
  } catch (error) {
    const reason = (error instanceof Error ? error.message : String(error)).replace(/\.$/, '');
    notices.push({ text: `${reason}. You hear the original`, warning: true });
    curves.length = 0;
  }
  if (peak <= UNASKED) allowed = UNASKED;
  const loud = peak > allowed;
  asked = peak;
  element('play-loud').hidden = !loud;
  element('play-loud').textContent = `Play it at +${peak.toFixed(1)} dB`;
  if (loud) notices.push({ text: 'Not played before you click: turn the volume down first', warning: true });
  Object.assign(running, { filter, design: runs, response: filter && response, channels: filter && channels });
  chart.curves = curves;
  if (!bandIsDragged()) chart.fit();
  showNotices(notices);
  showCommand();
  placeHandles();
  chart.draw();
  try {
    // Too loud: what was heard before goes on.
    if (!exactPeak && !loud) await sound.filter(heard ?? filter);
    // The exact peak lies between two points of the curve.
    if (exactPeak && loud && !wasLoud) await sound.filter(null);
    wasLoud = loud;
  } catch (error) {
    sayError(error, 'The filter');
  }
  document.body.dataset.ready = 'yes';
}

/** Of programs that add the feedback instead of subtracting it. */
export function turned(design: Design): Design {
  if (design.kind === 'fir') return design;
  const group = design.kind === 'sections' ? 3 : design.a.length;
  return { ...design, a: Array.from(design.a, (x, i) => (i % group ? -x : x)), prepared: undefined } as Design;
}

/** What a designed filter is, and by how much one of linear phase is late. */
function showDelay(design: Design, words: string): void {
  const frames = (design.b.length - 1) / 2;
  element('design-summary').textContent = design.kind !== 'fir' ? `${words}. Equal to SciPy's to 1e-9.`
    : `${words}, late by ${frames} frames, ${((1000 * frames) / setting.rate).toFixed(2)} ms. Equal to SciPy's to 1e-9.`;
}

function showNotices(notices: (Notice & { good?: boolean })[]): void {
  const items = notices.map(({ text, warning, good }) => {
    const item = document.createElement('li');
    item.textContent = text.charAt(0).toUpperCase() + text.slice(1) + '.';
    item.className = warning ? 'warning' : good ? 'good' : '';
    return item;
  });
  const list = element('notices');
  if (list.textContent !== items.map((item) => item.textContent).join('')) list.replaceChildren(...items);
}

import { Library, type Convolution, type Filter } from 'jurn-filter';
import { DesignError, loadDesigner, type Design, type Notice } from 'jurn-filter/design';
import { colour, forgetColours } from './canvas.js';
import { Chart, type Curve, type View } from './chart.js';
import { download, isAudio, wav } from './files.js';
import { Meter, Spectrogram } from './meters.js';
import { respond, respondLong } from './response.js';
import { hall, Head, MOST_SECONDS, roomFilter, type ImpulseResponse } from './rooms.js';
import {
  BAND_TYPES, clamp, equaliserText, fromHash, hasGain, highest, initial, LIMITS, toHash,
  type Band, type BandType, type Kind,
} from './setting.js';
import { Sound } from './sound.js';

const element = <T extends HTMLElement>(id: string) => document.getElementById(id) as T;
const input = (id: string) => element<HTMLInputElement>(id);
const select = (id: string) => element<HTMLSelectElement>(id);

const SOUNDS: Record<string, { name: string; file: string }> = {
  music: { name: 'Music', file: 'sounds/music.flac' },
  speech: { name: 'Speech', file: 'sounds/speech.wav' },
  guitar: { name: 'Guitar', file: 'sounds/guitar.flac' },
  drums: { name: 'Drums', file: 'sounds/drums.flac' },
};
const EXAMPLES: Record<string, string> = {
  'telephone.txt': 'Telephone, FIR of 255 taps', 'dark.txt': 'Dark, 8 sections', 'low-cut.txt': 'Low cut, 2 sections',
};

const setting = location.hash.length > 1 ? fromHash(location.hash) : initial();
const sound = new Sound(setting.rate);
const designer = loadDesigner();
const chart = new Chart(element<HTMLCanvasElement>('chart'));
const meters = { in: new Meter(element('meter-in')), out: new Meter(element('meter-out')) };
const spectrogram = new Spectrogram(element<HTMLCanvasElement>('spectrogram'));
const rooms: Record<string, ImpulseResponse> = {};
let head: Head | null = null;
let hearOriginal = false;
let selected = 0;

/** What runs now, and what is known of it. */
let running: { filter: Filter | null; design: Design | null } = { filter: null, design: null };

// ---- Messages ---------------------------------------------------------------------------------

let messageTimer = 0;

function say(sentence: string): void {
  const message = element('message');
  message.textContent = sentence;
  message.hidden = false;
  clearTimeout(messageTimer);
  messageTimer = window.setTimeout(() => (message.hidden = true), 12000);
}

/** What was wrong no longer matters once something works. */
function sayNothing(): void {
  element('message').hidden = true;
}

function sayError(error: unknown, what: string): void {
  if (error instanceof DesignError || error instanceof RangeError || error instanceof Error)
    say(what ? `${what}: ${error.message}` : error.message);
  else say(`${what} failed.`);
}

// ---- The filter -------------------------------------------------------------------------------

let queued = false;
let hashTimer = 0;

function showLink(): void {
  clearTimeout(hashTimer);
  history.replaceState(null, '', '#' + toHash(setting));
}

/** After a change of the setting: once per frame, however many changes there were. */
function changed(): void {
  // Browsers refuse to change the address many times a second.
  clearTimeout(hashTimer);
  hashTimer = window.setTimeout(showLink, 250);
  if (queued) return;
  queued = true;
  requestAnimationFrame(() => {
    queued = false;
    void update();
    clearTimeout(settleTimer);
    settleTimer = window.setTimeout(() => void update(true), 400);
  });
}

let settleTimer = 0;

/** The exact peak takes too long while something is dragged; the drawn curve's does till then. */
async function update(exactPeak = false): Promise<void> {
  const design = await designer;
  const notices: (Notice & { good?: boolean })[] = [];
  const curves: Curve[] = [];
  let filter: Filter | null = null;
  let runs: Design | null = null;
  chart.rate = setting.rate;
  chart.roots = null;
  element('turn').hidden = true;
  try {
    if (setting.kind === 'eq' || setting.kind === 'file') {
      const wanted = setting.kind === 'eq'
        ? design.parse('equaliser', new TextEncoder().encode(equaliserText(setting)), { rate: setting.rate, wanted: 'sections' })
        : setting.file ? ({ ...setting.file } as Design) : null;
      if (wanted) {
        const prepared = design.prepare(wanted, setting.precision);
        runs = prepared.design;
        notices.push(...prepared.notices);
        chart.roots = runs.b.length <= 400 ? design.roots(runs) : null;
        curves.push({ response: respond(runs, setting.rate), colour: 'curve' });
        if (!prepared.stable) {
          notices.push({ text: 'Not played, since it is unstable: you hear the original', warning: true });
          element('turn').hidden = !setting.file || !design.prepare(turned(wanted), setting.precision).stable;
        } else {
          filter = runs;
          const peak = exactPeak ? 20 * Math.log10(design.peakGain(runs)) : Math.max(...curves[0].response.magnitude);
          if (peak > 0.05)
            notices.push({ text: `Gain up to +${peak.toFixed(1)} dB: a full-scale sound can clip`, warning: peak > 12 });
          // Beyond one step the preparation warns by itself.
          if (setting.precision === 'int16' && runs.kind !== 'fir' && (prepared.expectedError ?? 1) < 1)
            notices.push({ text: `At most ${prepared.expectedError!.toPrecision(2)} LSB off in float, on noise at full scale`, warning: false, good: true });
        }
      }
    } else if (setting.kind === 'mean') {
      filter = { kind: 'average', length: setting.mean };
      curves.push({ response: respond(filter, setting.rate), colour: 'curve' });
    } else if (setting.kind === 'room') {
      const room = rooms[setting.room] ?? rooms.hall;
      if (room) {
        const convolution = roomFilter(room, setting.wet / 100, setting.rate);
        filter = convolution;
        pushLong(curves, convolution, [0, 1], ['left', 'right']);
        element('room-summary').textContent =
          `${room.name}: ${(room.channels[0].length / setting.rate).toFixed(2)} s, ` +
          `${room.channels[0].length} taps, ${room.channels.length === 1 ? 'mono' : 'stereo'}. No latency is added.`;
      }
    } else if (head) {
      const convolution = head.filter(setting.azimuth, setting.distance);
      filter = convolution;
      const ears = head.pair(setting.azimuth).map((ear) =>
        respond({ kind: 'fir', b: ear.map((tap) => tap / setting.distance) }, setting.rate));
      curves.push({ response: ears[0], colour: 'curve', name: 'left ear' }, { response: ears[1], colour: 'second', name: 'right ear' });
    }
  } catch (error) {
    notices.push({ text: error instanceof Error ? error.message : String(error), warning: true });
  }
  running = { filter, design: runs };
  chart.curves = curves;
  if (!dragging) chart.fit();
  showNotices(notices);
  showCommand();
  placeHandles();
  chart.draw();
  try {
    if (!exactPeak) await sound.filter(filter);
  } catch (error) {
    sayError(error, 'The filter');
  }
  document.body.dataset.ready = 'yes';
}

/** Of programs that add the feedback instead of subtracting it. */
function turned(design: Design): Design {
  if (design.kind === 'fir') return design;
  const group = design.kind === 'sections' ? 3 : design.a.length;
  return { ...design, a: Array.from(design.a, (x, i) => (i % group ? -x : x)) } as Design;
}

function pushLong(curves: Curve[], { routes }: Convolution, which: number[], names: string[]): void {
  which.forEach((route, i) =>
    curves.push({
      response: respondLong(routes[route].taps as Float32Array, setting.rate),
      colour: i === 0 ? 'curve' : 'second', name: names[i],
    }));
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

// ---- Equaliser --------------------------------------------------------------------------------

let dragging = false;

const describeBand = (band: Band) =>
  `${BAND_TYPES[band.type]}, ${Math.round(band.frequency)} hertz` +
  (hasGain(band.type) ? `, ${band.gain.toFixed(1)} decibels` : '') + `, Q ${band.q}${band.on ? '' : ', off'}`;

function placeHandles(): void {
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
  handle.onpointerdown = (event) => {
    handle.setPointerCapture(event.pointerId);
    dragging = true;
    selectBand(i);
  };
  handle.onpointermove = (event) => {
    if (!handle.hasPointerCapture(event.pointerId)) return;
    const box = element('view').getBoundingClientRect();
    const band = setting.bands[i];
    moveBand(i, chart.frequencyAt(event.clientX - box.left),
             hasGain(band.type) ? chart.valueAt(event.clientY - box.top) - setting.preamp : band.gain);
  };
  handle.onpointerup = handle.onpointercancel = () => {
    dragging = false;
    changed();
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
      Enter: () => setBand(i, { on: !band.on }),
      Delete: () => removeBand(i),
    };
    if (!actions[event.key]) return;
    event.preventDefault();
    actions[event.key]();
  };
  return handle;
}

function selectBand(i: number): void {
  selected = i;
  placeHandles();
  document.querySelectorAll('#bands tr').forEach((row, k) => row.classList.toggle('selected', k === i));
}

const rounded = (frequency: number) => +frequency.toPrecision(frequency < 100 ? 3 : 4);

function moveBand(i: number, frequency: number, gain: number): void {
  setBand(i, {
    frequency: rounded(clamp(frequency, [LIMITS.frequency[0], highest(setting.rate)])),
    gain: +clamp(gain, LIMITS.gain).toFixed(1),
  });
}

const setQ = (i: number, q: number) => setBand(i, { q: +clamp(q, LIMITS.q).toPrecision(3) });

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
function showBands(): void {
  const body = element('bands');
  while (body.children.length > setting.bands.length) body.lastElementChild!.remove();
  setting.bands.forEach((band, i) => {
    const row = (body.children[i] as HTMLTableRowElement) ?? body.appendChild(makeRow(i));
    const [on, type, frequency, gain, q] = row.querySelectorAll<HTMLInputElement>('input, select');
    on.checked = band.on;
    type.value = band.type;
    for (const [field, value] of [[frequency, band.frequency], [gain, band.gain], [q, band.q]] as const)
      if (document.activeElement !== field || dragging) field.value = String(value);
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

// ---- Files ------------------------------------------------------------------------------------

async function useCoefficients(name: string, bytes: Uint8Array): Promise<void> {
  const wanted = select('wanted').value;
  try {
    const { kind, b, a = [] } = (await designer).parse(name, bytes, {
      rate: setting.rate, precision: setting.precision,
      wanted: wanted === 'auto' ? undefined : (wanted as 'sections' | 'fir'),
    });
    sayNothing();
    setting.file = { name, kind, b, a };
    showFile();
    showKind('file');
    changed();
  } catch (error) {
    sayError(error, '');
  }
}

function showFile(): void {
  if (!setting.file) return;
  const { name, kind, b, a } = setting.file;
  const count = (n: number, noun: string) => `${n} ${noun}${n === 1 ? '' : 's'}`;
  const what = kind === 'fir' ? `FIR of ${count(b.length, 'tap')}`
    : kind === 'sections' ? count(b.length / 3, 'second-order section')
    : `direct-form IIR of order ${Math.max(b.length, a.length) - 1}`;
  element('file-summary').textContent = `${name}: ${what}.`;
}

async function useRecording(file: File): Promise<void> {
  try {
    const buffer = await sound.decode(await file.arrayBuffer());
    sayNothing();
    const key = `file:${file.name}`;
    if (!dropped.has(key)) select('sound').add(new Option(file.name, key));
    dropped.set(key, file);
    recordings.set(key, Promise.resolve(buffer));
    select('sound').value = key;
    await sound.use(buffer);
  } catch {
    say(`${file.name}: this browser cannot read it as a recording. WAV, FLAC, MP3, Ogg and M4A are read.`);
  }
}

let roomFile: File | null = null;

async function decodeRoom(file: File): Promise<ImpulseResponse> {
  let buffer: AudioBuffer;
  try {
    buffer = await sound.decode(await file.arrayBuffer());
  } catch {
    throw new Error(`${file.name}: this browser cannot read it as an impulse response. WAV and FLAC are read.`);
  }
  if (buffer.duration > MOST_SECONDS)
    throw new Error(`${file.name}: the response lasts ${buffer.duration.toFixed(1)} s; up to ${MOST_SECONDS} s are accepted.`);
  const channels = [0, 1].slice(0, buffer.numberOfChannels).map((c) => buffer.getChannelData(c));
  if (channels.every((channel) => channel.every((x) => x === 0)))
    throw new Error(`${file.name}: the response is silent.`);
  return { name: file.name, channels };
}

async function useRoom(file: File): Promise<void> {
  try {
    rooms.file = await decodeRoom(file);
    sayNothing();
    if (!roomFile) select('room').add(new Option('', 'file'));
    select('room').querySelector<HTMLOptionElement>('[value=file]')!.text = file.name;
    roomFile = file;
    setting.room = select('room').value = 'file';
    changed();
  } catch (error) {
    sayError(error, '');
  }
}

async function drop(file: File): Promise<void> {
  if (isAudio(file)) await (setting.kind === 'room' ? useRoom(file) : useRecording(file));
  else if (file.size > 64 << 20) say(`${file.name}: is larger than any file of coefficients.`);
  else await useCoefficients(file.name, new Uint8Array(await file.arrayBuffer()));
}

// ---- Sound ------------------------------------------------------------------------------------

/** Decoded at the rate of now, by what the list of sounds calls them. */
const recordings = new Map<string, Promise<AudioBuffer>>();
const dropped = new Map<string, File>();

function recordingOf(key: string): Promise<AudioBuffer> {
  let recording = recordings.get(key);
  if (!recording) {
    recording = bytesOf(key).then((bytes) => sound.decode(bytes));
    recordings.set(key, recording);
  }
  return recording;
}

async function bytesOf(key: string): Promise<ArrayBuffer> {
  const own = dropped.get(key);
  if (own) return own.arrayBuffer();
  const { file, name } = SOUNDS[key] ?? SOUNDS.music;
  const response = await fetch(file);
  if (!response.ok) throw new Error(`${name} cannot be loaded (${response.status}).`);
  return response.arrayBuffer();
}

async function chooseSound(): Promise<void> {
  const key = select('sound').value;
  try {
    if (key === 'microphone') {
      await sound.listen();
    } else {
      await sound.use(await recordingOf(key));
      if (key in SOUNDS) setting.sound = key;
      showLink();
    }
  } catch (error) {
    sayError(error, '');
    select('sound').value = setting.sound in SOUNDS ? setting.sound : 'music';
  }
  showPlaying();
}

async function togglePlay(): Promise<void> {
  try {
    if (sound.playing) {
      sound.stop();
    } else if (select('sound').value === 'microphone') {
      await sound.listen();
    } else {
      if (!sound.recording) await sound.use(await recordingOf(select('sound').value));
      await sound.play();
    }
  } catch (error) {
    sayError(error, '');
  }
  showPlaying();
}

function showPlaying(): void {
  element('play').innerHTML = sound.playing
    ? '<span aria-hidden="true">❚❚</span> Pause' : '<span aria-hidden="true">▶</span> Play';
  input('position').disabled = sound.microphone;
}

function hear(original: boolean): void {
  hearOriginal = original;
  sound.hearOriginal = original;
  element('hear-original').setAttribute('aria-checked', String(original));
  element('hear-filtered').setAttribute('aria-checked', String(!original));
}

function clock(seconds: number): string {
  return `${Math.floor(seconds / 60)}:${String(Math.floor(seconds % 60)).padStart(2, '0')}`;
}

const spectrum = new Float32Array(sound.bins);
let lastTick = 0;

function tick(now: number): void {
  requestAnimationFrame(tick);
  if (sound.spectrum(spectrum)) {
    spectrogram.push(spectrum, setting.rate);
    chart.spectrum = spectrum;
    if (chart.view === 'magnitude') chart.draw();
  } else if (chart.spectrum) {
    chart.spectrum = null;
    chart.draw();
  }
  if (input('orbit').checked && setting.kind === 'head' && sound.playing) {
    const turned = setting.azimuth + ((now - lastTick) / 1000) * 45;
    setting.azimuth = turned > 180 ? turned - 360 : turned;
    placeSource();
    changed();
  }
  lastTick = now;
  const { position, duration } = sound;
  if (document.activeElement !== input('position') || sound.playing)
    input('position').value = String(duration > 0 ? position / duration : 0);
  const time = sound.microphone ? 'microphone' : `${clock(position)} / ${clock(duration)}`;
  const output = element<HTMLOutputElement>('time');
  if (output.value !== time) output.value = time;
}

// ---- Around the head ----------------------------------------------------------------------------

const RADIUS = 100 / 240; // of the stage's width
const toRadius = (distance: number) => RADIUS * Math.pow(distance / LIMITS.distance[1], 0.45);
const toDistance = (radius: number) => LIMITS.distance[1] * Math.pow(radius / RADIUS, 1 / 0.45);

function placeSource(): void {
  const source = element('source');
  const angle = (setting.azimuth * Math.PI) / 180, radius = toRadius(setting.distance);
  source.style.left = `${50 + 100 * radius * Math.sin(angle)}%`;
  source.style.top = `${50 - 100 * radius * Math.cos(angle)}%`;
  source.setAttribute('aria-valuemin', '-180');
  source.setAttribute('aria-valuemax', '180');
  source.setAttribute('aria-valuenow', String(Math.round(setting.azimuth)));
  const side = setting.azimuth < 0 ? 'left' : 'right';
  source.setAttribute('aria-valuetext',
    `${Math.abs(Math.round(setting.azimuth))} degrees ${side}, ${setting.distance.toFixed(1)} metres`);
  if (document.activeElement !== input('azimuth')) input('azimuth').value = String(Math.round(setting.azimuth));
  if (document.activeElement !== input('distance')) input('distance').value = setting.distance.toFixed(1);
}

function moveSource(azimuth: number, distance: number): void {
  setting.azimuth = ((((azimuth + 180) % 360) + 360) % 360) - 180;
  setting.distance = clamp(distance, LIMITS.distance);
  placeSource();
  changed();
}

function wireHead(): void {
  const source = element<HTMLButtonElement>('source');
  source.onpointerdown = (event) => source.setPointerCapture(event.pointerId);
  source.onpointermove = (event) => {
    if (!source.hasPointerCapture(event.pointerId)) return;
    const box = element('stage').getBoundingClientRect();
    const x = (event.clientX - box.left) / box.width - 0.5, y = (event.clientY - box.top) / box.height - 0.5;
    moveSource((Math.atan2(x, -y) * 180) / Math.PI, toDistance(Math.min(Math.hypot(x, y), RADIUS)));
  };
  source.onkeydown = (event) => {
    const moves: Record<string, [number, number]> = {
      ArrowRight: [5, 1], ArrowLeft: [-5, 1], ArrowUp: [0, 1.1], ArrowDown: [0, 1 / 1.1],
    };
    const move = moves[event.key];
    if (!move) return;
    event.preventDefault();
    moveSource(setting.azimuth + move[0], setting.distance * move[1]);
  };
  input('azimuth').oninput = () => {
    if (Number.isFinite(input('azimuth').valueAsNumber)) moveSource(input('azimuth').valueAsNumber, setting.distance);
  };
  input('distance').oninput = () => {
    if (Number.isFinite(input('distance').valueAsNumber)) moveSource(setting.azimuth, input('distance').valueAsNumber);
  };
}

// ---- Take it home ---------------------------------------------------------------------------------

function stem(): string {
  if (setting.kind === 'file' && setting.file) return setting.file.name.replace(/\.[^.]*$/, '');
  return { eq: 'equaliser', file: 'filter', room: 'room', head: 'head', mean: 'mean' }[setting.kind];
}

/** Both ears' or sides' responses as they run, for convolution by the tool. */
function impulseResponse(): Float32Array[] | null {
  const { filter } = running;
  if (filter?.kind !== 'convolution') return null;
  const gain = setting.kind === 'head' ? 2 : 1;
  return [0, 1].map((side) =>
    Float32Array.from(filter.routes.find((route) => route.output === side)!.taps, (tap) => tap * gain));
}

function showCommand(): void {
  const { design, filter } = running;
  let command = '';
  const double = setting.precision === 'double' ? ' --precision double' : '';
  if (design) {
    const subcommand = { fir: 'fir', iir: 'iir', sections: 'sos' }[design.kind];
    const precision = design.kind === 'sections' || design.b.length > 201 ? '' : double;
    command = `jurn-filter ${subcommand} in.wav out.wav -c ${stem()}.txt${precision}`;
  } else if (filter?.kind === 'average') {
    command = `jurn-filter average in.wav out.wav --length ${filter.length}`;
  } else if (filter?.kind === 'convolution') {
    command = `jurn-filter convolve in.wav out.wav --ir ${stem()}.wav`;
  }
  element('command').innerHTML = '';
  if (command) {
    const code = document.createElement('code');
    code.textContent = command;
    element('command').append('In a shell: ', code);
  }
  element('save-coefficients').textContent = filter?.kind === 'convolution' ? 'Response as WAV' : 'Coefficient file';
  element<HTMLButtonElement>('save-coefficients').disabled = !design && !filter;
  element<HTMLButtonElement>('save-c').disabled = !design && filter?.kind !== 'average';
  element<HTMLButtonElement>('save-wav').disabled = !filter;
}

async function saveCoefficients(): Promise<void> {
  const { design, filter } = running;
  const response = impulseResponse();
  if (response) download(`${stem()}.wav`, wav(response, setting.rate, false));
  else if (design) download(`${stem()}.txt`, (await designer).export(design, 'text', stem()));
  else if (filter?.kind === 'average')
    download(`${stem()}.txt`, (await designer).export(averageAsFir(filter.length), 'text', stem()));
}

const averageAsFir = (length: number): Design =>
  ({ kind: 'fir', b: new Array<number>(length).fill(1 / length), precision: 'int16' });

async function saveC(): Promise<void> {
  const { design, filter } = running;
  if (design) download(`${stem()}.h`, (await designer).export(design, 'header', stem()));
  else if (filter?.kind === 'average')
    download(`${stem()}.h`, (await designer).export(averageAsFir(filter.length), 'header', stem()));
}

async function saveWav(): Promise<void> {
  const { filter } = running;
  if (!filter) return;
  const button = element<HTMLButtonElement>('save-wav');
  button.disabled = true;
  try {
    const buffer = sound.recording ?? (await recordingOf(setting.sound));
    const library = new Library(await sound.library);
    const stream = library.stream({ channels: 2 });
    stream.change(filter);
    // The tail of a room sounds on after the recording.
    const tail = filter.kind === 'convolution' ? Math.max(...filter.routes.map((route) => route.taps.length)) - 1 : 0;
    const whole = [0, 1].map((c) => {
      const channel = new Float32Array(buffer.length + tail);
      channel.set(buffer.getChannelData(Math.min(c, buffer.numberOfChannels - 1)));
      return channel;
    });
    const step = 128 * 375;
    for (let at = 0; at < whole[0].length; at += step) {
      const part = whole.map((channel) => channel.subarray(at, at + step));
      stream.process(part, part);
      button.textContent = `${Math.round((100 * at) / whole[0].length)} %`;
      await new Promise((done) => setTimeout(done));
    }
    stream.free();
    const int16 = setting.kind === 'mean' || (setting.precision === 'int16' && filter.kind !== 'convolution');
    download(`${stem()}-filtered.wav`, wav(whole, setting.rate, int16));
  } catch (error) {
    sayError(error, '');
  }
  button.textContent = 'Filtered WAV';
  button.disabled = false;
}

// ---- The same bits ----------------------------------------------------------------------------------

async function checkBits(): Promise<void> {
  const button = element<HTMLButtonElement>('run-checksum');
  const summary = element('bits-summary');
  button.disabled = true;
  summary.textContent = 'Running…';
  try {
    const expected = (await (await fetch('checksum.txt')).text()).trim().split('\n').map((line) => line.split(/\s+/));
    const results: Record<string, Map<string, string>> = {};
    const { simd } = await sound.library;
    const builds = simd ? ['simd', 'scalar'] : ['scalar'];
    await Promise.all(builds.map((build) => new Promise<void>((done, failed) => {
      const worker = new Worker(new URL('./checksum.js', import.meta.url), { type: 'module' });
      worker.onmessage = ({ data }) => {
        worker.terminate();
        if (data.error) return failed(new Error(data.error));
        results[build] = new Map(data.text.trim().split('\n').map((line: string) => line.split(/\s+/)));
        done();
      };
      worker.onerror = () => failed(new Error('The program cannot be loaded.'));
      worker.postMessage({ build, url: new URL(`./checksum-${build}.wasm`, import.meta.url).href });
    })));
    let same = 0;
    const rows = expected.map(([name, sum]) => {
      const row = document.createElement('tr');
      const cell = (text: string, className = '') => {
        const td = row.appendChild(document.createElement('td'));
        td.textContent = text;
        td.className = className;
      };
      cell(name.replaceAll('_', ' '));
      const code = document.createElement('code');
      code.textContent = sum;
      row.appendChild(document.createElement('td')).append(code);
      for (const build of ['simd', 'scalar']) {
        const found = results[build]?.get(name);
        if (found === undefined) cell('not run');
        else cell(found === sum ? '✓ same' : found, found === sum ? 'same' : 'different');
        if (found === sum) ++same;
      }
      return row;
    });
    element('bits').replaceChildren(...rows);
    document.querySelector<HTMLElement>('.bits')!.hidden = false;
    const all = expected.length * builds.length;
    summary.textContent = same === all
      ? `All ${expected.length} kinds give the bits of the native build, ${simd ? 'with and without' : 'here without'} vectors.`
      : `${all - same} of ${all} lines differ from the native build. Please tell us about this browser.`;
    summary.className = `summary ${same === all ? 'same' : 'different'}`;
  } catch (error) {
    sayError(error, 'The check');
    summary.textContent = 'The check could not run.';
  }
  button.disabled = false;
}

// ---- Wiring -------------------------------------------------------------------------------------------

function showKind(kind: Kind): void {
  setting.kind = kind;
  document.querySelectorAll<HTMLElement>('[data-kind]').forEach((tab) => {
    const chosen = tab.dataset.kind === kind;
    tab.setAttribute('aria-selected', String(chosen));
    tab.tabIndex = chosen ? 0 : -1;
    element(`kind-${tab.dataset.kind}`).hidden = !chosen;
  });
  document.querySelector<HTMLElement>('.precision')!.hidden = kind !== 'eq' && kind !== 'file';
  element('chart-hint').textContent = kind === 'eq'
    ? 'Drag a band; the wheel changes its width.' : kind === 'head' ? 'What each ear gets from the source.' : '';
}

function showView(view: View): void {
  chart.view = view;
  document.querySelectorAll<HTMLElement>('[data-view]').forEach((tab) => {
    tab.setAttribute('aria-selected', String(tab.dataset.view === view));
    tab.tabIndex = tab.dataset.view === view ? 0 : -1;
  });
  chart.fit();
  placeHandles();
  chart.draw();
}

/** Arrow keys go from tab to tab. */
function wireTabs(selector: string, choose: (tab: HTMLElement) => void): void {
  const tabs = [...document.querySelectorAll<HTMLElement>(selector)];
  tabs.forEach((tab, i) => {
    tab.onclick = () => choose(tab);
    tab.onkeydown = (event) => {
      const step = event.key === 'ArrowRight' ? 1 : event.key === 'ArrowLeft' ? -1 : 0;
      if (step === 0) return;
      event.preventDefault();
      const next = tabs[(i + step + tabs.length) % tabs.length];
      next.focus();
      choose(next);
    };
  });
}

const meanToSlider = (length: number) => Math.log(length) / Math.log(LIMITS.mean[1]);

function showMean(): void {
  if (document.activeElement !== input('mean')) input('mean').value = String(setting.mean);
  input('mean-slider').value = String(meanToSlider(setting.mean));
}

async function loadRooms(): Promise<void> {
  if (roomFile) rooms.file = await decodeRoom(roomFile);
  rooms.hall = hall(setting.rate);
  const [left, right, responses] = await Promise.all([
    ...['left', 'right'].map(async (side) => sound.decode(await (await fetch(`rooms/street-${side}.wav`)).arrayBuffer())),
    fetch(`head-${setting.rate}.bin`).then((response) => response.arrayBuffer()),
  ] as [Promise<AudioBuffer>, Promise<AudioBuffer>, Promise<ArrayBuffer>]);
  rooms.street = { name: 'Street', channels: [left.getChannelData(0), right.getChannelData(0)] };
  head = new Head(responses);
}

function wire(): void {
  for (const [key, { name }] of Object.entries(SOUNDS)) select('sound').add(new Option(name, key));
  select('sound').add(new Option('Microphone', 'microphone'));
  if (!(setting.sound in SOUNDS)) setting.sound = 'music';
  select('sound').value = setting.sound;
  select('sound').onchange = () => void chooseSound();
  element('play').onclick = () => void togglePlay();
  element('hear-original').onclick = () => hear(true);
  element('hear-filtered').onclick = () => hear(false);
  input('recording').onchange = () => {
    const file = input('recording').files?.[0];
    if (file) void useRecording(file).then(showPlaying);
  };
  const volume = () => {
    sound.volume = input('volume').valueAsNumber;
    element<HTMLOutputElement>('volume-value').value = `${input('volume').value.replace('-', '−')} dB`;
  };
  input('volume').oninput = volume;
  volume();
  input('position').oninput = () => void sound.seek(input('position').valueAsNumber * sound.duration);
  sound.onlevels = ({ inputPeaks, outputPeaks, inputClipped, outputClipped }) => {
    meters.in.set(inputPeaks, inputClipped);
    meters.out.set(outputPeaks, outputClipped);
  };

  wireTabs('[data-kind]', (tab) => {
    showKind(tab.dataset.kind as Kind);
    changed();
  });
  wireTabs('[data-view]', (tab) => showView(tab.dataset.view as View));
  element('view').onpointermove = (event) => {
    const x = event.clientX - element('view').getBoundingClientRect().left;
    element<HTMLOutputElement>('readout').value =
      chart.readout(clamp(chart.frequencyAt(x), [LIMITS.frequency[0], chart.top]));
  };
  element('view').onpointerleave = () => (element<HTMLOutputElement>('readout').value = '');

  element('add-band').onclick = () => {
    if (setting.bands.length >= 32) return say('32 bands are the most that the page shows.');
    setting.bands.push({ on: true, type: 'PK', frequency: 1000, gain: 0, q: 1 });
    selected = setting.bands.length - 1;
    showBands();
    changed();
  };
  element('flat').onclick = () => {
    setting.bands.forEach((band) => (band.gain = 0));
    setting.bands = setting.bands.filter((band) => hasGain(band.type));
    setting.preamp = 0;
    input('preamp').value = '0';
    showBands();
    changed();
  };
  input('preamp').oninput = () => {
    if (!Number.isFinite(input('preamp').valueAsNumber)) return;
    setting.preamp = clamp(input('preamp').valueAsNumber, LIMITS.preamp);
    changed();
  };
  input('preamp').value = String(setting.preamp);

  input('coefficients').onchange = () => {
    const file = input('coefficients').files?.[0];
    if (file) void drop(file);
    input('coefficients').value = '';
  };
  for (const [file, name] of Object.entries(EXAMPLES)) select('example').add(new Option(name, file));
  select('example').onchange = async () => {
    const name = select('example').value;
    if (name) await useCoefficients(name, new Uint8Array(await (await fetch(`coefficients/${name}`)).arrayBuffer()));
  };
  element('turn').onclick = () => {
    if (setting.file) setting.file.a = [...(turned(setting.file as Design).a ?? [])];
    changed();
  };
  showFile();

  select('room').add(new Option('Hall, decaying noise of 2 s', 'hall'));
  select('room').add(new Option('Street between houses', 'street'));
  if (!['hall', 'street'].includes(setting.room)) setting.room = 'hall';
  select('room').value = setting.room;
  select('room').onchange = () => {
    setting.room = select('room').value;
    changed();
  };
  const wet = () => {
    setting.wet = input('wet').valueAsNumber;
    element<HTMLOutputElement>('wet-value').value = `${setting.wet} %`;
    changed();
  };
  input('wet').value = String(setting.wet);
  element<HTMLOutputElement>('wet-value').value = `${setting.wet} %`;
  input('wet').oninput = wet;
  input('response').onchange = () => {
    const file = input('response').files?.[0];
    if (file) void useRoom(file);
    input('response').value = '';
  };

  wireHead();
  placeSource();

  input('mean').oninput = () => {
    const length = input('mean').valueAsNumber;
    if (!Number.isInteger(length) || length < 1 || length > LIMITS.mean[1]) return;
    setting.mean = length;
    showMean();
    changed();
  };
  input('mean-slider').oninput = () => {
    setting.mean = Math.round(Math.pow(LIMITS.mean[1], input('mean-slider').valueAsNumber));
    showMean();
    changed();
  };
  showMean();

  select('precision').value = setting.precision;
  select('precision').onchange = () => {
    setting.precision = select('precision').value as 'double' | 'int16';
    changed();
  };
  select('rate').value = String(setting.rate);
  select('rate').onchange = async () => {
    const wasPlaying = sound.playing && !sound.microphone;
    setting.rate = Number(select('rate').value);
    recordings.clear();
    await sound.setRate(setting.rate);
    await loadRooms();
    setting.bands.forEach((band) => (band.frequency = Math.min(band.frequency, highest(setting.rate))));
    showBands();
    changed();
    if (wasPlaying) await togglePlay();
    showPlaying();
  };

  element('save-coefficients').onclick = () => void saveCoefficients();
  element('save-c').onclick = () => void saveC();
  element('save-wav').onclick = () => void saveWav();
  element('run-checksum').onclick = () => void checkBits();
  element('share').onclick = async () => {
    showLink();
    try {
      await navigator.clipboard.writeText(location.href);
      element('share').textContent = 'Copied';
    } catch {
      say('The link is in the address bar: this browser does not let the page copy it.');
    }
    setTimeout(() => (element('share').textContent = 'Copy link'), 1500);
  };
  element('theme').onclick = () => {
    const root = document.documentElement;
    const dark = getComputedStyle(root).colorScheme.includes('dark');
    root.dataset.theme = dark ? 'light' : 'dark';
    localStorage.setItem('theme', root.dataset.theme);
    forgetColours();
    chart.draw();
  };
  matchMedia('(prefers-color-scheme: light)').onchange = () => {
    forgetColours();
    chart.draw();
  };

  addEventListener('keydown', (event) => {
    const target = event.target as HTMLElement;
    if (event.ctrlKey || event.metaKey || event.altKey || target.matches('input:not([type=range]):not([type=checkbox]), select')) return;
    if (event.key === 'f' || event.key === 'F') hear(!hearOriginal);
    else if (event.key === ' ' && !target.matches('button, input')) void togglePlay();
    else return;
    event.preventDefault();
  });
  addEventListener('dragover', (event) => {
    event.preventDefault();
    document.body.classList.add('dragging');
  });
  addEventListener('dragleave', () => document.body.classList.remove('dragging'));
  addEventListener('drop', (event) => {
    event.preventDefault();
    document.body.classList.remove('dragging');
    const file = event.dataTransfer?.files[0];
    if (file) void drop(file).then(showPlaying);
  });
  new ResizeObserver(() => {
    placeHandles();
    chart.draw();
  }).observe(element('view'));
}

async function start(): Promise<void> {
  const theme = localStorage.getItem('theme');
  if (theme) document.documentElement.dataset.theme = theme;
  void colour('curve');
  wire();
  showBands();
  showKind(setting.kind);
  showView('magnitude');
  showCommand();
  changed();
  requestAnimationFrame(tick);
  try {
    // Ready before the first click: the recording, the rooms, the program.
    const [{ simd }] = await Promise.all([sound.library, loadRooms(), recordingOf(setting.sound).then((buffer) => sound.use(buffer))]);
    element('engine').textContent = ` WebAssembly ${simd ? 'with' : 'without'} 128-bit vectors.`;
    changed();
  } catch (error) {
    sayError(error, 'The page could not load everything it needs');
  }
}

void start();

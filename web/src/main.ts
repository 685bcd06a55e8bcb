// Ties the parts of the page to its elements.
import { hasSimd } from 'jurn-filter';
import type { Design } from 'jurn-filter/design';
import { addBand, placeHandles, showBands, solo, soloBand } from './bands.js';
import { checkBits } from './bits.js';
import { colour, forgetColours, lessMotion } from './canvas.js';
import type { View } from './chart.js';
import { wireBlind } from './blind.js';
import { keep } from './keep.js';
import { playLoud, turned, update } from './filter.js';
import { wireChart } from './gestures.js';
import { Meter, Spectrogram } from './meters.js';
import { drop, EXAMPLES, remakeRooms, showFile, useCoefficientFile, useExample, useRoom } from './opened.js';
import { changed, chart, element, input, say, select, setting, showLink, sound, undo, whenChanged, whenReplaced } from './page.js';
import { chooseSound, hear, prefetch, recordings, showPlaying, SOUNDS, toggleOriginal, togglePlay, useRecording } from './recordings.js';
import { wirePresets } from './presets.js';
import { clamp, hasGain, highest, LIMITS, type Kind, type Setting } from './setting.js';
import { placeSource, wireSource } from './source.js';
import { showKind, showView, wireTabs } from './tabs.js';
import { saveC, saveCoefficients, saveFor, saveRecording, saveWav, showCommand } from './take_home.js';

const meters = { in: new Meter(element('meter-in')), out: new Meter(element('meter-out')) };
const spectrogram = new Spectrogram(element<HTMLCanvasElement>('spectrogram'), element<HTMLCanvasElement>('spectrogram-axes'));
/** Who asks for less motion sees the pictures of the sound change twice a second. */
const STILL_MILLISECONDS = 500;

function clock(seconds: number): string {
  return `${Math.floor(seconds / 60)}:${String(Math.floor(seconds % 60)).padStart(2, '0')}`;
}

/** Said from a tenth of a decibel on, and for as long as somebody needs to see it. */
let limitedAt = -Infinity;
function showLimiter(by: number): void {
  const output = element<HTMLOutputElement>('limited');
  const now = performance.now();
  if (by > 0.1) {
    limitedAt = now;
    output.value = `limited by ${by.toFixed(1)} dB`;
  }
  output.hidden = now - limitedAt > 700;
}

const OLD_LEVELS_MILLISECONDS = 300; // after which no level of the filter before arrives
let countedOf = '';

/** Clips are those of one filter; a head that is gone around is one. */
function countClips(): void {
  const { sound: _sound, azimuth: _azimuth, distance: _distance, ...filter } = setting;
  const key = JSON.stringify([filter, soloBand()]);
  if (key === countedOf) return;
  countedOf = key;
  meters.out.restart();
  setTimeout(() => meters.out.restart(), OLD_LEVELS_MILLISECONDS);
}

function countAllClips(): void {
  meters.in.restart();
  meters.out.restart();
}

const spectrum = new Float32Array(sound.bins);
let lastTick = 0;
let lastPicture = 0;

function tick(now: number): void {
  requestAnimationFrame(tick);
  const picture = !lessMotion.matches || now - lastPicture >= STILL_MILLISECONDS;
  if (picture) lastPicture = now;
  if (sound.spectrum(spectrum)) {
    spectrogram.push(spectrum, setting.rate, now);
    chart.spectrum = spectrum;
    if (picture && chart.view === 'magnitude') chart.draw();
  } else if (chart.spectrum) {
    chart.spectrum = null;
    chart.draw();
  }
  if (input('orbit').checked && setting.kind === 'head' && sound.playing) {
    const turned = setting.azimuth + ((now - lastTick) / 1000) * 45;
    setting.azimuth = turned > 180 ? turned - 360 : turned;
    if (picture) placeSource();
    changed();
  }
  lastTick = now;
  sound.measureLoudness(now);
  showLimiter(sound.limited);
  const { position, duration } = sound;
  if (document.activeElement !== input('position') || sound.playing)
    input('position').value = String(duration > 0 ? position / duration : 0);
  const time = sound.microphone ? 'microphone' : `${clock(position)} / ${clock(duration)}`;
  const output = element<HTMLOutputElement>('time');
  if (output.value !== time) output.value = time;
}

const meanToSlider = (length: number) => Math.log(length) / Math.log(LIMITS.mean[1]);

function showMean(): void {
  if (document.activeElement !== input('mean')) input('mean').value = String(setting.mean);
  input('mean-slider').value = String(meanToSlider(setting.mean));
}

/** All that depends on the sample rate, at the rate of the setting. */
async function useRate(): Promise<void> {
  const wasPlaying = sound.playing && !sound.microphone;
  recordings.clear();
  await sound.setRate(setting.rate);
  await remakeRooms();
  setting.bands.forEach((band) => (band.frequency = Math.min(band.frequency, highest(setting.rate))));
  showBands();
  changed();
  if (wasPlaying) await togglePlay();
  showPlaying();
}

/** Every control at the value of the setting. */
function showSetting(): void {
  if (!(setting.sound in SOUNDS)) setting.sound = 'music';
  if (!select('sound').value.startsWith('file:')) select('sound').value = setting.sound;
  input('preamp').value = String(setting.preamp);
  if (![...select('room').options].some(({ value }) => value === setting.room)) {
    say('The link has an impulse response of its own, which links do not hold: drop it on the page. Till then you hear the hall.');
    setting.room = 'hall';
  }
  select('room').value = setting.room;
  input('wet').value = String(setting.wet);
  element<HTMLOutputElement>('wet-value').value = `${setting.wet} %`;
  void showFile();
  placeSource();
  showMean();
  select('precision').value = setting.precision;
  select('rate').value = String(setting.rate);
  showBands();
  showKind(setting.kind);
}

/** Takes a setting of another link or of before. */
async function replace(wanted: Setting): Promise<void> {
  const { rate, sound: name } = setting;
  Object.assign(setting, wanted);
  const otherSound = setting.sound !== name && select('sound').value === name;
  showSetting();
  changed();
  if (setting.rate !== rate) await useRate();
  else if (otherSound) await chooseSound();
}

function wire(): void {
  for (const [key, { name }] of Object.entries(SOUNDS)) select('sound').add(new Option(name, key));
  select('sound').add(new Option('Microphone', 'microphone'));
  select('sound').onchange = () => void chooseSound().then(countAllClips);
  input('equal').onchange = () => (sound.equalLoudness = input('equal').checked);
  sound.onremark = say;
  wireBlind();
  wirePresets((wanted) => replace(wanted).then(countAllClips));
  element('play-loud').onclick = () => {
    playLoud();
    changed();
  };
  element('solo-end').onclick = () => solo(null);
  element('undo').onclick = () => void undo(-1);
  element('redo').onclick = () => void undo(1);
  element('play').onclick = () => void togglePlay();
  // The sound is on its way when the click comes.
  element('play').onpointerenter = element('play').onfocus = prefetch;
  for (const [id, original] of [['hear-original', true], ['hear-filtered', false]] as const) {
    element(id).onclick = () => hear(original);
    element(id).onkeydown = (event) => {
      if (!/^(Arrow|Home$|End$)/.test(event.key)) return;
      event.preventDefault();
      const first = event.key === 'Home' || (event.key !== 'End' && !original);
      hear(first);
      element(first ? 'hear-original' : 'hear-filtered').focus();
    };
  }
  input('recording').onchange = () => {
    const file = input('recording').files?.[0];
    if (file) void useRecording(file).then(showPlaying).then(countAllClips);
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
  wireChart();

  element('add-band').onclick = () => addBand();
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

  input('coefficients').onchange = () => {
    const file = input('coefficients').files?.[0];
    if (file) void useCoefficientFile(file);
    input('coefficients').value = '';
  };
  for (const [file, name] of Object.entries(EXAMPLES)) select('example').add(new Option(name, file));
  select('example').onchange = () => {
    const name = select('example').value;
    if (name) void useExample(name);
  };
  element('turn').onclick = () => {
    if (setting.file) setting.file = { ...setting.file, a: [...(turned(setting.file as Design).a ?? [])], prepared: undefined };
    changed();
  };

  select('room').add(new Option('Hall, decaying noise of 2 s', 'hall'));
  select('room').add(new Option('Street between houses', 'street'));
  select('room').onchange = () => {
    setting.room = select('room').value;
    changed();
  };
  const wet = () => {
    setting.wet = input('wet').valueAsNumber;
    element<HTMLOutputElement>('wet-value').value = `${setting.wet} %`;
    changed();
  };
  input('wet').oninput = wet;
  input('response').onchange = () => {
    const file = input('response').files?.[0];
    if (file) void useRoom(file);
    input('response').value = '';
  };

  wireSource();

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

  select('precision').onchange = () => {
    setting.precision = select('precision').value as 'double' | 'int16';
    changed();
  };
  select('rate').onchange = async () => {
    setting.rate = Number(select('rate').value);
    await useRate();
  };

  element('save-coefficients').onclick = () => void saveCoefficients();
  element('save-c').onclick = () => void saveC();
  for (const [id, program] of [['save-npy', 'npy'], ['save-cmsis', 'cmsis'], ['save-web-audio', 'web-audio'], ['save-lines', 'equaliser']] as const)
    element(id).onclick = () => void saveFor(program);
  element('save-recording').onclick = () => void saveRecording();
  element('save-wav').onclick = () => void saveWav();
  element('run-checksum').onclick = () => void checkBits();
  element('share').onclick = async () => {
    const { link, whole } = await showLink();
    if (!whole) say('The file is too long for a link: the link holds everything but it. Send the file along.');
    try {
      await navigator.clipboard.writeText(link);
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
    if ((event.ctrlKey || event.metaKey) && event.key.toLowerCase() === 'z' && !target.matches('input:not([type=range]):not([type=checkbox])')) {
      event.preventDefault();
      return void undo(event.shiftKey ? 1 : -1);
    }
    if (event.ctrlKey || event.metaKey || event.altKey || target.matches('input:not([type=range]):not([type=checkbox]), select')) return;
    if (event.key === 'f' || event.key === 'F') toggleOriginal();
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
    if (file) void drop(file, event.target instanceof Element ? event.target : document.body).then(showPlaying).then(countAllClips);
  });
  new ResizeObserver(() => {
    placeHandles();
    chart.draw();
  }).observe(element('view'));
  new ResizeObserver(() => spectrogram.drawAxes()).observe(element('spectrogram'));
}

function start(): void {
  const theme = localStorage.getItem('theme');
  if (theme) document.documentElement.dataset.theme = theme;
  void colour('curve');
  whenChanged(async (settled) => {
    await update(settled);
    countClips();
  });
  wire();
  whenReplaced(replace);
  showSetting();
  showView('magnitude');
  showCommand();
  changed();
  requestAnimationFrame(tick);
  element('engine').textContent = ` WebAssembly ${hasSimd() ? 'with' : 'without'} 128-bit vectors.`;
  keep().catch(() => {}); // where it is forbidden the page goes on as it is
}

start();

// What is taken home: the command, coefficients, C code, the filtered recording.
import type { Design } from 'jurn-filter/design';
import { filterInBackground } from './background.js';
import { download, wav } from './files.js';
import { designer, element, library, running, sayError, select, setting, sound } from './page.js';
import { recordingOf, SOUNDS } from './recordings.js';
import { equaliserText, isFitted } from './setting.js';

/** A name that every shell takes as it is. */
const plain = (name: string) => name.replace(/\.[^.]*$/, '').replace(/[^\p{L}\p{N}_.+-]+/gu, '_').replace(/^[-.]+/, '') || 'file';

function stem(): string {
  const opened = setting.channels ?? setting.file;
  if (setting.kind === 'file' && opened) return plain(opened.name);
  if (setting.kind === 'design') return setting.design.family;
  return { eq: 'equaliser', file: 'filter', room: 'room', head: 'head', mean: 'mean' }[setting.kind];
}

/** The recording and what it is called: that is chosen, or the one before the microphone. */
async function recording(): Promise<AudioBuffer> {
  return sound.recording ?? recordingOf(setting.sound);
}

function recordingName(): string {
  const key = select('sound').value;
  const name = plain(key.startsWith('file:') ? key.slice(5) : key in SOUNDS ? key : setting.sound);
  return `${name === 'out' ? 'recording' : name}.wav`;
}

/** The command that gives the file of "Filtered WAV" from the other files. */
function commandOf(): string {
  const { design, filter, response, channels } = running;
  const files = `${recordingName()} out.wav`;
  const bits = setting.precision === 'int16' ? '' : ' --bits float';
  if (design) {
    const subcommand = { fir: 'fir', iir: 'iir', sections: 'sos' }[design.kind];
    return `jurn-filter ${subcommand} ${files} -c ${stem()}.txt --precision ${setting.precision}${bits} --stamp`;
  }
  if (filter?.kind === 'average')
    return `jurn-filter average ${files} --length ${filter.length} --precision ${setting.precision}${bits} --stamp`;
  if (channels) return `jurn-filter setup ${files} -c ${stem()}.txt --no-tail --bits float --stamp`;
  if (response) return `jurn-filter convolve ${files} --ir ${stem()}.wav --bits float --stamp`;
  return '';
}

let stamped = '';
const stampKey = () => commandOf() + JSON.stringify(setting);

export function showCommand(): void {
  const { design, filter, response } = running;
  const command = commandOf();
  element('command').textContent = command;
  element('command-line').hidden = !command;
  if (stamped !== stampKey()) element('stamp').textContent = '';
  element('save-coefficients').textContent = response ? 'Response as WAV' : 'Coefficient file';
  element<HTMLButtonElement>('save-coefficients').disabled = !design && !filter;
  element<HTMLButtonElement>('save-c').disabled = !design && filter?.kind !== 'average';
  for (const id of ['save-npy', 'save-cmsis', 'save-web-audio', 'save-lines'])
    element<HTMLButtonElement>(id).disabled = !design || (id === 'save-lines' && design.kind === 'fir');
  for (const id of ['save-wav', 'save-recording']) element<HTMLButtonElement>(id).disabled = !filter;
}

export async function saveCoefficients(): Promise<void> {
  const { design, filter, response, channels } = running;
  if (channels) download(`${stem()}.txt`, setting.channels!.text);
  else if (response) download(`${stem()}.wav`, wav(response((await recording()).numberOfChannels), setting.rate, false));
  else if (design) download(`${stem()}.txt`, (await designer).export(design, 'text', stem()));
  else if (filter?.kind === 'average')
    download(`${stem()}.txt`, (await designer).export(averageAsFir(filter.length), 'text', stem()));
}

export const averageAsFir = (length: number): Design =>
  ({ kind: 'fir', b: new Array<number>(length).fill(1 / length), precision: setting.precision });

export async function saveC(): Promise<void> {
  const { design, filter } = running;
  if (design) download(`${stem()}.h`, (await designer).export(design, 'header', stem()));
  else if (filter?.kind === 'average')
    download(`${stem()}.h`, (await designer).export(averageAsFir(filter.length), 'header', stem()));
}

/** The files for other programs. */
export async function saveFor(program: 'npy' | 'cmsis' | 'web-audio' | 'equaliser'): Promise<void> {
  const { design } = running;
  if (!design) return;
  const name = stem();
  try {
    if (program === 'npy') download(`${name}.npy`, (await designer).export(design, 'npy', name));
    // An equaliser has its own lines, which other rates read as well.
    else if (program === 'equaliser' && (setting.kind === 'eq' || isFitted(setting)))
      download(`${name}-lines.txt`, equaliserText(setting.kind === 'eq' ? setting : setting.fit!));
    else download(name + { cmsis: '-cmsis.h', 'web-audio': '.mjs', equaliser: '-lines.txt' }[program],
                  (await designer).code(design, program, name, setting.rate));
  } catch (error) {
    sayError(error, '');
  }
}

const channelsOf = (buffer: AudioBuffer) =>
  Array.from({ length: buffer.numberOfChannels }, (_, c) => new Float32Array(buffer.getChannelData(c)));

export async function saveRecording(): Promise<void> {
  try {
    download(recordingName(), wav(channelsOf(await recording()), setting.rate, false));
  } catch (error) {
    sayError(error, '');
  }
}

export async function saveWav(): Promise<void> {
  const { filter, response, channels: filters } = running;
  if (!filter) return;
  const button = element<HTMLButtonElement>('save-wav');
  button.disabled = true;
  try {
    const channels = channelsOf(await recording());
    const key = stampKey();
    // Of as many channels as the recording has, as the tool runs it.
    const whole = response ? (await library()).connect(response(channels.length), channels.length)
      : filters ? filters(channels.length) : filter;
    const int16 = setting.precision === 'int16' && !response && !filters;
    const { file, stamp } = await filterInBackground(await sound.library, whole, channels, setting.rate, int16, (part) =>
      (button.textContent = `${Math.round(100 * part)} %`));
    download(`${stem()}-filtered.wav`, file);
    if (key === stampKey()) {
      stamped = key;
      element('stamp').textContent = `Stamp of the filtered samples: ${stamp}. The command shows the same.`;
    }
  } catch (error) {
    sayError(error, '');
  }
  button.textContent = 'Filtered WAV';
  button.disabled = !running.filter;
}

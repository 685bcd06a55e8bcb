// What is taken home: the command, coefficients, C code, the filtered recording.
import type { Design } from 'jurn-filter/design';
import { filterInBackground } from './background.js';
import { download, wav } from './files.js';
import { designer, element, running, sayError, setting, sound } from './page.js';
import { recordingOf } from './recordings.js';

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

export function showCommand(): void {
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

export async function saveCoefficients(): Promise<void> {
  const { design, filter } = running;
  const response = impulseResponse();
  if (response) download(`${stem()}.wav`, wav(response, setting.rate, false));
  else if (design) download(`${stem()}.txt`, (await designer).export(design, 'text', stem()));
  else if (filter?.kind === 'average')
    download(`${stem()}.txt`, (await designer).export(averageAsFir(filter.length), 'text', stem()));
}

const averageAsFir = (length: number): Design =>
  ({ kind: 'fir', b: new Array<number>(length).fill(1 / length), precision: 'int16' });

export async function saveC(): Promise<void> {
  const { design, filter } = running;
  if (design) download(`${stem()}.h`, (await designer).export(design, 'header', stem()));
  else if (filter?.kind === 'average')
    download(`${stem()}.h`, (await designer).export(averageAsFir(filter.length), 'header', stem()));
}

export async function saveWav(): Promise<void> {
  const { filter } = running;
  if (!filter) return;
  const button = element<HTMLButtonElement>('save-wav');
  button.disabled = true;
  try {
    const buffer = sound.recording ?? (await recordingOf(setting.sound));
    // The tail of a room sounds on after the recording.
    const tail = filter.kind === 'convolution' ? Math.max(...filter.routes.map((route) => route.taps.length)) - 1 : 0;
    const whole = [0, 1].map((c) => {
      const channel = new Float32Array(buffer.length + tail);
      channel.set(buffer.getChannelData(Math.min(c, buffer.numberOfChannels - 1)));
      return channel;
    });
    const int16 = setting.kind === 'mean' || (setting.precision === 'int16' && filter.kind !== 'convolution');
    const file = await filterInBackground(await sound.library, filter, whole, setting.rate, int16, (part) =>
      (button.textContent = `${Math.round(100 * part)} %`));
    download(`${stem()}-filtered.wav`, file);
  } catch (error) {
    sayError(error, '');
  }
  button.textContent = 'Filtered WAV';
  button.disabled = !running.filter;
}

// Files that are opened or dropped: coefficients, impulse responses, recordings; and the rooms and
// heads that the page brings along.
import { isAudio, MOST_COEFFICIENT_BYTES } from './files.js';
import { changed, designer, element, loaded, say, sayError, sayNothing, select, setting, sound } from './page.js';
import { useRecording } from './recordings.js';
import { hall, Head, MOST_SECONDS, type ImpulseResponse } from './rooms.js';
import { showKind } from './tabs.js';

export async function useCoefficients(name: string, bytes: Uint8Array): Promise<void> {
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

const NO_FILE = element('file-summary').textContent;

export function showFile(): void {
  if (!setting.file) {
    element('file-summary').textContent = NO_FILE;
    return;
  }
  const { name, kind, b, a } = setting.file;
  const count = (n: number, noun: string) => `${n} ${noun}${n === 1 ? '' : 's'}`;
  const what = kind === 'fir' ? `FIR of ${count(b.length, 'tap')}`
    : kind === 'sections' ? count(b.length / 3, 'second-order section')
    : `direct-form IIR of order ${Math.max(b.length, a.length) - 1}`;
  element('file-summary').textContent = `${name}: ${what}.`;
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

export async function useRoom(file: File): Promise<void> {
  try {
    loaded.rooms.file = await decodeRoom(file);
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

export async function drop(file: File): Promise<void> {
  if (isAudio(file)) await (setting.kind === 'room' ? useRoom(file) : useRecording(file));
  else if (file.size > MOST_COEFFICIENT_BYTES)
    say(`${file.name}: has ${(file.size / 1e6).toFixed(1)} MB; files of coefficients up to ${MOST_COEFFICIENT_BYTES / 1e6} MB are read.`);
  else await useCoefficients(file.name, new Uint8Array(await file.arrayBuffer()));
}

export async function loadRooms(): Promise<void> {
  if (roomFile) loaded.rooms.file = await decodeRoom(roomFile);
  loaded.rooms.hall = hall(setting.rate);
  const [left, right, responses] = await Promise.all([
    ...['left', 'right'].map(async (side) => sound.decode(await (await fetch(`rooms/street-${side}.wav`)).arrayBuffer())),
    fetch(`head-${setting.rate}.bin`).then((response) => response.arrayBuffer()),
  ] as [Promise<AudioBuffer>, Promise<AudioBuffer>, Promise<ArrayBuffer>]);
  loaded.rooms.street = { name: 'Street', channels: [left.getChannelData(0), right.getChannelData(0)] };
  loaded.head = new Head(responses);
}

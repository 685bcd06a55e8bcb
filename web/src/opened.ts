// Files that are opened or dropped: coefficients, impulse responses, recordings; and the rooms and
// heads that the page brings along.
import type { Design } from 'jurn-filter/design';
import { isAudio, MOST_COEFFICIENT_BYTES } from './files.js';
import { changed, designer, element, loaded, say, sayError, sayNothing, select, setting, sound } from './page.js';
import { useRecording } from './recordings.js';
import { hall, Head, MOST_SECONDS, type ImpulseResponse } from './rooms.js';
import { showKind } from './tabs.js';

/** The file of now, for whoever wants it read otherwise. */
let opened: { name: string; bytes: Uint8Array } | null = null;

async function take(name: string, { kind, b, a = [] }: Design): Promise<void> {
  setting.file = { name, kind, b, a };
  await showFile();
  showKind('file');
  changed();
}

export async function useCoefficients(name: string, bytes: Uint8Array): Promise<void> {
  try {
    const design = (await designer).parse(name, bytes, { rate: setting.rate, precision: setting.precision, signs: 'keep' });
    sayNothing();
    opened = { name, bytes };
    await take(name, design);
  } catch (error) {
    sayError(error, '');
  }
}

const NO_FILE = element('file-summary').textContent;

/** What the file was read as, and what else it could be. */
export async function showFile(): Promise<void> {
  const { file } = setting;
  const design = await designer;
  if (file !== setting.file) return;
  element('file-summary').textContent = file ? `${file.name}: read as ${design.describe(file as Design)}.` : NO_FILE;
  const kinds = file && opened?.name === file.name ? (['fir', 'iir', 'sections'] as const).filter((kind) => kind !== file.kind) : [];
  element('instead').replaceChildren(...kinds.flatMap((kind) => {
    try {
      const other = design.parse(opened!.name, opened!.bytes, { rate: setting.rate, precision: setting.precision, signs: 'keep', wanted: kind });
      const button = document.createElement('button');
      button.type = 'button';
      button.textContent = `Read as ${design.describe(other)} instead`;
      button.onclick = () => void take(opened!.name, other);
      return [button];
    } catch {
      return []; // what it cannot be
    }
  }));
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
  const channels = Array.from({ length: buffer.numberOfChannels }, (_, c) => buffer.getChannelData(c));
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

// Files that are opened or dropped: coefficients, impulse responses, recordings; and the rooms and
// heads that the page brings along.
import type { Design } from 'jurn-filter/design';
import { isAudio, load, readCoefficientBytes } from './files.js';
import { changed, designer, element, library, loaded, sayError, sayNothing, select, setting, sound } from './page.js';
import { useRecording } from './recordings.js';
import { hall, Head, MOST_SECONDS, type ImpulseResponse } from './rooms.js';
import { isFitted } from './setting.js';
import { Refused } from './sound.js';
import { showKind } from './tabs.js';

/** The file of now, for whoever wants it read otherwise. */
let opened: { name: string; bytes: Uint8Array } | null = null;

async function take(name: string, { kind, b, a = [], prepared }: Design): Promise<void> {
  setting.file = { name, kind, b, a, prepared };
  setting.channels = null;
  await showFile();
  showKind('file');
  changed();
}

export async function useCoefficients(name: string, bytes: Uint8Array): Promise<void> {
  try {
    if ((await designer).parseChannels(name, bytes, 2, setting.rate)) {
      sayNothing();
      setting.channels = { name, text: new TextDecoder().decode(bytes) };
      setting.file = opened = null;
      await showFile();
      showKind('file');
      return changed();
    }
    const design = await (await designer).read(name, bytes, { rate: setting.rate, precision: setting.precision, signs: 'keep' });
    sayNothing();
    opened = { name, bytes };
    await take(name, design);
  } catch (error) {
    sayError(error, '');
  }
}

/** Files of coefficients that the page brings along. */
export const EXAMPLES: Record<string, string> = {
  'telephone.txt': 'Telephone, FIR of 255 taps', 'dark.txt': 'Dark, 8 sections', 'low-cut.txt': 'Low cut, 2 sections',
};

export async function useExample(file: string): Promise<void> {
  try {
    await useCoefficients(file, new Uint8Array(await load(`coefficients/${file}`, file)));
  } catch (error) {
    sayError(error, '');
  }
}

const NO_FILE = element('file-summary').textContent;

/** What the file was read as, and what else it could be. */
export async function showFile(): Promise<void> {
  const { file, channels } = setting;
  const design = await designer;
  if (file !== setting.file || channels !== setting.channels) return;
  element('file-summary').textContent = channels ? `${channels.name}: read as filters of single channels.` : file ? `${file.name}: read as ${design.describe(file as Design)}.` : NO_FILE;
  const kinds = file && opened?.name === file.name ? (['fir', 'iir', 'sections'] as const).filter((kind) => kind !== file.kind) : [];
  const buttons = await Promise.all(kinds.map(async (kind) => {
    try {
      const other = await design.read(opened!.name, opened!.bytes, { rate: setting.rate, precision: setting.precision, signs: 'keep', wanted: kind });
      const button = document.createElement('button');
      button.type = 'button';
      button.textContent = `Read as ${design.describe(other)} instead`;
      button.onclick = () => void take(opened!.name, other);
      return [button];
    } catch {
      return []; // what it cannot be
    }
  }));
  if (file === setting.file) element('instead').replaceChildren(...buttons.flat());
}

let roomFile: File | null = null;

async function decodeRoom(file: File): Promise<ImpulseResponse> {
  let buffer: AudioBuffer;
  try {
    buffer = await sound.decode(file.name, await file.arrayBuffer());
  } catch (error) {
    throw new Error(error instanceof Refused ? error.message
      : `${file.name}: this browser cannot read it as an impulse response. WAV, AIFF and FLAC are read.`);
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

/** `place` is where it was dropped. */
export async function drop(file: File, place: Element): Promise<void> {
  if (place.closest('[for=coefficients]')) await useCoefficientFile(file);
  else if (place.closest('#fit') || (isFitted(setting) && !isAudio(file))) await (await import('./fit_tab.js')).useMeasurement(file, !!place.closest('[for=target]'));
  else if (isAudio(file)) await (setting.kind === 'room' ? useRoom(file) : useRecording(file));
  else await useCoefficientFile(file);
}

/** A recording is taps where coefficients are asked for. */
export async function useCoefficientFile(file: File): Promise<void> {
  try {
    await useCoefficients(file.name, await readCoefficientBytes(file));
  } catch (error) {
    sayError(error, '');
  }
}

/** What was made at another rate goes; a room of one's own comes along. */
export async function remakeRooms(): Promise<void> {
  loaded.rooms = roomFile ? { file: await decodeRoom(roomFile) } : {};
  loaded.head = null;
}

const isMissing = () =>
  setting.kind === 'head' ? !loaded.head || !loaded.library
    : setting.kind === 'room' && (!loaded.rooms[setting.room] || !loaded.library);

const underWay = new Map<string, Promise<void>>();

/** Loads the room or the head that is chosen; null where it is there already. */
export function bring(): Promise<void> | null {
  if (!isMissing()) return null;
  const { kind, room, rate } = setting;
  const key = `${kind} ${room} ${rate}`;
  let loading = underWay.get(key);
  if (!loading) {
    const both = Promise.all([kind === 'head' ? loadHead(rate) : loadRoom(room, rate), library()]);
    loading = both.then(() => {}).catch((error) => {
      // Of what is no longer wanted nobody needs to know.
      if (kind === setting.kind && (kind === 'head' || room === setting.room)) throw error;
    }).finally(() => underWay.delete(key));
    underWay.set(key, loading);
  }
  return loading;
}

async function loadHead(rate: number): Promise<void> {
  if (loaded.head) return;
  const head = new Head(await load(`head-${rate}.bin`, 'The head'));
  if (rate === setting.rate) loaded.head = head;
}

async function loadRoom(name: string, rate: number): Promise<void> {
  if (loaded.rooms[name]) return;
  const room = name === 'street' ? { name: 'Street', channels: await Promise.all(['left', 'right'].map(async (side) =>
    (await sound.decode('The street', await load(`rooms/street-${side}.wav`, 'The street'))).getChannelData(0))) } : hall(rate);
  if (rate === setting.rate) loaded.rooms[name] = room;
}

// What is heard: the built-in sounds, dropped recordings, the microphone.
import { load } from './files.js';
import { element, input, say, sayError, sayNothing, select, setting, showLink, sound } from './page.js';
import { Refused } from './sound.js';

export const SOUNDS: Record<string, { name: string; file: string }> = {
  music: { name: 'Music', file: 'sounds/music.flac' },
  speech: { name: 'Speech', file: 'sounds/speech.wav' },
  guitar: { name: 'Guitar', file: 'sounds/guitar.flac' },
  drums: { name: 'Drums', file: 'sounds/drums.flac' },
};

/** Decoded at the rate of now, by what the list of sounds calls them. */
export const recordings = new Map<string, Promise<AudioBuffer>>();
const dropped = new Map<string, File>();

export function recordingOf(key: string): Promise<AudioBuffer> {
  let recording = recordings.get(key);
  if (!recording) {
    recording = bytesOf(key).then((bytes) => sound.decode(SOUNDS[key]?.name ?? key.slice(5), bytes));
    recordings.set(key, recording);
    // What failed is tried again.
    recording.catch(() => recordings.get(key) === recording && recordings.delete(key));
  }
  return recording;
}

/** Loads what Play needs. If that fails, Play says so. */
export function prefetch(): void {
  void sound.library.catch(() => {});
  if (!sound.recording && select('sound').value !== 'microphone') recordingOf(select('sound').value).catch(() => {});
}

async function bytesOf(key: string): Promise<ArrayBuffer> {
  const own = dropped.get(key);
  if (own) return own.arrayBuffer();
  const { file, name } = SOUNDS[key] ?? SOUNDS.music;
  return load(file, name);
}

/** What was chosen last and is being read; Play waits for it instead of playing what was there before. */
let coming: Promise<void> = Promise.resolve();

export const chooseSound = (): Promise<void> => (coming = choose());
export const useRecording = (file: File): Promise<void> => (coming = read(file));

async function choose(): Promise<void> {
  const key = select('sound').value;
  try {
    if (key === 'microphone') {
      await sound.listen();
    } else {
      await sound.use(await recordingOf(key));
      if (key in SOUNDS) setting.sound = key;
      void showLink();
    }
  } catch (error) {
    sayError(error, '');
    select('sound').value = setting.sound in SOUNDS ? setting.sound : 'music';
  }
  showPlaying();
}

export async function togglePlay(): Promise<void> {
  sound.wake();
  try {
    if (sound.playing) {
      sound.stop();
    } else if (select('sound').value === 'microphone') {
      await sound.listen();
    } else {
      await coming;
      if (!sound.recording) await sound.use(await recordingOf(select('sound').value));
      await sound.play();
    }
  } catch (error) {
    sayError(error, '');
  }
  showPlaying();
}

export function showPlaying(): void {
  element('play').innerHTML = sound.playing
    ? '<span aria-hidden="true">❚❚</span> Pause' : '<span aria-hidden="true">▶</span> Play';
  input('position').disabled = sound.microphone;
}

let hearOriginal = false;

export function hear(original: boolean): void {
  hearOriginal = original;
  sound.hearOriginal = original;
  for (const [id, chosen] of [['hear-original', original], ['hear-filtered', !original]] as const) {
    element(id).setAttribute('aria-checked', String(chosen));
    element(id).tabIndex = chosen ? 0 : -1;
  }
}

export const toggleOriginal = () => {
  if (!sound.blind) hear(!hearOriginal);
};

async function read(file: File): Promise<void> {
  try {
    const bytes = await file.arrayBuffer();
    sayNothing();
    const buffer = await sound.decode(file.name, bytes);
    const key = `file:${file.name}`;
    if (!dropped.has(key)) select('sound').add(new Option(file.name, key));
    dropped.set(key, file);
    recordings.set(key, Promise.resolve(buffer));
    select('sound').value = key;
    await sound.use(buffer);
  } catch (error) {
    say(error instanceof Refused ? error.message : `${file.name}: this browser cannot read it as a recording. WAV, AIFF, FLAC, MP3, Ogg and M4A are read.`);
  }
}

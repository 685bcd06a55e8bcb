// What is heard: the built-in sounds, dropped recordings, the microphone.
import { element, input, say, sayError, sayNothing, select, setting, showLink, sound } from './page.js';

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

export async function chooseSound(): Promise<void> {
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

export function showPlaying(): void {
  element('play').innerHTML = sound.playing
    ? '<span aria-hidden="true">❚❚</span> Pause' : '<span aria-hidden="true">▶</span> Play';
  input('position').disabled = sound.microphone;
}

let hearOriginal = false;

export function hear(original: boolean): void {
  hearOriginal = original;
  sound.hearOriginal = original;
  element('hear-original').setAttribute('aria-checked', String(original));
  element('hear-filtered').setAttribute('aria-checked', String(!original));
}

export const toggleOriginal = () => {
  if (!sound.blind) hear(!hearOriginal);
};

export async function useRecording(file: File): Promise<void> {
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

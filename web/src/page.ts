// What the parts of the page share: its elements, its state, messages, and what follows a change.
import { Library, type ChannelFilters, type Filter } from 'jurn-filter';
import { DesignError, loadDesigner, type Design } from 'jurn-filter/design';
import { Chart } from './chart.js';
import type { Head, ImpulseResponse } from './rooms.js';
import { fromHash, fromJson, initial, LONGEST_LINK, toHash, type Setting } from './setting.js';
import { Sound } from './sound.js';

export const element = <T extends HTMLElement>(id: string) => document.getElementById(id) as T;
export const input = (id: string) => element<HTMLInputElement>(id);
export const select = (id: string) => element<HTMLSelectElement>(id);

export const setting: Setting = location.hash.length > 1 ? await fromHash(location.hash) : initial();
export const sound = new Sound(setting.rate);
export const designer = loadDesigner();
/** The library on this thread, for what is not heard. */
export const library = async (): Promise<Library> => (loaded.library ??= new Library(await sound.library));
export const chart = new Chart(element<HTMLCanvasElement>('chart'));

/** What runs now, and what is known of it. */
export const running: {
  filter: Filter | null;
  design: Design | null;
  /** Of a room or a head, for a recording of so many channels. */
  response: ((inputs: number) => Float32Array[]) | null;
  /** Of a text that filters single channels, for a recording of so many. */
  channels: ((inputs: number) => ChannelFilters) | null;
} = { filter: null, design: null, response: null, channels: null };
/** What the rate of now has made of rooms and heads, and what connects them. */
export const loaded: { rooms: Record<string, ImpulseResponse>; head: Head | null; library: Library | null } =
  { rooms: {}, head: null, library: null };

let messageTimer = 0;

export function say(sentence: string): void {
  const message = element('message');
  message.textContent = sentence;
  message.hidden = false;
  clearTimeout(messageTimer);
  messageTimer = window.setTimeout(() => (message.hidden = true), 12000);
}

/** What was wrong no longer matters once something works. */
export function sayNothing(): void {
  element('message').hidden = true;
}

export function sayError(error: unknown, what: string): void {
  if (error instanceof DesignError || error instanceof RangeError || error instanceof Error)
    say(what ? `${what}: ${error.message}` : error.message);
  else say(`${what} failed.`);
}

let queued = false;
let hashTimer = 0;
let settleTimer = 0;
let update: (settled: boolean) => Promise<void>;

/** What a change calls, and once more when nothing has changed for a while. */
export function whenChanged(call: typeof update): void {
  update = call;
}

let shown = location.hash;
const past: string[] = [JSON.stringify(setting)];
let at = 0; // what of the past is now

function showHistory(): void {
  element<HTMLButtonElement>('undo').disabled = at === 0;
  element<HTMLButtonElement>('redo').disabled = at === past.length - 1;
}

/** Remembers the setting, and puts it into the address; says whether a link holds it whole. */
export async function showLink(): Promise<{ link: string; whole: boolean }> {
  clearTimeout(hashTimer);
  hashTimer = 0;
  const now = JSON.stringify(setting);
  if (now !== past[at]) {
    past.splice(++at, past.length, now);
    if (past.length > 200) past.splice(0, past.length - 200);
    at = past.length - 1;
  }
  showHistory();
  let hash = '#' + (await toHash(setting));
  const whole = hash.length <= LONGEST_LINK;
  if (!whole) hash = '#' + (await toHash({ ...setting, file: null, channels: null }));
  // A link that was pasted meanwhile is not overwritten: it is about to be taken.
  if (location.hash === shown && hash !== shown) history.replaceState(null, '', (shown = hash));
  return { link: location.href, whole };
}

let take: (wanted: Setting) => Promise<void>;

/** A setting from elsewhere: of another link in this tab, or of before. */
export function whenReplaced(call: typeof take): void {
  take = call;
  addEventListener('hashchange', () => {
    if (location.hash === shown) return;
    shown = location.hash;
    void fromHash(shown).then(take);
  });
}

export async function undo(steps: number): Promise<void> {
  if (hashTimer) await showLink(); // what was changed a moment ago
  if (past[at + steps] === undefined) return;
  at += steps;
  showHistory();
  await take(fromJson(past[at]));
}

/** After a change of the setting: once per frame, however many changes there were. */
export function changed(): void {
  // Browsers refuse to change the address many times a second.
  clearTimeout(hashTimer);
  hashTimer = window.setTimeout(() => void showLink(), 250);
  if (queued) return;
  queued = true;
  requestAnimationFrame(() => {
    queued = false;
    const call = (settled: boolean) => void update(settled).catch((error) => sayError(error, ''));
    call(false);
    clearTimeout(settleTimer);
    settleTimer = window.setTimeout(() => call(true), 400);
  });
}

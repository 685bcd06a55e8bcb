// What the parts of the page share: its elements, its state, messages, and what follows a change.
import type { Filter } from 'jurn-filter';
import { DesignError, loadDesigner, type Design } from 'jurn-filter/design';
import { Chart } from './chart.js';
import type { Head, ImpulseResponse } from './rooms.js';
import { fromHash, initial, toHash } from './setting.js';
import { Sound } from './sound.js';

export const element = <T extends HTMLElement>(id: string) => document.getElementById(id) as T;
export const input = (id: string) => element<HTMLInputElement>(id);
export const select = (id: string) => element<HTMLSelectElement>(id);

export const setting = location.hash.length > 1 ? fromHash(location.hash) : initial();
export const sound = new Sound(setting.rate);
export const designer = loadDesigner();
export const chart = new Chart(element<HTMLCanvasElement>('chart'));

/** What runs now, and what is known of it. */
export const running: { filter: Filter | null; design: Design | null } = { filter: null, design: null };
/** What the rate of now has made of rooms and heads. */
export const loaded: { rooms: Record<string, ImpulseResponse>; head: Head | null } = { rooms: {}, head: null };

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

export function showLink(): void {
  clearTimeout(hashTimer);
  history.replaceState(null, '', '#' + toHash(setting));
}

/** After a change of the setting: once per frame, however many changes there were. */
export function changed(): void {
  // Browsers refuse to change the address many times a second.
  clearTimeout(hashTimer);
  hashTimer = window.setTimeout(showLink, 250);
  if (queued) return;
  queued = true;
  requestAnimationFrame(() => {
    queued = false;
    void update(false);
    clearTimeout(settleTimer);
    settleTimer = window.setTimeout(() => void update(true), 400);
  });
}

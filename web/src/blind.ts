// The blind test: which of original and filtered is X? With the score and how likely guessing gives it.
import { byChance, perCent } from './chance.js';
import { element, input, setting, sound } from './page.js';
import { hear, togglePlay } from './recordings.js';

let x = false; // whether X is the original
let right = 0, asked = 0;

const buttons = () => document.querySelectorAll<HTMLElement>('[data-hear]');

function listen(which: string): void {
  sound.hearOriginal = which === 'x' ? x : which === 'original';
  buttons().forEach((button) => button.classList.toggle('primary', button.dataset.hear === which));
}

function next(): void {
  x = crypto.getRandomValues(new Uint8Array(1))[0] % 2 === 0;
  listen('x');
}

function show(last = ''): void {
  const chance = asked > 0 ? `${right} of ${asked} right; guessing does as well in ${perCent(byChance(right, asked))} % of tests. ` : '';
  element('score').textContent = `${last}${chance}Listen to A, B and X as often as you like. Both are as loud; nothing on the page shows which one sounds.`;
}

function end(): void {
  sound.blind = false;
  sound.equalLoudness = input('equal').checked;
  element('abx').hidden = true;
  hear(false);
}

export function wireBlind(): void {
  element('blind').onclick = () => {
    const begins = element('abx').hidden !== false;
    element('blind').setAttribute('aria-expanded', String(begins));
    element('blind').textContent = begins ? 'End the test' : 'Blind test';
    for (const id of ['hear-original', 'hear-filtered', 'equal']) input(id).disabled = begins;
    if (!begins) return end();
    [right, asked] = [0, 0];
    element('abx').hidden = false;
    sound.blind = true;
    sound.equalLoudness = true;
    next();
    show();
    if (!sound.playing) void togglePlay();
  };
  buttons().forEach((button) => (button.onclick = () => listen(button.dataset.hear!)));
  document.querySelectorAll<HTMLElement>('[data-answer]').forEach((button) => {
    button.onclick = () => {
      const hit = (button.dataset.answer === 'original') === x;
      ++asked;
      if (hit) ++right;
      const was = x ? 'A, the original' : `B, the ${setting.kind === 'room' ? 'room' : 'filtered'}`;
      next();
      show(`${hit ? 'Right' : 'No'}: X was ${was}. `);
    };
  });
}

// The tabs of filters and of views.
import { placeHandles } from './bands.js';
import type { View } from './chart.js';
import { changed, chart, element, sayError, setting } from './page.js';
import type { Kind } from './setting.js';

export function showKind(kind: Kind): void {
  setting.kind = kind;
  document.querySelectorAll<HTMLElement>('[data-kind]').forEach((tab) => {
    const chosen = tab.dataset.kind === kind;
    tab.setAttribute('aria-selected', String(chosen));
    tab.tabIndex = chosen ? 0 : -1;
    element(`kind-${tab.dataset.kind}`).hidden = !chosen;
  });
  if (kind === 'design') void import('./design_tab.js').then(({ showDesign }) => showDesign()).catch((error) => sayError(error, 'The design tab'));
  document.querySelector<HTMLElement>('.precision')!.hidden = kind === 'room' || kind === 'head' || (kind === 'file' && setting.channels !== null);
  showHint();
}

const touch = matchMedia('(pointer: coarse)');
touch.addEventListener('change', showHint);

/** What can be done with the chart as it is now, on this device. */
function showHint(): void {
  const { kind } = setting;
  element('chart-hint').textContent =
    kind === 'head' ? (chart.view === 'roots' ? '' : 'What each ear gets from the source.')
    : kind !== 'eq' ? ''
    : chart.view !== 'magnitude' ? 'Bands are dragged in the view of the magnitude.'
    : touch.matches ? 'Drag a band; two fingers change its width, a long press chooses its type or hears it alone. A double tap adds a band, or resets one.'
    : 'Drag a band; the wheel changes its width, the right button chooses its type or hears it alone. A double click adds a band, or resets one.';
}

export function showView(view: View): void {
  chart.view = view;
  document.querySelectorAll<HTMLElement>('[data-view]').forEach((tab) => {
    tab.setAttribute('aria-selected', String(tab.dataset.view === view));
    tab.tabIndex = tab.dataset.view === view ? 0 : -1;
  });
  showHint();
  chart.fit();
  placeHandles();
  chart.draw();
  changed(); // the responses in time are computed where they are looked at
}

/** Arrow keys go from tab to tab, Home and End to the first and the last. */
export function wireTabs(selector: string, choose: (tab: HTMLElement) => void): void {
  const tabs = [...document.querySelectorAll<HTMLElement>(selector)];
  tabs.forEach((tab, i) => {
    tab.onclick = () => choose(tab);
    tab.onkeydown = (event) => {
      const to = { ArrowRight: i + 1, ArrowLeft: i - 1, Home: 0, End: -1 }[event.key];
      if (to === undefined) return;
      event.preventDefault();
      const next = tabs[(to + tabs.length) % tabs.length];
      next.focus();
      choose(next);
    };
  });
}

// The tabs of filters and of views.
import { placeHandles } from './bands.js';
import type { View } from './chart.js';
import { chart, element, setting } from './page.js';
import type { Kind } from './setting.js';

export function showKind(kind: Kind): void {
  setting.kind = kind;
  document.querySelectorAll<HTMLElement>('[data-kind]').forEach((tab) => {
    const chosen = tab.dataset.kind === kind;
    tab.setAttribute('aria-selected', String(chosen));
    tab.tabIndex = chosen ? 0 : -1;
    element(`kind-${tab.dataset.kind}`).hidden = !chosen;
  });
  document.querySelector<HTMLElement>('.precision')!.hidden = kind === 'room' || kind === 'head';
  element('chart-hint').textContent = kind === 'eq'
    ? 'Drag a band; the wheel changes its width.' : kind === 'head' ? 'What each ear gets from the source.' : '';
}

export function showView(view: View): void {
  chart.view = view;
  document.querySelectorAll<HTMLElement>('[data-view]').forEach((tab) => {
    tab.setAttribute('aria-selected', String(tab.dataset.view === view));
    tab.tabIndex = tab.dataset.view === view ? 0 : -1;
  });
  chart.fit();
  placeHandles();
  chart.draw();
}

/** Arrow keys go from tab to tab. */
export function wireTabs(selector: string, choose: (tab: HTMLElement) => void): void {
  const tabs = [...document.querySelectorAll<HTMLElement>(selector)];
  tabs.forEach((tab, i) => {
    tab.onclick = () => choose(tab);
    tab.onkeydown = (event) => {
      const step = event.key === 'ArrowRight' ? 1 : event.key === 'ArrowLeft' ? -1 : 0;
      if (step === 0) return;
      event.preventDefault();
      const next = tabs[(i + step + tabs.length) % tabs.length];
      next.focus();
      choose(next);
    };
  });
}

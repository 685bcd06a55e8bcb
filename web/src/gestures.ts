// What the chart does under the pointer, away from the handles: it tells its values, a double click
// adds a band, and two fingers change the width of the chosen one.
import { addBand, bandIsDragged, chosenQ, letGo, setChosenQ } from './bands.js';
import { chart, element, setting } from './page.js';
import { clamp, LIMITS } from './setting.js';

const bandsAreShown = () => setting.kind === 'eq' && chart.view === 'magnitude';

const apart = ([a, b]: TouchList) => Math.max(20, Math.hypot(a.clientX - b.clientX, a.clientY - b.clientY));

export function wireChart(): void {
  const view = element('view'), readout = element<HTMLOutputElement>('readout');
  const place = (event: MouseEvent) => {
    const box = view.getBoundingClientRect();
    return { x: event.clientX - box.left, y: event.clientY - box.top };
  };
  const frequencyAt = (x: number) => clamp(chart.frequencyAt(x), [LIMITS.frequency[0], chart.top]);
  view.onpointermove = (event) => {
    if (!bandIsDragged()) readout.value = chart.readout(frequencyAt(place(event).x));
  };
  view.onpointerleave = () => (readout.value = '');
  view.ondblclick = (event) => {
    const { x, y } = place(event);
    if (bandsAreShown()) addBand(frequencyAt(x), chart.valueAt(y) - setting.preamp);
  };

  let pinch: { apart: number; q: number } | null = null;
  view.addEventListener('touchstart', (event) => {
    const q = chosenQ();
    if (event.touches.length !== 2 || q === undefined || !bandsAreShown()) return;
    event.preventDefault();
    letGo();
    pinch = { apart: apart(event.touches), q };
  }, { passive: false });
  view.addEventListener('touchmove', (event) => {
    if (!pinch || event.touches.length !== 2) return;
    event.preventDefault();
    // Further apart is wider.
    setChosenQ((pinch.q * pinch.apart) / apart(event.touches));
  }, { passive: false });
  view.ontouchend = view.ontouchcancel = () => (pinch = null);
}

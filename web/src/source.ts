// The source that is moved around the head.
import { changed, element, input, setting } from './page.js';
import { clamp, LIMITS } from './setting.js';

const RADIUS = 100 / 240; // of the stage's width
const toRadius = (distance: number) => RADIUS * Math.pow(distance / LIMITS.distance[1], 0.45);
const toDistance = (radius: number) => LIMITS.distance[1] * Math.pow(radius / RADIUS, 1 / 0.45);

export function placeSource(): void {
  const source = element('source');
  const angle = (setting.azimuth * Math.PI) / 180, radius = toRadius(setting.distance);
  source.style.left = `${50 + 100 * radius * Math.sin(angle)}%`;
  source.style.top = `${50 - 100 * radius * Math.cos(angle)}%`;
  source.setAttribute('aria-valuemin', '-180');
  source.setAttribute('aria-valuemax', '180');
  source.setAttribute('aria-valuenow', String(Math.round(setting.azimuth)));
  const side = setting.azimuth < 0 ? 'left' : 'right';
  source.setAttribute('aria-valuetext',
    `${Math.abs(Math.round(setting.azimuth))} degrees ${side}, ${setting.distance.toFixed(1)} metres`);
  if (document.activeElement !== input('azimuth')) input('azimuth').value = String(Math.round(setting.azimuth));
  if (document.activeElement !== input('distance')) input('distance').value = setting.distance.toFixed(1);
}

function moveSource(azimuth: number, distance: number): void {
  setting.azimuth = ((((azimuth + 180) % 360) + 360) % 360) - 180;
  setting.distance = clamp(distance, LIMITS.distance);
  placeSource();
  changed();
}

export function wireSource(): void {
  const source = element<HTMLButtonElement>('source');
  source.onpointerdown = (event) => source.setPointerCapture(event.pointerId);
  source.onpointermove = (event) => {
    if (!source.hasPointerCapture(event.pointerId)) return;
    const box = element('stage').getBoundingClientRect();
    const x = (event.clientX - box.left) / box.width - 0.5, y = (event.clientY - box.top) / box.height - 0.5;
    moveSource((Math.atan2(x, -y) * 180) / Math.PI, toDistance(Math.min(Math.hypot(x, y), RADIUS)));
  };
  source.onkeydown = (event) => {
    const { azimuth, distance } = setting;
    const step = event.shiftKey ? 1 : 5;
    const moves: Record<string, [number, number]> = {
      ArrowRight: [azimuth + step, distance], ArrowLeft: [azimuth - step, distance],
      ArrowUp: [azimuth, distance * 1.1], ArrowDown: [azimuth, distance / 1.1],
      PageUp: [azimuth, distance * 1.5], PageDown: [azimuth, distance / 1.5],
      Home: [0, distance], End: [-180, distance], // in front, behind
    };
    const move = moves[event.key];
    if (!move) return;
    event.preventDefault();
    moveSource(...move);
  };
  input('azimuth').oninput = () => {
    if (Number.isFinite(input('azimuth').valueAsNumber)) moveSource(input('azimuth').valueAsNumber, setting.distance);
  };
  input('distance').oninput = () => {
    if (Number.isFinite(input('distance').valueAsNumber)) moveSource(setting.azimuth, input('distance').valueAsNumber);
  };
}

// Examples that are heard with one click. A recording of one's own stays.
import { element, input, setting, sound } from './page.js';
import { useExample } from './opened.js';
import { hear, togglePlay } from './recordings.js';
import type { Setting } from './setting.js';

const PRESETS: Record<string, Partial<Setting>> = {
  telephone: { sound: 'speech', kind: 'file', precision: 'double' },
  hall: { sound: 'guitar', kind: 'room', room: 'hall', wet: 55 },
  head: { sound: 'drums', kind: 'head', azimuth: -90, distance: 0.8 },
};

export function wirePresets(replace: (wanted: Setting) => Promise<void>): void {
  document.querySelectorAll<HTMLElement>('[data-preset]').forEach((button) => {
    button.onclick = async () => {
      sound.wake();
      const key = button.dataset.preset!;
      input('orbit').checked = key === 'head';
      if (key === 'telephone') await useExample('telephone.txt');
      await replace({ ...setting, ...PRESETS[key] });
      if (!sound.blind) hear(false);
      if (!sound.playing) await togglePlay();
      if (matchMedia('(max-width: 860px)').matches) element('view').scrollIntoView({ block: 'nearest' });
    };
  });
}

// The panel that runs the checksum program here and compares its lines with the native build's.
import { hasSimd } from 'jurn-filter';
import { load } from './files.js';
import { element, sayError } from './page.js';

export async function checkBits(): Promise<void> {
  const button = element<HTMLButtonElement>('run-checksum');
  const summary = element('bits-summary');
  button.disabled = true;
  summary.textContent = 'Running…';
  try {
    const expected = new TextDecoder().decode(await load('checksum.txt', 'The sums of the native build')).trim().split('\n').map((line) => line.split(/\s+/));
    const results: Record<string, Map<string, string>> = {};
    const simd = hasSimd();
    const builds = simd ? ['simd', 'scalar'] : ['scalar'];
    await Promise.all(builds.map((build) => new Promise<void>((done, failed) => {
      const worker = new Worker(new URL('./checksum.js', import.meta.url), { type: 'module' });
      worker.onmessage = ({ data }) => {
        worker.terminate();
        if (data.error) return failed(new Error(data.error));
        results[build] = new Map(data.text.trim().split('\n').map((line: string) => line.split(/\s+/)));
        done();
      };
      worker.onerror = () => failed(new Error('The program cannot be loaded.'));
      worker.postMessage({ build, url: new URL(`./checksum-${build}.wasm`, import.meta.url).href });
    })));
    let same = 0;
    const rows = expected.map(([name, sum]) => {
      const row = document.createElement('tr');
      const cell = (text: string, className = '') => {
        const td = row.appendChild(document.createElement('td'));
        td.textContent = text;
        td.className = className;
      };
      cell(name.replaceAll('_', ' '));
      const code = document.createElement('code');
      code.textContent = sum;
      row.appendChild(document.createElement('td')).append(code);
      for (const build of ['simd', 'scalar']) {
        const found = results[build]?.get(name);
        if (found === undefined) cell('not run');
        else cell(found === sum ? '✓ same' : found, found === sum ? 'same' : 'different');
        if (found === sum) ++same;
      }
      return row;
    });
    element('bits').replaceChildren(...rows);
    document.querySelector<HTMLElement>('.bits')!.hidden = false;
    const all = expected.length * builds.length;
    summary.textContent = same === all
      ? `All ${expected.length} kinds give the bits of the native build, ${simd ? 'with and without' : 'here without'} vectors.`
      : `${all - same} of ${all} lines differ from the native build. Please tell us about this browser.`;
    summary.className = `summary ${same === all ? 'same' : 'different'}`;
  } catch (error) {
    sayError(error, 'The check');
    summary.textContent = 'The check could not run.';
  }
  button.disabled = false;
}

// What filters and designs have to be, said in sentences: the one check of streams, of designs and
// of settings that come from outside.
import type { ChannelFilters, Convolution, Filter, Fir, Iir, Numbers, Sections, Shape } from './filters.js';

const MOST_BLOCK = 4096;
const MOST_CHANNELS = 16;
/** @internal */
export const MOST_TAPS = 1048576;

/** @internal */
export function check(holds: boolean, message: string): asserts holds {
  if (!holds) throw new RangeError(message);
}

/** @internal */
export function checkShape({ inputs, outputs, block }: Shape): void {
  const isCount = (n: number, most: number) => Number.isInteger(n) && n >= 1 && n <= most;
  check(isCount(inputs, MOST_CHANNELS), `a stream of ${inputs} inputs; 1 to ${MOST_CHANNELS} are accepted`);
  check(isCount(outputs, MOST_CHANNELS), `a stream of ${outputs} outputs; 1 to ${MOST_CHANNELS} are accepted`);
  check(isCount(block, MOST_BLOCK), `blocks of ${block} frames; 1 to ${MOST_BLOCK} are accepted`);
}

function checkNumbers(name: string, values: Numbers, least: number, most: number): void {
  check(typeof values === 'object' && values !== null && Number.isInteger(values.length),
        `${name} is ${values === undefined ? 'missing' : 'no array'}; an array of numbers is needed`);
  check(values.length >= least && values.length <= most,
        `${name} has ${values.length} coefficients; ${least} to ${most} are accepted`);
  for (let i = 0; i < values.length; ++i)
    check(Number.isFinite(values[i]), `${name}[${i}] is ${values[i]}; a finite number is needed`);
}

/** @internal */
export function checkObject(filter: unknown): asserts filter is Filter {
  check(typeof filter === 'object' && filter !== null, `${String(filter)} is no filter; an object with a kind is needed`);
}

/** @internal */
export function checkPrecision(precision: unknown): void {
  check(precision === undefined || precision === 'double' || precision === 'int16',
        `the precision '${String(precision)}'; 'double' and 'int16' are accepted`);
}

/**
 * Throws a RangeError with a sentence where coefficients are missing, too many, not finite, or do
 * not go together. `most` is the length of an array that the user of the design takes.
 */
export function checkDesign(design: Fir | Iir | Sections, most = MOST_TAPS): void {
  checkObject(design);
  const { kind, precision } = design;
  check(kind === 'fir' || kind === 'iir' || kind === 'sections', `'${String(kind)}' is no kind of design`);
  checkPrecision(precision);
  checkNumbers('b', design.b, 1, most);
  if (design.kind === 'fir') return;
  const { a, b } = design;
  checkNumbers('a', a, 1, most);
  if (kind === 'iir') {
    check(a[0] === 1, `a starts with ${a[0]}, not with 1`);
    return;
  }
  check(b.length % 3 === 0 && a.length === b.length,
        `b has ${b.length} and a ${a.length} coefficients; each takes three per section`);
  for (let i = 0; i < a.length; i += 3)
    check(a[i] === 1, `section ${i / 3}: a starts with ${a[i]}, not with 1`);
}

/** @internal */
export function checkChannels({ steps }: ChannelFilters, shape: Shape): void {
  check(Array.isArray(steps), 'steps are missing; an array of channels and design is needed');
  check(shape.inputs === shape.outputs, 'filters of single channels need as many outputs as inputs');
  steps.forEach((step, i) => {
    check(typeof step === 'object' && step !== null && Array.isArray(step.channels), `step ${i} has no channels`);
    check(step.channels.length > 0 && step.channels.every((c: number) => Number.isInteger(c) && c >= 0 && c < shape.inputs) &&
            new Set(step.channels).size === step.channels.length,
          `step ${i} is for the channels ${step.channels.join(', ')}; the stream has ${shape.inputs}, counted from 0`);
    checkDesign(step.design);
    check(step.design.kind === 'sections', `step ${i} is no filter of sections`);
  });
}

/** @internal */
export function checkConvolution({ routes, taps, precision }: Omit<Convolution, 'kind'>, shape: Shape): void {
  checkPrecision(precision);
  check(Array.isArray(routes), 'routes are missing; an array of input, output and taps is needed');
  routes.forEach((route, i) => {
    check(typeof route === 'object' && route !== null, `route ${i} is ${String(route)}`);
    const { input, output, taps: b } = route;
    check(Number.isInteger(input) && input >= 0 && input < shape.inputs &&
            Number.isInteger(output) && output >= 0 && output < shape.outputs,
          `route ${i} leads from input ${input} to output ${output}, ` +
            `the stream has ${shape.inputs} and ${shape.outputs}`);
    check(b === undefined || b === null || b.length !== 0, `route ${i} has no taps`);
    checkNumbers(`routes[${i}].taps`, b, 1, MOST_TAPS);
  });
  const longest = routes.reduce((most, route) => Math.max(most, route.taps.length), 1);
  const reserved = taps ?? longest;
  check(Number.isInteger(reserved) && reserved >= longest && reserved <= MOST_TAPS,
        `a convolution of ${Math.max(reserved, longest)} taps; ` +
          `the longest route up to ${MOST_TAPS} are accepted`);
}

// The arithmetic of a blind test.

/** How likely it is to guess at least `hits` of `trials` right. */
export function byChance(hits: number, trials: number): number {
  let sum = 0, ways = 1;
  for (let k = 0; k <= trials; ++k) {
    if (k >= hits) sum += ways;
    ways = (ways * (trials - k)) / (k + 1);
  }
  return sum / Math.pow(2, trials);
}

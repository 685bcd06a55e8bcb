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

/** A chance in per cent as people write it: "100", "69", "0.098". */
export function perCent(chance: number): string {
  if (chance >= 0.1) return (100 * chance).toFixed(0);
  return chance < 1e-5 ? 'less than 0.001' : `${+(100 * chance).toPrecision(2)}`;
}

/* The levels of a convolution: which partition sizes cost least. Whole numbers alone decide, so
 * every machine decides alike.
 *
 * The unit of cost is the sum over one chunk of one partition. */
#include "../../../../common/exact_arithmetic.h"

#include "../../../../common/fast_convolution.h"
#include "convolution.h"

namespace {

/** What a call costs beyond transforms and sums, and a chunk beyond its partitions. */
const int call_cost = 20, chunk_cost = 2;

/** Windows and partitions of a level that a small second cache holds; others cost twice. */
const int cached_floats = 32768;

int transform_of(int frames) {
  int N = 32;
  while (N < frames) N *= 2;
  return N;
}

int ceiling(int x, int y) {
  return (x + y - 1) / y;
}

ConvolutionLevel level_of(int N, int hop, int calls, int first) {
  const int phases = (N - hop + 1) / hop;
  return {N, hop, calls, phases, first, 0, 0};
}

/** Per call, times 4096. `even` is the mean where everything is in the first cache. */
struct Cost {
  long long mean, even, dearest;
};

/** Counts the longest route's partitions, and the cost of as many such routes as channels. */
Cost count(ConvolutionPlan* plan, const Convolution_shape* shape) {
  const long long inputs = shape->inputs, outputs = shape->outputs;
  const long long routes = inputs > outputs ? inputs : outputs;
  Cost cost = {0, 0, 0};
  for (int k = 0; k < plan->levels; ++k) {
    ConvolutionLevel* const level = &plan->level[k];
    level->partitions = JURN_partitions(plan, k, shape->taps);
    level->slots = level->partitions + 1;
    const long long partitions = level->partitions, chunks = level->N / chunk_floats;
    const long long transform = 4096LL * JURN_transform_cost(level->N);
    const long long fixed = 4096 * (routes * chunks * chunk_cost + (k == 0 ? call_cost : 0)) +
                            (inputs + outputs) * transform;
    const long long products = 4096 * routes * chunks * partitions;
    const bool cached = partitions * level->N * 2 <= cached_floats;
    const long long even = (fixed + products) / level->calls;
    cost.mean += (fixed + (cached ? 1 : 2) * products) / level->calls;
    cost.even += even;
    const long long piece_of_transform = JURN_fft_pieces(level->N) > 1 ? transform / 4 : transform;
    const long long piece =
        piece_of_transform > 4096 * most_products ? piece_of_transform : 4096 * most_products;
    cost.dearest += k > 0 && piece > even ? piece : even;
  }
  return cost;
}

}  // namespace

int JURN_transform_cost(int N) {
  int log2 = 0;
  while (1 << log2 < N) ++log2;
  return N / 32 * log2 * 5 / 8 + 4;
}

/* Piece 0 is the transform of N/4, piece -1 all. */
int JURN_piece_cost(int N, int piece) {
  const int pieces = JURN_fft_pieces(N);
  if (pieces == 1 || piece < 0) return JURN_transform_cost(N);
  const int quarter = JURN_transform_cost(N / 4), others = JURN_transform_cost(N) - quarter;
  return piece == 0 ? quarter : others * piece / (pieces - 1) - others * (piece - 1) / (pieces - 1);
}

int JURN_partitions(const ConvolutionPlan* plan, int level, int blen) {
  const ConvolutionLevel* const l = &plan->level[level];
  if (level + 1 < plan->levels && blen > plan->level[level + 1].first)
    blen = plan->level[level + 1].first;
  return blen <= l->first ? 0 : ceiling(blen - l->first, l->phases * l->hop);
}

void JURN_plan_convolution(ConvolutionPlan* plan, const Convolution_shape* shape) {
  const int block = shape->block, taps = shape->taps;
  const int shortest = transform_of(2 * block);
  long long least = -1;
  const auto consider = [&](ConvolutionPlan candidate) {
    const Cost cost = count(&candidate, shape);
    if (10 * cost.dearest > 17 * cost.even && candidate.levels > 1) return;
    if (least >= 0 && cost.mean >= least) return;
    least = cost.mean;
    *plan = candidate;
  };
  for (int N0 = shortest; N0 <= 4 * shortest && N0 <= JURN_FFT_MAX; N0 *= 2) {
    ConvolutionPlan candidate = {1, {level_of(N0, block, 1, 0), {}, {}}};
    consider(candidate);
    for (int N1 = 2 * N0; N1 <= JURN_FFT_MAX; N1 *= 2) {
      const int calls1 = N1 / 2 / block;
      const int first1 = 2 * calls1 * block;
      if (first1 >= taps) break;
      candidate.levels = 2;
      candidate.level[1] = level_of(N1, calls1 * block, calls1, first1);
      consider(candidate);
      for (int N2 = 2 * N1; N2 <= JURN_FFT_MAX; N2 *= 2) {
        const int calls2 = N2 / 2 / block;
        const int first2 = 2 * calls2 * block;
        if (first2 >= taps) break;
        candidate.levels = 3;
        candidate.level[2] = level_of(N2, calls2 * block, calls2, first2);
        consider(candidate);
      }
    }
  }
}

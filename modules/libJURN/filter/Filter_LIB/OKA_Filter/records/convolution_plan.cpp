/* The levels of a convolution: which partition sizes cost least. Whole numbers alone decide, so
 * every machine decides alike. */
#include "../../../../common/exact_arithmetic.h"

#include "../../../../common/fast_convolution.h"
#include "convolution.h"

namespace {

/* In steps of transforms, as measured with AVX2 and AVX-512 on long responses: a chunk of a sum, a
 * chunk of a spectrum put in its place, and in each call every level's input or output. */
const int chunk_cost = 10, put_cost = 5, channel_cost = 15;

/** A product of one chunk costs by the place that windows and partitions of a level fit: a small
 * second cache, a third one, or none. */
const int product_costs[] = {2, 3, 6};
const int cached_floats[] = {1 << 16, 1 << 21};

/** Longer transforms leave the second cache and cost twice their steps. */
const int cached_transform = 32768;

/** Calls may cost so much more than the mean: in tenths, by their steps, and with shares of several
 * calls. */
const int most_dearest = 17, most_shared = 15;

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
  return {N, hop, calls, phases, first, 0, 0, 1, JURN_fft_cost(N), N / chunk_floats * put_cost, 0};
}

/** Per call, times 4096: of everything, and of the work that is shared between calls. */
struct Cost {
  long long all, work, level[most_levels];
};

/** The dearest thing that runs in one piece. */
long long dearest_step(const ConvolutionLevel& level) {
  const int transform = JURN_fft_cost(level.N < JURN_STEP_VALUES ? level.N : JURN_STEP_VALUES);
  const int products = most_products * level.product_cost;
  return 4096LL * (transform > products ? transform : products);
}

/** The first level, and what runs of the others in one call when they all come together. */
long long dearest_call(const ConvolutionPlan& plan, const Cost& cost) {
  long long dearest = cost.level[0];
  for (int k = 1; k < plan.levels; ++k) {
    const long long share = cost.level[k] * plan.level[k].share;
    const long long step = dearest_step(plan.level[k]);
    dearest += share + step / 2;
  }
  return dearest;
}

int product_cost_of(const ConvolutionLevel& level) {
  const long long floats = 2LL * level.partitions * level.N;
  return product_costs[floats <= cached_floats[0] ? 0 : floats <= cached_floats[1] ? 1 : 2];
}

/** Counts the longest route's partitions, and the cost of as many such routes as channels. */
Cost count(ConvolutionPlan* plan, const Convolution_shape* shape) {
  const long long inputs = shape->inputs, outputs = shape->outputs;
  const long long routes = inputs > outputs ? inputs : outputs;
  Cost cost = {0, 0, {0, 0, 0, 0}};
  for (int k = 0; k < plan->levels; ++k) {
    ConvolutionLevel* const level = &plan->level[k];
    level->partitions = JURN_partitions(plan, k, shape->taps);
    level->slots = level->partitions + 1;
    level->product_cost = product_cost_of(*level);
    const long long chunks = level->N / chunk_floats;
    const long long transforms = (inputs + outputs) * level->transform_cost;
    const long long products = routes * chunks * level->partitions * level->product_cost;
    const long long more =
        routes * chunks * chunk_cost + (level->N > cached_transform ? transforms : 0);
    const long long work = transforms + inputs * level->put_cost + products;
    cost.level[k] = 4096 * work / level->calls;
    cost.work += cost.level[k];
    cost.all += 4096 * (work + more) / level->calls;
    if (k > 0) cost.all += 4096 * channel_cost * (inputs + outputs);
  }
  return cost;
}

/** Where little is to be done in a call, what several calls have to do costs less when it is done
 * at once. */
void share_calls(ConvolutionPlan* plan, const Cost& cost) {
  for (;;) {
    ConvolutionLevel* least = nullptr;
    long long least_share = 0;
    for (int k = 1; k < plan->levels && k < most_levels; ++k) {  // as analysers need it
      ConvolutionLevel* const level = &plan->level[k];
      const long long share = cost.level[k] * level->share;
      if (2 * level->share <= level->calls && (!least || share < least_share))
        least = level, least_share = share;
    }
    if (!least) return;
    least->share *= 2;
    if (10 * dearest_call(*plan, cost) <= most_shared * cost.work) continue;
    least->share /= 2;
    return;
  }
}

}  // namespace

void JURN_share_step(ConvolutionShares* shares, const ConvolutionLevel* level,
                     const Convolution_shape* shape) {
  const int products = shares->products > 0 ? shares->products : 1;
  shares->slices = shares->products / most_products + 1;
  shares->slice_cost = ceiling(products * level->product_cost, shares->slices);
  shares->step_cost = shape->inputs * (level->transform_cost + level->put_cost) +
                      level->N / chunk_floats * shares->slices * shares->slice_cost +
                      shape->outputs * level->transform_cost;
  const long long sixteenths = 16LL * shares->step_cost;
  shares->call_cost = static_cast<unsigned>((sixteenths + level->calls - 1) / level->calls);
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
  ConvolutionPlan candidate = {1, {{}, {}, {}, {}}};
  Cost best = {-1, 0, {0, 0, 0, 0}};
  const auto consider = [&](int levels) {
    candidate.levels = levels;
    const Cost cost = count(&candidate, shape);
    if (levels > 1 && 10 * dearest_call(candidate, cost) > most_dearest * cost.work) return;
    if (best.all >= 0 && cost.all >= best.all) return;
    best = cost;
    *plan = candidate;
  };
  /** Makes a level of transforms of N, if there are taps for it. Long transforms of more than a
   * quarter of the taps would gain little, and make streams large and fades wait. */
  const auto make = [&](int k, int N) {
    const int calls = N / 2 / block, first = 2 * calls * block;
    if (first >= taps || (N > 8192 && N > taps / 4) || N > JURN_LONG_FFT_MAX) return false;
    candidate.level[k] = level_of(N, calls * block, calls, first);
    return true;
  };
  for (int N0 = shortest; N0 <= 4 * shortest && N0 <= JURN_FFT_MAX; N0 *= 2) {
    candidate.level[0] = level_of(N0, block, 1, 0);
    consider(1);
    for (int N1 = 2 * N0; make(1, N1); N1 *= 2) {
      consider(2);
      for (int N2 = 2 * N1; make(2, N2); N2 *= 2) {
        consider(3);
        for (int N3 = 2 * N2; make(3, N3); N3 *= 2) consider(4);
      }
    }
  }
  share_calls(plan, best);
}

/* Transforms step by step: the operations of the whole ones, in slices of 512 floats and blocks of
 * 256 values. Blocks of one array are finished one after the other, so that they stay in a cache
 * that the array does not fit. */

/** Counts through a transform's steps; those that begin from `from` to `to` - 1 are to be run. */
class Steps {
 public:
  Steps(int from, int to) : from_(from), to_(to) {}
  /** Passes by what costs so much, if none of it is to be run. */
  JURN_INLINED bool skip(int cost) {
    if (at_ < to_ && at_ + cost > from_) return false;
    at_ += cost;
    return true;
  }
  /** Goes through count steps of one cost; calls run(first, last) with those that are to be run. */
  template <class Run>
  JURN_INLINED void through(int count, int cost, Run run) {
    const int first = at(from_, count, cost), last = at(to_, count, cost);
    at_ += count * cost;
    if (first >= last) return;
    done_ += (last - first) * cost;
    run(first, last);
  }
  int done() const { return done_; }

 private:
  int at(int place, int count, int cost) const {
    if (place <= at_) return 0;
    if (place >= at_ + count * cost) return count;
    const int step = (place - at_ + cost - 1) / cost;
    return step < count ? step : count;
  }
  const int from_, to_;
  int at_ = 0, done_ = 0;
};

/** A pass of `levels` levels over columns of eight floats each; slice(first, last) does some. */
template <class Slice>
JURN_INLINE void step_through(Steps& steps, int columns, int levels, Slice slice) {
  constexpr int width = JURN_STEP_FLOATS / 8;
  steps.through(columns / width, JURN_pass_cost(8 * width, levels),
                [=](int first, int last) JURN_INLINED { slice(first * width, last * width); });
}

/** How often an array can be quartered until its blocks are steps. */
constexpr int kMostQuarters = 3;
static_assert(JURN_LONG_FFT_MAX / 8 <= JURN_STEP_VALUES << 2 * kMostQuarters,
              "an array of the longest transform ends in steps");

/** Transforms count blocks of length values in an array of size values; each block costs so much.
 * A function of its own for each size of block, so that their stack has a bound. */
template <int quarters = kMostQuarters>
static void block_steps_forward(Steps& steps, float* z, int count, int size, int length, int cost,
                                const float* w) {
  if (steps.skip(count * cost)) return;
  if (quarters == 0 || length <= JURN_STEP_VALUES) {
    steps.through(count, cost, [=](int first, int last) {
      blocks_forward(z + first * length, (last - first) * length, size, length, w);
    });
    return;
  }
  const int quarter = length / 4, pass = JURN_pass_cost(2 * length, 2);
  for (float* end = z + count * length; z < end; z += length) {
    if (steps.skip(cost)) continue;
    step_through(steps, quarter, 2, [=](int first, int last) {
      radix4_columns_forward(z, size, quarter, first, last, complex_twiddles(w, length));
    });
    if constexpr (quarters > 0)
      block_steps_forward<quarters - 1>(steps, z, 4, size, quarter, (cost - pass) / 4, w);
  }
}

template <int quarters = kMostQuarters>
static void block_steps_inverse(Steps& steps, float* z, int count, int size, int length, int cost,
                                const float* w) {
  if (steps.skip(count * cost)) return;
  if (quarters == 0 || length <= JURN_STEP_VALUES) {
    steps.through(count, cost, [=](int first, int last) {
      blocks_inverse(z + first * length, (last - first) * length, size, length, w, InPlace());
    });
    return;
  }
  const int quarter = length / 4, pass = JURN_pass_cost(2 * length, 2);
  for (float* end = z + count * length; z < end; z += length) {
    if (steps.skip(cost)) continue;
    if constexpr (quarters > 0)
      block_steps_inverse<quarters - 1>(steps, z, 4, size, quarter, (cost - pass) / 4, w);
    step_through(steps, quarter, 2, [=](int first, int last) {
      radix4_columns_inverse(z, size, quarter, first, last, complex_twiddles(w, length));
    });
  }
}

/** Copies count samples from the at-th on out of a window. */
JURN_INLINE void copy_samples(float* x, JURN_Window window, int at, int count) {
  if (x == window.head) return;
  const int of_head = at >= window.count          ? 0
                      : window.count - at < count ? window.count - at
                                                  : count;
  if (of_head > 0) memcpy(x, window.head + at, of_head * sizeof(float));
  if (of_head < count)
    memcpy(x + of_head, window.rest + (at + of_head - window.count),
           (count - of_head) * sizeof(float));
}

/** The first pass, of samples out of a window. */
static void split_window(float* x, int N, const float* w, JURN_Window window, int first, int last) {
  if (window.count >= N) {
    split_forward(x, N, w, InOther{{window.head}}, first, last);
    return;
  }
  const int eighth = N / 8, columns = JURN_STEP_FLOATS / 8;
  for (; first < last; first += columns) {
    const int end = first + columns < last ? first + columns : last;
    for (int row = 0; row < N; row += eighth)
      copy_samples(x + row + first, window, row + first, end - first);
    split_forward(x, N, w, InArray{x}, first, end);
  }
}

static int forward_steps(const float* w, float* x, int N, JURN_Window window, int from, int to) {
  const bool all = from <= 0 && to == JURN_ALL_STEPS;
  if (N <= JURN_STEP_VALUES || (N <= JURN_FFT_MAX && all)) {
    if (from > 0) return 0;
    if (window.count >= N && N >= 128) {
      forward_from(w, x, N, InOther{{window.head}});
    } else {
      copy_samples(x, window, 0, N);
      forward(w, x, N);
    }
    return all ? 0 : JURN_fft_cost(N);
  }
  Steps steps(from, to);
  int length = N;
  for (; length > JURN_STEP_VALUES; length /= 4) {
    const int eighth = length / 8, array = JURN_complex_cost(eighth);
    if (steps.skip(JURN_pass_cost(length, 3) + 3 * array)) continue;
    step_through(steps, eighth, 3, [=](int first, int last) {
      if (length == N)
        split_window(x, N, w, window, first, last);
      else
        split_forward(x, length, w, InArray{x}, first, last);
    });
    for (int i = 1; i < 4; ++i)
      block_steps_forward(steps, x + 2 * i * eighth, 1, eighth, eighth, array, w);
  }
  steps.through(1, JURN_fft_cost(length), [=](int, int) { forward(w, x, length); });
  return steps.done();
}

static int inverse_steps(const float* w, float* x, int N, float* half, int from, int to) {
  const float scale = 2.f / N;
  const bool all = from <= 0 && to == JURN_ALL_STEPS;
  if (N <= JURN_STEP_VALUES || (N <= JURN_FFT_MAX && all)) {
    if (from > 0) return 0;
    inverse_half(w, x, N, scale, half);
    return all ? 0 : JURN_fft_cost(N);
  }
  Steps steps(from, to);
  int length = N;
  while (length > JURN_STEP_VALUES) length /= 4;
  steps.through(1, JURN_fft_cost(length), [=](int, int) { inverse(w, x, length, 1.f); });
  while (length < N) {
    length *= 4;
    const int eighth = length / 8, array = JURN_complex_cost(eighth);
    if (steps.skip(JURN_pass_cost(length, 3) + 3 * array)) continue;
    for (int i = 1; i < 4; ++i)
      block_steps_inverse(steps, x + 2 * i * eighth, 1, eighth, eighth, array, w);
    step_through(steps, eighth, 3, [=](int first, int last) {
      if (length < N)
        split_inverse<false>(x, length, w, 1.f, x, first, last);
      else
        split_inverse<true>(x, length, w, scale, half, first, last);
    });
  }
  return steps.done();
}

/* The straight histories of the FIR and IIR kernels: past values followed by the block. */
#ifndef JURN_HISTORY_H
#define JURN_HISTORY_H

#include <string.h>

/** Moves the last `past` samples, found by the current block length, to the front of the history
 * and puts the block behind them; returns where the block starts. An empty block may be null. */
template <class Sample>
static inline const Sample* append_block(Sample* history, int past, const Sample* block,
                                         int frames) {
  if (frames > 0) {
    memmove(history, history + frames, past * sizeof(Sample));
    memcpy(history + past, block, frames * sizeof(Sample));
  }
  return history + past;
}

/** Moves the last `past` outputs to the front of the history, those below 1e-6 in magnitude as 0,
 * so that a decaying output ends; returns where the block's outputs go. */
template <class Value>
static inline Value* carry_outputs(Value* history, int past, int frames) {
  for (int j = 0; j < past; ++j) {
    const Value v = history[j + frames];
    const double magnitude = v < 0 ? -static_cast<double>(v) : static_cast<double>(v);
    history[j] = magnitude < 1e-6 ? Value(0) : v;
  }
  return history + past;
}

#endif

// A stream that changes, in calls of any length.
#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

#include "streams/changing_stream.h"

namespace jurn {

/**
 * Belongs to the audio thread. Frames come in calls of any length, each channel in an array of its
 * own, and run in blocks of what the filters were made for; where that is more than one frame, the
 * result is late by one block. Only the constructor allocates.
 */
class BlockStream {
 public:
  BlockStream(HandOver<OfferedFilter>* offers, std::unique_ptr<OfferedFilter> first)
      : inputs_(static_cast<std::size_t>(first->made_for.inputs)),
        outputs_(static_cast<std::size_t>(first->made_for.outputs)),
        block_(static_cast<std::size_t>(first->made_for.block)),
        stream_(offers, std::move(first)) {
    if (block_ == 1) return;
    taken_.resize(inputs_ * block_);
    made_.resize(outputs_ * block_);
    for (std::size_t c = 0; c < inputs_; ++c) from_.push_back(&taken_[c * block_]);
    for (std::size_t c = 0; c < outputs_; ++c) to_.push_back(&made_[c * block_]);
  }

  /** `out` and `in` may share memory: out[c] may be in[c], and with blocks of more than one frame
   * any other channel. */
  void process(const float* const* in, int frames, float* const* out) {
    if (block_ == 1) {
      stream_.process(in, frames, out);
      return;
    }
    const auto end = static_cast<std::size_t>(frames);
    for (std::size_t done = 0; done < end;) {
      const std::size_t count = std::min(end - done, block_ - filled_);
      for (std::size_t c = 0; c < inputs_; ++c)
        std::copy_n(in[c] + done, count, &taken_[c * block_ + filled_]);
      for (std::size_t c = 0; c < outputs_; ++c)
        std::copy_n(&made_[c * block_ + filled_], count, out[c] + done);
      done += count;
      filled_ += count;
      if (filled_ < block_) continue;
      filled_ = 0;
      stream_.process(from_.data(), static_cast<int>(block_), to_.data());
    }
  }

  /** Returns to silence and to the newest filter. */
  void reset() {
    stream_.reset();
    std::fill(made_.begin(), made_.end(), 0.0F);
    filled_ = 0;
  }

  /** Frames by which the result of the newest filter is late. */
  int latency() const { return stream_.latency() + (block_ == 1 ? 0 : static_cast<int>(block_)); }

 private:
  std::size_t inputs_, outputs_, block_;
  ChangingStream stream_;
  std::vector<float> taken_, made_;  // a block of each channel
  std::vector<const float*> from_;
  std::vector<float*> to_;
  std::size_t filled_ = 0;  // frames of the block
};

}  // namespace jurn

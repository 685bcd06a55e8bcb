// Calls of any length to calls of whole blocks.
#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

#include "streams/state_bytes.h"

namespace jurn {

/**
 * Regroups frames of values into blocks, and the results of the blocks into one row. The frames of
 * a block that is not yet complete can be put out ahead, by what previews them: the block, once
 * complete, gives the rest of its frames, and the filter's past has no seam.
 *
 * Only the constructor allocates.
 */
template <typename Value>
class Regrouper {
 public:
  /** Blocks of `block` frames, each of so many values. */
  Regrouper(std::size_t block, std::size_t values_in, std::size_t values_out)
      : block_(block),
        in_(values_in),
        out_(values_out),
        begun_(block * values_in),
        finished_(block * values_out) {}

  /** Frames that `frames` more would complete. */
  std::size_t ready(std::size_t frames) const {
    const std::size_t whole = (taken_ + frames) / block_ * block_;
    return whole ? whole - given_ : 0;
  }

  /** Takes frames, silence for null, and writes ready(frames) to `out`. For every block it calls
   * run(in, out, before), `before` the frames of this call that are written already. */
  template <typename Run>
  void push(const Value* in, std::size_t frames, Value* out, const Run& run) {
    std::size_t written = 0;
    while (frames > 0) {
      if (taken_ == 0 && frames >= block_ && in) {
        run(in, out + written * out_, written);
        in += block_ * in_;
        frames -= block_;
        written += block_;
        continue;
      }
      const std::size_t count = std::min(frames, block_ - taken_);
      Value* const to = begun_.data() + taken_ * in_;
      if (in)
        std::copy_n(in, count * in_, to);
      else
        std::fill_n(to, count * in_, Value{});
      if (in) in += count * in_;
      frames -= count;
      taken_ += count;
      if (taken_ < block_) break;
      if (given_ == 0) {
        run(begun_.data(), out + written * out_, written);
      } else {
        run(begun_.data(), finished_.data(), written);
        std::copy(finished_.begin() + place(given_), finished_.end(), out + written * out_);
      }
      written += block_ - given_;
      taken_ = given_ = 0;
    }
  }

  /** Frames taken whose output has not left. */
  std::size_t pending() const { return taken_ - given_; }

  /** Writes these to `out`, ahead of their block, of which preview(in, frames, out) tells what the
   * first frames will give. */
  template <typename Preview>
  void give_pending(Value* out, const Preview& preview) {
    if (pending() == 0) return;
    preview(begun_.data(), taken_, finished_.data());
    std::copy(finished_.begin() + place(given_), finished_.begin() + place(taken_), out);
    given_ = taken_;
  }

  /** Forgets what has not left. */
  void reset() { taken_ = given_ = 0; }

  /** Passes what has begun, to bytes or from those of a regrouper made alike. */
  void pass_state(StateBytes* state) {
    state->pass(&taken_);
    state->pass(&given_);
    state->pass_all(&begun_);
    StateBytes::check(taken_ < block_ && given_ <= taken_);
  }

 private:
  std::ptrdiff_t place(std::size_t frame) const {
    return static_cast<std::ptrdiff_t>(frame * out_);
  }

  std::size_t block_, in_, out_;
  std::vector<Value> begun_;     // a block that is not complete
  std::size_t taken_ = 0;        // frames of it that came in,
  std::size_t given_ = 0;        // and that were put out ahead
  std::vector<Value> finished_;  // what comes out of a block of which a part was
};

}  // namespace jurn

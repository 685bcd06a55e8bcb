// A live filter that fades to another one.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <memory>
#include <type_traits>
#include <utility>
#include <vector>

#include "preparer.h"
#include "streams/live_filter.h"

namespace jurn::gst {

/** A filter, and how long it rings on. */
struct PreparedFilter : Prepared {
  template <typename... Arguments>
  explicit PreparedFilter(int frames, Arguments&&... arguments)
      : filter(std::forward<Arguments>(arguments)...), tail(frames) {}

  jurn::LiveFilter filter;
  int tail;  // frames
};

/** Frames of a fade. */
constexpr int kFadeFrames = 1024;

/**
 * Runs the newest filter that is prepared. A later one than the first is run over the
 * past input, so that it stands where it would had it run all along, and then both run over the
 * frames of a fade: the first frame is wholly the old filter's, the last wholly the new one's.
 */
template <typename Sample>
class FadingFilter {
 public:
  FadingFilter(Preparer* preparer, std::unique_ptr<PreparedFilter> first, int channels)
      : preparer_(preparer),
        channels_(static_cast<std::size_t>(channels)),
        current_(first.release()),
        past_(kPastFrames * channels_),
        faded_(kFadeFrames * channels_) {}

  ~FadingFilter() {
    preparer_->give_back(current_);
    preparer_->give_back(incoming_);
  }
  FadingFilter(const FadingFilter&) = delete;
  FadingFilter& operator=(const FadingFilter&) = delete;

  /** Filters interleaved frames in place. */
  void process(Sample* samples, int frames) {
    for (int done = 0; done < frames;) {
      take_next();
      int count = std::min(frames - done, kFadeFrames);
      if (incoming_) count = std::min(count, kFadeFrames - position_);
      process_piece(samples + static_cast<std::size_t>(done) * channels_, count);
      done += count;
    }
  }

  /** Returns to silence; a fade is at its end. */
  void reset() {
    if (incoming_) finish_fade();
    current_->filter.reset();
    std::fill(past_.begin(), past_.end(), Sample{});
  }

  int tail() const { return current_->tail; }

 private:
  // No FIR and no mean looks back farther.
  static constexpr int kPastFrames = jurn::kMaxAverage;

  void take_next() {
    if (incoming_) return;
    incoming_ = preparer_->take<PreparedFilter>();
    position_ = 0;
    if (!incoming_) return;
    for (int done = 0; done < kPastFrames; done += kFadeFrames) {
      const int count = std::min(kPastFrames - done, kFadeFrames);
      incoming_->filter.process(past_.data() + static_cast<std::size_t>(done) * channels_, count,
                                faded_.data());
    }
  }

  void finish_fade() {
    preparer_->give_back(current_);
    current_ = incoming_;
    incoming_ = nullptr;
  }

  void process_piece(Sample* samples, int frames) {
    const std::size_t values = static_cast<std::size_t>(frames) * channels_;
    remember(samples, values);
    if (!incoming_) return current_->filter.process(samples, frames, samples);
    incoming_->filter.process(samples, frames, faded_.data());
    current_->filter.process(samples, frames, samples);
    for (std::size_t i = 0; i < values; ++i) {
      const float weight = static_cast<float>(position_ + static_cast<int>(i / channels_)) /
                           static_cast<float>(kFadeFrames - 1);
      const float mixed =
          (1.0f - weight) * static_cast<float>(samples[i]) + weight * static_cast<float>(faded_[i]);
      if constexpr (std::is_same_v<Sample, short>)
        samples[i] = static_cast<short>(std::lrint(mixed));
      else
        samples[i] = mixed;
    }
    position_ += frames;
    if (position_ == kFadeFrames) finish_fade();
  }

  void remember(const Sample* samples, std::size_t values) {
    const std::size_t kept = past_.size() - std::min(past_.size(), values);
    std::copy(past_.end() - static_cast<std::ptrdiff_t>(kept), past_.end(), past_.begin());
    std::copy(samples + values - (past_.size() - kept), samples + values,
              past_.begin() + static_cast<std::ptrdiff_t>(kept));
  }

  Preparer* preparer_;
  std::size_t channels_;
  PreparedFilter* current_;
  PreparedFilter* incoming_ = nullptr;
  int position_ = 0;          // frames of the fade that are done
  std::vector<Sample> past_;  // the last input
  std::vector<Sample> faded_;
};

}  // namespace jurn::gst

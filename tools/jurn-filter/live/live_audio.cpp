#include "live/live_audio.h"

#include <algorithm>
#include <chrono>
#include <cmath>

namespace jurn {
namespace {

/** The largest magnitude; what is no number counts as none. */
float peak_of(const float* const* channels, int count, int frames) {
  float peak = 0.0F;
  for (int c = 0; c < count; ++c)
    for (int i = 0; i < frames; ++i) peak = std::max(peak, std::abs(channels[c][i]));
  return peak;
}

/** Raises a peak that another thread takes. */
void raise(std::atomic<float>* to, float value) {
  if (value > to->load(std::memory_order_relaxed)) to->store(value, std::memory_order_relaxed);
}

}  // namespace

LiveAudio::~LiveAudio() {
  starts_.give_back(running_);
}

void LiveAudio::start(std::unique_ptr<OfferedFilter> first) {
  offers_.empty();
  starts_.offer(std::make_unique<Running>(&offers_, std::move(first)));
}

void LiveAudio::free_returned() {
  offers_.free_returned();
  starts_.free_returned();
}

LiveLevels LiveAudio::take_levels() {
  return {peak_in_.exchange(0.0F), peak_out_.exchange(0.0F), clipped_.exchange(0)};
}

void LiveAudio::process(const float* const* in, int frames, float* const* out) {
  const auto begin = std::chrono::steady_clock::now();
  if (Running* const next = starts_.take({})) {
    starts_.give_back(running_);
    running_ = next;
  }
  if (!running_) {
    for (int c = 0; c < outputs_; ++c) std::fill_n(out[c], frames, 0.0F);
    return;
  }
  if (is_reset_.exchange(false)) running_->stream.reset();
  raise(&peak_in_, peak_of(in, inputs_, frames));
  running_->stream.process(in, frames, out);
  const float peak = peak_of(out, outputs_, frames);
  raise(&peak_out_, peak);
  if (peak > 1.0F) {
    long clipped = 0;
    for (int c = 0; c < outputs_; ++c)
      clipped += std::count_if(out[c], out[c] + frames, [](float x) { return std::abs(x) > 1.0F; });
    clipped_.fetch_add(clipped);
  }
  latency_.store(running_->stream.latency());
  if (!ring_.empty()) keep(out, frames);
  const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begin;
  costs_.frames += frames;
  ++costs_.calls;
  costs_.seconds += taken.count();
  if (taken.count() > costs_.dearest) {
    costs_.dearest = taken.count();
    costs_.dearest_frames = frames;
  }
}

void LiveAudio::record(int frames) {
  ring_.assign(static_cast<std::size_t>(frames) * static_cast<std::size_t>(outputs_), 0.0F);
}

void LiveAudio::keep(float* const* out, int frames) {
  const std::size_t channels = static_cast<std::size_t>(outputs_);
  std::size_t at = kept_.load(std::memory_order_relaxed);
  const std::size_t room = ring_.size() - (at - fetched_.load(std::memory_order_acquire));
  const int count = std::min(frames, static_cast<int>(room / channels));
  for (int i = 0; i < count; ++i)
    for (std::size_t c = 0; c < channels; ++c) ring_[at++ % ring_.size()] = out[c][i];
  kept_.store(at, std::memory_order_release);
  if (count < frames) lost_.fetch_add(frames - count);
}

std::vector<float> LiveAudio::take_recorded() {
  const std::size_t end = kept_.load(std::memory_order_acquire);
  std::vector<float> values;
  std::size_t at = fetched_.load(std::memory_order_relaxed);
  for (; at != end; ++at) values.push_back(ring_[at % ring_.size()]);
  fetched_.store(at, std::memory_order_release);
  return values;
}

}  // namespace jurn

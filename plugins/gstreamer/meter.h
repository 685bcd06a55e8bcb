// Peak and clipped samples of what an element puts out.
#pragma once

#include <gst/gst.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstddef>

namespace jurn::gst {

/** Counts on the streaming thread, read by any. */
class Meter {
 public:
  void count(const short* samples, std::size_t values, std::size_t channels) {
    int peak = 0;
    guint64 clipped = 0;
    for (std::size_t i = 0; i < values; ++i) {
      peak = std::max(peak, std::abs(static_cast<int>(samples[i])));
      clipped += samples[i] == 32767 || samples[i] == -32768;
    }
    add(peak / 32768.0, clipped, values / channels);
  }

  void count(const float* samples, std::size_t values, std::size_t channels) {
    float peak = 0.0f;
    guint64 clipped = 0;
    for (std::size_t i = 0; i < values; ++i) {
      peak = std::max(peak, std::abs(samples[i]));
      clipped += std::abs(samples[i]) > 1.0f;
    }
    add(static_cast<double>(peak), clipped, values / channels);
  }

  void reset() {
    peak_ = 0.0;
    clipped_ = 0;
    frames_ = 0;
  }

  /** `peak` of full scale 1.0, `clipped` samples at full scale (beyond it, in float), `frames`. */
  GstStructure* structure() const {
    return gst_structure_new("jurn-statistics", "peak", G_TYPE_DOUBLE, peak_.load(), "clipped",
                             G_TYPE_UINT64, clipped_.load(), "frames", G_TYPE_UINT64,
                             frames_.load(), nullptr);
  }

 private:
  // Only the streaming thread writes, so that a load and a store do.
  void add(double peak, guint64 clipped, std::size_t frames) {
    constexpr auto relaxed = std::memory_order_relaxed;
    peak_.store(std::max(peak, peak_.load(relaxed)), relaxed);
    clipped_.store(clipped_.load(relaxed) + clipped, relaxed);
    frames_.store(frames_.load(relaxed) + frames, relaxed);
  }

  std::atomic<double> peak_{0.0};
  std::atomic<guint64> clipped_{0};
  std::atomic<guint64> frames_{0};
};

}  // namespace jurn::gst

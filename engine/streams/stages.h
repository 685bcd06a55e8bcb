// A stage is one filter over a recording of any length.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "design/prepare.h"
#include "streams/regrouper.h"
#include "streams/rounding.h"
#include "streams/stream.h"

namespace jurn {

/**
 * Filters interleaved frames on the int16 scale. The result begins with the recording, unless the
 * latency is kept, and ends with it, unless the tail is kept.
 */
class Stage {
 public:
  Stage(int in, int out, bool in_16_bits)
      : channels_in(in), channels_out(out), is_int16(in_16_bits) {}
  virtual ~Stage() = default;
  Stage(const Stage&) = delete;
  Stage& operator=(const Stage&) = delete;

  /** Takes `frames` frames and appends what they complete to `out`. */
  virtual void push(const double* in, std::size_t frames, std::vector<double>* out) = 0;

  /** Appends the rest of the result to `out`, or a part of it: then it returns true and has to be
   * called again. */
  virtual bool finish(std::vector<double>* out) = 0;

  /** Frames by which the result is longer than the recording. */
  std::int64_t added() const;

  const int channels_in;
  const int channels_out;
  const bool is_int16;       // rounds what comes in to 16 bits
  std::int64_t latency = 0;  // frames by which the output is late, from how it is computed
  std::int64_t delay = 0;    // and from its taps: always dropped
  std::int64_t tail = 0;     // frames that ring on after the input
  bool keep_latency = false;
  bool keep_tail = false;
  std::int64_t input_clipped = 0;  // input samples beyond what the filter takes
  std::int64_t clipped = 0;        // output samples at full scale
  std::int64_t lost_after = -1;    // frames after which its numbers were no finite floats, or -1
  std::unique_ptr<Dither> dither;  // of rounding to 16 bits what comes in, if any
};

/** Regroups what it is given into calls of one length, and pads the end with silence: some of the
 * library's histories continue exactly only then. */
class BlockStage : public Stage {
 public:
  BlockStage(int in, int out, int frames, bool in_16_bits)
      : Stage(in, out, in_16_bits),
        call_frames(frames),
        blocks_(static_cast<std::size_t>(frames), static_cast<std::size_t>(in),
                static_cast<std::size_t>(out)) {}

  void push(const double* in, std::size_t frames, std::vector<double>* out) override;
  bool finish(std::vector<double>* out) override;

  const int call_frames;

 private:
  virtual void call(const double* in, double* out) = 0;
  /** Whether the filter's numbers became infinite or none in the call that gave this block. */
  virtual bool is_lost(const double* block) const;
  void call_next(const double* in, double* out);

  Regrouper<double> blocks_;
  std::int64_t received_ = 0;
  std::int64_t returned_ = 0;
  std::int64_t made_ = 0;     // the latency included
  std::int64_t dropped_ = 0;  // of latency and delay
};

/** A stage over int16 samples: rounds and saturates what comes in. */
class Int16Stage : public BlockStage {
 public:
  /** A filter whose output never exceeds its input is not searched for clipping. */
  Int16Stage(int in, int out, int frames, bool can_clip = true);

 private:
  bool is_lost(const double*) const override { return false; }
  void call(const double* in, double* out) override;
  virtual void run(const short* in, short* out) = 0;

  bool can_clip_;
  std::vector<short> in_, out_;
};

constexpr int kMaxBlock = 1056;

/** Asked before each call: what to go over to from frame `first` on, or null. */
using NextFilter = std::function<std::unique_ptr<Change>(std::int64_t first, int frames)>;

/** What `voice` makes of a recording; with kInt16 through 16 bits. It is late by `delay` frames,
 * which are dropped. */
std::unique_ptr<Stage> make_stage(std::unique_ptr<Voice> voice, Precision precision, int delay = 0,
                                  NextFilter next = {});

}  // namespace jurn

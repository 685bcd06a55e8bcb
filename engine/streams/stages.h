// A stage is one filter of the library that runs over a stream of any length.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "design/filter_design.h"
#include "design/prepare.h"
#include "streams/rounding.h"
#include "streams/voice.h"

namespace jurn {

/**
 * Filters interleaved frames on the int16 scale. The library's histories continue exactly only
 * when every call has the same length, so a stage regroups what it is given into calls of
 * `call_frames` and never makes another; it pads the end with silence. The result begins with the
 * recording, unless the latency is kept, and ends with it, unless the tail is kept.
 */
class Stage {
 public:
  Stage(int in, int out, int frames, bool in_16_bits = false)
      : channels_in(in), channels_out(out), call_frames(frames), is_int16(in_16_bits) {}
  virtual ~Stage() = default;

  /** Takes `frames` frames and appends what they complete to `out`. */
  void push(const float* in, std::size_t frames, std::vector<float>* out);

  /** Frames by which the result is longer than the recording. */
  std::int64_t added() const { return keep_tail ? tail + (keep_latency ? latency : 0) : 0; }

  /** Appends the rest of the result to `out`. */
  void finish(std::vector<float>* out);

  const int channels_in;
  const int channels_out;
  const int call_frames;
  const bool is_int16;       // rounds what comes in to 16 bits
  std::int64_t latency = 0;  // frames by which the output is late
  std::int64_t tail = 0;     // frames that ring on after the input
  bool keep_latency = false;
  bool keep_tail = false;
  bool rounds = false;  // from double to whole numbers, once: the last stage before 16 bits
  std::int64_t input_clipped = 0;  // input samples beyond what the filter takes
  std::int64_t clipped = 0;        // output samples at full scale
  std::int64_t lost_after = -1;    // frames after which its numbers were no finite ones, or -1
  std::unique_ptr<Dither> dither;  // of that rounding, if any

 private:
  virtual void call(const float* in, float* out) = 0;
  /** Whether the filter's numbers became infinite or none in the call that gave this block. */
  virtual bool is_lost(const float* block) const;

  std::vector<float> pending_;
  std::int64_t received_ = 0;
  std::int64_t returned_ = 0;
  std::int64_t made_ = 0;     // the latency included
  std::int64_t dropped_ = 0;  // of the latency
};

/** A stage over the library's int16 objects: rounds and saturates what comes in. */
class Int16Stage : public Stage {
 public:
  /** A filter whose output never exceeds its input is not searched for clipping. */
  Int16Stage(int in, int out, int frames, bool can_clip = true);

 private:
  bool is_lost(const float*) const override { return false; }
  void call(const float* in, float* out) override;
  virtual void run(const short* in, short* out) = 0;

  bool can_clip_;
  std::vector<short> in_, out_;
};

constexpr int kMaxAverage = 2156;
constexpr int kMaxBlock = 1056;
/** Frames of a direct-form IIR's calls. It sets small carried-over outputs to 0 at the start of
 * each call, so that the length of the calls can change the output; it is therefore always the
 * same. */
constexpr int kIirBlock = 512;

/** `block` is the length of the calls; it changes no sample. */
std::unique_ptr<Stage> make_filter(const Prepared& prepared, int channels, int block);
/** Any voice, whose format has a block and the int16 scale; late by so many frames. */
std::unique_ptr<Stage> make_stage(std::unique_ptr<Voice> voice, int latency);
std::unique_ptr<Stage> make_average(int length, int channels, int block,
                                    Precision precision = Precision::kInt16);

}  // namespace jurn

// What the WebAssembly module exports: streams of blocks that fade from filter to filter.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <memory>
#include <vector>

#include "Convolution_control.h"
#include "Filter_control.h"
#include "filters.h"

#define EXPORT extern "C" __attribute__((used, visibility("default")))

namespace web {
namespace {

// How long a filter runs unheard at most, to fill its past, before the fade to it begins.
constexpr int kMostWarming = 1024;
constexpr float kFullScale = 32768.0f;
// The largest 16-bit sample: what a saturated one becomes.
constexpr float kClipped = 32767.0f / 32768.0f;

/** Passes its input on: what a stream without a filter does. */
class Straight : public Filter {
 public:
  Straight(int inputs, int outputs, int block)
      : inputs_(inputs), outputs_(outputs), block_(block) {}

  void run_floats(const float* const* in, float* const* out) override {
    for (int c = outputs_ - 1; c >= 0; --c)
      std::copy_n(in[std::min(c, inputs_ - 1)], block_, out[c]);
  }

  void run_samples(const short* in, short* out) override {
    for (int i = block_ - 1; i >= 0; --i)
      for (int c = outputs_ - 1; c >= 0; --c)
        out[i * outputs_ + c] = in[i * inputs_ + std::min(c, inputs_ - 1)];
  }

  int memory() const override { return 0; }

 private:
  int inputs_, outputs_, block_;
};

/**
 * One stream. A filter that is set first fills its past, unheard, then the output fades to it along
 * a linear ramp. While that goes on, the last of further filters waits; the others are dropped.
 */
class Stream {
 public:
  Stream(int inputs, int outputs, int block)
      : inputs_(inputs),
        outputs_(outputs),
        block_(block),
        floats_(static_cast<std::size_t>((inputs + 2 * outputs) * block)),
        samples_(static_cast<std::size_t>((inputs + 2 * outputs) * block)),
        current_(std::make_unique<Straight>(inputs, outputs, block)) {}

  /** Peaks of the inputs and of the outputs at a full scale of 1, then the clipped samples of both.
   */
  float* levels() { return levels_; }

  /** Raises the peaks to those of the last block of floats, and counts the clipped samples. */
  void measure() {
    for (int c = 0; c < inputs_ + outputs_; ++c) {
      const bool in = c < inputs_;
      const float scale = in ? 1.0f / kFullScale : 1.0f;  // what the run left there
      const float* x = floats_.data() + c * block_;
      float peak = levels_[c];
      int clipped = 0;
      for (int i = 0; i < block_; ++i) {
        const float magnitude = std::fabs(x[i]) * scale;
        peak = magnitude > peak ? magnitude : peak;
        clipped += magnitude >= kClipped;
      }
      levels_[c] = peak;
      levels_[2 * kMaxChannels + (in ? 0 : 1)] += static_cast<float>(clipped);
    }
  }

  float* floats() { return floats_.data(); }
  short* samples() { return samples_.data(); }
  bool changing() const { return next_ || waiting_; }

  void change(Filter* filter, int fade) {
    std::unique_ptr<Filter> owned(filter);
    if (!owned) owned = std::make_unique<Straight>(inputs_, outputs_, block_);
    if (!started_) {
      current_ = std::move(owned);
      return;
    }
    waiting_ = std::move(owned);
    waiting_fade_ = fade;
    begin_waiting();
  }

  /** Planar: the inputs, then the outputs, at a full scale of 1. */
  void run_floats() {
    float* const inputs = floats_.data();
    float* const outputs = inputs + inputs_ * block_;
    float* const others = outputs + outputs_ * block_;
    const float* in[kMaxChannels] = {inputs, inputs + (inputs_ - 1) * block_};
    float* out[kMaxChannels] = {outputs, outputs + (outputs_ - 1) * block_};
    float* faded[kMaxChannels] = {others, others + (outputs_ - 1) * block_};
    for (float* x = inputs; x < outputs; ++x) *x *= kFullScale;
    current_->run_floats(in, out);
    if (next_) {
      next_->run_floats(in, faded);
      for (int c = 0; c < outputs_; ++c)
        for (int i = 0; i < block_; ++i) out[c][i] += weight(i) * (faded[c][i] - out[c][i]);
    }
    for (float* x = outputs; x < others; ++x) *x /= kFullScale;
    advance();
  }

  /** Interleaved: the inputs, then the outputs. */
  void run_samples() {
    const short* in = samples_.data();
    short* out = samples_.data() + inputs_ * block_;
    short* faded = out + outputs_ * block_;
    current_->run_samples(in, out);
    if (next_) {
      next_->run_samples(in, faded);
      for (int i = 0; i < outputs_ * block_; ++i) {
        const float from = out[i];
        out[i] = to_int16(from + weight(i / outputs_) * (static_cast<float>(faded[i]) - from));
      }
    }
    advance();
  }

 private:
  /** The share of the next filter in frame i of this block. */
  float weight(int i) const {
    const int along = faded_ - warming_ + i;
    return along < 0 ? 0.0f : std::min(1.0f, static_cast<float>(along) / static_cast<float>(fade_));
  }

  void begin_waiting() {
    if (next_ || !waiting_) return;
    if (waiting_->take_over(current_.get())) {
      current_ = std::move(waiting_);
      return;
    }
    next_ = std::move(waiting_);
    warming_ = std::min(next_->memory(), kMostWarming);
    fade_ = std::max(waiting_fade_, 1);
    faded_ = 0;
  }

  void advance() {
    started_ = true;
    if (!next_) return;
    faded_ += block_;
    if (faded_ < warming_ + fade_) return;
    current_ = std::move(next_);
    begin_waiting();
  }

  const int inputs_, outputs_, block_;
  std::vector<float> floats_;
  std::vector<short> samples_;
  std::unique_ptr<Filter> current_, next_, waiting_;
  float levels_[2 * kMaxChannels + 2] = {};
  bool started_ = false;
  int warming_ = 0, fade_ = 1, faded_ = 0, waiting_fade_ = 1;
};

/** The caller's list of routes: input, output and taps of each; the taps one after another. */
std::vector<Convolution_route> routes_of(const int* list, int count, const float* taps) {
  std::vector<Convolution_route> routes;
  for (int i = 0; i < count; ++i, list += 3) {
    routes.push_back({list[0], list[1], taps, list[2]});
    if (taps) taps += list[2];
  }
  return routes;
}

}  // namespace
}  // namespace web

EXPORT void* jurn_allocate(int bytes) {
  return std::malloc(static_cast<std::size_t>(bytes));
}

EXPORT void jurn_free(void* memory) {
  std::free(memory);
}

EXPORT const char* jurn_version() {
  return MORVAX_Version_API();
}

#ifdef __wasm_simd128__
/** Only the build with vectors exports it: so whoever loads a module knows which one it is. */
EXPORT int jurn_vectors() {
  return 128;
}
#endif

EXPORT int jurn_most_coefficients(int kind, int int16) {
  return web::most_coefficients(static_cast<web::Kind>(kind), int16 != 0);
}

EXPORT web::Filter* jurn_make_filter(int kind, int int16, int channels, int block, const double* b,
                                     int b_count, const double* a, int a_count) {
  return web::make_filter(static_cast<web::Kind>(kind), int16 != 0, channels, block, b, b_count, a,
                          a_count);
}

EXPORT unsigned jurn_response_size(int inputs, int outputs, int block, int taps, const int* routes,
                                   int count) {
  const Convolution_shape shape = {inputs, outputs, block, taps};
  return static_cast<unsigned>(MORVAX_ConvolutionResponseSize_API(
      &shape, web::routes_of(routes, count, nullptr).data(), count));
}

EXPORT int jurn_prepare_response(void* response, unsigned size, int inputs, int outputs, int block,
                                 int taps, const int* routes, int count, const float* b) {
  const Convolution_shape shape = {inputs, outputs, block, taps};
  return MORVAX_ConvolutionResponseCalcu_API(static_cast<ConvolutionResponse_ID*>(response), size,
                                             &shape, web::routes_of(routes, count, b).data(),
                                             count);
}

EXPORT web::Filter* jurn_make_convolution(int inputs, int outputs, int block, int taps,
                                          void* response) {
  return web::make_convolution(inputs, outputs, block, taps, response);
}

EXPORT web::Stream* jurn_make_stream(int inputs, int outputs, int block) {
  return new web::Stream(inputs, outputs, block);
}

EXPORT void jurn_free_stream(web::Stream* stream) {
  delete stream;
}

EXPORT float* jurn_floats(web::Stream* stream) {
  return stream->floats();
}

EXPORT short* jurn_samples(web::Stream* stream) {
  return stream->samples();
}

/** Null stands for no filter. */
EXPORT void jurn_change(web::Stream* stream, web::Filter* filter, int fade) {
  stream->change(filter, fade);
}

EXPORT int jurn_changing(const web::Stream* stream) {
  return stream->changing();
}

EXPORT float* jurn_levels(web::Stream* stream) {
  return stream->levels();
}

EXPORT void jurn_measure(web::Stream* stream) {
  stream->measure();
}

EXPORT void jurn_run_floats(web::Stream* stream) {
  stream->run_floats();
}

EXPORT void jurn_run_samples(web::Stream* stream) {
  stream->run_samples();
}

// What the WebAssembly module exports: the engine's streams, in blocks of a fixed length.
#include "streams/stream.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Filter_control.h"
#include "design/prepare.h"
#include "refuse.h"
#include "streams/convolve.h"
#include "streams/setup_voice.h"
#include "streams/stages.h"
#include "streams/stamp.h"

#define EXPORT extern "C" __attribute__((used, visibility("default")))

namespace web {
namespace {

using jurn::FilterDesign;
using jurn::Precision;
using jurn::Voice;

constexpr float kFullScale = 32768.0f;
// The largest 16-bit sample: what a saturated one becomes.
constexpr float kClipped = 32767.0f / 32768.0f;

// What the caller calls a mean; the other kinds are FilterDesign's. The numbers are part of the
// interface.
constexpr int kAverage = 3;

Precision precision_of(int int16) {
  return int16 ? Precision::kInt16 : Precision::kDouble;
}

/** As the tool prepares for floats. */
jurn::PrepareOptions options_of(int int16) {
  jurn::PrepareOptions options;
  options.precision = precision_of(int16);
  options.result = jurn::SampleFormat::kFloat;
  return options;
}

FilterDesign design_of(int kind, const double* b, int b_count, const double* a, int a_count) {
  return {static_cast<FilterDesign::Kind>(kind), {b, b + b_count}, {a, a + a_count}};
}

jurn::Format format_of(int inputs, int outputs, int block) {
  jurn::Format format;
  format.inputs = inputs;
  format.outputs = outputs;
  format.block = block;
  return format;
}

/** A stream, the samples of a block, and what was measured of them. */
class Stream {
 public:
  explicit Stream(const jurn::Format& format)
      : inputs_(format.inputs),
        outputs_(format.outputs),
        block_(format.block),
        floats_(static_cast<std::size_t>((inputs_ + outputs_) * block_)),
        samples_(floats_.size()),
        levels_(static_cast<std::size_t>(inputs_ + outputs_ + 2)),
        stream_(format, nullptr) {
    for (int c = 0; c < inputs_ + outputs_; ++c) channels_.push_back(floats_.data() + c * block_);
  }

  const jurn::Format& format() const { return stream_.format(); }
  /** Planar, at a full scale of 1: the inputs, then the outputs. */
  float* floats() { return floats_.data(); }
  /** Interleaved: the inputs, then the outputs. */
  short* samples() { return samples_.data(); }
  /** Peaks of the inputs and of the outputs at a full scale of 1, then the clipped samples of both.
   */
  float* levels() { return levels_.data(); }

  void change(std::unique_ptr<Voice> voice, int fade) {
    if (!voice) voice = jurn::make_wire(format());
    stream_.change(std::make_unique<jurn::Change>(std::move(voice), fade));
    stream_.free_retired();  // there is no other thread to do it
  }
  bool changing() const { return stream_.changing(); }

  void run_floats() {
    float* const outputs = floats_.data() + inputs_ * block_;
    // The engine's samples have the int16 scale.
    std::transform(floats_.data(), outputs, floats_.data(), [](float x) { return x * kFullScale; });
    stream_.process(channels_.data(), block_, channels_.data() + inputs_);
    std::transform(outputs, outputs + outputs_ * block_, outputs,
                   [](float x) { return x / kFullScale; });
    stream_.free_retired();
  }

  void run_samples() {
    stream_.process(samples_.data(), block_, samples_.data() + inputs_ * block_);
    stream_.free_retired();
  }

  /** Raises the peaks to those of the last block of floats, and counts the clipped samples. */
  void measure() {
    for (int c = 0; c < inputs_ + outputs_; ++c) {
      const bool in = c < inputs_;
      const float scale = in ? 1.0f / kFullScale : 1.0f;  // what the run left there
      float& peak = levels_[static_cast<std::size_t>(c)];
      int clipped = 0;
      for (int i = 0; i < block_; ++i) {
        const float magnitude = std::fabs(channels_[static_cast<std::size_t>(c)][i]) * scale;
        peak = magnitude > peak ? magnitude : peak;
        clipped += magnitude >= kClipped;
      }
      levels_[levels_.size() - (in ? 2 : 1)] += static_cast<float>(clipped);
    }
  }

 private:
  const int inputs_, outputs_, block_;
  std::vector<float> floats_;
  std::vector<short> samples_;
  std::vector<float> levels_;
  std::vector<float*> channels_;
  jurn::Stream stream_;
};

/** The caller's list of routes: input, output and taps of each; the taps one after another. */
jurn::Routing routing_of(int inputs, int outputs, const int* list, int count, const float* taps) {
  jurn::Routing routing{inputs, outputs, {}};
  for (int i = 0; i < count; ++i, list += 3) {
    routing.routes.push_back({list[0], list[1], {taps, taps + list[2]}});
    taps += list[2];
  }
  return routing;
}

/** A prepared design, for the caller to read. The layout is part of the interface. */
struct Settled {
  int runs;
  int b_count, a_count;
  const double *b, *a;
  jurn::Prepared prepared;
};

}  // namespace
}  // namespace web

using web::Voice;

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

/** Coefficients that an array may have, or samples that a mean may take; 0 is any number. */
EXPORT int jurn_most_coefficients(int kind, int int16) {
  if (kind == web::kAverage) return int16 ? jurn::kMaxAverage : 0;
  const auto design = static_cast<web::FilterDesign::Kind>(kind);
  const std::size_t most = jurn::coefficient_limit(design, web::precision_of(int16)).count;
  return static_cast<int>(most) * (design == web::FilterDesign::kSections ? 3 : 1);
}

/** Decides what runs a design: jurn_make_voice takes it. A direct form may become sections. */
EXPORT web::Settled* jurn_settle(int kind, const double* b, int b_count, const double* a,
                                 int a_count) {
  auto* const settled = new web::Settled();
  settled->prepared =
      jurn::prepare(web::design_of(kind, b, b_count, a, a_count), web::options_of(0));
  const jurn::FilterDesign& design = settled->prepared.design;
  settled->runs = static_cast<int>(settled->prepared.runs);
  settled->b_count = static_cast<int>(design.b.size());
  settled->a_count = static_cast<int>(design.a.size());
  settled->b = design.b.data();
  settled->a = design.a.data();
  return settled;
}

EXPORT void jurn_free_settled(web::Settled* settled) {
  delete settled;
}

/** What runs of coefficients as they are; a mean has b[0] samples. */
EXPORT Voice* jurn_make_voice(int kind, int int16, int inputs, int block, const double* b,
                              int b_count, const double* a, int a_count) {
  const jurn::Format format = web::format_of(inputs, inputs, block);
  if (kind == web::kAverage)
    return jurn::make_mean(static_cast<int>(b[0]), web::precision_of(int16), format).release();
  const jurn::FilterDesign design = web::design_of(kind, b, b_count, a, a_count);
  return make_voice(jurn::prepared_before(design, web::options_of(int16)), format).release();
}

/** What runs sections on single channels, step after step. Of each step `numbers` has how many
 * channels it filters, these, how many coefficients b and a have each, and both. */
EXPORT Voice* jurn_make_channel_filters(int inputs, int block, const double* numbers, int steps) {
  const auto take = [&] { return static_cast<int>(*numbers++); };
  jurn::Setup setup;
  setup.inputs = inputs;
  for (int i = 0; i < steps; ++i) {
    jurn::SetupStep step{};
    step.kind = jurn::SetupStep::kFilter;
    step.name = "step " + std::to_string(i);
    for (int left = take(); left > 0; --left) step.channels.push_back(take());
    const int count = take();
    step.design =
        web::design_of(web::FilterDesign::kSections, numbers, count, numbers + count, count);
    numbers += 2 * count;
    setup.steps.push_back(std::move(step));
  }
  return make_setup_voice(jurn::prepare(setup, web::options_of(0)),
                          web::format_of(inputs, inputs, block))
      .release();
}

/** The spectra of a convolution, for jurn_make_convolution of any instance of the same build. */
EXPORT jurn::ConvolutionResponse* jurn_prepare_response(int inputs, int outputs, int block,
                                                        int taps, const int* routes, int count,
                                                        const float* b) {
  const Convolution_shape shape = {inputs, outputs, block, taps};
  return new jurn::ConvolutionResponse(shape, web::routing_of(inputs, outputs, routes, count, b));
}

EXPORT const void* jurn_response_bytes(const jurn::ConvolutionResponse* response) {
  return response->get();
}

EXPORT unsigned jurn_response_size(const jurn::ConvolutionResponse* response) {
  return static_cast<unsigned>(response->size());
}

EXPORT void jurn_free_response(jurn::ConvolutionResponse* response) {
  delete response;
}

EXPORT Voice* jurn_make_convolution(int inputs, int outputs, int block, int taps, int int16,
                                    const void* response, unsigned size) {
  return jurn::make_convolution(jurn::ConvolutionResponse(response, size), taps,
                                web::precision_of(int16), web::format_of(inputs, outputs, block))
      .release();
}

/** How a response of so many channels connects a recording's: the outputs and the number of routes,
 * then input, output and the response's channel of each. Written to `routes`, 2 + 3 * 16 numbers.
 */
EXPORT void jurn_connect(int channels, int inputs, int* routes) {
  const std::vector<jurn::Connection> all =
      jurn::connections(channels, jurn::Wiring::kAutomatic, inputs, "the impulse response");
  int outputs = 0;
  for (const jurn::Connection& c : all) outputs = std::max(outputs, c.output + 1);
  *routes++ = outputs;
  *routes++ = static_cast<int>(all.size());
  for (const jurn::Connection& c : all) {
    *routes++ = c.input;
    *routes++ = c.output;
    *routes++ = c.channel;
  }
}

EXPORT jurn::Stamp* jurn_make_stamp() {
  return new jurn::Stamp();
}

EXPORT void jurn_free_stamp(jurn::Stamp* stamp) {
  delete stamp;
}

EXPORT void jurn_stamp_floats(jurn::Stamp* stamp, const float* samples, int count) {
  stamp->add(samples, static_cast<std::size_t>(count));
}

EXPORT void jurn_stamp_samples(jurn::Stamp* stamp, const short* samples, int count) {
  stamp->add(samples, static_cast<std::size_t>(count));
}

/** Eight hexadecimal digits, until the stamp is freed. */
EXPORT const char* jurn_stamp_text(const jurn::Stamp* stamp) {
  static std::array<char, 9> text;
  text = stamp->text();
  return text.data();
}

EXPORT web::Stream* jurn_make_stream(int inputs, int outputs, int block) {
  return new web::Stream(web::format_of(inputs, outputs, block));
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

/** Takes the voice, which null stands for none of. */
EXPORT void jurn_change(web::Stream* stream, Voice* voice, int fade) {
  stream->change(std::unique_ptr<Voice>(voice), fade);
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

// The engine's streams behind objects of another language's: any design in double, and impulse
// responses.
#include "exact.h"

#include <algorithm>
#include <utility>

#include "Convolution_control.h"
#include "Sections_control.h"
#include "designs.h"
#include "errors.h"
#include "running.h"
#include "streams/changing_stream.h"

namespace jurn::bindings {
namespace {

constexpr double kLongestMean = 1 << 24;

[[noreturn]] void fail(const std::string& message) {
  throw Error(kUsageError, message);
}

Routing routing_of(const Wanted& wanted, const Format& format, int longest) {
  Routing routing{format.inputs, format.outputs, {}};
  auto taps = wanted.b.begin();
  for (std::size_t i = 0; i + 2 < wanted.routes.size(); i += 3) {
    const int input = wanted.routes[i], output = wanted.routes[i + 1];
    const int count = wanted.routes[i + 2];
    if (input < 0 || input >= format.inputs || output < 0 || output >= format.outputs)
      fail("a route leads from input " + std::to_string(input) + " to output " +
           std::to_string(output) + ", which the stream does not have");
    if (count < 1 || count > longest)
      fail("a route has " + std::to_string(count) + " taps; this stream takes 1 to " +
           std::to_string(longest));
    routing.routes.push_back({input, output, {taps, taps + count}});
    taps += count;
  }
  if (routing.routes.size() > JURN_CONVOLUTION_ROUTES)
    fail("the response has more than " + std::to_string(JURN_CONVOLUTION_ROUTES) + " routes");
  return routing;
}

std::unique_ptr<Voice> voice_of(const Wanted& wanted, const Format& format, int longest) {
  if (wanted.kind == kRoutes)
    return make_convolution(routing_of(wanted, format, longest), longest, Precision::kDouble,
                            format);
  if (wanted.kind == kMean) {
    const double length = wanted.b.empty() ? 0.0 : wanted.b[0];
    if (!(length >= 1.0 && length <= kLongestMean)) fail("the length is not from 1 to 16777216");
    return make_mean(static_cast<int>(length), Precision::kDouble, format);
  }
  const auto kind = static_cast<FilterDesign::Kind>(wanted.kind);
  const FilterDesign design = checked_design(kind, wanted.b, wanted.a);
  return make_voice(*prepared(design, format.rate, Precision::kDouble), format);
}

Format format_of(const std::vector<int>& shape) {
  Format format;
  format.rate = shape[0];
  format.inputs = shape[1];
  format.outputs = shape[2];
  format.block = shape[3];
  format.full_scale = 1.0;
  if (format.block > 1) format.history = kConvolutionHistory;
  return format;
}

const char* word_of(What what) {
  return what == What::kSections ? "sections" : what == What::kStream ? "stream" : "convolution";
}

class StreamRunning : public Running {
 public:
  StreamRunning(What what, const Format& format, int longest, const Wanted& wanted)
      : what_(what),
        format_(format),
        longest_(longest),
        stream_(&offers_, std::make_unique<OfferedFilter>(voice_of(wanted, format, longest))) {}
  /** What stored() has sealed. */
  StreamRunning(What what, StateBytes* from) : what_(what), stream_(&offers_, from, {}) {
    format_ = stream_.format();
    from->pass(&longest_);
    from->check_end();
    StateBytes::check(longest_ >= 1 && longest_ <= JURN_CONVOLUTION_TAPS);
  }

  std::string stored() override {
    StateBytes to;
    stream_.store(&to);
    to.pass(&longest_);
    return to.sealed(word_of(what_));
  }

  int rate() const override { return format_.rate; }
  int inputs() const override { return format_.inputs; }
  int outputs() const override { return format_.outputs; }
  int block() const override { return format_.block; }

  void run(const short* in, int frames, short* out) override { stream_.process(in, frames, out); }
  void run(const float* in, int frames, float* out) override { stream_.process(in, frames, out); }

  void run(const float* const* in, int frames, float* const* out) override {
    stream_.process(in, frames, out);
  }

  void change(const Wanted& to, int fade) override {
    auto offer = std::make_unique<OfferedFilter>(voice_of(to, format_, longest_));
    offer->change->fade = fade;
    offers_.offer(std::move(offer));
  }
  void reset() override { stream_.reset(); }
  int tail() const override { return stream_.tail(); }

 private:
  What what_;
  Format format_;
  int longest_ = 0;
  HandOver<OfferedFilter> offers_;
  ChangingStream stream_;
};

}  // namespace

std::unique_ptr<Running> make_stream(What what, const std::vector<int>& shape,
                                     const Wanted& wanted) {
  const Format format = format_of(shape);
  const int longest = shape[4];
  if (format.rate < 1) fail("the rate is not 1 Hz or more");
  if (wanted.kind != kRoutes && (format.inputs < 1 || format.inputs > JURN_SECTIONS_CHANNELS))
    fail("the channels are not from 1 to " + std::to_string(JURN_SECTIONS_CHANNELS));
  if (wanted.kind == kRoutes &&
      (std::min(format.inputs, format.outputs) < 1 ||
       std::max(format.inputs, format.outputs) > JURN_CONVOLUTION_CHANNELS))
    fail("inputs or outputs are not from 1 to " + std::to_string(JURN_CONVOLUTION_CHANNELS));
  if (format.block < 1 || format.block > JURN_CONVOLUTION_BLOCK)
    fail("the block is not from 1 to " + std::to_string(JURN_CONVOLUTION_BLOCK) + " frames");
  if (longest < 1 || longest > JURN_CONVOLUTION_TAPS)
    fail("the longest response is not from 1 to " + std::to_string(JURN_CONVOLUTION_TAPS) +
         " taps");
  return std::make_unique<StreamRunning>(what, format, longest, wanted);
}

std::unique_ptr<Running> restored_stream(What what, std::string_view data) {
  StateBytes from(data, word_of(what));
  return std::make_unique<StreamRunning>(what, &from);
}

}  // namespace jurn::bindings

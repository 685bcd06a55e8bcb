// Convolution with an impulse response from a file.
#include <cmath>
#include <stdexcept>
#include <string>
#include <tuple>

#include "impulse_responses/impulse_response.h"
#include "plugin.h"
#include "streams/routing.h"
#include "units.h"

namespace jurn::lv2 {
namespace {

enum Control { kWet, kDry, kTruncate, kNormalise, kControls };

constexpr int kBlock = 64;
constexpr float kSilent = -90.0F;  // dB; as little as a control can say

double gain_of(float decibels) {
  return decibels <= kSilent ? 0.0 : from_decibels(decibels);
}

class Convolver final : public Plugin {
 public:
  using Plugin::Plugin;

 private:
  std::unique_ptr<OfferedFilter> make(const Wanted& wanted) override {
    if (wanted.file.empty()) return nullptr;
    ImpulseResponseOptions options;
    options.resample = true;
    options.truncate = static_cast<int>(std::lround(wanted.controls[kTruncate] * wanted.rate));
    options.normalise = wanted.controls[kNormalise] > 0.0F;
    const Read read{wanted.naming, options.truncate, options.normalise};
    if (read != read_) {
      read_ = {};
      response_ = read_impulse_response({wanted.file}, wanted.rate, options);
      read_ = read;
    }
    Routing routing = connect(response_, Wiring::kAutomatic, format().inputs, wanted.file);
    if (routing.outputs != format().outputs)
      throw std::runtime_error(wanted.file + ": leads to " + std::to_string(routing.outputs) +
                               " channels, and this plugin has " +
                               std::to_string(format().outputs));
    scale(&routing, gain_of(wanted.controls[kWet]));
    add_input(&routing, gain_of(wanted.controls[kDry]));
    return offer_of(make_convolution(routing, routing.longest(), Precision::kDouble, format()));
  }

  // What was read last: levels change more often than files.
  using Read = std::tuple<int, int, bool>;  // which naming, taps, whether normalised
  Read read_{};
  ImpulseResponse response_;
};

constexpr Description description(const char* name, int channels) {
  return {name, channels, channels, kControls, kBlock, kConvolutionHistory, "impulse-response",
          true};
}

}  // namespace

const Kind kConvolverMono{description("convolver-mono", 1), create<Convolver>};
const Kind kConvolverStereo{description("convolver-stereo", 2), create<Convolver>};

}  // namespace jurn::lv2

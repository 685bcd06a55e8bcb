// Long impulse responses over a stream, fixed or changing while it runs.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "impulse_responses/impulse_response.h"
#include "streams/stages.h"

namespace tool {

constexpr int kMaxFftTaps = 8192;
constexpr int kMaxTimeDomainTaps = 32767;

/** Which input goes through which taps to which output. */
enum class Route {
  kAutomatic,     // what the channels suggest
  kStraight,      // each channel through its own taps
  kCrossed,       // the right input to the left output and the other way round
  kLeftOnly,      // the left input to both outputs
  kMonoToStereo,  // a mono recording to both outputs
};

/** Asked before each call: the response to fade to during the `frames` from `first`, or null. */
using ResponseChange = std::function<const ImpulseResponse*(std::int64_t first, int frames)>;

struct Convolution {
  ImpulseResponse response;
  Route route = Route::kAutomatic;
  bool time_domain = false;
  ResponseChange change;  // empty for a fixed response; all responses are equally long
};

std::unique_ptr<Stage> make_convolver(const Convolution& convolution, int channels, int block);

}  // namespace tool

// The library's record for long impulse responses, in the time domain or by FFT, over a stream.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "streams/routing.h"
#include "streams/stages.h"

namespace jurn {

constexpr int kMaxFftTaps = 8192;
constexpr int kMaxTimeDomainTaps = 32767;

struct LongFilter {
  ImpulseResponse response;  // 1 or 2 channels
  Wiring wiring = Wiring::kAutomatic;
  bool time_domain = false;
  /** Asked before each call: the response to fade to during the `frames` from `first`, as long as
   * the first one, or null. Empty for a fixed response. */
  std::function<const ImpulseResponse*(std::int64_t first, int frames)> change;
};

/** For mono and stereo recordings; an error begins with `name`. */
std::unique_ptr<Stage> make_long_filter(const LongFilter& filter, int channels, int block,
                                        const std::string& name);

}  // namespace jurn

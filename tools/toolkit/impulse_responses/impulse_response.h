// Impulse responses from audio files.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace tool {

/** One filter of taps per channel, all equally long. */
using ImpulseResponse = std::vector<std::vector<double>>;

struct ImpulseResponseOptions {
  bool resample = false;
  int truncate = 0;  // taps, 0 for all
  bool normalise = false;
  int max_taps = 0;
  std::string limit;  // how an error names the limit and the way around it
};

/** Reads the channels of one or several files, one after the other, as a response for recordings at
 * `rate`. Errors name the file and both rates, or the length and the limit. */
ImpulseResponse read_impulse_response(const std::vector<std::string>& paths, int rate,
                                      const ImpulseResponseOptions& options);

/** Channels of a file of impulse responses. */
std::size_t count_channels(const std::string& path);

void scale(ImpulseResponse* response, double gain);

}  // namespace tool

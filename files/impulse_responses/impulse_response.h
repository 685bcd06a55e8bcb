// Impulse responses from audio files, from texts with the taps of a channel in each column, and
// from every other file of taps.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "Convolution_control.h"
#include "coefficients/formats.h"
#include "streams/routing.h"

namespace jurn {

/** Frames of a file; a length of 0 is all that follow. */
struct Part {
  std::size_t offset = 0, length = 0;
};

struct ImpulseResponseOptions {
  bool resample = false;
  Part part;         // of each file, at its own rate
  int truncate = 0;  // taps, 0 for all
  bool normalise = false;
  int max_taps = JURN_CONVOLUTION_TAPS;
  CoefficientFormat format = CoefficientFormat::kByContent;
  std::vector<std::string> variables;  // arrays of files with names
  // How an error names the limit and the way around it.
  std::string limit = "at most " + std::to_string(JURN_CONVOLUTION_TAPS) + " are supported";
};

/** Reads the channels of one or several files, one after the other, as a response for recordings at
 * `rate`; at most 16 channels. To normalise, four channels are those of stereo, two of which sum up
 * in each output. Errors name the file and both rates, or the length and the limit. */
ImpulseResponse read_impulse_response(const std::vector<std::string>& paths, int rate,
                                      const ImpulseResponseOptions& options);

/** Channels of a file of impulse responses. */
std::size_t count_channels(const std::string& path);
/** The rate of a recording; 0 of every other file, which names none. */
int rate_of_response(const std::string& path, const ImpulseResponseOptions& options);

}  // namespace jurn

// Which input goes to which output through which taps.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "impulse_responses/impulse_response.h"

namespace tool {

/** One way from an input to an output; channels count from 0. */
struct Route {
  int input, output;
  std::vector<double> taps;
};

/** A matrix of impulse responses. */
struct Routing {
  int inputs = 0, outputs = 0;
  std::vector<Route> routes;

  int longest() const;
};

/** How the channels of an impulse response connect those of a recording. */
enum class Wiring {
  kAutomatic,     // what the channels suggest
  kStraight,      // each channel through its own taps, or all through the same
  kCrossed,       // the right input to the left output and the other way round
  kLeftOnly,      // the left input to both outputs
  kMonoToStereo,  // a mono recording to both outputs
};

/**
 * Connects a recording of `inputs` channels. By default one channel of taps filters every channel;
 * as many as the recording has filter one each; several make as many outputs of a mono recording;
 * and four of a stereo recording lead left to left, left to right, right to left, right to right.
 * An error begins with `name`.
 */
Routing connect(const ImpulseResponse& response, Wiring wiring, int inputs,
                const std::string& name);

/**
 * Reads a file of routes. A line has the number of an input, of an output, and a file with the taps
 * of one channel; a fourth word is the number of another channel. Channels count from 1, names are
 * relative to the file and may stand in quotes, # begins a comment.
 *
 * A configuration file of jconvolver is read too: /cd, /convolver/new, /impulse/read with gain,
 * delay, offset, length and channel, /impulse/dirac and /impulse/copy.
 */
Routing read_routes(const std::string& path, int rate, const ImpulseResponseOptions& options);

/** The inputs and outputs of a file of routes, whose impulse responses need not exist. */
std::pair<int, int> count_routes(const std::string& path);

/** Scales the largest gain to 0 dB: of an output, from all inputs in phase. */
void normalise(Routing* routing, const std::string& name);
void scale(Routing* routing, double gain);

}  // namespace tool

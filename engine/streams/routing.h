// Impulse responses, and which input goes to which output through which taps.
#pragma once

#include <string>
#include <vector>

namespace jurn {

/** One filter of taps per channel, all equally long. */
using ImpulseResponse = std::vector<std::vector<double>>;

void scale(ImpulseResponse* response, double gain);

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

/** Scales the largest gain to 0 dB: of an output, from all inputs in phase. */
void normalise(Routing* routing, const std::string& name);
void scale(Routing* routing, double gain);
/** Adds each input, times a gain, to the output of the same number. */
void add_input(Routing* routing, double gain);

}  // namespace jurn

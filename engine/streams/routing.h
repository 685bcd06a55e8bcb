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

/** The channel of a response that leads from an input to an output. */
struct Connection {
  int input, output, channel;
};

/**
 * How a response of `channels` channels connects a recording of `inputs`. By default one channel of
 * taps filters every channel; as many as the recording has filter one each; several make as many
 * outputs of a mono recording; and four of a stereo recording lead left to left, left to right,
 * right to left, right to right. An error begins with `name`.
 */
std::vector<Connection> connections(int channels, Wiring wiring, int inputs,
                                    const std::string& name);
/** The same with the taps. */
Routing connect(const ImpulseResponse& response, Wiring wiring, int inputs,
                const std::string& name);

/** How many channels a filter takes and makes. */
struct Ends {
  int inputs, outputs;
};

/** Throws where a filter does not fit the channels of something, which `owner` names. The error
 * begins with `name`. */
void check_channels(const std::string& name, const Ends& filter, const std::string& owner,
                    const Ends& there);

/** Scales the largest gain to 0 dB: of an output, from all inputs in phase. */
void normalise(Routing* routing, const std::string& name);
void scale(Routing* routing, double gain);
/** Adds each input, times a gain, to the output of the same number. */
void add_input(Routing* routing, double gain);

}  // namespace jurn

#include "exact.h"

#include "streams/routing.h"

#include <algorithm>
#include <complex>
#include <map>

#include "design/spectrum.h"
#include "elementary.h"
#include "errors.h"

namespace jurn {

void scale(ImpulseResponse* response, double gain) {
  for (std::vector<double>& taps : *response)
    for (double& tap : taps) tap *= gain;
}

int Routing::longest() const {
  std::size_t most = 1;
  for (const Route& route : routes) most = std::max(most, route.taps.size());
  return static_cast<int>(most);
}

std::vector<Connection> connections(int channels, Wiring wiring, int inputs,
                                    const std::string& name) {
  std::vector<Connection> result;
  const std::string has =
      name + ": has " + std::to_string(channels) + (channels == 1 ? " channel" : " channels");
  if (wiring == Wiring::kAutomatic) {
    if (channels == 4 && inputs == 2) {
      for (int i = 0; i < 4; ++i) result.push_back({i / 2, i % 2, i});
      return result;
    }
    if (inputs == 1) {
      for (int i = 0; i < channels; ++i) result.push_back({0, i, i});
      return result;
    }
    if (channels != 1 && channels != inputs)
      throw Error(kUsageError, has + ", and a recording of " + std::to_string(inputs) +
                                   " takes 1 or " + std::to_string(inputs) +
                                   (inputs == 2 ? ", or 4 for true stereo" : "") +
                                   "; routes connect any");
    wiring = Wiring::kStraight;
  }
  if (wiring == Wiring::kStraight) {
    if (channels != 1 && channels != inputs)
      throw Error(kUsageError,
                  has + "; straight through go 1 or the recording's " + std::to_string(inputs));
    for (int i = 0; i < inputs; ++i) result.push_back({i, i, channels == 1 ? 0 : i});
    return result;
  }
  if (channels > 2) throw Error(kUsageError, has + "; this --route takes 1 or 2");
  const bool mono = wiring == Wiring::kMonoToStereo;
  if (inputs != (mono ? 1 : 2))
    throw Error(kUsageError,
                std::string("this --route takes a ") + (mono ? "mono" : "stereo") + " recording");
  for (int output = 0; output < 2; ++output)
    result.push_back(
        {wiring == Wiring::kCrossed ? 1 - output : 0, output, channels == 1 ? 0 : output});
  return result;
}

Routing connect(const ImpulseResponse& response, Wiring wiring, int inputs,
                const std::string& name) {
  Routing routing{inputs, 0, {}};
  for (const Connection& c : connections(static_cast<int>(response.size()), wiring, inputs, name)) {
    routing.outputs = std::max(routing.outputs, c.output + 1);
    routing.routes.push_back({c.input, c.output, response[static_cast<std::size_t>(c.channel)]});
  }
  return routing;
}

void check_channels(const std::string& name, const Ends& filter, const std::string& owner,
                    const Ends& there) {
  const auto check = [&](const char* verb, int count, int owned) {
    if (count != owned)
      throw Error(kInputError, name + ": " + verb + " " + std::to_string(count) +
                                   (count == 1 ? " channel, and " : " channels, and ") + owner +
                                   " has " + std::to_string(owned));
  };
  check("takes", filter.inputs, there.inputs);
  check("makes", filter.outputs, there.outputs);
}

void normalise(Routing* routing, const std::string& name) {
  const std::size_t bins = 4 * static_cast<std::size_t>(routing->longest());
  double peak = 0.0;
  for (int output = 0; output < routing->outputs; ++output) {
    std::map<int, std::vector<std::complex<double>>> gains;  // of each input
    for (const Route& route : routing->routes) {
      if (route.output != output) continue;
      const auto spectrum_of_route = spectrum(route.taps, bins);
      std::vector<std::complex<double>>& sum = gains[route.input];
      sum.resize(spectrum_of_route.size());
      for (std::size_t i = 0; i < sum.size(); ++i) sum[i] += spectrum_of_route[i];
    }
    if (gains.empty()) continue;
    for (std::size_t i = 0; i < gains.begin()->second.size(); ++i) {
      double gain = 0.0;
      for (const auto& [input, sum] : gains) gain += elementary::magnitude(sum[i]);
      peak = std::max(peak, gain);
    }
  }
  if (peak == 0.0) throw Error(kInputError, name + ": the response is silent");
  scale(routing, 1.0 / peak);
}

void scale(Routing* routing, double gain) {
  for (Route& route : routing->routes)
    for (double& tap : route.taps) tap *= gain;
}

void add_input(Routing* routing, double gain) {
  for (int channel = 0; gain != 0.0 && channel < std::min(routing->inputs, routing->outputs);
       ++channel) {
    const auto is_straight = [&](const Route& route) {
      return route.input == channel && route.output == channel;
    };
    auto route = std::find_if(routing->routes.begin(), routing->routes.end(), is_straight);
    if (route == routing->routes.end())
      route = routing->routes.insert(route, {channel, channel, {0.0}});
    route->taps[0] += gain;
  }
}

}  // namespace jurn

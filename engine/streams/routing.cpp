#include "streams/routing.h"

#include <algorithm>
#include <complex>
#include <map>

#include "design/spectrum.h"
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

Routing connect(const ImpulseResponse& response, Wiring wiring, int inputs,
                const std::string& name) {
  const int count = static_cast<int>(response.size());
  Routing routing{inputs, inputs, {}};
  const auto add = [&](int input, int output, int channel) {
    routing.routes.push_back({input, output, response[static_cast<std::size_t>(channel)]});
  };
  const std::string channels =
      name + ": has " + std::to_string(count) + (count == 1 ? " channel" : " channels");
  if (wiring == Wiring::kAutomatic) {
    if (count == 4 && inputs == 2) {
      for (int i = 0; i < 4; ++i) add(i / 2, i % 2, i);
      return routing;
    }
    if (inputs == 1 && count > 1) {
      routing.outputs = count;
      for (int i = 0; i < count; ++i) add(0, i, i);
      return routing;
    }
    if (count != 1 && count != inputs)
      throw Error(kUsageError, channels + ", which do not connect a recording of " +
                                   std::to_string(inputs) + "; --routes says how");
    wiring = Wiring::kStraight;
  }
  if (wiring == Wiring::kStraight) {
    if (count != 1 && count != inputs)
      throw Error(kUsageError, channels + "; straight through go 1 or the recording's " +
                                   std::to_string(inputs));
    for (int i = 0; i < inputs; ++i) add(i, i, count == 1 ? 0 : i);
    return routing;
  }
  if (count > 2) throw Error(kUsageError, channels + "; this --route takes 1 or 2");
  const bool mono = wiring == Wiring::kMonoToStereo;
  if (inputs != (mono ? 1 : 2))
    throw Error(kUsageError,
                std::string("this --route takes a ") + (mono ? "mono" : "stereo") + " recording");
  routing.outputs = 2;
  for (int output = 0; output < 2; ++output)
    add(wiring == Wiring::kCrossed ? 1 - output : 0, output, count == 1 ? 0 : output);
  return routing;
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
      for (const auto& [input, sum] : gains) gain += std::abs(sum[i]);
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

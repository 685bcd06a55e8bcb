// Responses as panels of a picture.
#pragma once

#include <string>
#include <vector>

#include "design/frequency_response.h"
#include "plotting/gnuplot.h"

namespace jurn {

enum class Panel { kMagnitude, kPhase, kGroupDelay, kImpulse, kStep, kPoles };

struct NamedResponse : Response {
  std::string name;
};

/** The script of a picture; on the terminal the panels stand one below the other. */
std::string plot_responses(Picture format, const std::vector<Panel>& panels, int rate,
                           const std::vector<NamedResponse>& all);

}  // namespace jurn

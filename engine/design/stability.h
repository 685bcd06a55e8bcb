// Checks of a design before it runs.
#pragma once

#include <optional>
#include <string>

#include "design/filter_design.h"

namespace jurn {

/**
 * Sees to the signs of the feedback. When a filter is unstable but would be stable with all of them
 * turned, the program that wrote it likely adds the feedback: this is an error until `negate` says
 * whether to turn them.
 */
void check_signs(const std::string& path, std::optional<bool> negate, FilterDesign* design);

/** Warns of a filter that would clip a full-scale signal. `gain` comes on top of the design's. */
std::string check_peak(const std::string& path, const FilterDesign& design, double gain);

}  // namespace jurn

// Checks of a design before it runs.
#pragma once

#include <optional>
#include <string>

#include "design/filter_design.h"

namespace jurn {

/**
 * Reports poles outside the unit circle. When the filter is unstable but would be stable with the
 * signs of all feedback coefficients turned, the program that wrote it likely adds the feedback:
 * this is an error until `negate` says whether to turn them. Returns the warning, or nothing.
 */
std::string check_stability(const std::string& path, std::optional<bool> negate,
                            FilterDesign* design);

/** Warns of a filter that would clip a full-scale signal. `gain` comes on top of the design's. */
std::string check_peak(const std::string& path, const FilterDesign& design, double gain);

}  // namespace jurn

// A setup that filters a recording.
#pragma once

#include <memory>
#include <string>

#include "coefficients/setups.h"
#include "commands/filter.h"

namespace jurn {

/** What runs a setup times a gain; of a new one it says what a user wants to know, without notes
 * where `quiet`. */
std::unique_ptr<Stage> make_setup(const std::string& name, SetupFile file, double gain,
                                  const Recording& recording, bool is_new, bool quiet);

}  // namespace jurn

// MATLAB's .mat files.
#pragma once

#include <string>
#include <vector>

#include "coefficients/parse.h"

namespace jurn {

/** All matrices of a file, those of structures by the names of their fields. */
std::vector<Array> read_mat(const std::string& path);

}  // namespace jurn

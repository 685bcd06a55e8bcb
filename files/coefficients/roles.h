// What arrays of a file are for, by their names.
#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include "coefficients/parse.h"

namespace jurn {

enum class Role { kNumerator, kDenominator, kSectionRows, kGain, kZeros, kPoles, kOther };

/** The role of a name; the case of letters does not matter. */
Role role_of(std::string_view name);

/** The array that a role belongs to by name, also with a suffix (B_1), null if none; several are an
 * error. */
const Array* named(const std::string& path, const std::vector<Array>& arrays, Role role);

inline bool is_vector(const Array& array) {
  return array.rows == 1 || array.columns == 1;
}

std::string label(const Array& array);

/** The only array with a property, null if none or several have it. */
template <typename Property>
const Array* only(const std::vector<Array>& arrays, Property property) {
  const auto found = std::find_if(arrays.begin(), arrays.end(), property);
  if (found == arrays.end() || std::find_if(found + 1, arrays.end(), property) != arrays.end())
    return nullptr;
  return &*found;
}

}  // namespace jurn

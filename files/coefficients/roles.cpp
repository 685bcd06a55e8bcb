#include "exact.h"

#include "coefficients/roles.h"

#include <iterator>

namespace jurn {
namespace {

const struct {
  const char* text;
  Role role;
} kNames[] = {
    {"b", Role::kNumerator},
    {"num", Role::kNumerator},
    {"numerator", Role::kNumerator},
    {"h", Role::kNumerator},
    {"taps", Role::kNumerator},
    {"coeffs", Role::kNumerator},
    {"coefficients", Role::kNumerator},
    {"a", Role::kDenominator},
    {"den", Role::kDenominator},
    {"denominator", Role::kDenominator},
    {"sos", Role::kSectionRows},
    {"sections", Role::kSectionRows},
    {"g", Role::kGain},
    {"gain", Role::kGain},
    {"gains", Role::kGain},
    {"k", Role::kGain},
    {"scalevalues", Role::kGain},
    {"z", Role::kZeros},
    {"zeros", Role::kZeros},
    {"p", Role::kPoles},
    {"poles", Role::kPoles},
};

/** The role of a name with a suffix: B_1, NUM2, sos_lowpass. */
Role role_without_suffix(std::string_view name) {
  return role_of(name.substr(0, name.find_first_of("_0123456789")));
}

}  // namespace

Role role_of(std::string_view name) {
  const std::string text = lower(name);
  const auto* const found = std::find_if(std::begin(kNames), std::end(kNames),
                                         [&](const auto& n) { return text == n.text; });
  return found == std::end(kNames) ? Role::kOther : found->role;
}

const Array* named(const std::string& path, const std::vector<Array>& arrays, Role role) {
  for (const auto role_by : {&role_of, &role_without_suffix}) {
    const Array* found = nullptr;
    for (const Array& array : arrays) {
      if (role_by(array.name) != role) continue;
      if (found)
        fail(path,
             "holds both " + label(*found) + " and " + label(array) + "; --variables chooses one");
      found = &array;
    }
    if (found) return found;
  }
  return nullptr;
}

std::string label(const Array& array) {
  return array.name.empty() ? "the array" : quote(array.name);
}

}  // namespace jurn

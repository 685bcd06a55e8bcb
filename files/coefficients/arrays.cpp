// From named or unnamed arrays to a design.
#include <algorithm>
#include <cctype>
#include <iterator>

#include "coefficients/parse.h"

namespace jurn {
namespace {

enum Role { kNumerator, kDenominator, kSectionRows, kGain, kOther };

struct Name {
  const char* text;
  Role role;
};

const Name kNames[] = {
    {"b", kNumerator},
    {"num", kNumerator},
    {"numerator", kNumerator},
    {"h", kNumerator},
    {"taps", kNumerator},
    {"coeffs", kNumerator},
    {"a", kDenominator},
    {"den", kDenominator},
    {"denominator", kDenominator},
    {"sos", kSectionRows},
    {"sections", kSectionRows},
    {"g", kGain},
    {"gain", kGain},
    {"gains", kGain},
    {"k", kGain},
    {"coefficients", kNumerator},
    {"scalevalues", kGain},
};

Role role_of(std::string_view name) {
  const std::string text = lower(name);
  const Name* found = std::find_if(std::begin(kNames), std::end(kNames),
                                   [&](const Name& n) { return text == n.text; });
  return found == std::end(kNames) ? kOther : found->role;
}

/** The role of a name with a suffix: B_1, NUM2, sos_lowpass. */
Role role_without_suffix(std::string_view name) {
  return role_of(name.substr(0, name.find_first_of("_0123456789")));
}

bool is_vector(const Array& array) {
  return array.rows == 1 || array.columns == 1;
}

std::string label(const Array& array) {
  return array.name.empty() ? "the array" : quote(array.name);
}

/** All arrays and their shapes, and what would be accepted. */
[[noreturn]] void refuse(const std::string& path, const std::vector<Array>& arrays,
                         const ReadOptions& options) {
  static const char* const accepted[] = {
      "accepted is one vector of taps",
      "accepted are two vectors, numerator and denominator, or one array of two rows",
      "accepted is an array of L x 6 with an optional gain of 1, L or L + 1 values"};
  std::string message = "holds ";
  bool sections = false, pair = arrays.size() == 2 && is_vector(arrays[0]) && is_vector(arrays[1]);
  for (std::size_t i = 0; i < std::min<std::size_t>(arrays.size(), 8); ++i) {
    const Array& array = arrays[i];
    message += std::string(i ? ", " : "") + label(array) + " of " + std::to_string(array.rows) +
               " x " + std::to_string(array.columns);
    sections = sections || array.columns == 6;
    pair = pair || array.rows == 2 || (role_of(array.name) == kDenominator && i > 0);
  }
  if (arrays.empty()) message += "no numeric array";
  message += std::string("; ") + accepted[options.wanted];
  if (arrays.size() > 1) message += ", and --variables names them";
  if (sections && options.wanted != FilterDesign::kSections)
    message += "; sections run with sos";
  else if (pair && options.wanted == FilterDesign::kFir)
    message += "; numerator and denominator run with iir";
  else if (arrays.size() == 1 && is_vector(arrays[0]) && options.wanted != FilterDesign::kFir)
    message += "; taps run with fir";
  fail(path, message);
}

/** The array that a role belongs to by name, null if none; several are an error. */
const Array* named(const std::string& path, const std::vector<Array>& arrays, Role role) {
  for (Role (*const role_by)(std::string_view) : {role_of, role_without_suffix}) {
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

/** The only array with a property, null if none or several have it. */
template <typename Property>
const Array* only(const std::vector<Array>& arrays, Property property) {
  const auto found = std::find_if(arrays.begin(), arrays.end(), property);
  if (found == arrays.end() || std::find_if(found + 1, arrays.end(), property) != arrays.end())
    return nullptr;
  return &*found;
}

std::vector<Array> chosen(const std::string& path, const std::vector<Array>& arrays,
                          const std::vector<std::string>& names) {
  std::vector<Array> result;
  for (const std::string& name : names) {
    const Array* array = only(arrays, [&](const Array& a) { return a.name == name; });
    if (array) {
      result.push_back(*array);
      continue;
    }
    std::string known;
    for (const Array& a : arrays) known += (known.empty() ? "" : ", ") + label(a);
    fail(path, "has no variable " + quote(name) + "; it holds " + known);
  }
  return result;
}

/** Makes a denominator start with 1. Zeros at the front of both polynomials, by which GNU Octave
 * fills first-order sections up, are a common delay and move to the end. */
void divide(const std::string& path, const std::string& what, std::vector<double>* b,
            std::vector<double>* a) {
  for (std::size_t i = 0; i < a->size() && (*a)[0] == 0.0 && (*b)[0] == 0.0; ++i) {
    std::rotate(a->begin(), a->begin() + 1, a->end());
    std::rotate(b->begin(), b->begin() + 1, b->end());
  }
  const double a0 = (*a)[0];
  if (a0 == 0.0) fail(path, what + " starts with 0; a denominator's first value must not be 0");
  for (double& value : *b) value /= a0;
  for (double& value : *a) value /= a0;
}

FilterDesign fir_of(const std::string& path, const std::vector<Array>& arrays,
                    const ReadOptions& options) {
  const bool by_order = !options.variables.empty();
  const Array* b = by_order ? &arrays[0] : named(path, arrays, kNumerator);
  const Array* a = by_order ? nullptr : named(path, arrays, kDenominator);
  if (!b) b = only(arrays, [](const Array& x) { return is_vector(x) && x.values.size() > 1; });
  if (!b && arrays.size() == 1) b = &arrays[0];
  // A denominator of one value is a FIR filter's.
  const bool recursive = a && a->values.size() != 1;
  const bool sections = !by_order && named(path, arrays, kSectionRows);
  if (!b || !is_vector(*b) || recursive || sections) refuse(path, arrays, options);
  FilterDesign design{FilterDesign::kFir, b->values, {}};
  std::vector<double> a0 = a ? a->values : std::vector<double>{1.0};
  divide(path, a ? label(*a) : "", &design.b, &a0);
  return design;
}

FilterDesign iir_of(const std::string& path, const std::vector<Array>& arrays,
                    const ReadOptions& options) {
  FilterDesign design{FilterDesign::kIir, {}, {}};
  std::string denominator = "the denominator";
  if (arrays.size() == 1 && arrays[0].rows == 2) {
    const auto middle = arrays[0].values.begin() + static_cast<std::ptrdiff_t>(arrays[0].columns);
    design.b.assign(arrays[0].values.begin(), middle);
    design.a.assign(middle, arrays[0].values.end());
  } else {
    const bool by_order = !options.variables.empty() && arrays.size() == 2;
    const Array* b = by_order ? &arrays[0] : named(path, arrays, kNumerator);
    const Array* a = by_order ? &arrays[1] : named(path, arrays, kDenominator);
    const auto other = [&](const Array* known) {
      return only(arrays, [known](const Array& x) {
        return &x != known && is_vector(x) && x.values.size() > 1;
      });
    };
    if (a && !b) b = other(a);
    if (b && !a) a = other(b);
    if (!a && !b && arrays.size() == 2) {
      b = &arrays[0];
      a = &arrays[1];
    }
    if (!b || !a || !is_vector(*b) || !is_vector(*a)) refuse(path, arrays, options);
    design.b = b->values;
    design.a = a->values;
    denominator = label(*a);
  }
  divide(path, denominator, &design.b, &design.a);
  return design;
}

/** Multiplies sections by one overall gain, or by one each and perhaps one of the output. */
void apply_gain(const std::string& path, const Array& gain, FilterDesign* design) {
  const std::size_t sections = design->b.size() / 3, gains = gain.values.size();
  if (gains != 1 && gains != sections && gains != sections + 1)
    fail(path, label(gain) + " has " + count_of(gains, "value") + "; the gain of " +
                   count_of(sections, "section") + " has 1, " + std::to_string(sections) + " or " +
                   std::to_string(sections + 1));
  for (std::size_t g = 0; g < gains; ++g)
    for (std::size_t i = 0; i < 3; ++i)
      design->b[3 * std::min(g, sections - 1) + i] *= gain.values[g];
}

FilterDesign sections_of(const std::string& path, const std::vector<Array>& arrays,
                         const ReadOptions& options) {
  const bool by_order = !options.variables.empty();
  const Array* rows = by_order ? &arrays[0] : named(path, arrays, kSectionRows);
  // Six gains look like one section, but stand beside several.
  if (!rows) rows = only(arrays, [](const Array& x) { return x.columns == 6 && x.rows > 1; });
  if (!rows) rows = only(arrays, [](const Array& x) { return x.columns == 6; });
  if (!rows && arrays.size() == 1) rows = &arrays[0];
  if (!rows || (rows->columns != 6 && !(rows->columns == 1 && rows->rows == 6)))
    refuse(path, arrays, options);
  FilterDesign design = sections_design(path, rows->values, options);

  const std::size_t sections = design.b.size() / 3;
  const Array* gain = nullptr;
  if (by_order)
    gain = arrays.size() > 1 ? &arrays[1] : nullptr;
  else
    gain = named(path, arrays, kGain);
  // A lone scalar may be anything, say the rate; a vector of the right length is the gains.
  if (!gain && !by_order)
    gain = only(arrays, [&](const Array& x) {
      return &x != rows && is_vector(x) && x.values.size() > 1 &&
             (x.values.size() == sections || x.values.size() == sections + 1);
    });
  if (gain) apply_gain(path, *gain, &design);
  return design;
}

}  // namespace

void check_limit(const std::string& path, const FilterDesign& design,
                 const CoefficientLimit& limit) {
  const std::size_t group = design.kind == FilterDesign::kSections ? 3 : 1;
  const std::size_t count = std::max(design.b.size(), design.a.size()) / group;
  if (count > limit.count)
    fail(path, "holds " + std::to_string(count) + ", more than " + limit.reason);
}

FilterDesign design_of(const std::string& path, const std::vector<Array>& all,
                       const ReadOptions& options) {
  const std::vector<Array> arrays =
      options.variables.empty() ? all : chosen(path, all, options.variables);
  if (arrays.empty()) refuse(path, arrays, options);
  for (const Array& array : arrays)
    for (std::size_t i = 0; i < array.values.size(); ++i)
      if (!in_range(array.values[i]))
        fail(path, label(array) + " holds " + shown(array.values[i]) + " as value " +
                       std::to_string(i + 1) + ", out of the range of a coefficient");
  if (options.wanted == FilterDesign::kFir) return fir_of(path, arrays, options);
  if (options.wanted == FilterDesign::kIir) return iir_of(path, arrays, options);
  return sections_of(path, arrays, options);
}

FilterDesign sections_design(const std::string& path, const std::vector<double>& sections,
                             const ReadOptions& options) {
  if (options.wanted != FilterDesign::kSections)
    fail(path, "holds " + count_of(sections.size() / 6, "section") + ", which run with sos");
  FilterDesign design{FilterDesign::kSections, {}, {}};
  for (std::size_t i = 0; i < sections.size(); i += 6) {
    const auto at = sections.begin() + static_cast<std::ptrdiff_t>(i);
    std::vector<double> b(at, at + 3), a(at + 3, at + 6);
    divide(path, "the denominator of section " + std::to_string(i / 6 + 1), &b, &a);
    design.b.insert(design.b.end(), b.begin(), b.end());
    design.a.insert(design.a.end(), a.begin(), a.end());
  }
  return design;
}

}  // namespace jurn

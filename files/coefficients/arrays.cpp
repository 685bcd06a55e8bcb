// From named or unnamed arrays to a design.
#include "exact.h"

#include <algorithm>
#include <iterator>

#include "coefficients/kinds.h"
#include "coefficients/roles.h"

namespace jurn {
namespace {

/** All arrays and their shapes, and what would be accepted. */
[[noreturn]] void refuse(const std::string& path, const std::vector<Array>& arrays,
                         const ReadOptions& options) {
  static const char* const accepted[] = {
      "accepted is one vector of taps",
      "accepted are two vectors, numerator and denominator, or one array of two rows",
      "accepted is an array of L x 6 with an optional gain of 1, L or L + 1 values",
      "accepted are one vector of taps, numerator and denominator, or sections of six columns"};
  std::string message = "holds ";
  bool sections = false, pair = arrays.size() == 2 && is_vector(arrays[0]) && is_vector(arrays[1]);
  for (std::size_t i = 0; i < std::min<std::size_t>(arrays.size(), 8); ++i) {
    const Array& array = arrays[i];
    message += std::string(i ? ", " : "") + label(array) + " of " + std::to_string(array.rows) +
               " x " + std::to_string(array.columns);
    sections = sections || array.columns == 6;
    pair = pair || array.rows == 2 || (role_of(array.name) == Role::kDenominator && i > 0);
  }
  if (arrays.empty()) message += "no numeric array";
  message += std::string("; ") + accepted[options.wanted ? *options.wanted : 3];
  if (arrays.size() > 1) message += ", and --variables names them";
  if (sections && options.wanted && options.wanted != FilterDesign::kSections)
    message += "; sections run with sos";
  else if (pair && options.wanted == FilterDesign::kFir)
    message += "; numerator and denominator run with iir";
  else if (arrays.size() == 1 && is_vector(arrays[0]) && options.wanted &&
           options.wanted != FilterDesign::kFir)
    message += "; taps run with fir";
  fail(path, message);
}

std::vector<Array> chosen(const std::string& path, const std::vector<Array>& arrays,
                          const std::vector<std::string>& names) {
  std::vector<Array> result;
  for (const std::string& name : names) {
    const auto has_name = [&](const Array& a) { return a.name == name; };
    if (const Array* array = only(arrays, has_name)) {
      result.push_back(*array);
      continue;
    }
    if (std::any_of(arrays.begin(), arrays.end(), has_name))
      fail(path, "has several variables " + quote(name));
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
  const Array* b = by_order ? &arrays[0] : named(path, arrays, Role::kNumerator);
  const Array* a = by_order ? nullptr : named(path, arrays, Role::kDenominator);
  if (!b) b = only(arrays, [](const Array& x) { return is_vector(x) && x.values.size() > 1; });
  if (!b && arrays.size() == 1) b = &arrays[0];
  // A denominator of one value is a FIR filter's.
  const bool recursive = a && a->values.size() != 1;
  const bool sections = !by_order && named(path, arrays, Role::kSectionRows);
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
    const Array* b = by_order ? &arrays[0] : named(path, arrays, Role::kNumerator);
    const Array* a = by_order ? &arrays[1] : named(path, arrays, Role::kDenominator);
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
  const Array* rows = by_order ? &arrays[0] : named(path, arrays, Role::kSectionRows);
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
    gain = named(path, arrays, Role::kGain);
  // A lone scalar may be anything, say the rate; a vector of the right length is the gains.
  if (!gain && !by_order)
    gain = only(arrays, [&](const Array& x) {
      return &x != rows && is_vector(x) && x.values.size() > 1 &&
             (x.values.size() == sections || x.values.size() == sections + 1);
    });
  if (gain) apply_gain(path, *gain, &design);
  return design;
}

bool holds_zeros_and_poles(const std::string& path, const std::vector<Array>& arrays) {
  const Array* const poles = named(path, arrays, Role::kPoles);
  const Array* const zeros = named(path, arrays, Role::kZeros);
  const bool otherwise =
      named(path, arrays, Role::kSectionRows) || named(path, arrays, Role::kNumerator);
  const auto is_roots = [](const Array* array) { return array && is_vector(*array); };
  // Without zeros the array of them is empty, and left out by most programs.
  return is_roots(poles) && !otherwise &&
         (zeros ? is_roots(zeros) : named(path, arrays, Role::kGain) != nullptr);
}

/** Takes complex arrays away, a response perhaps, where others are the filter by their names. */
void drop_complex(const std::string& path, std::vector<Array>* arrays) {
  const auto is_complex = [](const Array& array) { return !array.imaginary.empty(); };
  const auto first = std::find_if(arrays->begin(), arrays->end(), is_complex);
  if (first == arrays->end()) return;
  const std::string name = label(*first);
  arrays->erase(std::remove_if(arrays->begin(), arrays->end(), is_complex), arrays->end());
  if (!named(path, *arrays, Role::kSectionRows) && !named(path, *arrays, Role::kNumerator))
    fail(path, name + " holds complex numbers; they are accepted as zeros z and poles p only");
}

FilterDesign zpk_of(const std::string& path, const std::vector<Array>& arrays,
                    const ReadOptions& options) {
  if (options.wanted && options.wanted != FilterDesign::kSections)
    fail(path, "holds zeros and poles, which run with sos");
  const Array* const gain = named(path, arrays, Role::kGain);
  if (gain && (gain->values.size() != 1 || !gain->imaginary.empty()))
    fail(path, label(*gain) + " has " + count_of(gain->values.size(), "value") +
                   "; the gain of zeros and poles has one, a real number");
  const Array none;
  const Array* const zeros = named(path, arrays, Role::kZeros);
  return zpk_design(path, zeros ? *zeros : none, *named(path, arrays, Role::kPoles),
                    gain ? gain->values[0] : 1.0);
}

}  // namespace

void check_design(const std::string& path, const FilterDesign& design, const Limits& limits) {
  const std::size_t group = design.kind == FilterDesign::kSections ? 3 : 1;
  const std::size_t count = std::max(design.b.size(), design.a.size()) / group;
  const CoefficientLimit& limit = limits.of(design.kind);
  if (count > limit.count)
    fail(path, "holds " + std::to_string(count) + ", more than " + limit.reason);
  for (const std::vector<double>* values : {&design.b, &design.a})
    for (const double value : *values)
      if (!in_range(value))
        fail(path, "holds a coefficient that becomes " + shown(value) +
                       " with its gain or scale, out of the range of a coefficient");
}

std::string description_of(const FilterDesign& design) {
  if (design.kind == FilterDesign::kFir) return count_of(design.b.size(), "tap");
  if (design.kind == FilterDesign::kSections) return count_of(design.b.size() / 3, "section");
  return "numerator and denominator of " + std::to_string(design.b.size()) + " and " +
         count_of(design.a.size(), "coefficient");
}

static FilterDesign design_of_numbers(const std::string& path, const std::vector<Array>& all,
                                      const ReadOptions& options) {
  std::vector<Array> arrays =
      options.variables.empty() ? all : chosen(path, all, options.variables);
  if (arrays.empty()) refuse(path, arrays, options);
  for (Array& array : arrays) {
    for (const std::vector<double>* values : {&array.values, &array.imaginary})
      for (std::size_t i = 0; i < values->size(); ++i)
        if (!in_range((*values)[i]))
          fail(path, label(array) + " holds " + shown((*values)[i]) + " as value " +
                         std::to_string(i + 1) + ", out of the range of a coefficient");
    if (std::all_of(array.imaginary.begin(), array.imaginary.end(),
                    [](double x) { return x == 0.0; }))
      array.imaginary.clear();
  }
  if (options.variables.empty() && holds_zeros_and_poles(path, arrays))
    return zpk_of(path, arrays, options);
  drop_complex(path, &arrays);
  switch (options.wanted ? *options.wanted : kind_of(path, arrays)) {
    case FilterDesign::kFir:
      return fir_of(path, arrays, options);
    case FilterDesign::kIir:
      return iir_of(path, arrays, options);
    default:
      return sections_of(path, arrays, options);
  }
}

FilterDesign design_of(const std::string& path, const std::vector<Array>& all,
                       const ReadOptions& options) {
  std::vector<Array> arrays;
  std::optional<Mark> mark;
  for (const Array& array : all)
    if (array.text.empty())
      arrays.push_back(array);
    else if (array.name == kMarkName && options.variables.empty())
      mark = parse_mark(array.text);
  FilterDesign design = read_marked(path, mark, options, [&](const ReadOptions& as_marked) {
    return design_of_numbers(path, arrays, as_marked);
  });
  if (mark && mark->kind == FilterDesign::kIir && arrays.size() == 1)
    for (std::vector<double>* row : {&design.b, &design.a})  // the table filled the shorter one up
      while (row->size() > 1 && row->back() == 0.0) row->pop_back();
  return design;
}

FilterDesign sections_design(const std::string& path, const std::vector<double>& sections,
                             const ReadOptions& options) {
  if (options.wanted && options.wanted != FilterDesign::kSections)
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

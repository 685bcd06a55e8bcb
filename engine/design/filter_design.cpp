#include "exact.h"

#include "design/filter_design.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "errors.h"

namespace jurn {

FilterDesign checked_design(FilterDesign::Kind kind, std::vector<double> b, std::vector<double> a) {
  const auto refuse = [](const std::string& message) { throw Error(kUsageError, message); };
  const std::size_t group = kind == FilterDesign::kSections ? 3 : a.size();
  if (b.empty()) refuse("the filter has no coefficients");
  if (kind == FilterDesign::kFir ? !a.empty() : a.empty())
    refuse(a.empty() ? "the filter has no denominator" : "an FIR has no denominator");
  if (kind == FilterDesign::kSections && (b.size() % 3 != 0 || a.size() != b.size()))
    refuse("a section takes three numbers of its numerator and three of its denominator");
  for (std::size_t k = 0; k < a.size(); k += group) {
    const double a0 = a[k];
    if (a0 == 0.0) refuse("a0 is 0, by which the filter would be divided");
    const std::size_t of_b = kind == FilterDesign::kSections ? 3 : b.size();
    if (a0 == 1.0) continue;
    for (std::size_t i = 0; i < of_b; ++i) b[k + i] /= a0;
    for (std::size_t i = 0; i < group; ++i) a[k + i] /= a0;
  }
  for (const std::vector<double>* const list : {&b, &a})
    if (!std::all_of(list->begin(), list->end(), [](double x) { return std::isfinite(x); }))
      refuse("a coefficient is infinite or no number");
  return {kind, std::move(b), std::move(a)};
}

FilterDesign sections_of_rows(const std::vector<double>& rows) {
  FilterDesign design{FilterDesign::kSections, {}, {}};
  for (std::size_t i = 0; i < rows.size(); ++i)
    (i % 6 < 3 ? design.b : design.a).push_back(rows[i]);
  return design;
}

std::vector<double> rows_of_sections(const FilterDesign& sections) {
  std::vector<double> rows;
  for (std::size_t k = 0; k < sections.b.size(); k += 3)
    for (const std::vector<double>* part : {&sections.b, &sections.a})
      rows.insert(rows.end(), &(*part)[k], &(*part)[k] + 3);
  return rows;
}

std::size_t group_of(const FilterDesign& design) {
  return design.kind == FilterDesign::kSections ? 3 : std::max(design.b.size(), design.a.size());
}

void scale(FilterDesign* design, double gain) {
  // The gain of a cascade is its first section's matter.
  const std::size_t count = design->kind == FilterDesign::kSections ? 3 : design->b.size();
  for (std::size_t i = 0; i < count; ++i) design->b[i] *= gain;
}

}  // namespace jurn

std::size_t std::hash<jurn::FilterDesign>::operator()(const jurn::FilterDesign& design) const {
  std::size_t sum = 0;
  const auto add = [&sum](std::size_t part) { sum = sum * 0x100000001b3u + part; };
  add(design.kind);
  add(static_cast<std::size_t>(design.delay));
  for (const auto* const all : {&design.b, &design.a})
    for (const double c : *all) add(std::hash<double>()(c));
  return sum;
}

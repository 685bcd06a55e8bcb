#include "exact.h"

#include "coefficients/kinds.h"

#include <cmath>

#include "coefficients/roles.h"

namespace jurn {
namespace {

/** Whether a0 = 1 and the poles of a section lie inside the unit circle, as they are or with the
 * signs turned, as programs that add the feedback write them. */
bool is_feedback(const double* a) {
  return a[0] == 1.0 && std::abs(a[2]) < 1.0 && std::abs(a[1]) < 1.0 + std::abs(a[2]);
}

/** A table of six columns whose a0 say that it is sections. */
bool is_sections(const Array& table) {
  bool ones = true, zero = false;
  for (std::size_t r = 0; r < table.rows; ++r) {
    const double a0 = table.values[6 * r + 3];
    ones = ones && a0 == 1.0;
    zero = zero || a0 == 0.0;
  }
  if (table.rows == 1) return is_feedback(&table.values[3]);
  return table.rows == 2 ? ones : !zero;
}

FilterDesign::Kind kind_of_table(const Array& table) {
  if (table.columns == 6 && is_sections(table)) return FilterDesign::kSections;
  if (table.rows == 2 && table.columns > 1) return FilterDesign::kIir;
  return FilterDesign::kFir;
}

}  // namespace

FilterDesign::Kind kind_of(const std::string& path, const std::vector<Array>& arrays) {
  if (named(path, arrays, Role::kSectionRows)) return FilterDesign::kSections;
  const Array* const a = named(path, arrays, Role::kDenominator);
  if (a && a->values.size() > 1) return FilterDesign::kIir;
  if (named(path, arrays, Role::kNumerator) && (a || arrays.size() == 1 || !arrays[0].name.empty()))
    return arrays.size() == 1 ? kind_of_table(arrays[0]) : FilterDesign::kFir;
  if (arrays.size() == 1) return kind_of_table(arrays[0]);
  if (only(arrays, [](const Array& x) { return x.columns == 6 && x.rows > 1; }))
    return FilterDesign::kSections;
  if (arrays.size() == 2 && is_vector(arrays[0]) && is_vector(arrays[1]) &&
      arrays[0].values.size() > 1 && arrays[1].values.size() > 1)
    return FilterDesign::kIir;
  return FilterDesign::kFir;
}

FilterDesign::Kind kind_of_lists(const std::vector<std::vector<double>>& lists) {
  Array table;
  table.rows = lists.size();
  table.columns = lists[0].size();
  for (const std::vector<double>& list : lists) {
    if (list.size() != table.columns) return FilterDesign::kIir;
    table.values.insert(table.values.end(), list.begin(), list.end());
  }
  return kind_of_table(table);
}

FilterDesign::Kind kind_of_rows(const std::string& path, const Rows& table) {
  const std::vector<Row>& rows = table.rows;
  const std::size_t columns = table.columns(), count = rows.size();
  bool even = false;
  const auto leads_with_one = [&](std::size_t column) {
    for (const Row& row : rows)
      if (row.values[column] != 1.0) return false;
    return true;
  };
  if (columns == 6 && leads_with_one(3) && (count > 1 || is_feedback(rows[0].values.data() + 3)))
    return FilterDesign::kSections;
  if (columns == 7 && leads_with_one(4) && count > 1 && is_index(table, 0, &even))
    return FilterDesign::kSections;
  const bool two_lines = count == 2 && rows[1].values[0] == 1.0;
  if (columns == 5 && count > 1 && !two_lines)
    fail(path,
         "may hold sections without a0, or taps five in a line; the titles b0 b1 b2 a1 a2 above "
         "the columns, or a1 and a2 behind an a0 of 1, say which");
  if (two_lines && rows[1].values.size() > 1) return FilterDesign::kIir;
  if (columns == 2 && count > 2 && rows[0].values[1] == 1.0 && !is_index(table, 0, &even))
    return FilterDesign::kIir;
  if (columns == 3 && count > 2 && rows[0].values[2] == 1.0 && is_index(table, 0, &even))
    return FilterDesign::kIir;
  return FilterDesign::kFir;
}

Limits filter_limits(Precision precision) {
  return {coefficient_limit(FilterDesign::kFir, precision),
          coefficient_limit(FilterDesign::kIir, precision),
          coefficient_limit(FilterDesign::kSections, precision)};
}

}  // namespace jurn

// A design as the functions in Python take it apart.
#pragma once

#include <tuple>
#include <vector>

#include "design/filter_design.h"

namespace jurn::python {

/** Kind, b and a. */
using Flat = std::tuple<int, std::vector<double>, std::vector<double>>;

inline Flat flat(const FilterDesign& design) {
  return {design.kind, design.b, design.a};
}

inline Precision precision_in(bool in_double) {
  return in_double ? Precision::kDouble : Precision::kInt16;
}

}  // namespace jurn::python

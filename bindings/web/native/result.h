// The text of the last result, and how values become JSON in it. One file of a module includes
// this.
#pragma once

#include <cmath>
#include <complex>
#include <cstdio>
#include <string>
#include <vector>

#include "design/filter_design.h"

namespace {

using jurn::FilterDesign;

std::string text;  // of the last result, until the next

void append_number(double value) {
  char digits[32];
  std::snprintf(digits, sizeof digits, "%.17g", value);
  text += std::isfinite(value) ? digits : "null";
}

void append_numbers(const char* name, const std::vector<double>& values) {
  text += std::string("\"") + name + "\":[";
  for (std::size_t i = 0; i < values.size(); ++i) {
    if (i > 0) text += ',';
    append_number(values[i]);
  }
  text += ']';
}

void append_roots(const char* name, const std::vector<std::complex<double>>& roots) {
  std::vector<double> flat;
  for (const std::complex<double>& root : roots) {
    flat.push_back(root.real());
    flat.push_back(root.imag());
  }
  append_numbers(name, flat);
}

void append_string(const std::string& value) {
  text += '"';
  for (const char c : value) {
    char escaped[8];
    std::snprintf(escaped, sizeof escaped, "\\u%04x", static_cast<unsigned char>(c));
    if (c == '"' || c == '\\' || static_cast<unsigned char>(c) < 0x20)
      text += escaped;
    else
      text += c;
  }
  text += '"';
}

void append_design(const FilterDesign& design) {
  static const char* const names[] = {"fir", "iir", "sections"};
  text += std::string("{\"kind\":\"") + names[design.kind] + "\",";
  append_numbers("b", design.b);
  text += ',';
  append_numbers("a", design.a);
  if (design.prepared)
    text += std::string(",\"prepared\":\"") +
            (*design.prepared == jurn::Precision::kInt16 ? "int16\"" : "double\"");
  text += '}';
}

}  // namespace

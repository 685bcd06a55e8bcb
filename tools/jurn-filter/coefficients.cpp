#include "coefficients.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>

#include "errors.h"

namespace tool {
namespace {

struct Row {
  int line;
  std::vector<double> values;
};

[[noreturn]] void fail(const std::string& path, int line, const std::string& message) {
  throw Error(kInputError, path + ":" + std::to_string(line) + ": " + message);
}

/** A piece of a file as an error shows it: short and printable, whatever the file holds. */
std::string quoted(std::string_view text) {
  std::string result(text.substr(0, 24));
  for (char& c : result)
    if (c < ' ' || c > '~') c = '?';
  return "'" + result + (text.size() > 24 ? "...'" : "'");
}

double parse_number(const std::string& path, int line, std::string_view token) {
  std::string_view digits = token;
  if (digits.size() > 1 && digits[0] == '+' && digits[1] != '-') digits.remove_prefix(1);
  double value = 0.0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
  // Every coefficient is stored as float or double; what neither holds is an error, not infinity.
  if (error == std::errc::result_out_of_range ||
      (error == std::errc() && !(std::abs(value) <= std::numeric_limits<float>::max())))
    fail(path, line, quoted(token) + " is out of the range of a coefficient");
  if (error != std::errc() || end != digits.data() + digits.size())
    fail(path, line, quoted(token) + " is no number");
  return value;
}

/** Adds the numbers of one line to a row. */
void parse_line(const std::string& path, std::string_view text, Row* row) {
  text = text.substr(0, text.find('#'));
  bool after_comma = true;
  std::size_t at = 0;
  while (at < text.size()) {
    const char c = text[at];
    if (c == ',') {
      if (after_comma) fail(path, row->line, "a comma without a number before it");
      after_comma = true;
      ++at;
    } else if (std::strchr(" \t\r\v\f", c)) {
      ++at;
    } else {
      const std::size_t end = std::min(text.find_first_of(", \t\r\v\f", at), text.size());
      row->values.push_back(parse_number(path, row->line, text.substr(at, end - at)));
      after_comma = false;
      at = end;
    }
  }
}

/** The lines that hold numbers. Reading stops at the limit, so no file can fill the memory. */
std::vector<Row> read_rows(const std::string& path, std::size_t most,
                           const CoefficientLimit& limit) {
  std::error_code error;
  if (std::filesystem::is_directory(path, error))
    throw Error(kInputError, path + ": is a directory");
  std::ifstream file(path, std::ios::binary);
  if (!file) throw Error(kInputError, path + ": " + std::strerror(errno));
  std::vector<Row> rows;
  std::size_t count = 0;
  std::string text;
  for (int line = 1; std::getline(file, text); ++line) {
    std::string_view view = text;
    if (line == 1 && view.substr(0, 3) == "\xEF\xBB\xBF") view.remove_prefix(3);  // byte-order mark
    Row row{line, {}};
    parse_line(path, view, &row);
    count += row.values.size();
    if (count > most) fail(path, line, "more than " + limit.reason);
    if (!row.values.empty()) rows.push_back(std::move(row));
  }
  if (rows.empty()) throw Error(kInputError, path + ": holds no numbers");
  return rows;
}

std::vector<double> joined(const std::vector<Row>& rows) {
  std::vector<double> values;
  for (const Row& row : rows) values.insert(values.end(), row.values.begin(), row.values.end());
  return values;
}

void check_leading_one(const std::string& path, int line, double a0, const std::string& what) {
  if (a0 == 1.0) return;
  char value[32];
  std::snprintf(value, sizeof value, "%g", a0);
  fail(path, line, what + " starts with " + value + ", not with 1; divide its coefficients by it");
}

FilterDesign iir(std::vector<double> b, std::vector<double> a) {
  return {FilterDesign::kIir, std::move(b), std::move(a)};
}

}  // namespace

FilterDesign read_fir(const std::string& path, const CoefficientLimit& limit) {
  return {FilterDesign::kFir, joined(read_rows(path, limit.count, limit)), {}};
}

FilterDesign read_iir(const std::string& path, const CoefficientLimit& limit) {
  std::vector<Row> rows = read_rows(path, 2 * limit.count, limit);
  if (rows.size() != 2)
    fail(path, rows.back().line,
         std::to_string(rows.size()) + (rows.size() == 1 ? " line" : " lines") +
             " of numbers where a filter has two, numerator and denominator");
  for (const Row& row : rows)
    if (row.values.size() > limit.count) fail(path, row.line, "more than " + limit.reason);
  check_leading_one(path, rows[1].line, rows[1].values[0], "the denominator");
  return iir(std::move(rows[0].values), std::move(rows[1].values));
}

FilterDesign read_iir(const std::string& numerator, const std::string& denominator,
                      const CoefficientLimit& limit) {
  const std::vector<Row> a = read_rows(denominator, limit.count, limit);
  check_leading_one(denominator, a[0].line, a[0].values[0], "the denominator");
  return iir(joined(read_rows(numerator, limit.count, limit)), joined(a));
}

FilterDesign read_sections(const std::string& path, const CoefficientLimit& limit) {
  FilterDesign design{FilterDesign::kSections, {}, {}};
  for (const Row& row : read_rows(path, 6 * limit.count, limit)) {
    if (row.values.size() != 6)
      fail(path, row.line,
           std::to_string(row.values.size()) +
               " numbers where a section has six, b0 b1 b2 a0 a1 a2");
    check_leading_one(path, row.line, row.values[3], "the section's denominator");
    design.b.insert(design.b.end(), row.values.begin(), row.values.begin() + 3);
    design.a.insert(design.a.end(), row.values.begin() + 3, row.values.end());
  }
  return design;
}

void scale(FilterDesign* design, double gain) {
  // The gain of a cascade is its first section's matter.
  const std::size_t count = design->kind == FilterDesign::kSections ? 3 : design->b.size();
  for (std::size_t i = 0; i < count; ++i) design->b[i] *= gain;
}

}  // namespace tool

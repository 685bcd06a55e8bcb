// Numbers separated by white space, commas or semicolons, in lines: what people type, spreadsheets
// export and numpy.savetxt writes.
#include <algorithm>
#include <cctype>
#include <cstring>

#include "coefficients/parse.h"

namespace tool {
namespace {

struct Row {
  int line;
  std::vector<double> values;
};

std::string_view without_comment(std::string_view line) {
  return line.substr(0, line.find('#'));
}

/** Whether a line is the head of a table: nothing but names. */
bool is_head(std::string_view line) {
  const std::vector<std::string_view> names = split(line, ",; \t\"");
  return !names.empty() && std::all_of(names.begin(), names.end(), [](std::string_view name) {
    const std::string text = lower(name);
    return std::isalpha(static_cast<unsigned char>(name[0])) && text != "nan" &&
           text.substr(0, 3) != "inf";
  });
}

/** Adds the numbers of one line to a row. */
void parse_line(const std::string& path, std::string_view text, bool semicolons, Row* row) {
  // Where semicolons separate, commas are decimal points.
  const char separator = semicolons ? ';' : ',';
  const char* const ends = semicolons ? "; \t\r\v\f" : ", \t\r\v\f";
  bool after_separator = true;
  std::size_t at = 0;
  while (at < text.size()) {
    const char c = text[at];
    if (c == separator) {
      if (after_separator)
        fail(path, row->line,
             semicolons ? "a semicolon without a number before it"
                        : "a comma without a number before it");
      after_separator = true;
      ++at;
    } else if (c != '\0' && std::strchr(ends, c)) {
      ++at;
    } else {
      const std::size_t end = std::min(text.find_first_of(ends, at), text.size());
      std::string token(text.substr(at, end - at));
      if (token.size() > 2 && token.front() == '"' && token.back() == '"')
        token = token.substr(1, token.size() - 2);
      if (semicolons) std::replace(token.begin(), token.end(), ',', '.');
      row->values.push_back(parse_number(path, row->line, token));
      after_separator = false;
      at = end;
    }
  }
}

/** The lines that hold numbers, `most` at most. */
std::vector<Row> parse_rows(const std::string& path, std::string_view text, std::size_t most,
                            const CoefficientLimit& limit) {
  const std::vector<std::string_view> lines = lines_of(text);
  const bool semicolons = std::any_of(lines.begin(), lines.end(), [](std::string_view line) {
    return without_comment(line).find(';') != std::string_view::npos;
  });
  std::vector<Row> rows;
  std::size_t count = 0;
  for (std::size_t i = 0; i < lines.size(); ++i) {
    const std::string_view line = without_comment(lines[i]);
    if (rows.empty() && lines.size() > i + 1 && is_head(line)) continue;
    Row row{static_cast<int>(i + 1), {}};
    parse_line(path, line, semicolons, &row);
    count += row.values.size();
    if (count > most) fail(path, row.line, "more than " + limit.reason);
    if (!row.values.empty()) rows.push_back(std::move(row));
  }
  if (rows.empty()) fail(path, "holds no numbers");
  return rows;
}

void check_leading_one(const std::string& path, int line, double a0, const std::string& what) {
  if (a0 != 1.0)
    fail(path, line,
         what + " starts with " + shown(a0) +
             ", not with 1; divide the filter's coefficients by it");
}

FilterDesign parse_fir(const std::string& path, std::string_view text,
                       const CoefficientLimit& limit) {
  FilterDesign design{FilterDesign::kFir, {}, {}};
  for (const Row& row : parse_rows(path, text, limit.count, limit))
    design.b.insert(design.b.end(), row.values.begin(), row.values.end());
  return design;
}

FilterDesign parse_iir(const std::string& path, std::string_view text,
                       const CoefficientLimit& limit) {
  std::vector<Row> rows = parse_rows(path, text, 2 * limit.count, limit);
  if (rows.size() != 2)
    fail(path, rows.back().line,
         count_of(rows.size(), "line") +
             " of numbers where a filter has two, numerator and denominator");
  for (const Row& row : rows)
    if (row.values.size() > limit.count) fail(path, row.line, "more than " + limit.reason);
  check_leading_one(path, rows[1].line, rows[1].values[0], "the denominator");
  return {FilterDesign::kIir, std::move(rows[0].values), std::move(rows[1].values)};
}

FilterDesign parse_sections(const std::string& path, std::string_view text,
                            const CoefficientLimit& limit) {
  FilterDesign design{FilterDesign::kSections, {}, {}};
  for (const Row& row : parse_rows(path, text, 6 * limit.count, limit)) {
    if (row.values.size() != 6)
      fail(path, row.line,
           count_of(row.values.size(), "number") + " where a section has six, b0 b1 b2 a0 a1 a2");
    check_leading_one(path, row.line, row.values[3], "the section's denominator");
    design.b.insert(design.b.end(), row.values.begin(), row.values.begin() + 3);
    design.a.insert(design.a.end(), row.values.begin() + 3, row.values.end());
  }
  return design;
}

}  // namespace

FilterDesign parse_numbers(const std::string& path, std::string_view text,
                           const ReadOptions& options) {
  if (options.wanted == FilterDesign::kFir) return parse_fir(path, text, options.limit);
  if (options.wanted == FilterDesign::kIir) return parse_iir(path, text, options.limit);
  return parse_sections(path, text, options.limit);
}

}  // namespace tool

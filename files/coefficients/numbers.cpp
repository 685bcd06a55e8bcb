// Numbers separated by white space, commas or semicolons, in lines: what people type, spreadsheets
// export and numpy.savetxt writes.
#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstring>

#include "coefficients/parse.h"

namespace jurn {
namespace {

struct Row {
  int line;
  std::vector<double> values;
};

/** What stands before a comment of NumPy, Octave (#) or MATLAB (%). */
std::string_view without_comment(std::string_view line) {
  return line.substr(0, line.find_first_of("#%"));
}

/** Whether a line before the first number is the head of a table or a title: its first word is no
 * number. */
bool is_head(std::string_view line) {
  const std::vector<std::string_view> words = split(line, ",; \t\"");
  if (words.empty()) return false;
  const std::string first = lower(words[0]);
  return std::isalpha(static_cast<unsigned char>(first[0])) && first != "nan" &&
         first.substr(0, 3) != "inf";
}

/** Without the brackets and commas around lists of Python and MATLAB: "[0.5, 0.25]" */
std::string without_brackets(std::string_view line) {
  std::string text(line);
  if (text.find_first_of("[]") == std::string::npos) return text;
  std::replace_if(
      text.begin(), text.end(), [](char c) { return c == '[' || c == ']'; }, ' ');
  const std::size_t last = text.find_last_not_of(" \t");
  if (last != std::string::npos && (text[last] == ',' || text[last] == ';')) text.resize(last);
  const std::size_t first = text.find_first_not_of(" \t");
  return first != std::string::npos && text[first] == ',' ? text.substr(first + 1) : text;
}

/** Whether commas are decimal points though no semicolon separates: no point in the file, and every
 * comma between two digits, once in each number. Throws where "1,2" may be two numbers as well. */
bool has_decimal_commas(const std::string& path, const std::vector<std::string_view>& lines) {
  bool any = false, sure = false;
  int unsure_line = 0;
  for (std::size_t i = 0; i < lines.size(); ++i) {
    const std::string_view line = without_comment(lines[i]);
    if (!any && is_head(line)) continue;
    if (line.find('.') != std::string_view::npos) return false;
    for (const std::string_view word : split(line, " \t\"")) {
      const std::size_t comma = word.find(',');
      if (comma == std::string_view::npos) continue;
      const auto is_digit = [&](std::size_t at) {
        return at < word.size() && std::isdigit(static_cast<unsigned char>(word[at]));
      };
      if (comma == 0 || !is_digit(comma - 1) || !is_digit(comma + 1) ||
          word.find(',', comma + 1) != std::string_view::npos)
        return false;
      any = true;
      const bool zero = word[comma - 1] == '0' && (comma == 1 || !is_digit(comma - 2));
      if (zero || is_digit(comma + 2))
        sure = true;
      else if (!unsure_line)
        unsure_line = static_cast<int>(i + 1);
    }
  }
  if (any && !sure)
    fail(path, unsure_line,
         "a comma may be a decimal point or separate two numbers; write points, or separate by "
         "semicolons");
  return any;
}

/** Adds the numbers of one line to a row. */
void parse_line(const std::string& path, std::string_view text, bool decimal_commas, Row* row) {
  const char separator = decimal_commas ? ';' : ',';
  const char* const ends = decimal_commas ? "; \t\r\v\f" : ", \t\r\v\f";
  bool after_separator = true;
  std::size_t at = 0;
  while (at < text.size()) {
    const char c = text[at];
    if (c == separator) {
      if (after_separator)
        fail(path, row->line,
             decimal_commas ? "a semicolon without a number before it"
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
      if (decimal_commas) std::replace(token.begin(), token.end(), ',', '.');
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
    const std::string text_of_line = without_brackets(without_comment(line));
    return text_of_line.find(';') != std::string::npos;
  });
  // Where semicolons separate, commas are decimal points.
  const bool decimal_commas = semicolons || has_decimal_commas(path, lines);
  std::vector<Row> rows;
  std::size_t count = 0;
  for (std::size_t i = 0; i < lines.size(); ++i) {
    const std::string_view line = without_comment(lines[i]);
    if (rows.empty() && lines.size() > i + 1 && is_head(line)) continue;
    Row row{static_cast<int>(i + 1), {}};
    parse_line(path, without_brackets(line), decimal_commas, &row);
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

/** The columns that all rows have, or 0. */
std::size_t columns_of(const std::vector<Row>& rows) {
  for (const Row& row : rows)
    if (row.values.size() != rows[0].values.size()) return 0;
  return rows[0].values.size();
}

/** Whether a column holds 0, 1, 2 ... or 1, 2, 3 ...; `even` tells of any other even steps. */
bool is_index(const std::vector<Row>& rows, std::size_t column, bool* even) {
  const double first = rows[0].values[column], step = rows[1].values[column] - first;
  for (std::size_t i = 2; i < rows.size(); ++i) {
    const double wanted = first + step * static_cast<double>(i);
    if (std::abs(rows[i].values[column] - wanted) > 1e-3 * std::abs(step)) return false;
  }
  const bool counts = step == 1.0 && (first == 0.0 || first == 1.0);
  *even = step != 0.0 && !counts;
  return counts;
}

/** Takes the column away that counts the taps, and refuses what looks like another filter. */
void check_taps(const std::string& path, std::vector<Row>* rows) {
  const std::size_t columns = columns_of(*rows);
  if (columns == 6 && rows->size() > 1 &&
      std::all_of(rows->begin(), rows->end(), [](const Row& r) { return r.values[3] == 1.0; }))
    fail(path, "looks like " + count_of(rows->size(), "section") +
                   ", b0 b1 b2 1 a1 a2, which run with sos; --format numbers reads it as taps");
  if (rows->size() == 2 && columns > 1 && (*rows)[1].values[0] == 1.0)
    fail(path,
         "looks like numerator and denominator, which run with iir; --format numbers reads "
         "it as taps");
  bool even = false;
  if (columns != 2 || rows->size() < 4) return;
  if (is_index(*rows, 0, &even)) {
    for (Row& row : *rows) row.values.erase(row.values.begin());
  } else if (even) {
    fail(path,
         "looks like a table whose first column is a time or a frequency; leave the taps "
         "alone in it, or --format numbers reads every column as taps");
  }
}

FilterDesign parse_fir(const std::string& path, std::string_view text, const ReadOptions& options) {
  FilterDesign design{FilterDesign::kFir, {}, {}};
  std::vector<Row> rows = parse_rows(path, text, 2 * options.limit.count, options.limit);
  if (options.format == Format::kByContent) check_taps(path, &rows);
  for (const Row& row : rows) {
    design.b.insert(design.b.end(), row.values.begin(), row.values.end());
    if (design.b.size() > options.limit.count)
      fail(path, row.line, "more than " + options.limit.reason);
  }
  return design;
}

FilterDesign parse_iir(const std::string& path, std::string_view text, const ReadOptions& options) {
  const CoefficientLimit& limit = options.limit;
  std::vector<Row> rows = parse_rows(path, text, 3 * limit.count, limit);
  std::size_t columns = columns_of(rows);
  bool even = false;
  if (columns == 3 && rows.size() > 2 && is_index(rows, 0, &even)) {
    for (Row& row : rows) row.values.erase(row.values.begin());
    columns = 2;
  }
  if (columns == 2 && rows.size() > 2) {  // two columns, b and a
    Row b{rows[0].line, {}}, a{rows[0].line, {}};
    for (const Row& row : rows) {
      b.values.push_back(row.values[0]);
      a.values.push_back(row.values[1]);
    }
    rows = {std::move(b), std::move(a)};
  }
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
  std::vector<Row> rows = parse_rows(path, text, 7 * limit.count, limit);
  bool even = false;
  const std::size_t columns = columns_of(rows);
  if ((columns == 7 || (columns == 6 && rows[0].values[3] != 1.0)) && rows.size() > 1 &&
      is_index(rows, 0, &even))
    for (Row& row : rows) row.values.erase(row.values.begin());
  if (columns_of(rows) == 5)  // without a0
    for (Row& row : rows) row.values.insert(row.values.begin() + 3, 1.0);
  if (rows.size() > limit.count) fail(path, rows[limit.count].line, "more than " + limit.reason);
  for (const Row& row : rows) {
    if (row.values.size() != 6)
      fail(path, row.line,
           count_of(row.values.size(), "number") +
               " where a section has six, b0 b1 b2 a0 a1 a2, or five without a0");
    check_leading_one(path, row.line, row.values[3], "the section's denominator");
    design.b.insert(design.b.end(), row.values.begin(), row.values.begin() + 3);
    design.a.insert(design.a.end(), row.values.begin() + 3, row.values.end());
  }
  return design;
}

}  // namespace

std::vector<std::vector<double>> parse_channels(const std::string& path, std::string_view text,
                                                const CoefficientLimit& limit) {
  const std::vector<Row> rows = parse_rows(path, text, 17 * limit.count, limit);
  const std::size_t columns = columns_of(rows);
  if (columns < 2 || rows.size() == 1) {  // as many numbers in a line as there was room
    std::vector<double> taps;
    for (const Row& row : rows) taps.insert(taps.end(), row.values.begin(), row.values.end());
    return {taps};
  }
  bool even = false;
  const bool counted = rows.size() > 3 && (is_index(rows, 0, &even) || even);
  std::vector<std::vector<double>> channels(columns - counted);
  for (const Row& row : rows)
    for (std::size_t c = 0; c < channels.size(); ++c)
      channels[c].push_back(row.values[c + counted]);
  return channels;
}

FilterDesign parse_numbers(const std::string& path, std::string_view text,
                           const ReadOptions& options) {
  if (options.wanted == FilterDesign::kFir) return parse_fir(path, text, options);
  if (options.wanted == FilterDesign::kIir) return parse_iir(path, text, options);
  return parse_sections(path, text, options.limit);
}

}  // namespace jurn

#include "exact.h"

#include "coefficients/rows.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstring>
#include <iterator>

namespace jurn {
namespace {

// More than the longest response that runs has in sixteen channels; a text of numbers that go on
// and on ends here.
constexpr std::size_t kMostNumbers = std::size_t{17} << 20;

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

/** The cells of a line of titles. */
std::vector<std::string> titles_of(std::string_view line) {
  const bool separated = line.find_first_of(",;\t") != std::string_view::npos;
  std::vector<std::string> titles;
  for (std::size_t at = 0; at <= line.size();) {
    const std::size_t end = std::min(line.find_first_of(separated ? ",;\t" : " ", at), line.size());
    const std::vector<std::string_view> words = split(line.substr(at, end - at), " \"'\t");
    std::string title;
    for (const std::string_view word : words) title += (title.empty() ? "" : " ") + lower(word);
    if (separated || !title.empty()) titles.push_back(title);
    at = end + 1;
  }
  return titles;
}

/** Keeps the titles that stand directly above the numbers, one per column. A comment counts only
 * where every word of it is known. */
void find_titles(const std::vector<std::string_view>& lines, Rows* table) {
  const std::size_t columns = table->columns();
  for (int line = table->rows[0].line - 1; line > 0; --line) {
    std::string_view text = lines[static_cast<std::size_t>(line - 1)];
    const std::size_t first = text.find_first_not_of(" \t\r");
    if (first == std::string_view::npos) continue;
    const bool comment = text[first] == '#' || text[first] == '%';
    text.remove_prefix(comment ? std::min(text.find_first_not_of("#% ", first), text.size()) : 0);
    table->titles = titles_of(comment ? text : without_comment(text));
    table->title_line = line;
    const auto is_unknown = [](const std::string& t) { return column_of(t) == Column::kUnknown; };
    if (columns < 2 || table->titles.size() != columns ||
        (comment && std::any_of(table->titles.begin(), table->titles.end(), is_unknown)))
      table->titles.clear();
    return;
  }
}

}  // namespace

std::size_t Rows::columns() const {
  for (const Row& row : rows)
    if (row.values.size() != rows[0].values.size()) return 0;
  return rows[0].values.size();
}

std::vector<double> Rows::column(std::size_t index) const {
  std::vector<double> values;
  for (const Row& row : rows) values.push_back(row.values[index]);
  return values;
}

void Rows::drop_column(std::size_t index) {
  for (Row& row : rows) row.values.erase(row.values.begin() + static_cast<std::ptrdiff_t>(index));
  if (!titles.empty()) titles.erase(titles.begin() + static_cast<std::ptrdiff_t>(index));
}

std::string plain_title(const std::string& title) {
  std::string name;
  for (const char c : title)
    if (std::isalnum(static_cast<unsigned char>(c))) name += c;
  return name;
}

Column column_of(const std::string& title) {
  const std::string name = plain_title(title);
  const auto is_one_of = [&](std::initializer_list<const char*> names) {
    return std::find(names.begin(), names.end(), name) != names.end();
  };
  if (is_one_of({"", "n", "k", "i", "index", "tap", "sample", "number", "no", "nr", "section",
                 "biquad", "stage"}))
    return Column::kIndex;
  if (is_one_of({"b", "h", "bn", "hn", "bk", "hk", "num", "numerator", "taps", "coefficient",
                 "coefficients", "coeff", "coeffs", "value", "values"}))
    return Column::kNumerator;
  if (is_one_of({"a", "an", "ak", "den", "denominator"})) return Column::kDenominator;
  if (is_one_of({"b0", "b1", "b2", "a0", "a1", "a2"})) return Column::kSection;
  return Column::kUnknown;
}

bool is_index(const Rows& table, std::size_t column, bool* even) {
  const auto value = [&](std::size_t row) { return table.rows[row].values[column]; };
  const std::size_t last = table.rows.size() - 1;
  // Over all rows: times are rounded, and a single step's error would count for every row.
  const double first = value(0), step = (value(last) - first) / static_cast<double>(last);
  // Six digits of seconds are 2 % of a step off. So near a line no response stays for many rows.
  const double tolerance = (last < 16 ? 1e-3 : 0.5) * std::abs(step);
  for (std::size_t i = 1; i < last; ++i)
    if (std::abs(value(i) - first - step * static_cast<double>(i)) > tolerance) return false;
  const bool counts = step == 1.0 && (first == 0.0 || first == 1.0);
  *even = step != 0.0 && !counts;
  return counts;
}

Rows parse_rows(const std::string& path, std::string_view text) {
  const std::vector<std::string_view> lines = lines_of(text);
  const bool semicolons = std::any_of(lines.begin(), lines.end(), [](std::string_view line) {
    const std::string text_of_line = without_brackets(without_comment(line));
    return !is_head(text_of_line) && text_of_line.find(';') != std::string::npos;
  });
  // Where semicolons separate, commas are decimal points.
  const bool decimal_commas = semicolons || has_decimal_commas(path, lines);
  Rows table;
  std::size_t count = 0;
  for (std::size_t i = 0; i < lines.size(); ++i) {
    const std::string_view line = without_comment(lines[i]);
    if (table.rows.empty() && lines.size() > i + 1 && is_head(line)) continue;
    Row row{static_cast<int>(i + 1), {}};
    parse_line(path, without_brackets(line), decimal_commas, &row);
    count += row.values.size();
    if (count > kMostNumbers) fail(path, row.line, "more numbers than any filter has");
    if (!row.values.empty()) table.rows.push_back(std::move(row));
  }
  if (table.rows.empty()) fail(path, "holds no numbers");
  find_titles(lines, &table);
  return table;
}

}  // namespace jurn

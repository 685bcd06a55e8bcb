// Numbers separated by white space, commas or semicolons, in lines: what people type, spreadsheets
// export and numpy.savetxt writes.
#include "exact.h"

#include <algorithm>
#include <iterator>

#include "coefficients/kinds.h"
#include "coefficients/rows.h"

namespace jurn {
namespace {

void check_leading_one(const std::string& path, int line, double a0, const std::string& what) {
  if (a0 != 1.0)
    fail(path, line,
         what + " starts with " + shown(a0) +
             ", not with 1; divide the filter's coefficients by it");
}

Array array_of(std::string name, std::vector<double> values) {
  Array array;
  array.name = std::move(name);
  array.columns = values.size();
  array.values = std::move(values);
  return array;
}

/** The columns of a table by their titles, as the arrays that they are. */
std::vector<Array> arrays_by_titles(const std::string& path, const Rows& table) {
  static const char* const parts[] = {"b0", "b1", "b2", "a0", "a1", "a2"};
  std::vector<Array> arrays;
  std::vector<double> section[6];
  for (std::size_t c = 0; c < table.titles.size(); ++c) {
    const std::string& title = table.titles[c];
    const Column role = column_of(title);
    if (role == Column::kUnknown)
      fail(path, table.title_line,
           "the column " + quote(title) +
               " is none of a filter; accepted titles are n, b or h, a, and b0 b1 b2 a0 a1 a2");
    if (role == Column::kNumerator) arrays.push_back(array_of("b", table.column(c)));
    if (role == Column::kDenominator) arrays.push_back(array_of("a", table.column(c)));
    if (role != Column::kSection) continue;
    std::vector<double>& part = section[std::find(parts, parts + 6, plain_title(title)) - parts];
    if (!part.empty()) fail(path, table.title_line, "two columns have the title " + quote(title));
    part = table.column(c);
  }
  if (std::all_of(section, section + 6, [](const auto& part) { return part.empty(); }))
    return arrays;
  if (!arrays.empty()) fail(path, table.title_line, "the columns are of filters of two kinds");
  if (section[3].empty()) section[3].assign(table.rows.size(), 1.0);
  Array sos;
  sos.name = "sos";
  sos.rows = table.rows.size();
  sos.columns = 6;
  for (std::size_t r = 0; r < table.rows.size(); ++r) {
    for (std::size_t i = 0; i < 6; ++i) {
      if (section[i].empty())
        fail(path, table.title_line, std::string("there is no column ") + parts[i]);
      sos.values.push_back(section[i][r]);
    }
    check_leading_one(path, table.rows[r].line, section[3][r], "the section's denominator");
  }
  return {std::move(sos)};
}

/** Takes the column away that counts the taps, and refuses what looks like another filter. */
void check_taps(const std::string& path, Rows* table) {
  const std::size_t columns = table->columns(), count = table->rows.size();
  const std::vector<Row>& rows = table->rows;
  const char* const otherwise = "; --format numbers reads every number as a tap";
  if (columns == 6 && count > 1 &&
      std::all_of(rows.begin(), rows.end(), [](const Row& r) { return r.values[3] == 1.0; }))
    fail(path, "looks like " + count_of(count, "section") +
                   ", b0 b1 b2 1 a1 a2, which run with sos" + otherwise);
  bool even = false;
  if (count == 2 && columns > 1 && rows[1].values[0] == 1.0)
    fail(path, std::string("looks like numerator and denominator, which run with iir") + otherwise);
  if (count < 2 || columns < 2) return;
  const bool counts = is_index(*table, 0, &even);
  if (columns == 2 && counts) return table->drop_column(0);
  if (columns <= 3 && count > 2 && even)
    fail(path, std::string("looks like a table whose first column is a time or a frequency; leave "
                           "the taps alone in it") +
                   otherwise);
  if (columns <= 3)
    fail(path, "holds " + std::to_string(columns) + " columns of " + count_of(count, "number") +
                   ", which are several responses; convolve --ir takes them" + otherwise);
}

FilterDesign fir_of(const std::string& path, Rows table, const ReadOptions& options) {
  FilterDesign design{FilterDesign::kFir, {}, {}};
  if (options.format == CoefficientFormat::kByContent) check_taps(path, &table);
  for (const Row& row : table.rows)
    design.b.insert(design.b.end(), row.values.begin(), row.values.end());
  return design;
}

FilterDesign iir_of(const std::string& path, Rows table) {
  bool even = false;
  if (table.columns() == 3 && table.rows.size() > 2 && is_index(table, 0, &even))
    table.drop_column(0);
  if (table.columns() == 2 && table.rows.size() > 2) {  // two columns, b and a
    const int line = table.rows[0].line;
    table.rows = {Row{line, table.column(0)}, Row{line, table.column(1)}};
  }
  std::vector<Row>& rows = table.rows;
  if (rows.size() != 2)
    fail(path, rows.back().line,
         count_of(rows.size(), "line") +
             " of numbers where a filter has two, numerator and denominator");
  check_leading_one(path, rows[1].line, rows[1].values[0], "the denominator");
  return {FilterDesign::kIir, std::move(rows[0].values), std::move(rows[1].values)};
}

FilterDesign sections_of(const std::string& path, Rows table) {
  FilterDesign design{FilterDesign::kSections, {}, {}};
  bool even = false;
  std::vector<Row>& rows = table.rows;
  const std::size_t columns = table.columns();
  if ((columns == 7 || (columns == 6 && rows[0].values[3] != 1.0)) && rows.size() > 1 &&
      is_index(table, 0, &even))
    table.drop_column(0);
  if (table.columns() == 5)  // without a0
    for (Row& row : rows) row.values.insert(row.values.begin() + 3, 1.0);
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
                                                int rate) {
  if (is_rew_response(text)) return {parse_rew_response(path, text, rate)};
  Rows table = parse_rows(path, text);
  const std::size_t columns = table.columns();
  if (columns < 2 || table.rows.size() == 1) {  // as many numbers in a line as there was room
    std::vector<double> taps;
    for (const Row& row : table.rows) taps.insert(taps.end(), row.values.begin(), row.values.end());
    return {taps};
  }
  for (const std::string& title : table.titles)
    for (const char* const other : {"freq", "hz", "db", "phase", "magnitude", "spl"})
      if (title.find(other) != std::string::npos)
        fail(path, table.title_line,
             "the column " + quote(title) + " is no response; taps over time are accepted");
  bool even = false;
  if (table.rows.size() > 2 && (is_index(table, 0, &even) || even)) table.drop_column(0);
  std::vector<std::vector<double>> channels;
  for (std::size_t c = 0; c < table.columns(); ++c) channels.push_back(table.column(c));
  return channels;
}

static FilterDesign design_of_rows(const std::string& path, std::string_view text,
                                   const ReadOptions& options) {
  Rows table = parse_rows(path, text);
  if (!table.titles.empty() && options.format == CoefficientFormat::kByContent) {
    const std::vector<Array> arrays = arrays_by_titles(path, table);
    for (const Array& array : arrays)
      if (array.name == "a")
        check_leading_one(path, table.rows[0].line, array.values[0], "the denominator");
    if (!arrays.empty()) return design_of(path, arrays, options);
  }
  switch (options.wanted ? *options.wanted : kind_of_rows(path, table)) {
    case FilterDesign::kFir:
      return fir_of(path, std::move(table), options);
    case FilterDesign::kIir:
      return iir_of(path, std::move(table));
    default:
      return sections_of(path, std::move(table));
  }
}

FilterDesign parse_numbers(const std::string& path, std::string_view text,
                           const ReadOptions& options) {
  return read_marked(path, mark_of_comments(text), options, [&](const ReadOptions& as_marked) {
    return design_of_rows(path, text, as_marked);
  });
}

}  // namespace jurn

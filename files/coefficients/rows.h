// Texts of numbers as rows and columns.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "coefficients/parse.h"

namespace jurn {

struct Row {
  int line;
  std::vector<double> values;
};

/** The numbers of a text, line by line. */
struct Rows {
  std::vector<Row> rows;            // one at least, none of them empty
  std::vector<std::string> titles;  // one per column, in small letters; empty where there are none
  int title_line = 0;

  /** The columns that all rows have, or 0. */
  std::size_t columns() const;
  /** One column from top to bottom. */
  std::vector<double> column(std::size_t index) const;
  void drop_column(std::size_t index);
};

/** A title without its signs: "b[0]" and "b_0" are b0. */
std::string plain_title(const std::string& title);

/** What a column holds by its title. */
enum class Column { kIndex, kNumerator, kDenominator, kSection, kUnknown };
Column column_of(const std::string& title);

Rows parse_rows(const std::string& path, std::string_view text);

/** Whether a column holds 0, 1, 2 ... or 1, 2, 3 ...; `even` tells of any other even steps. Two
 * rows at least. */
bool is_index(const Rows& table, std::size_t column, bool* even);

}  // namespace jurn

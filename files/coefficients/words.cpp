#include "exact.h"

#include "coefficients/words.h"

#include <algorithm>
#include <cctype>

namespace jurn {

double Words::number(std::string_view text) const {
  std::string point(text);
  if (point.find('.') == std::string::npos) std::replace(point.begin(), point.end(), ',', '.');
  return parse_number(path_, line_ ? line_ : 1, point);
}

double Words::quantity(const std::string& keyword, const std::string& unit) {
  if (!left()) fail(quote(keyword) + " ends without a number");
  const std::string_view word = next();
  std::string text = lower(word);
  double factor = 1.0;
  const auto drop_ending = [&](const std::string& end) {
    if (text.size() <= end.size() || text.compare(text.size() - end.size(), end.size(), end) != 0)
      return false;
    text.resize(text.size() - end.size());
    return true;
  };
  const bool hertz = unit == "hz";
  bool has_unit = !unit.empty() && drop_ending(unit);
  if (hertz && drop_ending("k")) {
    factor = 1000.0;
    has_unit = true;
  }
  const std::size_t comma = text.find(',');
  if (hertz && comma != std::string::npos && text.size() >= comma + 4 &&
      (text.size() == comma + 4 || text[comma + 4] == '.'))
    text.erase(comma, 1);  // thousands
  else if (comma != std::string::npos && text.find('.') == std::string::npos)
    text[comma] = '.';
  const double value = number(text);
  if (!has_unit && !unit.empty()) {
    if (hertz && ahead() == "khz") factor = 1000.0;
    if (ahead() == unit || (hertz && ahead() == "khz")) skip();
  }
  return factor * value;
}

bool starts_number(const std::string& word) {
  return !word.empty() && (std::isdigit(static_cast<unsigned char>(word[0])) || word[0] == '-' ||
                           word[0] == '+' || word[0] == '.');
}

}  // namespace jurn

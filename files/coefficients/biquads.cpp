// Lists of biquads, as room correction programs write them.
#include "exact.h"

#include <algorithm>
#include <iterator>

#include "coefficients/parse.h"

namespace jurn {
namespace {

std::string_view without_space(std::string_view text) {
  const char* const space = " \t\v\f";
  const std::size_t first = text.find_first_not_of(space);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(space) - first + 1);
}

}  // namespace

std::vector<double> parse_biquads(const std::string& path, std::string_view text) {
  static const char* const names[] = {"b0", "b1", "b2", "a1", "a2"};
  const std::vector<std::string_view> lines = lines_of(text);
  std::vector<double> sections;
  double values[5];
  bool given[5] = {};
  int start = 0;  // line of the biquad that is being read
  const auto finish = [&] {
    if (!start) return;
    for (int i = 0; i < 5; ++i)
      if (!given[i])
        fail(path, start,
             std::string("the biquad has no ") + names[i] + "; it takes b0, b1, b2, a1 and a2");
    // These programs add the feedback instead of subtracting it.
    for (const double x : {values[0], values[1], values[2], 1.0, -values[3], -values[4]})
      sections.push_back(x);
    std::fill(given, given + 5, false);
  };
  for (std::size_t i = 0; i < lines.size(); ++i) {
    const int line = static_cast<int>(i + 1);
    for (const std::string_view part : split(lines[i].substr(0, lines[i].find('#')), ",")) {
      const std::string_view entry = without_space(part);
      const std::size_t equals = entry.find('=');
      if (entry.empty()) continue;
      if (lower(entry.substr(0, 6)) == "biquad" && equals == std::string_view::npos) {
        finish();
        start = line;
        continue;
      }
      const std::string name = lower(without_space(entry.substr(0, equals)));
      const auto* found = std::find(std::begin(names), std::end(names), name);
      if (equals == std::string_view::npos || found == std::end(names))
        fail(path, line,
             quote(entry) + " is not understood; accepted are biquad1, b0=, b1=, b2=, a1= and a2=");
      const auto k = found - names;
      if (!start) fail(path, line, quote(entry) + " stands before the first biquad1");
      if (given[k]) fail(path, line, quote(name) + " is given twice for one biquad");
      given[k] = true;
      values[k] = parse_number(path, line, without_space(entry.substr(equals + 1)));
    }
  }
  finish();
  if (sections.empty()) fail(path, "holds no biquad");
  return sections;
}

}  // namespace jurn

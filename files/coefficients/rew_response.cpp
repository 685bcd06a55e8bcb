// Impulse responses that REW exports as text: lines of settings with their names behind "//", then
// one sample in each line.
#include "exact.h"

#include <cmath>

#include "coefficients/parse.h"

namespace jurn {

bool is_rew_response(std::string_view text) {
  return text.substr(0, 4096).find("Impulse Response data saved by REW") != std::string_view::npos;
}

std::vector<double> parse_rew_response(const std::string& path, std::string_view text, int rate) {
  std::vector<double> taps;
  double peak = 1.0;
  bool normalised = false;
  const std::vector<std::string_view> lines = lines_of(text);
  for (std::size_t i = 0; i < lines.size(); ++i) {
    const int line = static_cast<int>(i + 1);
    const std::size_t first = lines[i].find_first_not_of(" \t");
    if (first == std::string_view::npos) continue;
    const std::size_t slashes = lines[i].find("//");
    const std::string remark =
        lower(lines[i][first] == '*'              ? lines[i]
              : slashes == std::string_view::npos ? std::string_view()
                                                  : lines[i].substr(slashes));
    if (lines[i][first] == '*') {
      if (remark.find("normalised") != std::string::npos)
        normalised = remark.find("not normalised") == std::string::npos;
      continue;
    }
    for (const std::string_view word : split(lines[i].substr(0, slashes), " \t,;")) {
      const double value = parse_number(path, line, word);
      if (remark.empty())
        taps.push_back(value);
      else if (remark.find("peak value") != std::string::npos)
        peak = value;
      else if (remark.find("sample interval") != std::string::npos && rate > 0 &&
               std::abs(value * rate - 1.0) > 1e-4)
        fail(path, line,
             "the response of REW is at " + shown(std::round(1.0 / value)) + " Hz instead of " +
                 std::to_string(rate) + " Hz");
    }
  }
  if (taps.empty()) fail(path, "holds no samples of REW's response");
  // What REW scaled to a peak of 1 gets its gain back.
  if (normalised)
    for (double& tap : taps) tap *= peak;
  return taps;
}

}  // namespace jurn

#include "exact.h"

#include "coefficients/measurement.h"

#include <algorithm>
#include <cmath>

#include "coefficients/rows.h"
#include "file_kind.h"
#include "number_text.h"

namespace jurn {
namespace {

constexpr double kMostLevel = 300.0;  // dB
constexpr double kMostFrequency = 1e6;
constexpr std::size_t kFewest = 2;

bool has(const std::string& title, std::initializer_list<const char*> parts) {
  for (const char* const part : parts)
    if (title.find(part) != std::string::npos) return true;
  return false;
}

bool is_frequency(const std::string& title) {
  return has(title, {"freq", "hz"}) || title == "f";
}

/** A line whose commas nobody can take for another thing, since it has two numbers at least:
 * without other separators they separate, between numbers that others separate they are decimal
 * points. */
std::string with_plain_commas(std::string_view line) {
  std::string text(line);
  if (text.find(';') != std::string::npos) return text;
  const std::vector<std::string_view> words = split(line, " \t");
  const bool trails = std::any_of(words.begin(), words.end(), [](std::string_view word) {
    return word.front() == ',' || word.back() == ',';
  });
  const bool separate = words.size() < 2 || trails || text.find('.') != std::string::npos;
  for (std::size_t at = 0; (at = text.find(',', at)) != std::string::npos; ++at)
    text.replace(at, 1, separate ? ", " : ".");
  return text;
}

/** Comments become empty lines; the head of the columns, which REW writes as a comment, stays. */
std::string without_comments(const std::string& path, std::string_view text) {
  std::string result;
  int number = 0;
  for (std::string_view line : lines_of(text)) {
    ++number;
    std::string data;
    const std::size_t first = line.find_first_not_of(" \t\"");
    const bool comment =
        first != std::string_view::npos && (line[first] == '*' || line[first] == '#' ||
                                            line[first] == '%' || line.substr(first, 2) == "//");
    if (comment) {
      line.remove_prefix(std::min(line.find_first_not_of("*#%/ \t\"", first), line.size()));
      const std::vector<std::string_view> words = split(line, " \t,;");
      if (words.size() < 2 || !is_frequency(lower(words[0]))) line = {};
    } else {
      for (const std::string_view word : split(line, " \t,;\"+-")) {
        const std::string value = lower(word);
        if (value == "nan" || value == "inf" || value == "infinity")
          fail(path, number, quote(line) + " has no level");
      }
      const bool is_head = line.find_first_of("0123456789") == std::string_view::npos;
      if (!is_head) line = data = with_plain_commas(line);
    }
    result.append(line).append("\n");
  }
  return result;
}

/** Where the frequency and the level stand. */
struct Columns {
  std::size_t frequency = 0, level = 1;
};

Columns columns_of(const Rows& table) {
  Columns columns;
  const std::vector<std::string>& titles = table.titles;
  for (std::size_t i = titles.size(); i-- > 0;)
    if (is_frequency(titles[i])) columns.frequency = i;
  columns.level = columns.frequency == 0 ? 1 : 0;
  for (std::size_t i = titles.size(); i-- > 0;)
    if (i != columns.frequency && !has(titles[i], {"phase", "deg", "coherence"}) &&
        has(titles[i], {"db", "spl", "level", "magnitude", "gain", "amplitude"}))
      columns.level = i;
  for (std::size_t i = titles.size(); i-- > 0;)
    if (titles[i] == "raw") columns.level = i;
  return columns;
}

void refuse_others(const std::string& path, std::string_view text) {
  const std::string_view kind = kind_of_file(text);
  const std::string accepted =
      "; a measurement is text with a frequency in Hz and a level in dB in each line";
  if (!kind.empty()) fail(path, "is " + std::string(kind) + accepted);
  for (const char c : text.substr(0, 65536))
    if (static_cast<unsigned char>(c) < '\t') fail(path, "is binary" + accepted);
  if (is_rew_response(text))
    fail(path,
         "holds REW's impulse response; its export of the measurement as text has frequencies and "
         "levels");
  if (holds_equaliser(text))
    fail(path, "is an equaliser already, and no measurement; it runs as it is");
}

}  // namespace

std::vector<GraphicPoint> parse_measurement(const std::string& path, std::string_view bytes) {
  const std::string text = plain_text(bytes);
  refuse_others(path, text);
  const Rows table = parse_rows(path, without_comments(path, text));
  const Columns columns = columns_of(table);
  std::vector<GraphicPoint> points;
  for (const Row& row : table.rows) {
    if (row.values.size() <= std::max(columns.frequency, columns.level))
      fail(path, row.line,
           count_of(row.values.size(), "number") + "; a frequency and a level are needed");
    const double f = row.values[columns.frequency], level = row.values[columns.level];
    if (f == 0.0 && points.empty()) continue;
    if (!(f > 0.0 && f <= kMostFrequency))
      fail(path, row.line, "the frequency " + shown(f) + " Hz: accepted is above 0 to 1000000");
    if (std::abs(level) > kMostLevel)
      fail(path, row.line, "the level " + shown(level) + " dB: accepted is -300 to 300");
    if (!points.empty() && f <= points.back().frequency)
      fail(path, row.line,
           "the frequency " + shown(f) + " Hz follows " + shown(points.back().frequency) +
               " Hz; they have to rise");
    points.push_back({f, level});
  }
  if (points.size() < kFewest)
    fail(path, "holds " + count_of(points.size(), "point") + " of a response; " +
                   std::to_string(kFewest) + " at least are needed");
  return points;
}

std::vector<GraphicPoint> flat_target() {
  return {{1e-3, 0.0}, {kMostFrequency, 0.0}};
}

std::string text_of(const Fit& fit) {
  std::string text = "Preamp: " + number_text(fit.preamp) + " dB\n";
  for (std::size_t i = 0; i < fit.filters.size(); ++i)
    text += "Filter " + std::to_string(i + 1) + ": ON " + text_of(fit.filters[i]) + "\n";
  return text;
}

std::string summary_of(const Fit& fit) {
  const auto distance = [](const auto& d) {
    return printed("%.2f", d.rms) + " dB rms, at most " + printed("%.1f", d.largest) + " dB at " +
           printed("%.0f", d.frequency) + " Hz";
  };
  return count_of(fit.filters.size(), "band") + "; from the target " + distance(fit.after) +
         "; before " + distance(fit.before) + "; preamp " + printed("%.1f", fit.preamp) + " dB";
}

}  // namespace jurn

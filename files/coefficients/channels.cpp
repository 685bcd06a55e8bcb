#include "exact.h"

#include "coefficients/channels.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <iterator>

#include "coefficients/parse.h"

namespace jurn {
namespace {

/** The loudspeakers of so many channels, in the order of WAV; of others no names are usual. Where
 * two names are usual for one, a slash stands between them. */
std::vector<std::string_view> loudspeakers(int count) {
  static const char* const layouts[] = {"",
                                        "c",
                                        "l r",
                                        "l r c",
                                        "l r rl/sl rr/sr",
                                        "l r c rl/sl rr/sr",
                                        "l r c lfe/sub rl/sl rr/sr",
                                        "l r c lfe/sub rc sl sr",
                                        "l r c lfe/sub rl rr sl sr"};
  if (count >= static_cast<int>(std::size(layouts))) return {};
  return split(layouts[count], " ");
}

std::string upper(std::string_view text) {
  std::string result(text);
  std::transform(result.begin(), result.end(), result.begin(),
                 [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  return result;
}

bool is_number(std::string_view name) {
  return std::all_of(name.begin(), name.end(),
                     [](unsigned char c) { return std::isdigit(c) != 0; });
}

/** From 0; -1 where the recording has none. */
int channel_of(const std::string& name, int count) {
  if (is_number(name)) {
    const int number = name.size() > 4 ? 0 : std::atoi(name.c_str());
    return number <= count ? number - 1 : -1;
  }
  const std::vector<std::string_view> all = loudspeakers(count);
  for (std::size_t c = 0; c < all.size(); ++c)
    for (const std::string_view one : split(all[c], "/"))
      if (name == one) return static_cast<int>(c);
  return -1;
}

}  // namespace

std::vector<std::string> channel_names(const std::string& path, int line, std::string_view text) {
  std::vector<std::string> names;
  for (const std::string_view word : split(text, " \t\v\f,")) names.push_back(lower(word));
  if (names.empty()) fail(path, line, "'Channel' names no channel; accepted are L, R, 1, 2, all");
  const bool all = std::find(names.begin(), names.end(), "all") != names.end();
  return all ? std::vector<std::string>() : names;
}

std::vector<int> channels_of(const std::string& path, int line,
                             const std::vector<std::string>& names, int count) {
  std::vector<int> channels;
  for (int c = 0; names.empty() && c < count; ++c) channels.push_back(c);
  for (const std::string& name : names) {
    const int channel = channel_of(name, count);
    if (channel < 0) {
      std::string known;
      for (const std::string_view one : loudspeakers(count)) known += ", " + upper(one);
      fail(path, line,
           "there is no channel " + quote(upper(name)) + " among " +
               count_of(static_cast<std::size_t>(count), "channel") +
               "; accepted are all, numbers from 1" + known);
    }
    if (std::find(channels.begin(), channels.end(), channel) == channels.end())
      channels.push_back(channel);
  }
  std::sort(channels.begin(), channels.end());
  return channels;
}

}  // namespace jurn

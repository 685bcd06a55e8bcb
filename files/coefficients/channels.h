// The channels that Equalizer APO names.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace jurn {

/** What stands behind "Channel:": names and numbers in their order, none for all. */
std::vector<std::string> channel_names(const std::string& path, int line, std::string_view text);

/** Such channels of a recording, from 0: numbers count from 1, and names are those of its usual
 * loudspeakers. What it does not have is refused with the line. */
std::vector<int> channels_of(const std::string& path, int line,
                             const std::vector<std::string>& names, int count);

}  // namespace jurn

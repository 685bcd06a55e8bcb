// Kinds of files.
#pragma once

#include <string_view>

namespace jurn {

/** What a file is, like "an MP3 file", by its first bytes; empty when they tell nothing. */
std::string_view kind_of_file(std::string_view bytes);

}  // namespace jurn

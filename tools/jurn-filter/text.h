// Pieces of text for pictures and tables.
#pragma once

#include <string>

namespace jurn {

/** Appends formatted text. */
[[gnu::format(printf, 2, 3)]] void append(std::string* text, const char* format, ...);

/** The last part of a path, shortened to fit a legend. */
std::string short_name(const std::string& path);

/** A text as a field of a CSV file. */
std::string csv_field(const std::string& text);

}  // namespace jurn

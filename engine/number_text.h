// Numbers as text that programs read.
#pragma once

#include <charconv>
#include <string>

namespace jurn {

/** The shortest decimal that is the same float or double again, with a point in every locale. */
template <typename Number>
std::string number_text(Number value) {
  char text[40];
  return {text, std::to_chars(text, text + sizeof text, value).ptr};
}

}  // namespace jurn

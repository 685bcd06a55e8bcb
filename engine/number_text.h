// Numbers as text, with a point in every locale: a host may have set one with a comma.
#pragma once

#include <charconv>
#include <cstdio>
#include <cstring>
#include <string>

namespace jurn {

/** For programs: the shortest decimal that is the same float or double again. */
template <typename Number>
std::string number_text(Number value) {
  char text[40];
  return {text, std::to_chars(text, text + sizeof text, value).ptr};
}

/** For people: what printf makes of one number, of which `format` is all. */
inline std::string printed(const char* format, double value) {
  char text[330];  // of the largest double all digits
  std::snprintf(text, sizeof text, format, value);
  const std::size_t point = std::strspn(text, "+-0123456789");
  const std::size_t after = point + std::strcspn(text + point, "0123456789abcdefinx");
  return after == point ? text : std::string(text, point) + "." + (text + after);
}

}  // namespace jurn

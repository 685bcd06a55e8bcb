#include "exact.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <limits>

#include "coefficients/parse.h"
#include "errors.h"
#include "number_text.h"

namespace jurn {

void fail(const std::string& path, const std::string& message) {
  throw Error(kInputError, path + ": " + message);
}

void fail(const std::string& path, int line, const std::string& message) {
  throw Error(kInputError, path + ":" + std::to_string(line) + ": " + message);
}

std::string quote(std::string_view text) {
  std::string piece(text.substr(0, 24));
  for (char& c : piece)
    if (c < ' ' || c > '~') c = '?';
  return "'" + piece + (text.size() > 24 ? "...'" : "'");
}

std::string lower(std::string_view text) {
  std::string result(text);
  std::transform(result.begin(), result.end(), result.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return result;
}

std::string count_of(std::size_t count, const std::string& noun) {
  return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

std::string shown(double value) {
  return printed("%.9g", value);
}

bool in_range(double value) {
  return std::abs(value) <= std::numeric_limits<float>::max();
}

/** std::from_chars, which the C++ library of clang has not for every processor. */
static std::from_chars_result read_double(const char* begin, const char* end, double* value) {
#ifdef __cpp_lib_to_chars
  return std::from_chars(begin, end, *value);
#else
  // What strtod takes beyond it: space, a second sign, hexadecimal digits.
  const std::string token(begin, end);
  if (token.find_first_of("xX \t\v\f") != std::string::npos || token[0] == '+')
    return {begin, std::errc::invalid_argument};
  char* stop = nullptr;
  *value = std::strtod(token.c_str(), &stop);
  if (stop == token.c_str()) return {begin, std::errc::invalid_argument};
  const bool is_zero = token.find_first_of("123456789") >= token.find_first_of("eE");
  const bool is_word = token.find_first_of("0123456789") == std::string::npos;
  const bool lost = (*value == 0.0 && !is_zero) || (std::isinf(*value) && !is_word);
  return {begin + (stop - token.c_str()), lost ? std::errc::result_out_of_range : std::errc()};
#endif
}

double parse_number(const std::string& path, int line, std::string_view token) {
  std::string_view digits = token;
  if (digits.size() > 1 && digits[0] == '+' && digits[1] != '-') digits.remove_prefix(1);
  double value = 0.0;
  const auto [end, error] = read_double(digits.data(), digits.data() + digits.size(), &value);
  // Every coefficient is stored as float or double; what neither holds is an error, not infinity.
  if (error == std::errc::result_out_of_range || (error == std::errc() && !in_range(value)))
    fail(path, line, quote(token) + " is out of the range of a coefficient");
  if (error != std::errc() || end != digits.data() + digits.size())
    fail(path, line, quote(token) + " is no number");
  return value;
}

std::vector<std::string_view> split(std::string_view text, const char* separators) {
  std::vector<std::string_view> tokens;
  for (std::size_t at = text.find_first_not_of(separators); at != std::string_view::npos;) {
    const std::size_t end = std::min(text.find_first_of(separators, at), text.size());
    tokens.push_back(text.substr(at, end - at));
    at = text.find_first_not_of(separators, end);
  }
  return tokens;
}

std::vector<std::string_view> lines_of(std::string_view text) {
  if (text.substr(0, 3) == "\xEF\xBB\xBF") text.remove_prefix(3);
  std::vector<std::string_view> lines;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    std::string_view line = text.substr(0, end);
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    lines.push_back(line);
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return lines;
}

}  // namespace jurn

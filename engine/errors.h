// How engine and files fail: one exception with a kind and a message for the user. It prints
// nothing.
#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>
#include <utility>

namespace jurn {

/** A text without what moves a terminal, and of UTF-8 alone, as Python and Java take it: names and
 * what other libraries repeat of a file may hold anything. */
inline std::string printable(std::string text) {
  for (std::size_t i = 0; i < text.size();) {
    const auto byte = [&](std::size_t k) { return static_cast<unsigned char>(text.c_str()[k]); };
    const unsigned first = byte(i);
    const std::size_t length = first < 0x80 ? 1 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
    bool is_whole = first >> 6 != 2 && first < 0xF8;
    unsigned code = length == 1 ? first : first & (0xFFu >> (length + 1));
    for (std::size_t k = i + 1; is_whole && k < i + length; ++k) {
      is_whole = byte(k) >> 6 == 2;  // not of the 0 behind the end, either
      code = code << 6 | (byte(k) & 0x3Fu);
    }
    constexpr unsigned kLeast[] = {' ', 0xA0, 0x800, 0x10000};  // 0x80 to 0x9F are controls
    if (is_whole && code >= kLeast[length - 1] && code <= 0x10FFFF && code >> 11 != 0xD800 >> 11 &&
        code != 0x7F)
      i += length;
    else
      text[i++] = '?';
  }
  return text;
}

enum ErrorKind {
  kUsageError,   // something impossible is asked for
  kInputError,   // a file that is read is missing, damaged or beyond a limit
  kOutputError,  // the result cannot be written
  kInterrupted,  // a signal ended the work
  kPipeClosed    // whoever read the result has enough: no message
};

struct Error : std::runtime_error {
  Error(ErrorKind error_kind, std::string message)
      : std::runtime_error(printable(std::move(message))), kind(error_kind) {}
  ErrorKind kind;
};

}  // namespace jurn

// The words of a line, and the numbers with units among them.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "coefficients/parse.h"

namespace jurn {

/** The words of one filter, and where they stand; line 0 is a command line. */
class Words {
 public:
  Words(const std::string& path, int line, std::string_view text)
      : path_(path), line_(line), words_(split(text, " \t\v\f")) {}

  bool left() const { return at_ < words_.size(); }
  std::string_view next() { return words_[at_++]; }
  std::string ahead() const { return left() ? lower(words_[at_]) : std::string(); }
  void skip() { ++at_; }

  [[noreturn]] void fail(const std::string& message) const {
    if (line_) jurn::fail(path_, line_, message);
    jurn::fail(path_, message);
  }

  double number(std::string_view text) const;

  /** "-3 dB", "1k", "1,234 Hz", "63,50Hz": a number, perhaps with its unit attached or behind it.
   */
  double quantity(const std::string& keyword, const std::string& unit);

 private:
  std::string path_;
  int line_;
  std::vector<std::string_view> words_;
  std::size_t at_ = 0;
};

/** Whether a word is meant as a number. */
bool starts_number(const std::string& word);

}  // namespace jurn

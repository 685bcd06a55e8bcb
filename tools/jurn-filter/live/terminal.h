// Keys, and a line that changes, on a terminal.
#pragma once

#include <termios.h>

#include <string>

namespace jurn {

/** Where standard input and standard error are a terminal and `wanted`: keys come at once and
 * unseen, until the end. Elsewhere there are none, and nothing is shown. */
class Terminal {
 public:
  explicit Terminal(bool wanted);
  ~Terminal();
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;

  bool is_there() const { return is_there_; }
  /** The next key, or 0. */
  char key();
  void show(const std::string& line);
  /** Ends the line. */
  void end_line();

 private:
  termios before_{};  // ahead of what fills it
  bool is_there_, has_line_ = false;
};

}  // namespace jurn

#include "live/terminal.h"

#include <poll.h>
#include <unistd.h>

#include <cstdio>

namespace jurn {

Terminal::Terminal(bool wanted)
    : is_there_(wanted && isatty(STDIN_FILENO) && isatty(STDERR_FILENO) &&
                tcgetpgrp(STDIN_FILENO) == getpgrp() && tcgetattr(STDIN_FILENO, &before_) == 0) {
  if (!is_there_) return;
  termios unseen = before_;
  unseen.c_lflag &= static_cast<tcflag_t>(~(ICANON | ECHO));
  tcsetattr(STDIN_FILENO, TCSANOW, &unseen);
}

Terminal::~Terminal() {
  end_line();
  if (is_there_) tcsetattr(STDIN_FILENO, TCSANOW, &before_);
}

char Terminal::key() {
  pollfd input{STDIN_FILENO, POLLIN, 0};
  char key = 0;
  if (!is_there_ || poll(&input, 1, 0) != 1 || read(STDIN_FILENO, &key, 1) != 1) return 0;
  return key;
}

void Terminal::show(const std::string& line) {
  if (!is_there_) return;
  std::fprintf(stderr, "\r%s\033[K", line.c_str());
  has_line_ = true;
}

void Terminal::end_line() {
  if (has_line_) std::fputc('\n', stderr);
  has_line_ = false;
}

}  // namespace jurn

// How the tool fails: one exception that carries the message for the user and the exit code.
#pragma once

#include <stdexcept>
#include <string>

namespace tool {

enum ExitCode {
  kSuccess = 0,
  kUsageError = 2,   // the command line asks for something impossible
  kInputError = 3,   // a file that is read is missing, damaged or beyond a limit
  kOutputError = 4,  // the result cannot be written
  kInterrupted = 130,
  kPipeClosed = 141  // whoever read the result has enough: no message
};

struct Error : std::runtime_error {
  Error(ExitCode exit_code, const std::string& message)
      : std::runtime_error(message), code(exit_code) {}
  ExitCode code;
};

}  // namespace tool

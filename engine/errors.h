// How engine and files fail: one exception with a kind and a message for the user. It prints
// nothing.
#pragma once

#include <stdexcept>
#include <string>

namespace jurn {

enum ErrorKind {
  kUsageError,   // something impossible is asked for
  kInputError,   // a file that is read is missing, damaged or beyond a limit
  kOutputError,  // the result cannot be written
  kInterrupted,  // a signal ended the work
  kPipeClosed    // whoever read the result has enough: no message
};

struct Error : std::runtime_error {
  Error(ErrorKind error_kind, const std::string& message)
      : std::runtime_error(message), kind(error_kind) {}
  ErrorKind kind;
};

}  // namespace jurn

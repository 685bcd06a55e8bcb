// What the tool says about its work.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "errors.h"
#include "recordings/run.h"

namespace jurn {

int exit_code(ErrorKind kind);

/** Every failure is one line; a closed pipe is none. Returns the code. */
int report_error(int code, std::string message);

/** Nothing for an empty message. */
void warn(const std::string& message);

/** What a user may want to know and need not act on. */
void note(const std::string& message);
/** A line of either kind. */
void say(const std::string& line);

/** From then on this thread's lines are kept: those of a job that runs beside others are said when
 * it is its turn. Of null, they are said at once again. */
void keep_lines(std::vector<std::string>* kept);

/** A line on standard error about work that takes longer than a second, on a terminal only. */
class ProgressLine {
 public:
  ProgressLine();
  ~ProgressLine();
  ProgressLine(const ProgressLine&) = delete;
  ProgressLine& operator=(const ProgressLine&) = delete;

  void show(const Progress& progress);

 private:
  using Clock = std::chrono::steady_clock;

  bool enabled_;
  bool shown_ = false;
  std::string what_;
  Clock::time_point start_, next_;
};

struct LevelSummary {
  std::string input;
  std::string output;
  bool on_standard_output;
  double loudest_db;
  double seconds;  // at which it is that loud
};

/** Prints a summary to standard output, or to standard error when the result went there. */
void print(const Summary& summary, bool as_json);
void print(const LevelSummary& summary, bool as_json);

}  // namespace jurn

// What the tool says about its work.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "run.h"

namespace tool {

/** A line on standard error about work that takes longer than a second, on a terminal only. */
class Progress {
 public:
  Progress(const Job& job, const AudioReader& reader, const std::string& what);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  void show(std::int64_t frames);

 private:
  using Clock = std::chrono::steady_clock;

  bool enabled_;
  bool shown_ = false;
  std::string what_;
  double rate_, total_;  // frames
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

}  // namespace tool

// The level of a recording over time, as a meter or a voice detector sees it.
#pragma once

#include <string>

#include "recordings/audio_io.h"

namespace tool {

struct LevelJob {
  std::string input;
  std::string output;  // a CSV file; standard output when empty
  int length = 256;    // samples of the running mean
  double every = 0.1;  // seconds from row to row
  bool square = false;
  RawFormat raw;  // of the input
  bool overwrite = false;
  bool quiet = false;
  bool json = false;
};

constexpr int kMaxLevelLength = 256;

/** Writes the running mean of each channel's magnitude or square, one row per instant. */
void run_level(const LevelJob& job);

}  // namespace tool

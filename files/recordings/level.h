// The level of a recording over time, as a meter or a voice detector sees it.
#pragma once

#include <functional>
#include <vector>

#include "recordings/audio_io.h"

namespace jurn {

constexpr int kMaxLevelLength = 256;

struct LevelOptions {
  int length = kMaxLevelLength;  // samples of the running mean
  double every = 0.1;            // seconds from row to row
  bool square = false;           // the mean of the square, not of the magnitude
};

/** The running mean of each channel, as a fraction of full scale. */
using LevelRow = std::function<void(double seconds, const std::vector<double>& means)>;

struct Loudest {
  double mean;
  double seconds;  // at which it is that loud
};

/** Measures the rest of a recording, and hands out one row per instant. */
Loudest measure_level(AudioReader* reader, const LevelOptions& options, const LevelRow& on_row);

}  // namespace jurn

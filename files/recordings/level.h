// The level of a recording over time, as a meter or a voice detector sees it.
#pragma once

#include <functional>
#include <vector>

#include "recordings/audio_io.h"

namespace jurn {

struct LevelOptions {
  int length = 256;     // samples of the running mean, up to ten seconds
  double every = 0.1;   // seconds from row to row
  bool square = false;  // the mean of the square, not of the magnitude
};

/** The running mean of each channel, as a fraction of full scale. */
using LevelRow = std::function<void(double seconds, const std::vector<double>& means)>;

struct Loudest {
  double mean;
  double seconds;  // at which it is that loud
};

/** Throws where a running mean is longer than ten seconds. */
void check_length(int length, int rate);

/** Measures the rest of a recording, and hands out one row per instant. */
Loudest measure_level(AudioReader* reader, const LevelOptions& options, const LevelRow& on_row);

}  // namespace jurn

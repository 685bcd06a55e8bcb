// The spectra of recordings over time, as one picture.
#pragma once

#include <string>
#include <vector>

#include "recordings/audio_io.h"

namespace tool {

struct SpectrogramJob {
  std::vector<std::string> recordings;  // one, or before and after
  RawFormat raw;                        // of the first
  std::string picture, csv;             // either may be empty
  bool overwrite = false;
  int window = 1024;      // samples
  double floor = -100.0;  // dBFS at which the colours begin
  double top = 0.0;       // highest frequency in Hz; 0 for all
};

void run_spectrogram(const SpectrogramJob& job);

}  // namespace tool

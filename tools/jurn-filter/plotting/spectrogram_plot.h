// Spectrograms as a picture or a table.
#pragma once

#include <string>
#include <vector>

#include "plotting/gnuplot.h"
#include "recordings/spectrogram.h"

namespace jurn {

/** What is shown. */
struct SpectrogramView {
  int window = 1024;      // samples
  double floor = -100.0;  // dBFS at which the colours begin
  double top = 0.0;       // highest frequency in Hz; 0 for all
};

struct NamedSpectra : RecordingSpectra {
  std::string name;
};

/** The script of a picture, one recording below the other. */
std::string plot_spectrograms(Picture format, const SpectrogramView& view,
                              const std::vector<NamedSpectra>& analyses);

/** All values as CSV. */
std::string tabulate(const SpectrogramView& view, const std::vector<NamedSpectra>& analyses);

}  // namespace jurn

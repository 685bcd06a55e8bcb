// What a filter does, as pictures and tables: its response to frequencies, impulses and steps.
#pragma once

#include <complex>
#include <string>
#include <vector>

#include "coefficients/filter_design.h"

namespace tool {

enum class Panel { kMagnitude, kPhase, kGroupDelay, kImpulse, kStep, kPoles };

struct NamedFilter {
  std::string name;
  FilterDesign design;
};

struct ResponseJob {
  std::vector<NamedFilter> filters;
  int rate = 0;
  std::vector<Panel> panels;  // of the picture; empty for the usual ones
  std::string picture;        // its file; printed as text when this and `csv` are empty
  std::string csv;            // file of all values, "-" for standard output
  bool overwrite = false;
  std::vector<std::string> also_read;
};

/** The response at a frequency, given in radians per sample, and the group delay in samples. */
struct FrequencyResponse {
  std::complex<double> value;
  double delay;
};
FrequencyResponse frequency_response(const FilterDesign& design, double frequency);

/** The impulse response, until it has decayed by 60 dB. */
std::vector<double> impulse_response(const FilterDesign& design);

void run_response(ResponseJob job);

}  // namespace tool

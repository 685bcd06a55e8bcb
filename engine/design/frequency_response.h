// What a filter does to frequencies, impulses and steps, as numbers.
#pragma once

#include <complex>
#include <cstddef>
#include <vector>

#include "design/filter_design.h"

namespace jurn {

/** The response at one frequency, and the group delay there in samples. */
struct ResponsePoint {
  std::complex<double> value;
  double delay;
};

/** The frequency is in radians per sample. */
ResponsePoint response_at(const FilterDesign& design, double frequency);

/** The same of section k alone. */
ResponsePoint section_response_at(const FilterDesign& sections, std::size_t k, double frequency);

/** The impulse response, until it has decayed by 60 dB. */
std::vector<double> impulse_response(const FilterDesign& design);

constexpr std::size_t kMaxRootTaps = 100;  // beyond, zeros crowd along the circle

struct Response {
  std::vector<double> frequency, magnitude, phase, delay;  // Hz, dB, degrees, ms
  std::vector<double> impulse, step;                       // sample by sample
  bool has_roots = false;                                  // not of more than kMaxRootTaps taps
  std::vector<std::complex<double>> poles, zeros;
};

/** Everything at once, on frequencies that rise evenly on a logarithmic scale to half the rate. */
Response respond(const FilterDesign& design, int rate);

}  // namespace jurn

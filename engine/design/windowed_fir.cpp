#include "exact.h"

#include "design/windowed_fir.h"

#include <cmath>
#include <string>

#include "elementary.h"
#include "errors.h"
#include "units.h"

namespace jurn {
namespace {

/** The impulse response, `at` samples from its middle, of what passes up to a part of half the
 * rate.
 */
double low_pass(double part, double at) {
  const double turn = kPi * part * at;
  return part * (turn == 0.0 ? 1.0 : elementary::sin(turn) / turn);
}

}  // namespace

void check_taps(int taps, std::size_t most, Pass pass) {
  if (taps < 1 || static_cast<std::size_t>(taps) > most)
    throw Error(kInputError,
                std::to_string(taps) + " taps; 1 to " + std::to_string(most) + " are accepted");
  if (taps % 2 == 0 && (pass == Pass::kHigh || pass == Pass::kStop))
    throw Error(kInputError, std::to_string(taps) +
                                 " taps, an even number, let nothing pass at half the sample rate; "
                                 "a high-pass or band-stop takes an odd one");
}

FilterDesign windowed_fir(int taps, Window kind, double beta, const Corners& corners, int rate) {
  check_taps(taps, kMostWindowedTaps, corners.pass);
  check_corners(corners, rate);
  if (!(beta >= 0.0 && beta <= 500.0))
    throw Error(kInputError, "a Kaiser window of a beta beyond 0 to 500");
  const double low = 2.0 * corners.low / rate, high = 2.0 * corners.high / rate;
  FilterDesign design{FilterDesign::kFir, window(kind, static_cast<std::size_t>(taps), beta), {}};
  // Where the gain is to be 1, as a part of half the rate.
  const double middle = corners.pass == Pass::kHigh   ? 1.0
                        : corners.pass == Pass::kBand ? 0.5 * (low + high)
                                                      : 0.0;
  double gain = 0.0;
  for (int i = 0; i < taps; ++i) {
    const double at = i - 0.5 * (taps - 1);
    double ideal = low_pass(low, at);
    if (corners.pass == Pass::kHigh) ideal = low_pass(1.0, at) - ideal;
    if (corners.pass == Pass::kBand) ideal = low_pass(high, at) - ideal;
    if (corners.pass == Pass::kStop) ideal += low_pass(1.0, at) - low_pass(high, at);
    double& tap = design.b[static_cast<std::size_t>(i)];
    tap *= ideal;
    gain += tap * elementary::cos(kPi * at * middle);
  }
  if (gain == 0.0)  // both ends of most windows are 0
    throw Error(kInputError, std::to_string(taps) + " taps under this window are all 0");
  for (double& tap : design.b) tap /= gain;
  return design;
}

}  // namespace jurn

// Window functions, symmetric: for taps.
#pragma once

#include <cstddef>
#include <vector>

namespace jurn {

enum class Window { kRectangular, kHann, kHamming, kBlackman, kBlackmanHarris, kKaiser };

/** `beta` is Kaiser's. Equal to scipy.signal.get_window with fftbins=False. */
std::vector<double> window(Window kind, std::size_t count, double beta = 0.0);

/** The modified Bessel function of the first kind and order 0. */
double bessel_i0(double x);

}  // namespace jurn

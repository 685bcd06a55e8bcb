#include "exact.h"

#include "design/butterworth.h"

#include "elementary.h"
#include "units.h"

namespace jurn {

RootsAndGain butterworth_prototype(int order) {
  check_order(order);
  RootsAndGain f;
  for (int m = 1 - order; m < order; m += 2)
    f.poles.push_back(-elementary::polar(1.0, kPi * m / (2.0 * order)));
  return f;
}

FilterDesign butterworth(int order, const Corners& corners, int rate) {
  return digital_filter(butterworth_prototype(order), corners, rate);
}

}  // namespace jurn

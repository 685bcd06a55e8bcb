// Designs by the names that people know them by: one entry for all families.
#pragma once

#include "design/digital_filter.h"
#include "design/windows.h"

namespace jurn {

/** The numbers are part of the web's interface. */
enum class Family {
  kButterworth,
  kChebyshev1,
  kChebyshev2,
  kElliptic,
  kBessel,
  kWindowed,
  kEquiripple
};

/** What a family does not know is not read. */
struct FamilyDesign {
  Family family = Family::kButterworth;
  int order = 4;  // of the prototype; of an FIR the number of taps
  Corners corners;
  double ripple = 0.0;       // dB, where it lets pass
  double attenuation = 0.0;  // dB, where it stops
  Window window = Window::kHamming;
  double beta = 0.0;        // of Kaiser's window
  double transition = 0.0;  // Hz, of an equiripple FIR
  double weight = 1.0;      // of its error where it stops, against that where it lets pass
};

/** Throws with a sentence for what the family cannot do. */
FilterDesign design_of_family(const FamilyDesign& wanted, int rate);

}  // namespace jurn

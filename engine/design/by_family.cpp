#include "exact.h"

#include "design/by_family.h"

#include "design/bessel.h"
#include "design/butterworth.h"
#include "design/chebyshev.h"
#include "design/elliptic.h"
#include "design/equiripple.h"
#include "design/windowed_fir.h"

namespace jurn {

FilterDesign design_of_family(const FamilyDesign& f, int rate) {
  switch (f.family) {
    case Family::kChebyshev1:
      return chebyshev1(f.order, f.ripple, f.corners, rate);
    case Family::kChebyshev2:
      return chebyshev2(f.order, f.attenuation, f.corners, rate);
    case Family::kElliptic:
      return elliptic(f.order, f.ripple, f.attenuation, f.corners, rate);
    case Family::kBessel:
      return bessel(f.order, f.corners, rate);
    case Family::kWindowed:
      return windowed_fir(f.order, f.window, f.beta, f.corners, rate);
    case Family::kEquiripple:
      return equiripple(f.order, bands_of(f.corners, f.transition, f.weight, rate), rate);
    default:
      return butterworth(f.order, f.corners, rate);
  }
}

}  // namespace jurn

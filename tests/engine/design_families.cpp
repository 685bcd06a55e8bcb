// Designs for the Python test beside this file: a line of numbers each, in the order of
// FamilyDesign with the rate behind; answers with a line of the coefficients or of the refusal.
#include <cstdio>
#include <exception>

#include "design/by_family.h"

int main() {
  jurn::FamilyDesign f;
  int family = 0, pass = 0, window = 0, rate = 0;
  while (std::scanf("%d %d %d %lf %lf %lf %lf %d %lf %lf %lf %d", &family, &f.order, &pass,
                    &f.corners.low, &f.corners.high, &f.ripple, &f.attenuation, &window, &f.beta,
                    &f.transition, &f.weight, &rate) == 12) {
    f.family = static_cast<jurn::Family>(family);
    f.corners.pass = static_cast<jurn::Pass>(pass);
    f.window = static_cast<jurn::Window>(window);
    try {
      const jurn::FilterDesign design = jurn::design_of_family(f, rate);
      for (const std::vector<double>* part : {&design.b, &design.a})
        for (const double value : *part) std::printf("%.17g ", value);
      std::printf("\n");
    } catch (const std::exception& error) {
      std::printf("refused %s\n", error.what());
    }
  }
}

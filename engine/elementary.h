// Sines, powers and their like, from additions, multiplications and divisions alone: C libraries
// differ in the last bit, one of them even between two processors, and complex division between
// compilers. What turns into coefficients is computed by these, so that a design has the same bits
// everywhere. The error is four units in the last place at most.
#pragma once

#include <complex>

namespace jurn::elementary {

/** For |x| up to 10^6. */
double sin(double x);
double cos(double x);
double tan(double x);
/** e^x and 10^x; whole powers of ten are exact up to 10^22. */
double exp(double x);
double power_of_ten(double x);
double sinh(double x);
double asinh(double x);
/** Between -pi / 2 and pi / 2. */
double atan(double x);
/** x * x * x ..., so many times. */
double power(double x, int count);
/** The natural logarithm of a number that is not below 0. */
double log(double x);

/** radius * e^(i angle). */
std::complex<double> polar(double radius, double angle);
/** |z| */
double magnitude(std::complex<double> z);
/** The root on the right, or above 0 of a negative number. */
std::complex<double> square_root(std::complex<double> z);
/** x / y */
std::complex<double> quotient(std::complex<double> x, std::complex<double> y);

}  // namespace jurn::elementary

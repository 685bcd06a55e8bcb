/* Numbers as the sum of two doubles, about 32 digits, without fused operations. */
#ifndef JURN_PAIR_ARITHMETIC_H
#define JURN_PAIR_ARITHMETIC_H

struct Pair {
  double high;
  double low; /* at most half a unit in the last place of high */
};

static inline Pair pair_of(double x) {
  return {x, 0.0};
}

/** x + y where |x| >= |y|. */
static inline Pair quick_sum(double x, double y) {
  const double sum = x + y;
  return {sum, y - (sum - x)};
}

/** x + y, exactly. */
static inline Pair exact_sum(double x, double y) {
  const double sum = x + y;
  const double part = sum - x;
  return {sum, (x - (sum - part)) + (y - part)};
}

/** x y, exactly: the products of halves with 26 bits have no rounding. */
static inline Pair exact_product(double x, double y) {
  const double split = 134217729.0; /* 2^27 + 1 */
  const double xs = split * x, ys = split * y;
  const double xh = xs - (xs - x), yh = ys - (ys - y);
  const double xl = x - xh, yl = y - yh;
  const double product = x * y;
  return {product, ((xh * yh - product) + xh * yl + xl * yh) + xl * yl};
}

static inline Pair operator+(Pair x, Pair y) {
  const Pair sum = exact_sum(x.high, y.high);
  return quick_sum(sum.high, sum.low + (x.low + y.low));
}

static inline Pair operator-(Pair x) {
  return {-x.high, -x.low};
}

static inline Pair operator-(Pair x, Pair y) {
  return x + -y;
}

static inline Pair operator*(Pair x, Pair y) {
  const Pair product = exact_product(x.high, y.high);
  return quick_sum(product.high, product.low + (x.high * y.low + x.low * y.high));
}

static inline Pair operator/(Pair x, double y) {
  const double quotient = x.high / y;
  const Pair rest = x - exact_product(quotient, y);
  return quick_sum(quotient, rest.high / y);
}

#endif

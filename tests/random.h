/* The random numbers and the material of all tests. */
#ifndef JURN_TESTS_RANDOM_H
#define JURN_TESTS_RANDOM_H

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <limits>
#include <random>

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
/** The float nearest to 1e-6 lies below the double 1e-6, so it is flushed; the next one is not. */
constexpr float kFlushed = 1e-6f;
inline const float kKept = std::nextafter(kFlushed, 1.0f);

/** The same numbers with every standard library: a seed's, or choices that a fuzzer's bytes make.
 */
class Random {
 public:
  explicit Random(unsigned seed) : engine_(seed) {}
  Random(const uint8_t* bytes, size_t count) : at_(bytes), end_(bytes + count), from_bytes_(true) {}
  /** Whether the bytes are used up; every further number is the lowest one. */
  bool ended() const { return from_bytes_ && at_ == end_; }
  int in(int low, int high) {
    const unsigned range = high - low + 1u;
    const int bytes = range <= 256 ? 1 : range <= 65536 ? 2 : 4;
    return low + static_cast<int>(number(bytes) % range);
  }
  bool one_in(int n) { return in(1, n) == n; }
  double real(double scale) { return scale * (number(4) / 2147483648.0 - 1.0); }
  short sample() { return static_cast<short>(in(-32768, 32767)); }
  int one_of(std::initializer_list<int> values) {
    return values.begin()[in(0, static_cast<int>(values.size()) - 1)];
  }
  /** A count from least to most: often small, sometimes the limit itself. */
  int count(int least, int most) {
    if (one_in(8)) return most;
    return in(least, one_in(2) ? most : std::min(most, least + 40));
  }
  /** Any bit pattern: infinities, NaNs and denormals come often. */
  template <class Real>
  Real any_bits() {
    const float special[] = {0.0f, -0.0f, INFINITY, -INFINITY, kNaN, 1e-42f, 3e38f, -1e30f, 1.0f};
    if (one_in(2)) return special[in(0, 8)];
    float x;
    const uint32_t bits = number(4);
    std::memcpy(&x, &bits, sizeof x);
    return x;
  }
  /** A state: ordinary, zero of either sign, or close to the flush threshold. */
  float state() {
    const float edge[] = {kFlushed, -kFlushed, kKept, -kKept, 0.0f, -0.0f, 1e-42f, 9.9e-7f};
    return one_in(2) ? edge[in(0, 7)] : static_cast<float>(real(one_in(2) ? 30000.0 : 2e-6));
  }

  void states(float* out, int count) {
    const Grown grown(*this);
    for (int i = 0; i < count; ++i) out[i] = state();
  }

  void states(double* out, int count) {
    const Grown grown(*this);
    const double edge = 1e-6;
    for (int i = 0; i < count; ++i)
      out[i] = one_in(3)   ? one_of({-1, 1}) * std::nextafter(edge, in(0, 1))
               : one_in(3) ? edge
                           : state();
  }

  template <class Real>
  void uniform(Real* x, int count, double scale) {
    const Grown grown(*this);
    for (int i = 0; i < count; ++i) x[i] = static_cast<Real>(real(scale));
  }

  /** Noise, loud or quiet, a steady value, the two extremes, or silence. */
  template <class Sample>
  void signal(Sample* out, int count) {
    const Grown grown(*this);
    const int kind = in(0, 4);
    const short steady = kind == 4 ? 0 : sample();
    for (int i = 0; i < count; ++i)
      out[i] = kind == 0   ? sample()
               : kind == 1 ? in(-3, 3)
               : kind == 3 ? (one_in(2) ? 32767 : -32768)
                           : steady;
  }
  /** Float samples: the signals above, faint ones, or any bit pattern. */
  void floats(float* x, int count, bool wild) {
    signal(x, count);
    const bool faint = one_in(3);
    const Grown grown(*this, !wild);
    for (int i = 0; i < count; ++i) x[i] = wild ? any_bits<float>() : faint ? state() : x[i];
  }
  /** Taps. Most sets cancel on a steady input, so that the order of the sum shows in the result. */
  template <class Real>
  void taps(Real* b, int count, bool wild = false) {
    const Grown grown(*this, !wild);
    const int kind = in(0, 4);
    const double scale = kind == 0 ? 1.0 / count : kind == 1 ? 1e-9 : 3000.0;
    Real sum = 0;
    for (int i = 0; i < count; ++i) {
      b[i] = wild ? any_bits<Real>() : static_cast<Real>(real(scale));
      if (kind == 2 && one_in(2)) b[i] = one_in(2) ? Real(0) : -Real(0);
      if (i == count - 1 && kind >= 2 && !wild) b[i] = -sum;
      sum += b[i];
    }
  }
  /** A decaying denominator. Its first entry is never read. */
  template <class Real>
  void denominator(Real* a, int count, bool wild = false) {
    const Grown grown(*this, !wild);
    for (int i = 1; i < count; ++i)
      a[i] = wild ? any_bits<Real>() : static_cast<Real>(real(0.99 / (count - 1)));
    a[0] = kNaN;
  }
  /** ns sections of order n with poles inside the unit circle; some pass their input on, so that
   * values at the flush threshold stay there. */
  void sections(float* b, float* a, int n, int ns, bool wild = false) {
    const Grown grown(*this, !wild);
    for (int k = 0; k < ns; ++k, b += n + 1, a += n + 1) {
      const bool pass = one_in(5);
      double poly[5] = {1.0, 0.0, 0.0, 0.0, 0.0};
      for (int pair = 0; pair < n / 2 && !pass; ++pair) {
        const double r = std::fabs(real(0.98)), re = -2.0 * r * real(1.0);
        for (int j = 4; j >= 1; --j)
          poly[j] += re * poly[j - 1] + (j > 1 ? r * r * poly[j - 2] : 0);
      }
      for (int j = 0; j <= n; ++j) {
        b[j] =
            wild ? any_bits<float>() : static_cast<float>(pass ? j == 0 : real(j == 0 ? 1.0 : 0.3));
        a[j] = j == 0 ? kNaN : wild ? any_bits<float>() : static_cast<float>(poly[j]);
      }
    }
  }

 private:
  /** While it lives, numbers grow from a seed among the bytes: few bytes make a long array. */
  class Grown {
   public:
    explicit Grown(Random& random, bool wanted = true)
        : random_(random), from_bytes_(random.from_bytes_) {
      if (!from_bytes_ || !wanted) return;
      random_.engine_.seed(random_.number(2));
      random_.from_bytes_ = false;
    }
    Grown(const Grown&) = delete;
    Grown& operator=(const Grown&) = delete;
    ~Grown() { random_.from_bytes_ = from_bytes_; }

   private:
    Random& random_;
    bool from_bytes_;
  };
  uint32_t number(int bytes) {
    if (!from_bytes_) return static_cast<uint32_t>(engine_());
    uint32_t value = 0;
    for (; bytes > 0 && at_ != end_; --bytes) value = value << 8 | *at_++;
    return value;
  }

  std::mt19937 engine_;
  const uint8_t *at_ = nullptr, *end_ = nullptr;
  bool from_bytes_ = false;
};

#endif

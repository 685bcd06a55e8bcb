/* Random material, arrays between guard pages, and comparison of arrays and records bit by bit. */
#ifndef JURN_TESTS_SUPPORT_H
#define JURN_TESTS_SUPPORT_H

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "Filter_control.h"

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
/** The float nearest to 1e-6 lies below the double 1e-6, so it is flushed; the next one is not. */
constexpr float kFlushed = 1e-6f;
inline const float kKept = std::nextafter(kFlushed, 1.0f);

/** The same numbers with every standard library. */
class Random {
 public:
  explicit Random(unsigned seed) : engine_(seed) {}
  int in(int low, int high) { return low + static_cast<int>(engine_() % (high - low + 1u)); }
  bool one_in(int n) { return in(1, n) == 1; }
  double real(double scale) { return scale * (engine_() / 2147483648.0 - 1.0); }
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
    const unsigned bits = engine_();
    std::memcpy(&x, &bits, sizeof x);
    return x;
  }
  /** A state: ordinary, zero of either sign, or close to the flush threshold. */
  float state() {
    const float edge[] = {kFlushed, -kFlushed, kKept, -kKept, 0.0f, -0.0f, 1e-42f, 9.9e-7f};
    return one_in(2) ? edge[in(0, 7)] : static_cast<float>(real(one_in(2) ? 30000.0 : 2e-6));
  }

  void states(float* out, int count) {
    for (int i = 0; i < count; ++i) out[i] = state();
  }

  /** Noise, loud or quiet, a steady value, or the two extremes. */
  template <class Sample>
  void signal(Sample* out, int count) {
    const int kind = in(0, 3);
    const short steady = sample();
    for (int i = 0; i < count; ++i)
      out[i] = kind == 0   ? sample()
               : kind == 1 ? in(-3, 3)
               : kind == 2 ? steady
               : one_in(2) ? 32767
                           : -32768;
  }
  /** Taps. Most sets cancel on a steady input, so that the order of the sum shows in the result. */
  template <class Real>
  void taps(Real* b, int count, bool wild = false) {
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
    for (int i = 1; i < count; ++i)
      a[i] = wild ? any_bits<Real>() : static_cast<Real>(real(0.99 / (count - 1)));
    a[0] = kNaN;
  }
  /** ns sections of order n with poles inside the unit circle; some pass their input on, so that
   * values at the flush threshold stay there. */
  void sections(float* b, float* a, int n, int ns, bool wild = false) {
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
  std::mt19937 engine_;
};

/** An array that ends where a page without access begins, or starts where one ends; the slack on
 * its other side is checked at the end of its life. */
template <class T>
class GuardedArray {
 public:
  GuardedArray(Random& random, int count)
      : page_(static_cast<size_t>(sysconf(_SC_PAGESIZE))), bytes_(count * sizeof(T)) {
    room_ = (bytes_ / page_ + 1) * page_;
    base_ = static_cast<char*>(
        mmap(nullptr, room_ + 2 * page_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    mprotect(base_ + page_, room_, PROT_READ | PROT_WRITE);
    std::memset(base_ + page_, 0x5a, room_);
    start_ = base_ + page_ + (random.one_in(2) ? 0 : room_ - bytes_);
  }
  GuardedArray(const GuardedArray&) = delete;
  GuardedArray& operator=(const GuardedArray&) = delete;
  ~GuardedArray() {
    for (char* p = base_ + page_; p != base_ + page_ + room_; ++p)
      if ((p < start_ || p >= start_ + bytes_) && *p != 0x5a) {
        ADD_FAILURE() << "written " << p - start_ << " bytes from the start of an array";
        break;
      }
    munmap(base_, room_ + 2 * page_);
  }
  T* data() { return reinterpret_cast<T*>(start_); }

 private:
  size_t page_, bytes_, room_;
  char *base_, *start_;
};

/** Equal bits; NaNs of filters are only equal as such, since their sign and payload are open. */
template <class T>
bool same(const T* x, const T* y, size_t count) {
  if (count == 0 || std::memcmp(x, y, count * sizeof(T)) == 0) return true;
  for (size_t i = 0; i < count; ++i)
    if (std::memcmp(x + i, y + i, sizeof(T)) != 0 && (x[i] == x[i] || y[i] == y[i])) return false;
  return true;
}

/** One array for the library, exactly as long as its interface says, and one for the reference:
 * twin[true] is the library's. */
template <class T>
struct Twin {
  Twin(Random& random, int count) : guarded(random, count), expected(count) {}
  template <class Fill>
  Twin(Random& random, int count, Fill fill_array) : Twin(random, count) {
    fill(fill_array);
  }
  template <class Fill>
  void fill(Fill fill_array) {
    fill_array(expected.data(), static_cast<int>(expected.size()));
    std::copy(expected.begin(), expected.end(), guarded.data());
  }
  T* operator[](bool library) { return library ? guarded.data() : expected.data(); }
  bool agrees() { return same(guarded.data(), expected.data(), expected.size()); }

  GuardedArray<T> guarded;
  std::vector<T> expected;
};

template <class Record>
auto canonical(Record* r) -> decltype(r->memR, void()) {
  for (auto* mem : {&r->memL, &r->memR}) {
    for (float& x : mem->memoutput) x = x == x ? x : kNaN;
    for (float& x : mem->mempx) x = x == x ? x : kNaN;
    for (float& x : mem->mempy) x = x == x ? x : kNaN;
  }
}
inline void canonical(Filterf_ID* r) {
  for (double& x : r->memL.memoutput) x = x == x ? x : kNaN;
}

/** Whole records, bit by bit, NaNs in the states as above. */
template <class Record>
bool same_record(Record* x, Record* y) {
  if (std::memcmp(x, y, sizeof(Record)) == 0) return true;
  canonical(x);
  canonical(y);
  return std::memcmp(x, y, sizeof(Record)) == 0;
}

/** Rubbish in every field of a record with two channels. */
template <class Record>
void fill_rubbish(Random& random, Record* r) {
  for (auto* mem : {&r->memL, &r->memR}) {
    random.signal(mem->meminput, sizeof mem->meminput / sizeof(short));
    for (float& x : mem->memoutput) x = random.state();
    for (float& x : mem->mempx) x = random.state();
    for (float& x : mem->mempy) x = random.state();
    mem->memi = random.in(-9, 9);
    mem->memsumin = random.in(-9, 9);
  }
  for (float& x : r->b) x = static_cast<float>(random.real(1.0));
  for (float& x : r->a) x = static_cast<float>(random.real(1.0));
  r->blen = r->alen = r->Order = r->ns = r->n = r->chanel = r->filtertype = 99;
}

/** Chooses a kind that Filter_ID and Filterlongfir_ID share, and coefficients for it; returns the
 * longest block in values. taps is the largest tap count. */
template <class Record>
int configure(Random& random, Record* r, int taps) {
  const bool wild = random.one_in(10);
  const int history = sizeof r->memL.meminput / sizeof(short);
  r->chanel = random.in(1, 2);
  r->filtertype = random.in(-1, r->chanel == 1 ? 2 : 1);
  int frames = r->chanel == 2 ? 1056 : 1500;
  if (r->filtertype <= 0) {
    r->blen = random.count(1, taps);
    random.taps(r->b, r->blen, wild);
    frames = std::min(frames, history - (r->blen - 1));
  }
  if (r->filtertype == 0) {
    r->alen = random.count(1, 1250);
    random.denominator(r->a, r->alen, wild);
    frames = std::min(frames, 2156 - (r->alen - 1));
  }
  if (r->filtertype == 1) {
    r->n = random.one_of({2, 2, 4, 4, 3});
    r->ns = random.count(0, random.one_in(8) ? 1250 / (r->n + 1) : 24);
    random.sections(r->b, r->a, r->n, r->ns, wild);
    frames = 1056;
  }
  if (r->filtertype == 2) {
    r->blen = random.count(1, std::min(32767, history));
    r->memL.memi = random.in(0, r->blen - 1);
    r->memL.memsumin = 0;
    for (int i = 0; i < r->blen; ++i) r->memL.meminput[i] = random.sample();
    for (int i = 0; i < r->blen; ++i) r->memL.memsumin += r->memL.meminput[i];
  }
  return r->chanel * frames;
}

/** Runs one block through the library and through the reference, from a guarded array to a guarded
 * array or in place: run(true, input, output) is the library's call, run(false, ...) the other. */
template <class In = short, class Out = In, class Run>
bool runs_alike(Random& random, int inLen, int outLen, Run run) {
  const auto any = [&](auto* x, int count) { random.signal(x, count); };
  Twin<In> input(random, inLen, any);
  Twin<Out> output(random, outLen, any);
  const bool in_place = std::is_same_v<In, Out> && random.one_in(3);
  if (in_place)
    for (bool library : {false, true}) std::copy_n(input[library], inLen, output[library]);
  run(true, in_place ? reinterpret_cast<In*>(output[true]) : input[true], output[true]);
  run(false, input[false], output[false]);
  return input.agrees() && output.agrees();
}

#endif

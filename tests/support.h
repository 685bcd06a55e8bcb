/* Arrays between guard pages, and comparison of arrays and records bit by bit. */
#ifndef JURN_TESTS_SUPPORT_H
#define JURN_TESTS_SUPPORT_H

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <type_traits>
#include <vector>

#include "Filter_control.h"
#include "random.h"

/** An array that ends where a page without access begins, starts where one ends, or lies anywhere
 * between them; the slack around it is checked at the end of its life. An empty one is a null
 * pointer. */
template <class T>
class GuardedArray {
 public:
  GuardedArray(Random& random, int count)
      : page_(static_cast<size_t>(sysconf(_SC_PAGESIZE))), bytes_(count * sizeof(T)) {
    room_ = (bytes_ / page_ + 1) * page_;
    base_ = static_cast<char*>(
        mmap(nullptr, room_ + 2 * page_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    first_ = base_ + page_;
    mprotect(first_, room_, PROT_READ | PROT_WRITE);
    std::memset(first_, 0x5a, room_);
    const size_t slack = room_ - bytes_;
    const size_t before[] = {0, slack, std::min(slack, random.in(0, 63) * alignof(T))};
    start_ = first_ + before[random.in(0, 2)];
  }
  GuardedArray(const GuardedArray&) = delete;
  GuardedArray& operator=(const GuardedArray&) = delete;
  ~GuardedArray() {
    const auto untouched = [](char byte) { return byte == 0x5a; };
    if (!std::all_of(first_, start_, untouched) ||
        !std::all_of(start_ + bytes_, first_ + room_, untouched)) {
      std::fputs("written beside an array\n", stderr);
      std::abort();
    }
    munmap(base_, room_ + 2 * page_);
  }
  T* data() { return bytes_ ? reinterpret_cast<T*>(start_) : nullptr; }

 private:
  size_t page_, bytes_, room_;
  char *base_, *first_, *start_;
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

inline void canonical(shuzhiFilter_ID*) {}

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
    random.signal(mem->meminput, static_cast<int>(std::size(mem->meminput)));
    random.states(mem->mempx, static_cast<int>(std::size(mem->mempx)));
    random.states(mem->mempy, static_cast<int>(std::size(mem->mempy)));
    random.states(mem->memoutput, static_cast<int>(std::size(mem->memoutput)));
    mem->memi = random.in(-9, 9);
    mem->memsumin = random.in(-9, 9);
  }
  for (float* coefficients : {r->b, r->a}) random.taps(coefficients, JURN_COEFFICIENTS);
  r->blen = r->alen = r->Order = r->ns = r->n = r->chanel = r->filtertype = 99;
}

/** Chooses a kind that Filter_ID and Filterlongfir_ID share, and coefficients for it; taps is the
 * largest tap count. */
template <class Record>
void configure(Random& random, Record* r, int taps) {
  const bool wild = random.one_in(10);
  r->chanel = random.in(1, 2);
  r->filtertype = random.in(-1, r->chanel == 1 ? 2 : 1);
  if (r->filtertype <= 0) {
    r->blen = random.count(1, taps);
    random.taps(r->b, r->blen, wild);
  }
  if (r->filtertype == 0) {
    r->alen = random.count(1, 1250);
    random.denominator(r->a, r->alen, wild);
  }
  if (r->filtertype == 1) {
    r->n = random.one_of({2, 2, 4, 4, 3, 0});
    r->ns = random.count(0, random.one_in(8) ? 1250 / (r->n + 1) : 24);
    random.sections(r->b, r->a, r->n, r->ns, wild);
  }
  if (r->filtertype == 2) {
    r->blen = random.count(1, std::min(32767, static_cast<int>(std::size(r->memL.meminput))));
    r->memL.memi = random.in(0, r->blen - 1);
    r->memL.memsumin = 0;
    random.signal(r->memL.meminput, r->blen);
    for (int i = 0; i < r->blen; ++i) r->memL.memsumin += r->memL.meminput[i];
  }
}

/** The most values that a block of these kinds may have, but no more than 1500 of mono, to keep the
 * tests short. */
template <class Record>
int longest_block(const Record* r) {
  int frames = r->chanel == 2 || r->filtertype == 1 ? 1056 : 1500;
  const int history = static_cast<int>(std::size(r->memL.meminput));
  if (r->filtertype == -1 || r->filtertype == 0) frames = std::min(frames, history - r->blen + 1);
  if (r->filtertype == 0) frames = std::min(frames, 2156 - r->alen + 1);
  return r->chanel == 2 ? 2 * frames : frames;
}

/** Runs one block through the library and through the reference, from a guarded array to a guarded
 * array or in place: run(true, input, output) is the library's call, run(false, ...) the other. */
template <class Out = short, class Run, class In>
bool runs_alike(Random& random, int outLen, Twin<In>& input, Run run) {
  const int inLen = static_cast<int>(input.expected.size());
  Twin<Out> output(random, outLen, [&](Out* x, int count) { random.signal(x, count); });
  const bool in_place = std::is_same_v<In, Out> && random.one_in(3);
  if (in_place)
    for (bool library : {false, true}) std::copy_n(input[library], inLen, output[library]);
  run(true, in_place ? reinterpret_cast<In*>(output[true]) : input[true], output[true]);
  run(false, input[false], output[false]);
  return input.agrees() && output.agrees();
}
template <class Run>
bool runs_alike(Random& random, int inLen, int outLen, Run run) {
  Twin<short> input(random, inLen, [&](short* x, int count) { random.signal(x, count); });
  return runs_alike(random, outLen, input, run);
}

#endif

/* What the fuzz targets share. Each input is a program for one object: its bytes choose the calls,
 * the configuration and raw coefficients; long arrays grow from a seed in it. */
#ifndef JURN_TESTS_FUZZ_H
#define JURN_TESTS_FUZZ_H

#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "../reference.h"
#include "../support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

inline void require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "broken: %s\n", what);
  std::abort();
}

/** Reads an input; past its end every number is the lowest one. */
class Bytes {
 public:
  Bytes(const uint8_t* data, size_t size) : at_(data), end_(data + size) {}
  bool empty() const { return at_ == end_; }
  template <class T>
  T bits() {
    T value{};
    const size_t count = std::min(sizeof value, static_cast<size_t>(end_ - at_));
    std::memcpy(&value, at_, count);
    at_ += count;
    return value;
  }
  int in(int low, int high) {
    const uint32_t number = high - low < 256 ? bits<uint8_t>() : bits<uint16_t>();
    return low + static_cast<int>(number % (high - low + 1u));
  }
  /** A block of samples. */
  template <class Sample>
  std::vector<Sample> signal(int count) {
    std::vector<Sample> block(count);
    seed().signal(block.data(), count);
    return block;
  }
  Random seed() { return Random(bits<uint16_t>()); }
  /** Coefficients: bit by bit from the input, or from a seed, ordinary or wild. */
  template <class Real>
  void coefficients(Real* c, int count) {
    const int kind = in(0, 3);
    Random random = seed();
    if (kind == 0)
      for (int i = 0; i < count; ++i) c[i] = empty() ? Real(i % 3 - 1) : bits<Real>();
    else
      random.taps(c, count, kind == 1);
  }

 private:
  const uint8_t *at_, *end_;
};

/** The library's record and the reference's. The library's moves about: it starts at any multiple
 * of its alignment and ends where the allocation ends. */
template <class Record>
class Twins {
 public:
  Twins() : actual(nullptr), expected(new_record()), storage_(nullptr) { place(expected, 0); }
  Twins(const Twins&) = delete;
  Twins& operator=(const Twins&) = delete;
  ~Twins() {
    std::free(storage_);
    std::free(expected);
    std::free(saved_actual_);
    std::free(saved_expected_);
  }
  /** Both records get what `change` does to them. */
  template <class Change>
  void both(Change change) {
    change(actual);
    std::memcpy(expected, actual, sizeof(Record));
  }
  void move(int steps) { place(actual, steps); }
  void save() {
    if (!saved_actual_) {
      saved_actual_ = new_record();
      saved_expected_ = new_record();
    }
    std::memcpy(saved_actual_, actual, sizeof(Record));
    std::memcpy(saved_expected_, expected, sizeof(Record));
  }
  /** Does nothing before the first save. */
  bool restore() {
    if (!saved_actual_) return false;
    std::memcpy(actual, saved_actual_, sizeof(Record));
    std::memcpy(expected, saved_expected_, sizeof(Record));
    return true;
  }
  /** One block through both, perhaps in place. */
  template <class Out, class In, class Call, class RefCall>
  void run(const std::vector<In>& input, int out_count, bool in_place, Call call,
           RefCall ref_call) {
    const int in_count = static_cast<int>(input.size());
    std::vector<Out> output(out_count), wanted(out_count);
    if (in_place && std::is_same<In, Out>::value) {
      std::copy(input.begin(), input.end(), output.begin());
      std::copy(input.begin(), input.end(), wanted.begin());  // what is not written stays
      call(actual, reinterpret_cast<const In*>(output.data()), in_count, output.data());
    } else {
      call(actual, input.data(), in_count, output.data());
    }
    ref_call(expected, input.data(), in_count, wanted.data());
    require(same(output.data(), wanted.data(), output.size()), "the outputs are equal");
  }

  Record *actual, *expected;

 private:
  static Record* new_record() { return static_cast<Record*>(std::calloc(1, sizeof(Record))); }
  void place(const Record* content, int steps) {
    const size_t offset = steps * alignof(Record);
    char* storage = static_cast<char*>(std::malloc(offset + sizeof(Record)));
    std::memset(storage, 0x5a, offset);
    std::memcpy(storage + offset, content, sizeof(Record));
    for (char* p = storage_; p && p < reinterpret_cast<char*>(actual); ++p)
      require(*p == 0x5a, "nothing in front of the record is written");
    std::free(storage_);
    storage_ = storage;
    actual = reinterpret_cast<Record*>(storage + offset);
  }
  char* storage_;
  Record *saved_actual_ = nullptr, *saved_expected_ = nullptr;
};

/** Frames that a block of the kinds -1 to 2 may have. */
template <class Record>
int longest_block(const Record* r) {
  int frames = r->chanel == 2 || r->filtertype == 1 ? 1056 : 2000;
  const int history = sizeof r->memL.meminput / sizeof(short);
  if (r->filtertype == -1 || r->filtertype == 0) frames = std::min(frames, history - r->blen + 1);
  if (r->filtertype == 0) frames = std::min(frames, 2156 - r->alen + 1);
  return frames;
}

/** Any kind that Filter_ID and Filterlongfir_ID share. */
template <class Record>
void configure(Bytes* bytes, Record* r, int most_taps) {
  r->chanel = bytes->in(1, 2);
  r->filtertype = bytes->in(-1, 2);
  r->blen = bytes->in(1, bytes->in(0, 1) ? 40 : most_taps);
  r->alen = bytes->in(1, bytes->in(0, 1) ? 40 : 1250);
  r->n = bytes->in(0, 3) * 2;
  r->ns = bytes->in(0, std::min(bytes->in(0, 3) ? 20 : 1250, 1250 / (r->n + 1)));
  const int entries = r->filtertype == 1 ? r->ns * (r->n + 1) : r->blen;
  bytes->coefficients(r->b, entries);
  const int denominators = r->filtertype == 1 ? entries : r->alen;
  if (r->filtertype == 1 && bytes->in(0, 1) && (r->n == 2 || r->n == 4))
    bytes->seed().sections(r->b, r->a, r->n, r->ns);
  else if (bytes->in(0, 1))
    bytes->seed().denominator(r->a, denominators);
  else
    bytes->coefficients(r->a, denominators);
}

#endif

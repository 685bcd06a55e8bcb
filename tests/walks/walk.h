/* A walk leads one object of the library and its twin, which the reference or another clone of the
 * kernels serves, through random calls, and throws where they differ. The choices are a seed's, in
 * the tests on every clone, or those of a fuzzer's bytes. */
#ifndef JURN_TESTS_WALK_H
#define JURN_TESTS_WALK_H

#include <memory>
#include <stdexcept>

#include "../support.h"

void walk_int16(Random& random);
void walk_long_time(Random& random);
void walk_long_fft(Random& random);
void walk_float(Random& random);
void walk_moving_sum(Random& random);
void walk_convolution(Random& random);
void walk_sections(Random& random);

inline void require(bool holds, const char* what) {
  if (!holds) throw std::runtime_error(what);
}

/** Cleared memory for count objects, between guard pages, that can move to any other place. */
template <class T>
class Movable {
 public:
  Movable(Random& random, int count)
      : random_(random), count_(count), place_(std::make_unique<GuardedArray<T>>(random, count)) {
    std::fill_n(reinterpret_cast<char*>(get()), count * sizeof(T), char(0));
  }
  T* get() { return place_->data(); }
  void move() {
    auto next = std::make_unique<GuardedArray<T>>(random_, count_);
    if (count_ > 0) std::memcpy(next->data(), get(), count_ * sizeof(T));
    place_ = std::move(next);
  }

 private:
  Random& random_;
  int count_;
  std::unique_ptr<GuardedArray<T>> place_;
};

/** The library's record, which moves about, and its twin. */
template <class Record>
class Twins {
 public:
  explicit Twins(Random& random)
      : actual_(random, 1),
        expected_(new_record()),
        saved_actual_(new_record()),
        saved_expected_(new_record()) {}
  Record* operator[](bool library) { return library ? actual_.get() : expected_.get(); }
  /** Both records get what `change` does to them. */
  template <class Change>
  void both(Change change) {
    change(actual_.get());
    std::memcpy(expected_.get(), actual_.get(), sizeof(Record));
  }
  void move() { actual_.move(); }
  void save() {
    std::memcpy(saved_actual_.get(), actual_.get(), sizeof(Record));
    std::memcpy(saved_expected_.get(), expected_.get(), sizeof(Record));
    saved_ = true;
  }
  /** Says whether there was something to bring back. */
  bool restore() {
    if (!saved_) return false;
    std::memcpy(actual_.get(), saved_actual_.get(), sizeof(Record));
    std::memcpy(expected_.get(), saved_expected_.get(), sizeof(Record));
    return true;
  }

 private:
  struct Free {
    void operator()(void* memory) const { std::free(memory); }
  };
  using Memory = std::unique_ptr<Record, Free>;
  static Memory new_record() {
    return Memory(static_cast<Record*>(std::calloc(1, sizeof(Record))));
  }

  Movable<Record> actual_;
  Memory expected_, saved_actual_, saved_expected_;
  bool saved_ = false;
};

/** A walk of at most so many calls against the reference: configure(twins) starts it and comes back
 * now and then, block(twins) is its every second call; reset(library, record), and change(twins)
 * for what only this record has, come in between. */
template <class Record, class Configure, class Reset, class Change, class Block>
void walk(Random& random, int calls, Configure configure, Reset reset, Change change, Block block) {
  Twins<Record> twins(random);
  configure(twins);
  for (int call = 0; call < calls && !random.ended(); ++call) {
    switch (random.in(0, 11)) {
      case 0:
        configure(twins);
        break;
      case 1:
        for (bool library : {false, true}) reset(library, twins[library]);
        break;
      case 2:
        twins.save();
        break;
      case 3:
        twins.restore();
        break;
      case 4:
        twins.move();
        break;
      case 5:
      case 6:
        change(twins);
        break;
      default:
        require(block(twins), "the outputs are equal, and nothing but them is written");
    }
    require(same_record(twins[true], twins[false]), "the records are equal");
  }
}

#endif

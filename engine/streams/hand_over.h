// From the thread that prepares filters to the audio thread, without a lock.
#pragma once

#include <atomic>
#include <memory>

namespace jurn {

/** What a filter is prepared for. A rate of 0: nothing runs. */
struct StreamFormat {
  int rate = 0;
  int inputs = 0, outputs = 0;
  int block = 0;  // frames of every call; 0 where they do not matter
  bool is_float = false;

  bool operator==(const StreamFormat& other) const {
    return rate == other.rate && inputs == other.inputs && outputs == other.outputs &&
           block == other.block && is_float == other.is_float;
  }
  bool operator!=(const StreamFormat& other) const { return !(*this == other); }
};

/**
 * Passes filters to the audio thread. An offer says what it was made for, and is dropped when
 * something else runs by then; of several offers the newest wins. The audio thread takes and gives
 * back, without a lock, and frees nothing: what it gave back is freed by whoever offers next, or by
 * free_returned().
 *
 * One thread offers at a time, one takes. `T` has a member `StreamFormat made_for` and a pointer
 * `T* next`, which belongs to the hand-over.
 * @code
 *   HandOver<Filter> filters;
 *   filters.offer(std::move(prepared));                     // the preparing thread
 *   if (Filter* next = filters.take(running)) {             // the audio thread
 *     filters.give_back(current);
 *     current = next;
 *   }
 * @endcode
 */
template <typename T>
class HandOver {
 public:
  HandOver() = default;
  HandOver(const HandOver&) = delete;
  HandOver& operator=(const HandOver&) = delete;
  ~HandOver() {
    empty();
    free_returned();
  }

  /** The preparing thread: replaces an offer that was not taken. */
  void offer(std::unique_ptr<T> object) {
    give_back(offered_.exchange(object.release(), std::memory_order_acq_rel));
    free_returned();
  }

  /** The audio thread: the newest offer, once, if it was made for what is `running`; or null. */
  T* take(const StreamFormat& running) {
    if (!offered_.load(std::memory_order_relaxed)) return nullptr;
    T* const object = offered_.exchange(nullptr, std::memory_order_acq_rel);
    if (!object || object->made_for == running) return object;
    give_back(object);
    return nullptr;
  }

  /** Any thread: drops the offer, when a stream starts, stops or changes its format. */
  void empty() { give_back(offered_.exchange(nullptr, std::memory_order_acq_rel)); }

  /** Any thread: an object that is done with, or null. */
  void give_back(T* object) {
    if (!object) return;
    object->next = returned_.load(std::memory_order_relaxed);
    while (!returned_.compare_exchange_weak(object->next, object, std::memory_order_release,
                                            std::memory_order_relaxed)) {
    }
  }

  /** Any thread but the audio thread. */
  void free_returned() {
    for (T* object = returned_.exchange(nullptr, std::memory_order_acquire); object;) {
      T* const next = object->next;
      delete object;
      object = next;
    }
  }

 private:
  std::atomic<T*> offered_{nullptr};
  std::atomic<T*> returned_{nullptr};  // a stack, linked by `next`, that is only ever taken whole
};

}  // namespace jurn

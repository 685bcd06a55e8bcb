// From the threads that prepare filters to the streaming thread, without a lock.
#pragma once

#include <atomic>
#include <memory>

namespace jurn::gst {

/**
 * Passes objects to the streaming thread. It frees none: what it no longer needs it gives back, and
 * that is freed where the next object is prepared. `T` has a pointer `next` of its own type.
 */
template <typename T>
class Handover {
 public:
  Handover() = default;
  Handover(const Handover&) = delete;
  Handover& operator=(const Handover&) = delete;
  ~Handover() {
    delete offered_.load();
    free_returned();
  }

  /** Any thread: the newest offer replaces one that was not taken. */
  void offer(std::unique_ptr<T> object) {
    delete offered_.exchange(object.release());
    free_returned();
  }

  /** The streaming thread: the newest offer, once, or null. */
  T* take() {
    return offered_.load(std::memory_order_relaxed) ? offered_.exchange(nullptr) : nullptr;
  }

  /** The streaming thread: an object that it is done with, or null. */
  void give_back(T* object) {
    if (!object) return;
    object->next = returned_.load();
    while (!returned_.compare_exchange_weak(object->next, object)) {
    }
  }

 private:
  void free_returned() {
    for (T* object = returned_.exchange(nullptr); object;) {
      T* const next = object->next;
      delete object;
      object = next;
    }
  }

  std::atomic<T*> offered_{nullptr};
  std::atomic<T*> returned_{nullptr};  // a stack, linked by `next`
};

}  // namespace jurn::gst

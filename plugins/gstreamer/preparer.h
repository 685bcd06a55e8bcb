// Prepares filters on a worker, for a streaming thread that waits for none.
#pragma once

#include <gst/gst.h>

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "streams/changing_stream.h"

namespace jurn::gst {

using jurn::OfferedFilter;
using jurn::StreamFormat;

/**
 * Does what the properties ask for on a thread of GStreamer's pool, one request after the other,
 * and hands the results to the streaming thread. Requests that come while the worker is busy are
 * one.
 *
 * A change that the streaming thread makes itself, from a control source or a pad probe, is meant
 * for the very next frame: settle() waits for it. For all others it waits only before the first
 * frame of a stream.
 */
class Preparer {
 public:
  explicit Preparer(GstElement* element) : element_(element) {}
  Preparer(const Preparer&) = delete;
  Preparer& operator=(const Preparer&) = delete;
  virtual ~Preparer() = default;

  /** Any thread, after a property changed. Does not wait. */
  void request();
  /** Until all that was asked for is done. */
  void wait();
  /** Any thread: what runs, or will. */
  StreamFormat format() const;

  /** The streaming thread, and the one that starts and stops it: another stream, or none. Drops
   * what was offered and begins to prepare what the new one needs. */
  void set_format(const StreamFormat& format);
  /** The streaming thread: the filter that a stream starts with. Throws a sentence for the user:
   * `none` if the properties ask for no filter. */
  std::unique_ptr<OfferedFilter> first(const char* none);
  /** The streaming thread, before each buffer. `follow` sets what control sources say. */
  template <typename Follow>
  void settle(Follow follow) {
    streaming_thread_.store(g_thread_self(), std::memory_order_relaxed);
    follow();
    if (changed_by_stream_.load(std::memory_order_relaxed)) {
      changed_by_stream_ = false;
      wait();
    }
  }
  /** Where newer filters come from. */
  jurn::HandOver<OfferedFilter>* offers() { return &hand_over_; }

 protected:
  /**
   * On the worker: prepares what the properties ask for, and appends what the user should know. A
   * format without a rate, or without the block that it needs, means that no stream runs yet: what
   * can be done without, like reading files, is done, and the result is null. It is null, too, when
   * the properties ask for no filter. Throws a sentence for the user.
   */
  virtual std::unique_ptr<OfferedFilter> prepare(const StreamFormat& format,
                                                 std::vector<std::string>* warnings) = 0;
  /** On the worker: whether the last preparing went well, while a stream runs. If not, the
   * properties return to what runs. */
  virtual void settled(bool well) = 0;

 private:
  static void run(GstElement* element, void* self);
  void work();

  GstElement* element_;
  jurn::HandOver<OfferedFilter> hand_over_;
  StreamFormat running_;  // the streaming thread's own copy

  mutable std::mutex mutex_;  // of what follows; never held while something is prepared
  std::condition_variable is_done_;
  StreamFormat format_;
  guint64 wanted_ = 0, done_ = 0;  // requests
  bool busy_ = false;
  bool is_live_ = false;  // whether a stream has got its first filter
  std::string problem_;   // why there is none
  gint64 last_warning_ = 0;

  std::atomic<GThread*> worker_{nullptr};  // while it works
  std::atomic<GThread*> streaming_thread_{nullptr};
  std::atomic<bool> changed_by_stream_{false};
};

}  // namespace jurn::gst

#include "preparer.h"

#include <stdexcept>

#include "element.h"

namespace jurn::gst {

// Between two warnings of the same running stream: a slider makes dozens of changes a second.
constexpr gint64 kQuietTime = 5 * G_USEC_PER_SEC;

void Preparer::request() {
  if (streaming_thread_.load(std::memory_order_relaxed) == g_thread_self())
    changed_by_stream_ = true;
  const std::lock_guard<std::mutex> lock(mutex_);
  ++wanted_;
  if (busy_) return;
  busy_ = true;
  gst_element_call_async(element_, run, this, nullptr);  // holds the element
}

void Preparer::wait() {
  // Whoever hears of a warning on the worker itself may ask for caps.
  if (worker_.load() == g_thread_self()) return;
  std::unique_lock<std::mutex> lock(mutex_);
  const guint64 wanted = wanted_;
  is_done_.wait(lock, [&] { return done_ >= wanted; });
}

StreamFormat Preparer::format() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return format_;
}

void Preparer::set_format(const StreamFormat& format) {
  running_ = format;
  streaming_thread_ = nullptr;
  changed_by_stream_ = false;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    format_ = format;
    is_live_ = false;
    last_warning_ = 0;
  }
  hand_over_.empty();
  hand_over_.free_returned();
  if (format.rate) request();
}

std::unique_ptr<OfferedFilter> Preparer::first(const char* none) {
  wait();
  std::unique_ptr<OfferedFilter> result(hand_over_.take(running_));
  const std::lock_guard<std::mutex> lock(mutex_);
  if (!result || !problem_.empty()) throw std::runtime_error(problem_.empty() ? none : problem_);
  is_live_ = true;
  return result;
}

void Preparer::run(GstElement*, void* self) {
  static_cast<Preparer*>(self)->work();
}

void Preparer::work() {
  worker_ = g_thread_self();
  for (;;) {
    StreamFormat format;
    guint64 request = 0;
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      format = format_;
      request = wanted_;
    }
    std::vector<std::string> warnings;
    std::string problem;
    std::unique_ptr<OfferedFilter> prepared;
    try {
      prepared = prepare(format, &warnings);
    } catch (const std::exception& error) {
      problem = error.what();
    }
    const bool offers = static_cast<bool>(prepared);
    if (offers) {
      prepared->made_for = format;
      hand_over_.offer(std::move(prepared));
    }
    bool failed_live = false;
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      problem_ = problem;
      failed_live = is_live_ && !problem.empty();
      const gint64 now = g_get_monotonic_time();
      if (!offers || (is_live_ && last_warning_ && now - last_warning_ < kQuietTime))
        warnings.clear();
      if (!warnings.empty()) last_warning_ = now;
    }
    settled(!failed_live);
    if (failed_live) warnings = {problem};
    post_warnings(element_, warnings);
    const std::lock_guard<std::mutex> lock(mutex_);
    done_ = request;
    busy_ = done_ != wanted_;
    if (!busy_) worker_ = nullptr;
    is_done_.notify_all();
    if (!busy_) return;
  }
}

}  // namespace jurn::gst

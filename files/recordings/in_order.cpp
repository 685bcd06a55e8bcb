#include "recordings/in_order.h"

#include <algorithm>
#include <condition_variable>
#include <system_error>
#include <thread>
#include <vector>

namespace jurn {
namespace {

class WorkerThreads {
 public:
  WorkerThreads(std::size_t count, std::size_t threads,
                const std::function<void(std::size_t, Lock*)>& work)
      : work_(work), done_(count) {
    threads_.reserve(std::min(count, threads));
    try {
      while (threads_.size() < std::min(count, threads)) threads_.emplace_back([this] { run(); });
    } catch (const std::system_error&) {  // those that there are do all the work
      if (threads_.empty()) run();
    }
  }

  ~WorkerThreads() {
    {
      const Lock lock(mutex_);
      next_ = done_.size();
    }
    for (std::thread& thread : threads_) thread.join();
  }
  WorkerThreads(const WorkerThreads&) = delete;
  WorkerThreads& operator=(const WorkerThreads&) = delete;

  void wait_for(std::size_t i) {
    Lock lock(done_mutex_);
    came_.wait(lock, [&] { return done_[i]; });
  }

 private:
  void run() {
    for (;;) {
      Lock lock(mutex_);
      if (next_ == done_.size()) return;
      const std::size_t i = next_++;
      work_(i, &lock);
      if (lock.owns_lock()) lock.unlock();
      const Lock done_lock(done_mutex_);
      done_[i] = true;
      came_.notify_one();
    }
  }

  const std::function<void(std::size_t, Lock*)>& work_;
  std::mutex mutex_;       // of next_, and while work begins
  std::mutex done_mutex_;  // of done_
  std::condition_variable came_;
  std::size_t next_ = 0;
  std::vector<bool> done_;
  std::vector<std::thread> threads_;
};

}  // namespace

void run_in_order(std::size_t count, std::size_t threads,
                  const std::function<void(std::size_t, Lock*)>& work,
                  const std::function<void(std::size_t)>& report) {
  WorkerThreads workers(count, threads, work);
  for (std::size_t i = 0; i < count; ++i) {
    workers.wait_for(i);
    report(i);
  }
}

}  // namespace jurn

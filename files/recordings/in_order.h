// Work on several threads whose reports come in order.
#pragma once

#include <cstddef>
#include <functional>
#include <mutex>

namespace jurn {

using Lock = std::unique_lock<std::mutex>;

/**
 * Calls work(i, lock) for i from 0 to count - 1 on several threads, and report(i) on this one, in
 * the order of i and each as soon as its work and all before it are done.
 *
 * Work begins in the order of i, with the lock held: what it does until it gives up the lock is
 * done for one i after the other. Work does not throw. When a report throws, no other work begins.
 */
void run_in_order(std::size_t count, std::size_t threads,
                  const std::function<void(std::size_t, Lock*)>& work,
                  const std::function<void(std::size_t)>& report);

}  // namespace jurn

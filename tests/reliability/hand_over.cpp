// Passes filters between threads as fast as they can, to be run under the thread sanitizer. The
// audio thread must see whole filters only, made for what it runs, each newer than the last one.
#include "../../engine/streams/hand_over.h"

#include <atomic>
#include <cstdio>
#include <memory>
#include <thread>

namespace {

std::atomic<long> alive{0};

struct Filter {
  explicit Filter(int number) : first(number), second(number) { ++alive; }
  ~Filter() { --alive; }

  jurn::StreamFormat made_for;
  Filter* next = nullptr;
  int first, second;
};

}  // namespace

int main() {
  constexpr int kOffers = 200000;
  long faults = 0, taken = 0, dropped = 0;
  {
    jurn::HandOver<Filter> filters;
    std::atomic<int> rate{1};
    std::atomic<bool> done{false};
    std::thread preparing([&] {
      for (int i = 1; i <= kOffers; ++i) {
        auto filter = std::make_unique<Filter>(i);
        filter->made_for.rate = rate;
        filters.offer(std::move(filter));
      }
      done = true;
    });
    std::thread freeing([&] {
      while (!done) filters.free_returned();
    });
    Filter* current = nullptr;
    jurn::StreamFormat running;
    running.rate = 1;
    int newest = 0;
    while (!done) {
      if (taken % 50 == 49 && running.rate < taken / 50 + 2) {  // another stream
        filters.empty();
        ++running.rate;
        rate = running.rate;
      }
      Filter* const next = filters.take(running);
      if (!next) continue;
      ++taken;
      faults += next->first != next->second || next->first <= newest;
      faults += next->made_for != running;
      newest = next->first;
      filters.give_back(current);
      current = next;
    }
    preparing.join();
    freeing.join();
    // The newest of several offers is the one that is taken, and only where it belongs.
    filters.offer(std::make_unique<Filter>(1));
    filters.offer(std::make_unique<Filter>(2));
    Filter* const last = filters.take({});
    faults += !last || last->first != 2;
    filters.give_back(last);
    filters.offer(std::make_unique<Filter>(3));
    dropped += filters.take(running) == nullptr;
    dropped += filters.take({}) == nullptr;
    filters.offer(std::make_unique<Filter>(4));
    filters.empty();
    dropped += filters.take({}) == nullptr;
    filters.give_back(current);
  }
  std::printf("%ld filters taken, %ld faults, %ld left alive\n", taken, faults, alive.load());
  return faults != 0 || taken == 0 || dropped != 3 || alive != 0;
}

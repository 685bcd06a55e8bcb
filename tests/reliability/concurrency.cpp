/* Two hundred records at once, each on a thread of its own: the checksums are those of one thread,
 * and the thread sanitizer finds nothing. */
#include <cstdio>
#include <thread>
#include <vector>

#include "scenarios.h"

int main() {
  const std::vector<Scenario>& all = scenarios();
  std::vector<uint64_t> alone;
  for (const Scenario& scenario : all) alone.push_back(scenario.run(Placement()));
  std::vector<uint64_t> together(200);
  std::vector<std::thread> threads;
  for (size_t i = 0; i < together.size(); ++i)
    threads.emplace_back([&, i] { together[i] = all[i % all.size()].run(Placement()); });
  for (std::thread& thread : threads) thread.join();
  int differing = 0;
  for (size_t i = 0; i < together.size(); ++i) {
    if (together[i] == alone[i % all.size()]) continue;
    std::printf("record %zu, %s, differs\n", i, all[i % all.size()].name);
    ++differing;
  }
  return differing > 0;
}

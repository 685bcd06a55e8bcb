/* Buf16_ID. */
#include <gtest/gtest.h>

#include <memory>

#include "reference.h"
#include "support.h"

namespace {

TEST(Fifo, WholeRecordAgreesAcrossTheEndOfTheRing) {
  Random random(31);
  auto queue = std::make_unique<Buf16_ID>(), expected = std::make_unique<Buf16_ID>();
  random.signal(queue->membuf, 105600);
  for (int trial = 0; trial < 60; ++trial) {
    queue->id = trial;
    queue->front = random.one_in(2) ? random.in(0, 105599) : random.in(105500, 105599);
    queue->rear = random.one_in(2) ? queue->front : random.in(0, 105599);
    *expected = *queue;
    for (int call = 0; call < 20; ++call) {
      const int len = random.one_in(10) ? random.in(0, 105700) : random.count(0, 3000);
      Twin<short> block(random, len, [&](short* x, int count) { random.signal(x, count); });
      switch (random.in(0, 5)) {
        case 0:
        case 1:
          MORVAX_putinAPI_loop(queue.get(), block[true], len);
          ref::put(expected.get(), block[false], len, 1);
          break;
        case 2:
          MORVAX_putinAPI_loop_onlychannelLin(queue.get(), block[true], len);
          ref::put(expected.get(), block[false], len / 2, 2);
          break;
        case 3:
          if (!random.one_in(10)) break;
          MORVAX_BufresetAPI(queue.get());
          ref::reset(expected.get());
          break;
        default:
          ASSERT_EQ(MORVAX_putoutAPI_ForReframe_0_loop(queue.get(), block[true], len),
                    ref::take(expected.get(), block[false], len));
      }
      ASSERT_TRUE(block.agrees());
      ASSERT_EQ(std::memcmp(queue.get(), expected.get(), sizeof *queue), 0) << trial;
      ASSERT_EQ(MORVAX_queuehave_API(queue.get()), ref::have(expected.get()));
    }
  }
}

}  // namespace

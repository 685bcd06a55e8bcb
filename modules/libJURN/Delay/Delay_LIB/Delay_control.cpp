#include "../../common/exact_arithmetic.h"

#include "Delay_control.h"

#include <string.h>

#include "../../common/internal.h"

static_assert(sizeof(Buf16_ID) == 211212, "Buf16_ID has no padding");

namespace {

int min(int x, int y) {
  return x < y ? x : y;
}

[[maybe_unused]] bool is_valid(const Buf16_ID* queue) {
  return queue->front >= 0 && queue->front < JURN_RING_SLOTS && queue->rear >= 0 &&
         queue->rear < JURN_RING_SLOTS;
}

/** Slots from the one after slot to the end of the ring, where a contiguous run has to stop. */
int run_after(int slot) {
  return slot + 1 == JURN_RING_SLOTS ? JURN_RING_SLOTS : JURN_RING_SLOTS - 1 - slot;
}

int next(int slot) {
  return slot + 1 == JURN_RING_SLOTS ? 0 : slot + 1;
}

/** Goes through the count slots after slot in at most two contiguous runs: copy(slots, done, run)
 * gets the first of each, the slots gone through before, and the length. Returns the last slot. */
template <class Copy>
int for_each_run(int slot, int count, Copy copy) {
  for (int done = 0; done < count;) {
    const int run = min(count - done, run_after(slot));
    copy(next(slot), done, run);
    slot = next(slot) + run - 1;
    done += run;
  }
  return slot;
}

/** Appends in[0], in[stride], ... */
template <int stride>
void append(Buf16_ID* queue, const short* in, int len) {
  JURN_LIMIT(is_valid(queue), "FIFO: front and rear must lie in 0 .. 105599");
  JURN_LIMIT(len >= 0, "FIFO: len must not be negative");
  const int count = min(len, JURN_RING_SLOTS - 1 - MORVAX_queuehave_API(queue));
  queue->rear = for_each_run(queue->rear, count, [=](int slot, int done, int run) {
    short* slots = queue->membuf + slot;
    if constexpr (stride == 1)
      memcpy(slots, in + done, run * sizeof(short));
    else
      for (int i = 0; i < run; ++i) slots[i] = in[stride * (done + i)];
  });
}

}  // namespace

void MORVAX_BufresetAPI(Buf16_ID* queue) {
  memset(queue, 0, sizeof *queue);
}

void MORVAX_putinAPI_loop(Buf16_ID* queue, const short* in, int len) {
  append<1>(queue, in, len);
}

void MORVAX_putinAPI_loop_onlychannelLin(Buf16_ID* queue, const short* in, int len) {
  append<2>(queue, in, len / 2);
}

int MORVAX_queuehave_API(const Buf16_ID* queue) {
  const int count = queue->rear - queue->front;
  return count < 0 ? count + JURN_RING_SLOTS : count;
}

int MORVAX_putoutAPI_ForReframe_0_loop(Buf16_ID* queue, short* out, int len) {
  JURN_LIMIT(is_valid(queue), "FIFO: front and rear must lie in 0 .. 105599");
  JURN_LIMIT(len >= 0, "FIFO: len must not be negative");
  if (len <= 0) return 0;
  const int count = min(len, MORVAX_queuehave_API(queue));
  queue->front = for_each_run(queue->front, count, [=](int slot, int done, int run) {
    memcpy(out + done, queue->membuf + slot, run * sizeof(short));
  });
  memset(out + count, 0, (len - count) * sizeof(short));
  return count;
}

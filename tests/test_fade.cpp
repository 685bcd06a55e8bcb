/* Fades between two records: each record goes on as if it had run alone, and the block is the ramp
 * between what both put out. */
#include <gtest/gtest.h>

#include <memory>

#include "support.h"

namespace {

/** Random configurations of two records that may meet. */
void configure_pair(Random& random, Filter_ID* x, Filter_ID* y, int* inLen) {
  do {
    configure(random, x, 400);
    configure(random, y, 400);
  } while (x->chanel != y->chanel);
  // A kind that writes nothing counts as silence.
  if (random.one_in(8)) (random.one_in(2) ? x : y)->filtertype = 7;
  const int longest = std::min({JURN_FADE_VALUES, longest_block(x), longest_block(y)});
  *inLen = random.count(0, longest / x->chanel) * x->chanel;
}

void configure_pair(Random& random, Filterlongfir_ID* x, Filterlongfir_ID* y, int* inLen) {
  const int inputs = random.in(1, 2), outputs = inputs == 2 ? 2 : random.in(1, 2);
  for (Filterlongfir_ID* f : {x, y}) {
    f->chanel = inputs;
    f->filtertype = inputs == 2    ? random.one_of({-1, -2, -3, -4, -7, 0})
                    : outputs == 1 ? random.one_of({-1, -2, 0})
                                   : random.one_of({-5, -6});
    f->blen = f->bRlen = random.in(1, 300);
    f->alen = random.in(1, 40);
    random.taps(f->b, f->blen);
    random.taps(f->bR, f->blen);
    random.denominator(f->a, f->alen);
    MORVAX_FilterlongfirReset_API(f);
    if (f->filtertype == -2 || f->filtertype == -4 || f->filtertype == -5 || f->filtertype == -7)
      MORVAX_FilterlongfirCalcu_API_forFFT(f);
  }
  *inLen = random.in(0, 700 / outputs) * inputs;
}

void configure_pair(Random& random, Filterf_ID* x, Filterf_ID* y, int* inLen) {
  for (Filterf_ID* f : {x, y}) {
    f->filtertype = random.in(-1, 0);
    f->blen = random.in(1, 201);
    f->alen = random.in(1, 201);
    random.taps(f->b, f->blen);
    random.denominator(f->a, f->alen);
  }
  if (random.one_in(8)) (random.one_in(2) ? x : y)->filtertype = 7;
  *inLen = random.count(0, 2312);
}

int outputs_of(const Filter_ID* f) {
  return f->chanel;
}
int outputs_of(const Filterlongfir_ID* f) {
  return f->filtertype == -5 || f->filtertype == -6 ? 2 : f->chanel;
}
int outputs_of(const Filterf_ID*) {
  return 1;
}
template <class Record>
int inputs_of(const Record* f) {
  return f->chanel;
}
int inputs_of(const Filterf_ID*) {
  return 1;
}

/** Work blocks start where a record's address lets them, so that two records' differ. */
template <class Record>
void forget_work_blocks(Record*) {}
void forget_work_blocks(Filterlongfir_ID* f) {
  std::memset(f->xLintl, 0, 6 * sizeof f->xLintl);
}

template <class Sample, class Record, class Run, class Fade>
void expect_ramp(Run run, Fade fade) {
  auto previous = std::make_unique<Record>(), next = std::make_unique<Record>();
  auto lone_previous = std::make_unique<Record>(), lone_next = std::make_unique<Record>();
  for (unsigned round = 0; round < 80; ++round) {
    Random random(round);
    std::memset(previous.get(), 0, sizeof(Record));
    std::memset(next.get(), 0, sizeof(Record));
    int inLen;
    configure_pair(random, previous.get(), next.get(), &inLen);
    if (round % 8 == 1) inLen = inputs_of(next.get());  // one frame, which is the next record's
    if (round % 8 == 0) std::memcpy(next.get(), previous.get(), sizeof(Record));
    std::memcpy(lone_previous.get(), previous.get(), sizeof(Record));
    std::memcpy(lone_next.get(), next.get(), sizeof(Record));
    const int channels = outputs_of(next.get()), frames = inLen / inputs_of(next.get());
    const int values = frames * channels;
    for (int call = 0; call < 2; ++call) {
      GuardedArray<Sample> block(random, std::max(inLen, values));
      random.signal(block.data(), inLen);
      std::vector<Sample> old_output(values), wanted(values);
      run(lone_previous.get(), block.data(), inLen, old_output.data());
      run(lone_next.get(), block.data(), inLen, wanted.data());
      for (int i = 0; i < values && frames > 1; ++i) {
        const int frame = i / channels;
        const double w = static_cast<double>(frame) / (frames - 1);
        const double exact = (1 - w) * old_output[i] + w * wanted[i];
        // An int16 mean is exact before it is truncated; a double may lie a hair below a whole one.
        wanted[i] = static_cast<Sample>(
            std::is_same<Sample, short>::value ? exact + std::copysign(1e-7, exact) : exact);
      }
      fade(previous.get(), next.get(), block.data(), inLen, block.data());
      ASSERT_TRUE(same(block.data(), wanted.data(), values)) << "round " << round;
    }
    for (Record* record : {previous.get(), lone_previous.get(), next.get(), lone_next.get()})
      forget_work_blocks(record);
    ASSERT_TRUE(same_record(previous.get(), lone_previous.get())) << "round " << round;
    ASSERT_TRUE(same_record(next.get(), lone_next.get())) << "round " << round;
  }
}

TEST(Fade, BothRecordsGoOnAndTheBlockIsTheirRamp) {
  expect_ramp<short, Filter_ID>(MORVAX_FilterRun_API, MORVAX_FilterFade_API);
  expect_ramp<short, Filterlongfir_ID>(MORVAX_FilterlongfirRun_API, MORVAX_FilterlongfirFade_API);
  expect_ramp<float, Filterf_ID>(MORVAX_FilterfRun_API, MORVAX_FilterfFade_API);
}

}  // namespace

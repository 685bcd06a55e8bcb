/* Hours of audio through each FFT kind in calls of random length, with new taps at random moments:
 * every output sample is the exact convolution's, the exact ramp's while a fade lasts, and both
 * queues always hold one transform length together. JURN_ENDURANCE_HOURS sets the hours per kind;
 * an argument chooses kinds by their number. */
#include <cstdlib>

#include "../fft_model.h"

namespace {

double hours = 0.02;

class Endurance : public testing::TestWithParam<int> {};

TEST_P(Endurance, EverySampleIsExact) {
  Pair pair(kKinds[GetParam()], 50u + GetParam());
  Random& random = pair.random;
  pair.set_up(20, 33);
  long frames = 0, wraps = 0, changes = 0;
  for (const long wanted = std::lround(hours * 3600.0 * 48000.0); frames < wanted;) {
    const int count = random.one_of({0, 1, 64, 480, random.in(0, 1500), random.in(0, 5000)});
    const int before = pair.filter->mBufin.front;
    ASSERT_NO_FATAL_FAILURE(pair.run(count)) << "after " << frames << " frames";
    pair.all.clear();
    wraps += pair.filter->mBufin.front < before;
    frames += count;
    if (!random.one_in(40)) continue;
    // Mostly new taps of the same counts, now and then another transform length; a fade that is
    // still pending then would start from spectra of the old length, so it comes first.
    if (random.one_in(20)) {
      ASSERT_NO_FATAL_FAILURE(pair.run(1100));
      frames += 1100;
      pair.set_up(random.in(1, 70), random.in(1, 70));
    } else {
      pair.set_up(pair.filter->blen, pair.filter->bRlen);
    }
    ++changes;
  }
  std::printf("chanel %d kind %d: %.2f hours, the ring wrapped %ld times, %ld changes of taps\n",
              pair.filter->chanel, pair.filter->filtertype, frames / (3600.0 * 48000.0), wraps,
              changes);
}

INSTANTIATE_TEST_SUITE_P(Kinds, Endurance, testing::Range(0, 5));

}  // namespace

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  if (const char* wanted = std::getenv("JURN_ENDURANCE_HOURS")) hours = std::atof(wanted);
  return RUN_ALL_TESTS();
}

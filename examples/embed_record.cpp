// A record inside an object of one's own, on static storage: no allocation, no destructor, and a
// copy of the object is a copy of the running filter.
#include <cstdio>
#include <cstring>

#include "Filter_control.h"

namespace {

/// A low shelf for a mono stream of 48 kHz: 6 dB more below 200 Hz, as one second-order section.
class BassBoost {
 public:
  void start() {
    const float num[] = {1.00644558f, -1.96861235f, 0.963120058f};
    const float den[] = {1.0f, -1.96885011f, 0.969327881f};
    filter_.chanel = JURN_MONO;
    MORVAX_FilterCalcu_API_FromMatlabTable(&filter_, num, den, 2, JURN_CASCADE);
    MORVAX_FilterReset_API(&filter_);
  }
  template <int count>
  void run(short (&samples)[count]) {
    MORVAX_FilterRun_API(&filter_, samples, count, samples);
  }

 private:
  Filter_ID filter_;
};

BassBoost boost;
BassBoost saved;

}  // namespace

int main() {
  boost.start();
  short block[480];
  for (int i = 0; i < 100; ++i) {  // a second of a constant, the lowest frequency there is
    for (short& sample : block) sample = 1000;
    boost.run(block);
  }
  const int settled = block[479];

  // The state is plain data: a copy goes on where the original stands, bit for bit.
  saved = boost;
  short again[480];
  for (int i = 0; i < 480; ++i) block[i] = again[i] = static_cast<short>(7 * i);
  boost.run(block);
  saved.run(again);
  const bool same = std::memcmp(block, again, sizeof block) == 0;

  std::printf("%zu bytes; 1000 becomes %d; the copy goes on %s\n", sizeof boost, settled,
              same ? "the same" : "differently");
  return !(same && settled >= 1994 && settled <= 1996);
}

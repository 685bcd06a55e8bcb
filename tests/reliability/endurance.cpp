/* Hours of audio through convolution without latency: whatever block a random moment meets, its
 * output is the exact convolution's, through fades between two responses as well. And hours of
 * audio through each FFT kind in calls of random length, with new taps at random moments: every
 * output sample is the exact convolution's, the exact ramp's while a fade lasts, and both queues
 * always hold one transform length together. JURN_ENDURANCE_HOURS sets the hours per kind; an
 * argument chooses kinds by their number. */
#include <cstdlib>
#include <deque>

#include "../convolution_support.h"
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

class LongConvolution : public testing::TestWithParam<Convolution_shape> {};

TEST_P(LongConvolution, AnySampleIsExact) {
  const Convolution_shape shape = GetParam();
  Random random(60);
  std::vector<float> taps[2] = {std::vector<float>(shape.taps), std::vector<float>(shape.taps / 2)};
  std::vector<std::unique_ptr<Response>> responses;
  for (auto& b : taps) {
    for (size_t j = 0; j < b.size(); ++j)
      b[j] = static_cast<float>(random.real(std::exp(-4.0 * j / b.size())));
    responses.push_back(std::make_unique<Response>(random, shape, Routes{{0, 0, b}}));
  }
  Stream stream(random, shape);
  std::vector<float> block(shape.block);
  std::deque<float> past(shape.taps + shape.block, 0.0f);
  int playing = 0;
  long checked = 0, fades = 0, frames = 0;
  for (const long wanted = std::lround(hours * 3600.0 * 48000.0); frames < wanted;
       frames += shape.block) {
    for (float& x : block) x = random.sample();
    past.insert(past.end(), block.begin(), block.end());
    past.erase(past.begin(), past.begin() + shape.block);
    const bool fade = random.one_in(50);
    if (fade) {
      MORVAX_ConvolutionFade_API_float(stream.get(), responses[playing]->get(),
                                       responses[1 - playing]->get(), block.data(), block.data());
      playing = 1 - playing;
      ++fades;
    } else {
      MORVAX_ConvolutionRun_API_float(stream.get(), responses[playing]->get(), block.data(),
                                      block.data());
    }
    if (!fade && !random.one_in(100)) continue;
    const int frame = random.in(0, shape.block - 1);
    double exact[2] = {0, 0}, level = 0;
    for (int i = 0; i < 2; ++i)
      for (size_t j = 0; j < taps[i].size(); ++j) {
        const double product =
            static_cast<double>(taps[i][j]) * past[past.size() - shape.block + frame - j];
        exact[i] += product;
        level += product * product;
      }
    const double w = fade && shape.block > 1 ? static_cast<double>(frame) / (shape.block - 1) : 1;
    ASSERT_NEAR(block[frame], (1 - w) * exact[1 - playing] + w * exact[playing],
                3e-6 * std::sqrt(level))
        << "after " << frames << " frames";
    ++checked;
  }
  std::printf("block %d, %d taps: %.2f hours, %ld fades, %ld samples checked\n", shape.block,
              shape.taps, frames / (3600.0 * 48000.0), fades, checked);
}

INSTANTIATE_TEST_SUITE_P(Shapes, LongConvolution,
                         testing::Values(Convolution_shape{1, 1, 7, 3000},
                                         Convolution_shape{1, 1, 64, 20000},
                                         Convolution_shape{1, 1, 480, 48000}));

INSTANTIATE_TEST_SUITE_P(Kinds, Endurance, testing::Range(0, 5));

}  // namespace

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  if (const char* wanted = std::getenv("JURN_ENDURANCE_HOURS")) hours = std::atof(wanted);
  return RUN_ALL_TESTS();
}

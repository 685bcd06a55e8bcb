/* Filter_ID, records side by side, stoshort and the channel conversion. */
#include <gtest/gtest.h>

#include <memory>

#include "ChanelConvert.h"
#include "OKA_Filter.h"
#include "functions.h"
#include "support.h"

namespace {

TEST(Stoshort, TruncatesAndSaturates) {
  const struct {
    float x;
    short sample;
  } cases[] = {{32766.9f, 32766},   {32767.0f, 32767},   {1e30f, 32767},   {INFINITY, 32767},
               {-32768.9f, -32768}, {-32767.9f, -32767}, {-1e30f, -32768}, {-INFINITY, -32768},
               {1.9f, 1},           {-1.9f, -1},         {-0.7f, 0},       {kNaN, 0},
               {-kNaN, 0}};
  for (const auto& c : cases) EXPECT_EQ(stoshort(c.x), c.sample) << c.x;
}

TEST(ChanelConvert, SplitsJoinsAndIgnoresOtherCounts) {
  Random random(1);
  for (int frames : {0, 1, 2, 7, 8, 33, 1056}) {
    const auto any = [&](short* x, int count) { random.signal(x, count); };
    Twin<short> block(random, 2 * frames + 1, any), joined(random, 2 * frames, any);
    Twin<short> left(random, frames, any), right(random, frames, any);
    for (const int outputs : {0, 1, 3})
      MORVAX_ChanelConvert(1, outputs, frames, block[true], block[true], left[true], right[true]);
    MORVAX_ChanelConvert(2, 2, frames, block[true], block[true], left[true], right[true]);
    EXPECT_TRUE(left.agrees() && right.agrees());
    for (int i = 0; i < frames; ++i) {
      left.expected[i] = block.expected[2 * i];
      right.expected[i] = block.expected[2 * i + 1];
    }
    MORVAX_ChanelConvert(1, 2, 2 * frames + frames % 2, block[true], nullptr, left[true],
                         right[true]);
    EXPECT_TRUE(left.agrees() && right.agrees()) << frames;
    MORVAX_ChanelConvert(2, 1, frames, left[true], right[true], joined[true], nullptr);
    EXPECT_TRUE(same(joined[true], block[true], 2 * frames)) << frames;
  }
}

/* Records side by side against one after another: groups of one shape and strays between them, of
 * sizes around the lanes and lengths around the groups of frames. */
TEST(Int16Filter, RecordsSideBySideAgree) {
  Random random(16);
  constexpr int most = 19;
  const auto filters = std::make_unique<Filter_ID[]>(most);
  const auto expected = std::make_unique<Filter_ID[]>(most);
  for (int trial = 0; trial < 600; ++trial) {
    const int count = random.in(0, most), len = random.one_in(9) ? 0 : random.count(1, 700);
    const int type = random.one_of({0, 1, 1}), n = random.one_of({2, 2, 4, 3});
    const int ns = random.one_in(9) ? random.in(0, 60) : random.in(1, 9);
    const int blen = random.count(1, 60), alen = random.count(1, 60);
    const bool wild = random.one_in(10);
    Filter_ID* list[most];
    std::vector<short> blocks(most * 700);
    const short* input[most];
    short* output[most];
    for (int i = 0; i < count; ++i) {
      Filter_ID* f = list[i] = &filters[i];
      fill_rubbish(random, f);
      f->chanel = random.one_in(9) ? 2 : 1;
      f->filtertype = type;
      f->n = n;
      f->ns = ns;
      f->blen = blen;
      f->alen = alen;
      if (random.one_in(9)) f->filtertype = random.one_of({-1, 0, 1, 7});
      if (random.one_in(9)) f->ns = random.in(0, 9);
      if (random.one_in(9)) f->n = random.one_of({2, 3, 4});
      if (random.one_in(9)) f->blen = random.in(1, 60);
      if (random.one_in(9)) f->alen = random.in(1, 60);
      if (f->filtertype == 1) {
        random.sections(f->b, f->a, f->n, f->ns, wild);
        random.states(f->memL.mempx, JURN_COEFFICIENTS);
        random.states(f->memL.mempy, JURN_COEFFICIENTS);
      } else {
        random.taps(f->b, f->blen, wild);
        random.denominator(f->a, f->alen, wild);
        random.states(f->memL.memoutput, JURN_HISTORY);
      }
      expected[i] = *f;
    }
    for (int call = 0; call < 2; ++call) {
      for (int i = 0; i < count; ++i) random.signal(&blocks[i * 700], 700);
      std::vector<short> results = blocks, wanted = blocks;
      for (int i = 0; i < count; ++i) {
        output[i] = &results[i * 700];
        input[i] = random.one_in(2) ? output[i] : &blocks[i * 700];
        MORVAX_FilterRun_API(&expected[i], &blocks[i * 700], len, &wanted[i * 700]);
      }
      MORVAX_FilterRun_API_records(list, count, input, len, output);
      ASSERT_EQ(results, wanted) << "trial " << trial << " type " << type << " ns " << ns;
      for (int i = 0; i < count; ++i)
        ASSERT_TRUE(same_record(&filters[i], &expected[i])) << "trial " << trial << " record " << i;
    }
  }
}

/* Results worked out by hand, which the reference has to meet as well. */
TEST(Int16Filter, WorkedExamples) {
  const struct {
    const char* name;
    int type, chanel, blen;
    std::vector<float> b, a;
    std::vector<short> input, output;
  } cases[] = {
      {"fir", -1, 1, 2, {0.5f, 0.5f}, {1.0f}, {100, 100, 100}, {50, 100, 100}},
      {"stereo", 0, 2, 2, {0.5f, 0.5f}, {1.0f, 0.0f}, {100, -100, 100, -100}, {50, -50, 100, -100}},
      {"odd", -1, 2, 1, {1.0f}, {1.0f}, {1, 2, 3, 4, 5}, {1, 2, 3, 4, 77}},
      {"gain", -1, 1, 1, {2.0f}, {1.0f}, {20000, -20000, 3}, {32767, -32768, 6}},
      {"half", -1, 1, 1, {0.5f}, {1.0f}, {3, -3}, {1, -1}},
      {"iir", 0, 1, 1, {1.0f}, {1.0f, -0.5f}, {100, 0, 0, 0}, {100, 50, 25, 12}},
      {"cascade", 1, 1, 0, {0.5f, 0.5f, 0}, {1, -0.5f, 0}, {1000, 0, 0, 0}, {500, 750, 375, 187}},
      {"order 3", 1, 1, 3, {1, 1, 1, 1}, {1, 1, 1, 1}, {5, -5}, {5, -5}},
      {"average", 2, 1, 4, {}, {}, {4, 4, 4, 4, 4}, {1, 2, 3, 4, 4}},
      {"stereo average", 2, 2, 4, {}, {}, {4, 4, 4, 4}, {77, 77, 77, 77}}};
  for (const auto& c : cases) {
    auto filter = std::make_unique<Filter_ID>();
    filter->chanel = c.chanel;
    filter->filtertype = c.type;
    filter->blen = c.blen;
    filter->alen = static_cast<int>(c.a.size());
    filter->n = c.a.size() == 4 ? 3 : 2;
    filter->ns = filter->n == 3 ? 1000000000 : 1;  // which nothing looks at
    std::copy(c.b.begin(), c.b.end(), filter->b);
    std::copy(c.a.begin(), c.a.end(), filter->a);
    MORVAX_FilterReset_API(filter.get());
    std::vector<short> output(c.input.size(), 77);
    MORVAX_FilterRun_API(filter.get(), c.input.data(), static_cast<int>(output.size()),
                         output.data());
    EXPECT_EQ(output, c.output) << c.name;
  }
}

TEST(Int16Filter, FlushesBelowTheDoubleThreshold) {
  const struct {
    float x, y;
  } cases[] = {
      {kFlushed, 0.0f}, {-kFlushed, 0.0f}, {kKept, kKept}, {-kKept, -kKept}, {-0.0f, 0.0f}};
  const float one[] = {1.0f}, delay[] = {1.0f, 0.0f};
  for (const auto& c : cases) {
    // In any of many sections: the one that halves the samples.
    for (const int n : {2, 4})
      for (int ns = 1; ns <= 20; ++ns)
        for (int k = 0; k < ns; ++k) {
          std::vector<float> b(ns * (n + 1)), a(b.size()), px(b.size()), py(b.size());
          for (int i = 0; i < ns; ++i) b[i * (n + 1)] = i == k ? 0.5f : 1.0f;
          std::vector<float> x(50, 2 * c.x), y(50, c.y);
          filterNOrNsSec(b.data(), a.data(), n, ns, x.data(), 50, px.data(), py.data());
          ASSERT_TRUE(same(x.data(), y.data(), 50)) << c.x << ' ' << n << ' ' << ns << ' ' << k;
        }
    float past[] = {5.0f, c.x};
    short silence = 0, history = 0;
    JURNiir(&silence, &silence, 1, past, &history, one, 1, delay, 2);
    EXPECT_EQ(std::memcmp(past, &c.y, sizeof c.y), 0) << c.x;
  }
}

}  // namespace

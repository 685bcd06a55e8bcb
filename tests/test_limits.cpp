/* Debug builds name the limit that a caller breaks. Release builds check nothing. Each death
 * happens in a process of its own, so the records here stay zero. */
#ifndef NDEBUG

#include <gtest/gtest.h>

#include <memory>

#include "ChanelConvert.h"
#include "Convolution_control.h"
#include "Fir_control.h"
#include "OKA_Filter.h"
#include "Sections_control.h"
#include "support.h"

namespace {

Filter_ID int16_filter;
Filterf_ID float_filter;
shuzhiFilter_ID moving_sum;
Filterlongfir_ID long_filter;
Buf16_ID queue;
short block[70000], history[40000];
float floats[40000];
double doubles[40000];

template <class Record, class Run>
void run(Run run_record, Record* r, int chanel, int type, int blen, int alen, int ns, int inLen) {
  r->chanel = chanel;
  r->filtertype = type;
  r->blen = blen;
  r->alen = alen;
  r->n = 2;
  r->ns = ns;
  run_record(r, block, inLen, block);
}

TEST(LimitsDeathTest, Int16Filter) {
  const struct {
    const char* limit;
    int chanel, type, blen, alen, ns, inLen;
  } cases[] = {{"inLen must not be negative", 1, -1, 1, 1, 1, -1},
               {"blen must be from 1 to 1250", 1, -1, 0, 1, 1, 1},
               {"blen must be from 1 to 1250", 1, 0, 1251, 1, 1, 1},
               {"alen must be from 1 to 1250", 1, 0, 1, 1251, 1, 1},
               {"blen - 1 . frames must fit meminput", 1, -1, 1250, 1, 1, 908},
               {"alen - 1 . frames must be at most 2156", 1, 0, 1, 1250, 1, 908},
               {"cascade's block must have at most 1056", 1, 1, 1, 1, 1, 1057},
               {"ns .n . 1. must be at most 1250", 1, 1, 1, 1, 417, 1},
               {"average's blen must be from 1 to 2156", 1, 2, 2157, 1, 1, 1},
               {"average's block must have at most 32767", 1, 2, 1, 1, 1, 32768},
               {"stereo block must have at most 1056", 2, -1, 1, 1, 1, 2114}};
  Filter_ID* f = &int16_filter;
  for (const auto& c : cases)
    EXPECT_DEATH(run(MORVAX_FilterRun_API, f, c.chanel, c.type, c.blen, c.alen, c.ns, c.inLen),
                 c.limit);
  EXPECT_DEATH((f->memL.memi = 2156, run(MORVAX_FilterRun_API, f, 1, 2, 4, 1, 1, 1)),
               "memi must lie in meminput");
  EXPECT_DEATH(MORVAX_FilterCalcu_API_FromMatlabTable(f, floats, floats, 1250, 0), "at most 1249");
  EXPECT_DEATH(MORVAX_FilterCalcu_API_FromMatlabTable(f, floats, floats, 833, 1), "at most 832");
  EXPECT_DEATH((f->blen = 1251, MORVAX_Filter_abCopy_API(f, f)), "blen and alen must be at most");
  f->blen = f->alen = 1250;
  MORVAX_Filter_abCopy_API(f, f);  // the limit itself is no fault
}

TEST(LimitsDeathTest, LongFilter) {
  Filterlongfir_ID* f = &long_filter;
  f->bRlen = 1;
  const struct {
    const char* limit;
    int chanel, type, blen, inLen;
  } cases[] = {{"two filters must have at most 1056 frames", 1, -6, 1, 1057},
               {"time-domain kinds take 1 to 32767 taps", 2, -3, 0, 2},
               {"blen - 1 . frames must fit meminput", 1, -1, 32767, 1059},
               {"block must have at most 32767 frames", 1, -1, 1, 32768},
               {"average's blen must be from 1 to", 1, 2, 32768, 1}};
  for (const auto& c : cases)
    EXPECT_DEATH(run(MORVAX_FilterlongfirRun_API, f, c.chanel, c.type, c.blen, 1, 1, c.inLen),
                 c.limit);
  EXPECT_DEATH((f->cmemcall = 1, run(MORVAX_FilterlongfirRun_API, f, 1, -6, 1, 1, 1, 1)),
               "pending fade needs a saved filter");
  EXPECT_DEATH((f->blen = 8193, MORVAX_FilterlongfirCalcu_API_forFFT(f)), "take at most 8192 taps");
  EXPECT_DEATH((f->blen = f->cmemblen = 32768, MORVAX_FilterlongfirCalcu_APItime(f)),
               "time-domain fade takes at most 32767 taps");

  const auto run_fft = [=](int in_queued, int out_queued, int inLen) {
    f->chanel = 2;
    f->filtertype = -2;
    f->blen = f->bRlen = 100;
    MORVAX_FilterlongfirCalcu_API_forFFT(f);
    f->mBufin.rear = in_queued;
    f->mBufout.rear = out_queued;
    MORVAX_FilterlongfirRun_API(f, block, inLen, block);
  };
  EXPECT_DEATH(run_fft(512, 0, 3), "inLen must be 0 or more and, in stereo, even");
  EXPECT_DEATH(run_fft(100000, 0, 5600), "does not fit the input FIFO");
  EXPECT_DEATH(run_fft(512, 105500, 200), "does not fit the output FIFO");
}

TEST(LimitsDeathTest, FloatFilter) {
  const struct {
    const char* limit;
    int type, blen, alen, inLen;
  } cases[] = {{"blen must be from 1 to 201", -1, 202, 1, 1},
               {"alen must be from 1 to 201", 0, 1, 0, 1},
               {"blen - 1 . inLen must be at most 2512", -1, 201, 1, 2313},
               {"alen - 1 . inLen must be at most 2512", 0, 1, 201, 2313}};
  Filterf_ID* f = &float_filter;
  for (const auto& c : cases)
    EXPECT_DEATH((f->filtertype = c.type, f->blen = c.blen, f->alen = c.alen,
                  MORVAX_FilterfRun_API(f, floats, c.inLen, floats)),
                 c.limit);
  EXPECT_DEATH(MORVAX_FilterfRun_API_shortin(f, block, 1057, floats), "at most 1056 samples");
}

TEST(LimitsDeathTest, MovingSum) {
  shuzhiFilter_ID* f = &moving_sum;
  const char* const blen = "blen must be from 1 to 256";
  const char* const memi = "memi from 0 to 255";
  EXPECT_DEATH(MORVAX_shuzhiFilterCalcu_API(f), blen);
  EXPECT_DEATH(MORVAX_shuzhiFilterRun_API(f, block, 1, block), blen);
  EXPECT_DEATH(MORVAX_shuzhiFilterRun_API_inonesampleoutsum(f, 1), blen);
  f->blen = 4;
  f->memi = 256;
  EXPECT_DEATH(MORVAX_shuzhiFilterRun_API(f, block, 1, block), memi);
  EXPECT_DEATH(MORVAX_shuzhiFilterRun_API_inonesampleoutsum(f, 1), memi);
}

TEST(LimitsDeathTest, ConvolutionAndFades) {
  const Convolution_shape shape = {1, 1, 64, 100}, other = {1, 1, 32, 100};
  std::vector<float> memory[3];
  const auto set_up = [&](int i, size_t size) {
    memory[i].resize(size / sizeof(float) + 1);
    return memory[i].data();
  };
  const size_t stream_size = MORVAX_ConvolutionStreamSize_API(&shape);
  const size_t size = MORVAX_ConvolutionResponseSize_API(&shape, nullptr, 0);
  const size_t other_size = MORVAX_ConvolutionResponseSize_API(&other, nullptr, 0);
  auto* stream = reinterpret_cast<ConvolutionStream_ID*>(set_up(0, stream_size));
  auto* response = reinterpret_cast<ConvolutionResponse_ID*>(set_up(1, size));
  auto* other_response = reinterpret_cast<ConvolutionResponse_ID*>(set_up(2, other_size));
  const auto run = [&](ConvolutionResponse_ID* r) {
    MORVAX_ConvolutionRun_API(stream, r, block, block);
  };
  EXPECT_DEATH(run(response), "stream must be set up");
  EXPECT_DEATH(MORVAX_ConvolutionReset_API(stream), "stream must be set up");
  MORVAX_ConvolutionStreamCalcu_API(stream, stream_size, &shape);
  EXPECT_DEATH(run(response), "response must be set up");
  MORVAX_ConvolutionResponseCalcu_API(response, size, &shape, nullptr, 0);
  MORVAX_ConvolutionResponseCalcu_API(other_response, other_size, &other, nullptr, 0);
  EXPECT_DEATH(run(other_response), "response must have the stream's shape");

  Filter_ID* f = &int16_filter;
  EXPECT_DEATH(MORVAX_FilterFade_API(f, f, block, 4, block), "two records");
  Filterlongfir_ID* g = &long_filter;
  EXPECT_DEATH(MORVAX_FilterlongfirFade_API(g, g, block, 2113, block), "at most|2112 values");
  const auto previous = std::make_unique<Filterlongfir_ID>();
  g->chanel = previous->chanel = 1;
  g->filtertype = JURN_LONG_MONO_TO_STEREO;
  EXPECT_DEATH(MORVAX_FilterlongfirFade_API(previous.get(), g, block, 4, block), "as many outputs");
  EXPECT_DEATH(MORVAX_FilterfFade_API(&float_filter, &float_filter, floats, 2513, floats),
               "at most 2512 samples");
}

TEST(LimitsDeathTest, Sections) {
  const Sections_shape shape = {2, 1}, mono = {1, 1};
  std::vector<double> memory[5];
  for (auto& m : memory) m.resize(1000);
  const size_t size = memory[0].size() * sizeof(double);
  auto* const stream = reinterpret_cast<SectionsStream_ID*>(memory[0].data());
  auto* const other = reinterpret_cast<SectionsStream_ID*>(memory[1].data());
  auto* const filter = reinterpret_cast<SectionsFilter_ID*>(memory[2].data());
  auto* const longer = reinterpret_cast<SectionsFilter_ID*>(memory[3].data());
  auto* const lists = reinterpret_cast<SectionsFilter_ID*>(memory[4].data());
  double sos[18] = {};
  for (double& x : sos) x = 1.0;
  const auto run = [&](SectionsFilter_ID* f, int frames) {
    MORVAX_SectionsRun_API(stream, f, block, frames, block);
  };
  EXPECT_DEATH(run(filter, 1), "stream must be set up");
  EXPECT_DEATH(MORVAX_SectionsReset_API(stream), "stream must be set up");
  EXPECT_DEATH(MORVAX_SectionsBadSamples_API(stream), "stream must be set up");
  MORVAX_SectionsStreamCalcu_API(stream, size, &shape);
  MORVAX_SectionsStreamCalcu_API(other, size, &mono);
  EXPECT_DEATH(run(filter, 1), "filter must be set up");
  EXPECT_DEATH(MORVAX_SectionsRing_API(filter, 1e-6), "filter must be set up");
  MORVAX_SectionsFilterCalcu_API(filter, size, sos, 1, 1);
  MORVAX_SectionsFilterCalcu_API(longer, size, sos, 2, 1);
  MORVAX_SectionsFilterCalcu_API(lists, size, sos, 1, 3);
  EXPECT_DEATH(MORVAX_SectionsRing_API(filter, 0), "level must be above 0");
  EXPECT_DEATH(run(filter, -1), "frames must not be negative");
  EXPECT_DEATH(run(longer, 1), "room for the filter's sections");
  EXPECT_DEATH(run(lists, 1), "1 list or one for each channel");
  EXPECT_DEATH(MORVAX_SectionsFollow_API(other, filter, stream, filter), "as many channels");
  Sections_voice voices[2] = {{stream, filter, 1, 0}, {other, filter, 1, 0}};
  EXPECT_DEATH(MORVAX_SectionsFade_API(voices, 0, block, 1, block), "must have a voice");
  EXPECT_DEATH(MORVAX_SectionsFade_API(voices, 2, block, 1, block), "as many channels");
  MORVAX_SectionsStreamCalcu_API(other, size, &shape);
  voices[1].ramp = 0;
  EXPECT_DEATH(MORVAX_SectionsFade_API(voices, 2, block, 1, block), "ramp must be at least 1");
  // A refused set-up leaves what was there unusable.
  sos[3] = 0;
  EXPECT_EQ(MORVAX_SectionsFilterCalcu_API(filter, size, sos, 1, 1), JURN_SECTIONS_BAD_A0);
  EXPECT_DEATH(run(filter, 1), "filter must be set up");
}

TEST(LimitsDeathTest, KernelsAndServices) {
  int sum = 0, memi = 0;
  EXPECT_DEATH(JURNfir(block, block, 1, history, floats, 0), "blen must be at least 1");
  EXPECT_DEATH(JURNfir(block, block, -1, history, floats, 1), "inlen must not be negative");
  EXPECT_DEATH(JURN_shuzhi2(block, block, 1, history, 0, &sum, &memi), "len must be from 1");
  EXPECT_DEATH(JURN_shuzhi2(block, block, 32768, history, 1, &sum, &memi), "at most 32767");
  for (int broken = 0; broken < 3; ++broken) {
    const char* const limits[] = {"blen must be", "alen must be", "inlen must"};
    const int inlen = broken == 2 ? -1 : 1;
    const short blen = broken == 0 ? 0 : 1, alen = broken == 1 ? 0 : 1;
    EXPECT_DEATH(JURNiir(block, block, inlen, floats, history, floats, blen, floats, alen),
                 limits[broken]);
    EXPECT_DEATH(MORVAX_Qiirf(floats, floats, inlen, doubles, floats, doubles, blen, doubles, alen),
                 limits[broken]);
    if (broken == 1) continue;
    EXPECT_DEATH(MORVAX_Qfirf(floats, floats, inlen, floats, doubles, blen), limits[broken]);
  }
  double result = 0;
  EXPECT_DEATH(MORVAX_FirRun_API_double(&result, doubles, 1, doubles, 0), "blen must be at least");
  EXPECT_DEATH(MORVAX_FirRun_API_double(&result, doubles, -1, doubles, 1), "must not be negative");
  EXPECT_DEATH(MORVAX_ChanelConvert(1, 2, -1, block, nullptr, block, block), "len must not be");
  EXPECT_DEATH(MORVAX_rfftmut2(floats, floats, floats, 3), "power of two");
  EXPECT_DEATH(MORVAX_putinAPI_loop(&queue, block, -1), "len must not be negative");
  EXPECT_DEATH(MORVAX_putoutAPI_ForReframe_0_loop(&queue, block, -1), "must not be negative");
  queue.rear = 105600;
  EXPECT_DEATH(MORVAX_putinAPI_loop(&queue, block, 1), "front and rear must lie in");
  EXPECT_DEATH(MORVAX_putoutAPI_ForReframe_0_loop(&queue, block, 1), "front and rear must lie");
}

}  // namespace

#endif

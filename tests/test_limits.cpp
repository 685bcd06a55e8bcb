/* Debug builds name the limit that a caller breaks. Release builds check nothing. */
#ifndef NDEBUG

#include <functional>
#include <memory>

#include "ChanelConvert.h"
#include "OKA_Filter.h"
#include "reference.h"
#include "support.h"

namespace {

short block[70000], history[40000];
float floats[40000];
double doubles[40000];

template <class Record>
struct Broken {
  const char* limit;
  std::function<void(Record*)> call;
};

template <class Record>
void expect_deaths(const std::vector<Broken<Record>>& cases) {
  for (const auto& c : cases) {
    auto record = std::make_unique<Record>();
    EXPECT_DEATH(c.call(record.get()), c.limit);
  }
}

template <class Record, class Run>
std::function<void(Record*)> run_kind(Run run, int chanel, int type, int blen, int alen, int ns,
                                      int inLen) {
  return [=](Record* r) {
    r->chanel = chanel;
    r->filtertype = type;
    r->blen = blen;
    r->alen = alen;
    r->n = 2;
    r->ns = ns;
    run(r, block, inLen, block);
  };
}

TEST(LimitsDeathTest, Int16Filter) {
  const auto run = [](int chanel, int type, int blen, int alen, int ns, int inLen) {
    return run_kind<Filter_ID>(MORVAX_FilterRun_API, chanel, type, blen, alen, ns, inLen);
  };
  expect_deaths<Filter_ID>({
      {"inLen must not be negative", run(1, -1, 1, 1, 1, -1)},
      {"blen must be from 1 to 1250", run(1, -1, 0, 1, 1, 1)},
      {"blen must be from 1 to 1250", run(1, 0, 1251, 1, 1, 1)},
      {"alen must be from 1 to 1250", run(1, 0, 1, 1251, 1, 1)},
      {"blen - 1 . frames must fit meminput", run(1, -1, 1250, 1, 1, 908)},
      {"alen - 1 . frames must be at most 2156", run(1, 0, 1, 1250, 1, 908)},
      {"cascade's block must have at most 1056", run(1, 1, 1, 1, 1, 1057)},
      {"ns .n . 1. must be at most 1250", run(1, 1, 1, 1, 417, 1)},
      {"average's blen must be from 1 to 2156", run(1, 2, 2157, 1, 1, 1)},
      {"average's block must have at most 32767", run(1, 2, 1, 1, 1, 32768)},
      {"stereo block must have at most 1056", run(2, -1, 1, 1, 1, 2114)},
      {"Order must be at most 1249",
       [](auto* f) { MORVAX_FilterCalcu_API_FromMatlabTable(f, floats, floats, 1250, 0); }},
      {"Order of a section table must be at most 832",
       [](auto* f) { MORVAX_FilterCalcu_API_FromMatlabTable(f, floats, floats, 833, 1); }},
      {"blen and alen must be at most 1250",
       [](auto* f) {
         f->blen = 1251;
         MORVAX_Filter_abCopy_API(f, f);
       }},
  });
}

TEST(LimitsDeathTest, FloatFilter) {
  const auto run = [](int type, int blen, int alen, int inLen) {
    return [=](Filterf_ID* f) {
      f->filtertype = type;
      f->blen = blen;
      f->alen = alen;
      MORVAX_FilterfRun_API(f, floats, inLen, floats);
    };
  };
  expect_deaths<Filterf_ID>({
      {"blen must be from 1 to 201", run(-1, 202, 1, 1)},
      {"alen must be from 1 to 201", run(0, 1, 0, 1)},
      {"blen - 1 . inLen must be at most 2512", run(-1, 201, 1, 2313)},
      {"alen - 1 . inLen must be at most 2512", run(0, 1, 201, 2313)},
      {"int16 block must have at most 1056",
       [](auto* f) { MORVAX_FilterfRun_API_shortin(f, block, 1057, floats); }},
  });
}

TEST(LimitsDeathTest, MovingSum) {
  const auto with = [](int blen, int memi, auto call) {
    return [=](shuzhiFilter_ID* f) {
      f->blen = blen;
      f->memi = memi;
      call(f);
    };
  };
  const auto run = [](shuzhiFilter_ID* f) { MORVAX_shuzhiFilterRun_API(f, block, 1, block); };
  const auto push = [](auto* f) { MORVAX_shuzhiFilterRun_API_inonesampleoutsum(f, 1); };
  expect_deaths<shuzhiFilter_ID>({
      {"blen must be from 1 to 256", with(0, 0, MORVAX_shuzhiFilterCalcu_API)},
      {"blen must be from 1 to 256", with(257, 0, run)},
      {"blen must be from 1 to 256", with(257, 0, push)},
      {"memi must lie in 0 .. len - 1", with(4, 4, run)},
      {"memi must lie in 0 .. blen - 1", with(4, -1, push)},
  });
}

TEST(LimitsDeathTest, LongFilter) {
  const auto run = [](int chanel, int type, int blen, int bRlen, int inLen) {
    return [=](Filterlongfir_ID* f) {
      f->bRlen = bRlen;
      run_kind<Filterlongfir_ID>(MORVAX_FilterlongfirRun_API, chanel, type, blen, 1, 1, inLen)(f);
    };
  };
  const auto run_fft = [](int type, int in_queued, int out_queued, int inLen) {
    return [=](Filterlongfir_ID* f) {
      f->chanel = 2;
      f->filtertype = type;
      f->blen = f->bRlen = 100;
      MORVAX_FilterlongfirCalcu_API_forFFT(f);
      f->mBufin.rear = in_queued;
      f->mBufout.rear = out_queued;
      MORVAX_FilterlongfirRun_API(f, block, inLen, block);
    };
  };
  expect_deaths<Filterlongfir_ID>({
      {"two filters must have at most 1056 frames", run(1, -6, 1, 1, 1057)},
      {"time-domain kinds take 1 to 32767 taps", run(2, -3, 1, 0, 2)},
      {"blen - 1 . frames must fit meminput", run(1, -1, 32767, 1, 1059)},
      {"average's blen must be from 1 to", run(1, 2, 32768, 1, 1)},
      {"FFT kinds need the FFT set-up", run(2, -2, 1, 1, 2)},
      {"inLen must be 0 or more and, in stereo, even", run_fft(-2, 512, 0, 3)},
      {"does not fit the input FIFO", run_fft(-2, 100000, 0, 5600)},
      {"does not fit the output FIFO", run_fft(-2, 512, 105000, 200)},
      {"pending fade needs a saved filter",
       [=](auto* f) {
         f->cmemcall = 1;
         run(1, -6, 1, 1, 1)(f);
       }},
      {"FFT kinds take 1 to 8192 taps",
       [](auto* f) {
         f->blen = 8193;
         MORVAX_FilterlongfirCalcu_API_forFFT(f);
       }},
      {"blen must be at most 32768 for a time-domain fade",
       [](auto* f) {
         f->blen = f->cmemblen = 32769;
         MORVAX_FilterlongfirCalcu_APItime(f);
       }},
  });
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
  EXPECT_DEATH(MORVAX_ChanelConvert(1, 2, -1, block, nullptr, block, block), "len must not be");
  EXPECT_DEATH(MORVAX_rfftmut2(floats, floats, floats, 3), "power of two");
  auto queue = std::make_unique<Buf16_ID>();
  EXPECT_DEATH(MORVAX_putinAPI_loop(queue.get(), block, -1), "len must not be negative");
  EXPECT_DEATH(MORVAX_putoutAPI_ForReframe_0_loop(queue.get(), block, -1), "must not be negative");
  queue->rear = 105600;
  EXPECT_DEATH(MORVAX_putinAPI_loop(queue.get(), block, 1), "front and rear must lie in");
  EXPECT_DEATH(MORVAX_putoutAPI_ForReframe_0_loop(queue.get(), block, 1),
               "front and rear must lie");
}

}  // namespace

#endif

// The library's records as streams: filters that follow others, and states from bytes.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <iterator>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "errors.h"
#include "streams/record_stream.h"

namespace jurn::records {
namespace {

void set_channels(Filterf_ID&, int) {}
template <class Record>
void set_channels(Record& r, int channels) {
  r.chanel = channels;
}

void set_sections(Filter_ID& r) {
  r.n = 2;
  r.ns = 1;
}
template <class Record>
void set_sections(Record&) {}

/** The same filter, whatever the lengths: what they have more is zeros. */
template <class Record>
std::unique_ptr<Record> filter_of(int kind, int channels, int blen, int alen) {
  auto r = std::make_unique<Record>();
  set_channels(*r, channels);
  const double b[] = {0.5, -0.25, 0.125, 0.3}, a[] = {1.0, -0.7, 0.4};
  std::copy(std::begin(b), std::end(b), r->b);
  std::copy(std::begin(a), std::end(a), r->a);
  r->filtertype = kind;
  r->blen = blen;
  r->alen = alen;
  set_sections(*r);
  reset(*r);
  return r;
}

template <class Record>
std::vector<typename Traits<Record>::Sample> run(RecordStream<Record>* stream,
                                                 const std::vector<int>& lengths) {
  using Sample = typename Traits<Record>::Sample;
  std::vector<Sample> all;
  for (const int frames : lengths) {
    std::vector<Sample> block(static_cast<std::size_t>(frames * channels_in(stream->record())));
    for (std::size_t i = 0; i < block.size(); ++i)
      block[i] = static_cast<Sample>(
          8000.0 * std::sin(static_cast<double>((all.size() + i) * (all.size() + i))));
    stream->run_block(block.data(), frames, block.data());
    all.insert(all.end(), block.begin(), block.end());
  }
  return all;
}

template <class Record>
void goes_on(int kind, int channels) {
  // blen and alen before and after; the histories lie behind a block of 2 frames then.
  const int lengths[][4] = {{4, 3, 4, 3}, {4, 3, 6, 5}, {20, 30, 4, 3}, {40, 9, 35, 12}};
  for (const auto& length : lengths)
    for (const bool twice : {false, true}) {
      SCOPED_TRACE(std::to_string(kind) + ", " + std::to_string(&length - lengths));
      RecordStream<Record> plain, changing;
      for (RecordStream<Record>* const stream : {&plain, &changing}) {
        stream->record() = *filter_of<Record>(kind, channels, length[0], length[1]);
        run(stream, {50, 2});
      }
      auto next = filter_of<Record>(kind, channels, twice ? 50 : length[2], length[3]);
      changing.fade_to(&next);
      next = filter_of<Record>(kind, channels, length[2], length[3]);
      if (twice) changing.fade_to(&next);
      EXPECT_EQ(changing.record().blen, length[2]);
      const auto expected = run(&plain, {7, 64, 1, 30}), out = run(&changing, {7, 64, 1, 30});
      const std::size_t faded = static_cast<std::size_t>(7 * channels);
      for (std::size_t i = 0; i < out.size(); ++i)
        ASSERT_NEAR(out[i], expected[i], i < faded ? 1.0 : 0.0) << i;
    }
}

TEST(Records, GoOnFromThePastOfTheFilterBefore) {
  for (const int kind : {JURN_FIR, JURN_IIR}) goes_on<Filterf_ID>(kind, 1);
  for (const int kind : {JURN_FIR, JURN_IIR, JURN_CASCADE})
    for (const int channels : {1, 2}) goes_on<Filter_ID>(kind, channels);
  goes_on<Filterlongfir_ID>(JURN_IIR, 2);
}

TEST(Records, RunShortSamplesAsTheFloatsThatTheyAre) {
  RecordStream<Filterf_ID> streams[2];
  std::vector<short> in(300);
  for (std::size_t i = 0; i < in.size(); ++i) in[i] = static_cast<short>(i * i * 37);
  const std::vector<float> same(in.begin(), in.end());
  std::vector<float> expected(in.size()), out(in.size());
  for (const bool changes : {false, true}) {
    for (auto& stream : streams) {
      auto filter = filter_of<Filterf_ID>(JURN_IIR, 1, 4, changes ? 2 : 3);
      if (changes) stream.fade_to(&filter);
      if (!changes) stream.record() = *filter;
    }
    streams[0].run_block(same.data(), 300, expected.data());
    streams[1].run_block(in.data(), 300, out.data());
    EXPECT_EQ(out, expected);
  }
  EXPECT_NE(out.back(), 0.0F);
}

std::unique_ptr<Filterlongfir_ID> long_of(int kind, int channels, int taps) {
  auto r = filter_of<Filterlongfir_ID>(JURN_FIR, channels, taps, 1);
  std::copy_n(r->b, taps, r->bR);
  r->bRlen = taps;
  set_kind(*r, kind, channels);
  reset(*r);
  return r;
}

TEST(Records, FadeInsideFromAPastOfAnyLength) {
  for (const int kind : {JURN_LONG_TWO_FILTERS, JURN_LONG_MONO_TO_STEREO}) {
    const int channels = kind == JURN_LONG_TWO_FILTERS ? 2 : 1;
    std::vector<short> in(200), out[2];
    for (std::size_t i = 0; i < in.size(); ++i) in[i] = static_cast<short>(i * i * 37);
    for (const bool fades : {false, true}) {
      const auto r = long_of(kind, channels, 4), same = long_of(kind, channels, 4);
      int at = 0, last = 0;
      for (const int frames : {50, 2, 7, 30}) {
        if (frames == 7 && fades) {
          fade_inside(*r, *same);
          EXPECT_EQ(r->cmemcall, 1) << "the taps are exchanged in a step";
        }
        move_histories(*r, last, frames);
        std::vector<short> block(static_cast<std::size_t>(2 * frames));
        records::run(*r, in.data() + at * channels, frames, block.data());
        out[fades].insert(out[fades].end(), block.begin(), block.end());
        at += frames;
        last = frames;
      }
    }
    for (std::size_t i = 0; i < out[0].size(); ++i) ASSERT_NEAR(out[1][i], out[0][i], 1) << i;
  }
}

TEST(Records, GoOnFromTheirBytesAndRefuseOthers) {
  const auto check = [](auto record, auto next) {
    using Stream = RecordStream<typename decltype(record)::element_type>;
    Stream stream, again;
    stream.record() = *record;
    run(&stream, {9});
    if (next) stream.fade_to(&next);
    const std::string bytes = stream.stored();
    again.restore(bytes);
    EXPECT_EQ(again.fading(), stream.fading());
    const auto refuses = [&](const std::string& wrong) {
      EXPECT_THROW(again.restore(wrong), Error) << wrong.size();
    };
    for (const std::size_t size : {0, 3, 19, 20}) refuses(bytes.substr(0, size));
    refuses(bytes.substr(0, bytes.size() - 1));
    refuses(bytes + '\0');
    std::string altered = bytes;
    altered[bytes.size() / 2] ^= 1;
    refuses(altered);
    StoredHead head;
    std::memcpy(&head, bytes.data(), sizeof head);
    const int longest = longest_block(stream.record());
    const std::function<void(StoredHead*)> alterations[] = {
        [](StoredHead* h) { ++h->magic; },
        [](StoredHead* h) { ++h->format; },
        [](StoredHead* h) { ++h->tag; },
        [](StoredHead* h) { h->fading ^= 1; },
        [](StoredHead* h) { ++h->size; },
        [](StoredHead* h) { h->last = -1; },
        [=](StoredHead* h) { h->last = longest + 1; }};
    for (const auto& alter : alterations) {
      StoredHead other = head;
      alter(&other);
      std::string forged(without_checksum(bytes));
      forged.replace(0, sizeof other, reinterpret_cast<const char*>(&other), sizeof other);
      add_checksum(&forged);
      refuses(forged);
    }
    EXPECT_EQ(run(&again, {5, 300, 1}), run(&stream, {5, 300, 1}));
  };
  check(filter_of<Filterf_ID>(JURN_IIR, 1, 4, 3), filter_of<Filterf_ID>(JURN_IIR, 1, 9, 5));
  check(filter_of<Filter_ID>(JURN_FIR, 2, 4, 1), filter_of<Filter_ID>(JURN_FIR, 2, 9, 1));
  for (const int taps : {4, 5})
    check(long_of(JURN_LONG_FFT, 2, taps), std::unique_ptr<Filterlongfir_ID>());
}

TEST(Records, TakeTheKindsAndTapsThatThereAre) {
  using Long = Filterlongfir_ID;
  const auto r = std::make_unique<Long>();
  // The channels that a kind takes, and those with which it fades: 1, 2, or 3 for either.
  const struct {
    int kind, takes;
    bool by_fft;
    int fades;
  } kinds[] = {{JURN_FIR, 3, false, 3},
               {JURN_LONG_FFT, 3, true, 2},
               {JURN_LONG_TWO_FILTERS, 2, false, 2},
               {JURN_LONG_FFT_LEFT_ONLY, 2, true, 0},
               {JURN_LONG_FFT_MONO_TO_STEREO, 1, true, 1},
               {JURN_LONG_MONO_TO_STEREO, 1, false, 1},
               {JURN_LONG_FFT_CROSSED, 2, true, 0}};
  for (int kind = JURN_LONG_FFT_CROSSED - 1; kind <= JURN_CASCADE; ++kind)
    for (int channels = 0; channels <= 3; ++channels) {
      SCOPED_TRACE(std::to_string(kind) + ", " + std::to_string(channels));
      const auto known = std::find_if(std::begin(kinds), std::end(kinds),
                                      [=](const auto& k) { return k.kind == kind; });
      if (channels == 0 || channels == 3 || known == std::end(kinds) ||
          !(known->takes & channels)) {
        EXPECT_THROW(set_kind(*r, kind, channels), Error);
        continue;
      }
      set_kind(*r, kind, channels);
      EXPECT_EQ(channels_out(*r), known->takes == 1 ? 2 : channels);
      const std::size_t most = known->by_fft ? JURN_FFT_MAX / 2 : 32767;
      set_taps(*r, std::vector<double>(most, 0.25), {});
      EXPECT_EQ(r->blen, static_cast<int>(most));
      EXPECT_EQ(r->bR[most - 1], 0.25f);
      EXPECT_THROW(set_taps(*r, std::vector<double>(most + 1), {}), Error);
      EXPECT_THROW(set_taps(*r, {}, {}), Error);
      EXPECT_THROW(set_taps(*r, {1e39}, {}), Error);
      if (has_two_filters(*r)) {
        set_taps(*r, {0.5, 0.25}, {0.125, 1.0, 2.0});
        EXPECT_EQ(r->blen, 3);
        EXPECT_EQ(r->bRlen, 3);
        EXPECT_EQ(std::vector<float>(r->b, r->b + 3), (std::vector<float>{0.5f, 0.25f, 0.0f}));
        EXPECT_EQ(std::vector<float>(r->bR, r->bR + 3), (std::vector<float>{0.125f, 1.0f, 2.0f}));
        set_taps(*r, {0.5, 0.25, 0.125}, {1.0});
        EXPECT_EQ(std::vector<float>(r->bR, r->bR + 3), (std::vector<float>{1.0f, 0.0f, 0.0f}));
      } else {
        EXPECT_THROW(set_taps(*r, {0.5}, {0.25}), Error);
        set_taps(*r, {1.0, 2.0, 3.0}, {});
      }
      if (known->fades & channels)
        check_fade(*r, 3);
      else
        EXPECT_THROW(check_fade(*r, 3), Error);
      EXPECT_THROW(check_fade(*r, 4), Error);
    }
  const auto most = [](auto record, FilterDesign::Kind kind, std::size_t count, double beyond) {
    set_design(*record, {kind, std::vector<double>(count), std::vector<double>(count)});
    EXPECT_THROW(
        set_design(*record, {kind, std::vector<double>(count + 3), std::vector<double>(count + 3)}),
        Error);
    EXPECT_THROW(set_design(*record, {kind, {0.0, beyond, 0.0}, {1.0, 0.0, 0.0}}), Error);
  };
  most(std::make_unique<Filter_ID>(), FilterDesign::kIir, 1250, 1e39);
  most(std::make_unique<Filter_ID>(), FilterDesign::kSections, 1248, 1e39);
  most(std::make_unique<Filterf_ID>(), FilterDesign::kIir, 201, HUGE_VAL);
  EXPECT_THROW(set_design(*std::make_unique<Filterf_ID>(),
                          {FilterDesign::kSections, {1.0, 0.0, 0.0}, {1.0, 0.0, 0.0}}),
               Error);
}

TEST(Records, RunWithinTheirArrays) {
  const auto expect = [](auto valid, const auto& alter) {
    EXPECT_TRUE(is_valid(*valid));
    alter(valid.get());
    EXPECT_FALSE(is_valid(*valid));
  };
  using Float = Filterf_ID;
  expect(filter_of<Float>(JURN_FIR, 1, 201, 0), [](Float* r) { ++r->blen; });
  expect(filter_of<Float>(JURN_IIR, 1, 1, 201), [](Float* r) { ++r->alen; });
  expect(filter_of<Float>(JURN_IIR, 1, 1, 1), [](Float* r) { --r->alen; });
  expect(filter_of<Float>(JURN_FIR, 1, 1, 1), [](Float* r) { --r->blen; });
  expect(filter_of<Float>(JURN_FIR, 1, 1, 1), [](Float* r) { r->filtertype = JURN_CASCADE; });
  using Short = Filter_ID;
  expect(filter_of<Short>(JURN_IIR, 2, 1250, 1250), [](Short* r) { ++r->alen; });
  expect(filter_of<Short>(JURN_IIR, 2, 1250, 1250), [](Short* r) { ++r->blen; });
  expect(filter_of<Short>(JURN_IIR, 1, 1, 1), [](Short* r) { --r->alen; });
  expect(filter_of<Short>(JURN_FIR, 2, 1250, 0), [](Short* r) { ++r->blen; });
  expect(filter_of<Short>(JURN_FIR, 2, 1, 1), [](Short* r) { ++r->chanel; });
  for (const int order : {2, 4}) {
    auto cascade = filter_of<Short>(JURN_CASCADE, 1, 1, 1);
    cascade->n = order;
    cascade->ns = 1250 / (order + 1);
    expect(std::move(cascade), [](Short* r) { ++r->ns; });
  }
  expect(filter_of<Short>(JURN_MOVING_AVERAGE, 1, 2156, 1), [](Short* r) { ++r->blen; });
  expect(filter_of<Short>(JURN_MOVING_AVERAGE, 1, 2, 1), [](Short* r) { r->memL.memi = 2; });
  using Sum = shuzhiFilter_ID;
  const auto mean_of = [](int length, int at) {
    auto sum = std::make_unique<Sum>();
    sum->blen = length;
    sum->memi = at;
    return sum;
  };
  expect(mean_of(JURN_MOVING_SUM_MAX, 0), [](Sum* r) { ++r->blen; });
  expect(mean_of(1, 0), [](Sum* r) { --r->blen; });
  expect(mean_of(9, 8), [](Sum* r) { ++r->memi; });
  expect(mean_of(9, 0), [](Sum* r) { --r->memi; });
  using Long = Filterlongfir_ID;
  expect(filter_of<Long>(JURN_FIR, 1, 32767, 1), [](Long* r) { ++r->blen; });
  const auto in_time = [] { return long_of(JURN_LONG_TWO_FILTERS, 2, 32767); };
  expect(in_time(), [](Long* r) { r->blen = r->bRlen = 32768; });
  for (const int past : {1, 32767}) {
    auto r = in_time();
    r->cmemblen = past;
    r->cmemcall = 1;
    expect(std::move(r), [=](Long* fading) { fading->cmemblen += past == 1 ? -1 : 1; });
  }
  expect(long_of(JURN_LONG_FFT_MONO_TO_STEREO, 1, 9), [](Long* r) { r->chanel = 2; });
  expect(long_of(JURN_LONG_FFT, 1, 1), [](Long* r) { r->blen = r->bRlen = 0; });
  expect(long_of(JURN_LONG_FFT, 1, 8192), [](Long* r) { r->blen = r->bRlen = 8193; });
  for (int Long::*const field :
       {&Long::blen, &Long::bRlen, &Long::fftN, &Long::offset, &Long::membufrear, &Long::chanel})
    for (const int kind : {JURN_LONG_FFT, JURN_LONG_FFT_LEFT_ONLY, JURN_LONG_FFT_CROSSED})
      expect(long_of(kind, 2, 8), [=](Long* r) { ++(r->*field); });
  for (Buf16_ID Long::*const queue : {&Long::mBufin, &Long::mBufout})
    for (int Buf16_ID::*const end : {&Buf16_ID::front, &Buf16_ID::rear})
      for (const int place : {-1, JURN_RING_SLOTS})
        expect(long_of(JURN_LONG_FFT, 2, 8), [=](Long* r) { r->*queue.*end = place; });
  expect(long_of(JURN_LONG_FFT, 2, 8), [](Long* r) { ++r->mBufin.rear; });  // one sample too much
}

}  // namespace
}  // namespace jurn::records

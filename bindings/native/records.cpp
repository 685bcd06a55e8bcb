// The library's records behind objects of another language's.
#include "exact.h"

#include <algorithm>
#include <type_traits>
#include <utility>

#include "design/filter_design.h"
#include "running.h"
#include "streams/hand_over.h"
#include "streams/record_stream.h"

namespace jurn::bindings {
namespace {

using namespace records;

[[noreturn]] void fail(const std::string& message) {
  throw Error(kUsageError, message);
}

FilterDesign design_of(const Wanted& wanted) {
  return checked_design(static_cast<FilterDesign::Kind>(wanted.kind), wanted.b, wanted.a);
}

template <class Record>
int length_of(const Wanted& wanted, const Record&) {
  constexpr int most = std::is_same_v<Record, shuzhiFilter_ID> ? JURN_MOVING_SUM_MAX : JURN_HISTORY;
  const double length = wanted.b.empty() ? 0.0 : wanted.b[0];
  if (!(length >= 1.0 && length <= most))
    fail("the length is not from 1 to " + std::to_string(most) + " samples");
  return static_cast<int>(length);
}

void configure(Filter_ID& r, const Wanted& wanted) {
  if (r.chanel != 1 && r.chanel != 2) fail("the channels are not 1 or 2");
  if (wanted.kind != kMean) return set_design(r, design_of(wanted));
  if (r.chanel != 1) fail("an average has one channel");
  r.filtertype = JURN_MOVING_AVERAGE;
  r.blen = length_of(wanted, r);
}

void configure(Filterf_ID& r, const Wanted& wanted) {
  set_design(r, design_of(wanted));
}

void configure(shuzhiFilter_ID& r, const Wanted& wanted) {
  r.blen = length_of(wanted, r);
  MORVAX_shuzhiFilterCalcu_API(&r);
}

void configure(Filterlongfir_ID& r, const Wanted& wanted) {
  set_kind(r, wanted.kind, r.chanel);
  set_taps(r, wanted.b, wanted.a);
}

/** Coefficients on their way to the thread that runs, and what it needs no more on its way back. */
template <class Record>
struct Offered {
  std::unique_ptr<Record> record;
  StreamFormat made_for;
  Offered* next = nullptr;
};

void set_channels(Filterf_ID&, int) {}
void set_channels(shuzhiFilter_ID&, int) {}
template <class Record>
void set_channels(Record& r, int channels) {
  r.chanel = channels;
}

int kind_of(const shuzhiFilter_ID&) {
  return JURN_MOVING_AVERAGE;
}
template <class Record>
int kind_of(const Record& r) {
  return r.filtertype;
}

template <class Record>
class RecordRunning : public Running {
 public:
  using Sample = typename Traits<Record>::Sample;

  explicit RecordRunning(int channels, const Wanted* wanted) {
    if (!wanted) return;
    set_channels(stream_.record(), channels);
    configure(stream_.record(), *wanted);
    stream_.clear();
    note();
  }

  int inputs() const override { return channels_in(stream_.record()); }
  int outputs() const override { return channels_out(stream_.record()); }

  void run(const short* in, int frames, short* out) override { run_if_taken(in, frames, out); }
  void run(const float* in, int frames, float* out) override { run_if_taken(in, frames, out); }
  void run(const short* in, int frames, float* out) override { run_if_taken(in, frames, out); }

  void change(const Wanted& to, int fade) override {
    if constexpr (std::is_same_v<Record, shuzhiFilter_ID>) {
      Running::change(to, fade);
    } else {
      auto offer = std::make_unique<Offered<Record>>();
      offer->record = std::make_unique<Record>();
      Record& next = *offer->record;
      set_channels(next, channels_);
      if constexpr (std::is_same_v<Record, Filterlongfir_ID>) {
        set_kind(next, kind_, channels_);
        set_taps(next, to.b, to.a);
      } else {
        configure(next, to);
      }
      if (next.filtertype != kind_ || kind_ == JURN_MOVING_AVERAGE)
        fail("a filter fades to coefficients of its own kind, and an average has none");
      if constexpr (std::is_same_v<Record, Filterlongfir_ID>)
        if (kind_ < JURN_FIR) check_fade(next, taps_);
      offers_.offer(std::move(offer));
    }
  }

  void reset() override { stream_.clear(); }

  int latency() const override {
    if constexpr (std::is_same_v<Record, Filterlongfir_ID>)
      return MORVAX_FilterlongfirLatency_API(&stream_.record());
    return 0;
  }

  int push(short sample) override {
    if constexpr (std::is_same_v<Record, shuzhiFilter_ID>)
      return MORVAX_shuzhiFilterRun_API_inonesampleoutsum(&stream_.record(), sample);
    return Running::push(sample);
  }

  std::string stored() override {
    take_offer();
    return stream_.stored();
  }
  void restore(std::string_view data) override {
    stream_.restore(data);
    note();
  }

 private:
  /** What is asked of it on other threads. */
  void note() {
    const Record& r = stream_.record();
    kind_ = kind_of(r);
    channels_ = channels_in(r);
    taps_ = r.blen;
  }

  void take_offer() {
    if constexpr (!std::is_same_v<Record, shuzhiFilter_ID>) {
      Offered<Record>* const offer = offers_.take({});
      if (!offer) return;
      bool inside = false;
      if constexpr (std::is_same_v<Record, Filterlongfir_ID>) inside = kind_ < JURN_FIR;
      if (!inside)
        stream_.fade_to(&offer->record);
      else if constexpr (std::is_same_v<Record, Filterlongfir_ID>)
        fade_inside(stream_.record(), *offer->record);
      offers_.give_back(offer);
    }
  }

  template <typename In, typename Out>
  void run_if_taken(const In* in, int frames, Out* out) {
    if constexpr (!std::is_same_v<Out, Sample> ||
                  (std::is_same_v<In, float> != std::is_same_v<Out, float> &&
                   !std::is_same_v<Record, Filterf_ID>)) {
      Running::run(in, frames, out);
    } else {
      take_offer();
      int longest = longest_block(stream_.record());
      if (!std::is_same_v<In, Out>) longest = std::min(longest, JURN_BLOCK);
      for (int done = 0; done < frames;) {
        const int count = std::min(frames - done, longest);
        stream_.run_block(in + done * inputs(), count, out + done * outputs());
        done += count;
      }
    }
  }

  RecordStream<Record> stream_;
  HandOver<Offered<Record>> offers_;
  int kind_ = 0, channels_ = 1, taps_ = 0;
};

}  // namespace

std::unique_ptr<Running> make_record(What what, int channels, const Wanted* wanted) {
  switch (what) {
    case What::kFilter:
      return std::make_unique<RecordRunning<Filter_ID>>(channels, wanted);
    case What::kMovingSum:
      return std::make_unique<RecordRunning<shuzhiFilter_ID>>(channels, wanted);
    case What::kFloatFilter:
      return std::make_unique<RecordRunning<Filterf_ID>>(channels, wanted);
    default:
      return std::make_unique<RecordRunning<Filterlongfir_ID>>(channels, wanted);
  }
}

}  // namespace jurn::bindings

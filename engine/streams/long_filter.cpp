#include "exact.h"

#include "streams/long_filter.h"

#include <algorithm>

#include "Filter_control.h"
#include "errors.h"

namespace jurn {
namespace {

/** The record's kind and what it is fed with. */
struct Plan {
  enum Feed { kAsIs, kSwapped, kLeft };
  int filtertype;
  int chanel;
  Feed feed;
};

/** Chooses the kind. Only some can fade or cross; the others are put together from those: crossed
 * is straight with swapped inputs, left-only is mono to stereo on the left input, and mono is mono
 * to stereo with one output dropped. */
Plan plan(const LongFilter& f, int channels, int outputs) {
  const bool fades = static_cast<bool>(f.change);
  const int mono_to_stereo =
      f.time_domain ? JURN_LONG_MONO_TO_STEREO : JURN_LONG_FFT_MONO_TO_STEREO;
  const int stereo = f.time_domain ? JURN_LONG_TWO_FILTERS : JURN_LONG_FFT;
  const bool compose = f.time_domain || fades;
  if (f.wiring == Wiring::kCrossed)
    return compose ? Plan{stereo, 2, Plan::kSwapped} : Plan{JURN_LONG_FFT_CROSSED, 2, Plan::kAsIs};
  if (f.wiring == Wiring::kLeftOnly)
    return compose ? Plan{mono_to_stereo, 1, Plan::kLeft}
                   : Plan{JURN_LONG_FFT_LEFT_ONLY, 2, Plan::kAsIs};
  if (channels == 1 && outputs == 2) return {mono_to_stereo, 1, Plan::kAsIs};
  if (f.time_domain && !fades && f.response.size() == 1) return {JURN_FIR, channels, Plan::kAsIs};
  if (channels == 2) return {stereo, 2, Plan::kAsIs};
  return {fades ? mono_to_stereo : JURN_LONG_FFT, 1, Plan::kAsIs};
}

/** The channels of the result, for those that this record connects. */
int count_outputs(const LongFilter& f, int channels, const std::string& name) {
  if (channels > 2 || f.response.size() > 2)
    throw Error(kUsageError,
                (channels > 2 ? "a recording of " + std::to_string(channels)
                              : name + ": a response of " + std::to_string(f.response.size())) +
                    " channels goes without --fft and --time-domain");
  return connect(f.response, f.wiring, channels, name).outputs;
}

class LongFilterStage : public Int16Stage {
 public:
  LongFilterStage(const LongFilter& f, int channels, int block, const std::string& name)
      : Int16Stage(channels, count_outputs(f, channels, name), block),
        plan_(plan(f, channels, channels_out)),
        time_domain_(f.time_domain),
        change_(f.change),
        filter_(std::make_unique<Filterlongfir_ID>()) {  // zeroed
    filter_->chanel = plan_.chanel;
    filter_->filtertype = plan_.filtertype;
    filter_->blen = filter_->bRlen = static_cast<int>(f.response[0].size());
    set_taps(f.response);
    MORVAX_FilterlongfirReset_API(filter_.get());
    set_up();
    if (!time_domain_) latency = filter_->fftN - filter_->blen + 1;
    tail = filter_->blen - 1;
    const std::size_t frames = static_cast<std::size_t>(block);
    feed_.resize(2 * frames);
    result_.resize(2 * frames);
  }

 private:
  void set_taps(const ImpulseResponse& response) {
    std::copy(response.front().begin(), response.front().end(), filter_->b);
    std::copy(response.back().begin(), response.back().end(), filter_->bR);
  }

  void set_up() {
    if (time_domain_)
      MORVAX_FilterlongfirCalcu_APItime(filter_.get());
    else
      MORVAX_FilterlongfirCalcu_API_forFFT(filter_.get());
  }

  void fade_if_due() {
    // A fade lasts one call in the time domain. With the FFT it lasts the hop that the next
    // transform puts out, which has to be heard before another one can start from it.
    const std::int64_t length = time_domain_ ? call_frames : latency;
    const std::int64_t start = first_ / length * length;
    if (!change_ || start == last_fade_) return;
    const ImpulseResponse* response = change_(start, static_cast<int>(length));
    if (!response) return;
    last_fade_ = start;
    // The time domain saves the old taps here, the FFT transforms the new ones.
    if (time_domain_) set_up();
    set_taps(*response);
    if (!time_domain_) set_up();
  }

  void run(const short* in, short* out) override {
    fade_if_due();
    first_ += call_frames;
    const std::size_t frames = static_cast<std::size_t>(call_frames);
    if (plan_.feed != Plan::kAsIs) {
      for (std::size_t i = 0; i < frames; ++i) {
        feed_[plan_.feed == Plan::kLeft ? i : 2 * i + 1] = in[2 * i];
        if (plan_.feed == Plan::kSwapped) feed_[2 * i] = in[2 * i + 1];
      }
      in = feed_.data();
    }
    const bool drop_right =
        channels_out == 1 && (plan_.filtertype == JURN_LONG_FFT_MONO_TO_STEREO ||
                              plan_.filtertype == JURN_LONG_MONO_TO_STEREO);
    short* const result = drop_right ? result_.data() : out;
    MORVAX_FilterlongfirRun_API(filter_.get(), in, call_frames * plan_.chanel, result);
    for (std::size_t i = 0; i < frames && drop_right; ++i) out[i] = result[2 * i];
  }

  Plan plan_;
  bool time_domain_;
  decltype(LongFilter::change) change_;
  std::int64_t first_ = 0;       // frame of the next call
  std::int64_t last_fade_ = -1;  // frame at which the last fade starts
  std::unique_ptr<Filterlongfir_ID> filter_;
  std::vector<short> feed_, result_;
};

}  // namespace

std::unique_ptr<Stage> make_long_filter(const LongFilter& filter, int channels, int block,
                                        const std::string& name) {
  return std::make_unique<LongFilterStage>(filter, channels, block, name);
}

}  // namespace jurn

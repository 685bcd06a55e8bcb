#include "streams/convolve.h"

#include <algorithm>

#include "Filter_control.h"
#include "errors.h"

namespace tool {
namespace {

/** One record of the library and how it is connected. */
struct Lane {
  enum Feed { kAsIs, kSwapped, kLeft };
  int filtertype;
  int chanel;
  Feed feed;
  std::size_t left, right;  // channels of the response
  std::unique_ptr<Filterlongfir_ID> filter;
};

/** Chooses the kinds. Only some of them can fade or cross; the others are put together from those:
 * crossed is straight with swapped inputs, left-only is mono to stereo on the left input, and mono
 * is mono to stereo with one output dropped. */
std::vector<Lane> plan(const Convolution& c, int channels) {
  const std::size_t count = c.response.size();
  const bool fades = static_cast<bool>(c.change);
  const std::size_t right = count == 1 ? 0 : 1;
  const int mono_to_stereo = c.time_domain ? -6 : -5;
  const int stereo = c.time_domain ? -3 : -2;
  const bool compose_crossed = c.time_domain || fades;
  std::vector<Lane> lanes;
  const auto add = [&](int filtertype, int chanel, Lane::Feed feed, std::size_t l, std::size_t r) {
    lanes.push_back({filtertype, chanel, feed, l, r, nullptr});
  };
  const auto add_crossed = [&](std::size_t l, std::size_t r) {
    if (compose_crossed)
      add(stereo, 2, Lane::kSwapped, l, r);
    else
      add(-7, 2, Lane::kAsIs, l, r);
  };

  if (count == 4) {
    if (channels != 2)
      throw Error(kUsageError, "a response of four channels takes a stereo recording");
    if (c.route != Route::kAutomatic)
      throw Error(kUsageError, "a response of four channels has no other --route than its own");
    add(stereo, 2, Lane::kAsIs, 0, 3);
    add_crossed(2, 1);
    return lanes;
  }
  Route route = c.route;
  if (route == Route::kAutomatic)
    route = channels == 1 && count == 2 ? Route::kMonoToStereo : Route::kStraight;
  if (route == Route::kMonoToStereo ? channels != 1 : channels != 2 && route != Route::kStraight)
    throw Error(kUsageError, channels == 1 ? "this --route takes a stereo recording"
                                           : "this --route takes a mono recording");
  switch (route) {
    case Route::kCrossed:
      add_crossed(0, right);
      break;
    case Route::kLeftOnly:
      if (compose_crossed)
        add(mono_to_stereo, 1, Lane::kLeft, 0, right);
      else
        add(-4, 2, Lane::kAsIs, 0, right);
      break;
    case Route::kMonoToStereo:
      add(mono_to_stereo, 1, Lane::kAsIs, 0, right);
      break;
    default:
      if (channels == 1 && count == 2)
        throw Error(kUsageError, "a mono recording takes one channel straight; the response has 2");
      if (fades || channels == 2)
        add(channels == 1 ? mono_to_stereo : stereo, channels, Lane::kAsIs, 0, right);
      else
        add(c.time_domain ? -1 : -2, channels, Lane::kAsIs, 0, 0);
      if (c.time_domain && !fades && count == 1) lanes[0].filtertype = -1;
  }
  return lanes;
}

bool stereo_result(const Convolution& c, int channels) {
  return channels == 2 || c.route == Route::kMonoToStereo || c.response.size() == 2;
}

class ConvolveStage : public Int16Stage {
 public:
  ConvolveStage(const Convolution& c, int channels, int block)
      : Int16Stage(channels, stereo_result(c, channels) ? 2 : 1, block),
        lanes_(plan(c, channels)),
        time_domain_(c.time_domain),
        change_(c.change) {
    for (Lane& lane : lanes_) {
      lane.filter = std::make_unique<Filterlongfir_ID>();  // zeroed
      lane.filter->chanel = lane.chanel;
      lane.filter->filtertype = lane.filtertype;
      lane.filter->blen = lane.filter->bRlen = static_cast<int>(c.response[0].size());
      set_taps(c.response, lane);
      MORVAX_FilterlongfirReset_API(lane.filter.get());
      set_up(lane);
    }
    const Filterlongfir_ID& filter = *lanes_[0].filter;
    if (!time_domain_) latency = filter.fftN - filter.blen + 1;
    tail = filter.blen - 1;
    const std::size_t frames = static_cast<std::size_t>(block);
    feed_.resize(2 * frames);
    result_.resize(2 * frames);
  }

 private:
  void set_taps(const ImpulseResponse& response, const Lane& lane) {
    std::copy(response[lane.left].begin(), response[lane.left].end(), lane.filter->b);
    std::copy(response[lane.right].begin(), response[lane.right].end(), lane.filter->bR);
  }

  void set_up(const Lane& lane) {
    if (time_domain_)
      MORVAX_FilterlongfirCalcu_APItime(lane.filter.get());
    else
      MORVAX_FilterlongfirCalcu_API_forFFT(lane.filter.get());
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
    for (const Lane& lane : lanes_) {
      // The time domain saves the old taps here, the FFT transforms the new ones.
      if (time_domain_) set_up(lane);
      set_taps(*response, lane);
      if (!time_domain_) set_up(lane);
    }
  }

  void run(const short* in, short* out) override {
    fade_if_due();
    first_ += call_frames;
    for (const Lane& lane : lanes_) run_lane(lane, in, out, &lane == &lanes_[0]);
  }

  void run_lane(const Lane& lane, const short* in, short* out, bool first) {
    const std::size_t frames = static_cast<std::size_t>(call_frames);
    if (lane.feed != Lane::kAsIs) {
      for (std::size_t i = 0; i < frames; ++i) {
        feed_[lane.feed == Lane::kLeft ? i : 2 * i + 1] = in[2 * i];
        if (lane.feed == Lane::kSwapped) feed_[2 * i] = in[2 * i + 1];
      }
      in = feed_.data();
    }
    MORVAX_FilterlongfirRun_API(lane.filter.get(), in, call_frames * lane.chanel, result_.data());
    const bool drop_right = channels_out == 1 && (lane.filtertype == -5 || lane.filtertype == -6);
    const std::size_t step = drop_right ? 2 : 1;
    for (std::size_t i = 0; i < frames * static_cast<std::size_t>(channels_out); ++i) {
      const int sum = result_[i * step] + (first ? 0 : out[i]);
      out[i] = static_cast<short>(std::min(std::max(sum, -32768), 32767));
    }
  }

  std::vector<Lane> lanes_;
  bool time_domain_;
  ResponseChange change_;
  std::int64_t first_ = 0;       // frame of the next call
  std::int64_t last_fade_ = -1;  // frame at which the last fade starts
  std::vector<short> feed_, result_;
};

}  // namespace

std::unique_ptr<Stage> make_convolver(const Convolution& convolution, int channels, int block) {
  return std::make_unique<ConvolveStage>(convolution, channels, block);
}

}  // namespace tool

// A stream of the engine's that goes over to what a preparer offers.
#pragma once

#include <memory>
#include <utility>

#include "preparer.h"
#include "streams/stream.h"

namespace jurn::gst {

/** Frames of a fade. */
constexpr int kFadeFrames = 1024;

/** A filter for a stream. On its way back it carries those that the stream no longer needs. */
struct OfferedFilter : Offer {
  explicit OfferedFilter(std::unique_ptr<jurn::Voice> voice, int delay = 0)
      : change(std::make_unique<jurn::Change>(std::move(voice), kFadeFrames)), late(delay) {}
  ~OfferedFilter() override { jurn::free_changes(retired); }

  std::unique_ptr<jurn::Change> change;
  int late;  // frames by which its result comes later than the input
  jurn::Change* retired = nullptr;
};

/** The engine's format for a stream of GStreamer's; calls are multiples of `block` frames. */
inline jurn::Format engine_format(const StreamFormat& format, int block, int history) {
  jurn::Format result;
  result.rate = format.rate;
  result.inputs = format.inputs;
  result.outputs = format.outputs;
  result.block = block;
  result.full_scale = format.is_float ? 1.0 : 32768.0;
  result.history = history;
  return result;
}

/** Its owner is the streaming thread. */
class ChangingStream {
 public:
  ChangingStream(Preparer* preparer, std::unique_ptr<OfferedFilter> first)
      : ChangingStream(preparer, first->change->voice->format(), first.get()) {}

  /** Interleaved frames; `out` may be `in` where both have as many channels. */
  template <typename Sample>
  void process(const Sample* in, int frames, Sample* out) {
    if (auto* const offer = preparer_->take<OfferedFilter>()) {
      stream_.change(std::move(offer->change));
      latency_ = offer->late;
      offer->retired = stream_.take_retired();
      preparer_->give_back(offer);
    }
    stream_.process(in, frames, out);
  }
  /** What the first frames of the next block will give. */
  template <typename Sample>
  void preview(const Sample* in, int frames, Sample* out) {
    stream_.preview(in, frames, out);
  }
  /** Returns to silence and to the newest filter. */
  void reset() { stream_.reset(); }
  /** Frames that ring on. */
  int tail() const { return stream_.tail(); }
  /** Frames by which the newest filter is late. */
  int latency() const { return latency_; }

 private:
  ChangingStream(Preparer* preparer, const jurn::Format& format, OfferedFilter* first)
      : preparer_(preparer),
        stream_(format, std::move(first->change->voice)),
        latency_(first->late) {}

  Preparer* preparer_;
  jurn::Stream stream_;
  int latency_;
};

}  // namespace jurn::gst

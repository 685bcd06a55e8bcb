// A stream that goes over to what another thread offers.
#pragma once

#include <memory>
#include <utility>

#include "streams/hand_over.h"
#include "streams/state_bytes.h"
#include "streams/stream.h"

namespace jurn {

/** Frames of the fade to a filter that is offered. */
constexpr int kFadeFrames = 1024;

/** A filter for a stream. On its way back it carries those that the stream no longer needs. */
struct OfferedFilter {
  explicit OfferedFilter(std::unique_ptr<Voice> voice, int delay = 0)
      : change(std::make_unique<Change>(std::move(voice), kFadeFrames)), late(delay) {}
  OfferedFilter(const OfferedFilter&) = delete;
  OfferedFilter& operator=(const OfferedFilter&) = delete;
  ~OfferedFilter() { free_changes(retired); }

  std::unique_ptr<Change> change;
  int late;  // frames by which its result comes later than the input
  Change* retired = nullptr;
  StreamFormat made_for;
  OfferedFilter* next = nullptr;
};

/** What a stream that runs is to its filters; calls are multiples of `block` frames. */
inline Format engine_format(const StreamFormat& format, int block, int history) {
  Format result;
  result.rate = format.rate;
  result.inputs = format.inputs;
  result.outputs = format.outputs;
  result.block = block;
  result.full_scale = format.is_float ? 1.0 : 32768.0;
  result.history = history;
  return result;
}

/** Belongs to the audio thread. Before each call it takes what was offered. */
class ChangingStream {
 public:
  /** A stream of what its first filter was made for. */
  ChangingStream(HandOver<OfferedFilter>* offers, std::unique_ptr<OfferedFilter> first)
      : ChangingStream(offers, first->change->voice->format(), first.get()) {}
  /** What store() wrote, which takes offers that were made for `running`. */
  ChangingStream(HandOver<OfferedFilter>* offers, StateBytes* from, const StreamFormat& running)
      : offers_(offers), running_(running), stream_(from), latency_(0) {
    from->pass(&latency_);
  }

  /** Writes the stream, which takes what was offered. Allocates. */
  void store(StateBytes* to) {
    take_offer();
    stream_.store(to);
    to->pass(&latency_);
  }

  /** Interleaved frames, or channels in arrays of their own; `out` may be `in` where both have as
   * many channels. */
  template <typename In, typename Out>
  void process(In in, int frames, Out out) {
    take_offer();
    stream_.process(in, frames, out);
  }
  /** What the first frames of the next block will give. */
  template <typename Sample>
  void preview(const Sample* in, int frames, Sample* out) {
    stream_.preview(in, frames, out);
  }
  const Format& format() const { return stream_.format(); }
  /** Returns to silence and to the newest filter. */
  void reset() { stream_.reset(); }
  /** Frames that ring on. */
  int tail() const { return stream_.tail(); }
  /** Frames by which the newest filter is late. */
  int latency() const { return latency_; }

 private:
  ChangingStream(HandOver<OfferedFilter>* offers, const Format& format, OfferedFilter* first)
      : offers_(offers),
        running_(first->made_for),
        stream_(format, std::move(first->change->voice)),
        latency_(first->late) {}

  void take_offer() {
    OfferedFilter* const offer = offers_->take(running_);
    if (!offer) return;
    stream_.change(std::move(offer->change));
    latency_ = offer->late;
    offer->retired = stream_.take_retired();
    offers_->give_back(offer);
  }

  HandOver<OfferedFilter>* offers_;
  StreamFormat running_;
  Stream stream_;
  int latency_;
};

}  // namespace jurn

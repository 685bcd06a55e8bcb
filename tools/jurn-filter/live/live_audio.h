// What the audio thread of a live filter does, and what other threads ask of it.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

#include "streams/block_stream.h"

namespace jurn {

/** Since it was last asked. */
struct LiveLevels {
  float in = 0.0F, out = 0.0F;  // peaks, of all channels
  long clipped = 0;             // samples of the result beyond full scale
};

/** Of the whole run. */
struct LiveCosts {
  long long frames = 0, calls = 0;
  double seconds = 0.0;  // of all calls
  double dearest = 0.0;  // seconds of one call,
  int dearest_frames = 0;
  long missed = 0;  // cycles of the graph that did not come in time
};

/**
 * A filter that runs. process() and miss() belong to the audio thread: they allocate nothing and
 * wait for nothing. Everything else belongs to one other thread.
 */
class LiveAudio {
 public:
  LiveAudio(int inputs, int outputs) : inputs_(inputs), outputs_(outputs) {}
  ~LiveAudio();

  int inputs() const { return inputs_; }
  int outputs() const { return outputs_; }

  /** Begins anew, with a filter for another format. */
  void start(std::unique_ptr<OfferedFilter> first);
  /** Fades to another filter of the same format. */
  void offer(std::unique_ptr<OfferedFilter> next) { offers_.offer(std::move(next)); }
  /** The next call begins in silence. */
  void reset() { is_reset_.store(true); }
  /** Frees what the audio thread no longer needs. */
  void free_returned();

  LiveLevels take_levels();
  /** When no audio thread runs. */
  const LiveCosts& costs() const { return costs_; }
  int latency() const { return latency_.load(); }

  /** Keeps what is heard, at most so many frames at a time. */
  void record(int frames);
  /** What was kept since the last call, interleaved. */
  std::vector<float> take_recorded();
  long long lost() const { return lost_.load(); }

  void process(const float* const* in, int frames, float* const* out);
  void miss() { ++costs_.missed; }

 private:
  struct Running {
    explicit Running(HandOver<OfferedFilter>* offers, std::unique_ptr<OfferedFilter> first)
        : stream(offers, std::move(first)) {}
    BlockStream stream;
    StreamFormat made_for;  // any
    Running* next = nullptr;
  };

  void keep(float* const* out, int frames);

  int inputs_, outputs_;
  HandOver<OfferedFilter> offers_;
  HandOver<Running> starts_;
  Running* running_ = nullptr;  // the audio thread's
  std::atomic<bool> is_reset_{false};
  std::atomic<int> latency_{0};
  std::atomic<float> peak_in_{0.0F}, peak_out_{0.0F};
  std::atomic<long> clipped_{0};
  LiveCosts costs_;
  std::vector<float> ring_;                        // of interleaved frames
  std::atomic<std::size_t> kept_{0}, fetched_{0};  // values
  std::atomic<long long> lost_{0};                 // frames
};

}  // namespace jurn

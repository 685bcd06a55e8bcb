// A filter in the graph of PipeWire.
#pragma once

#include <pipewire/pipewire.h>
#include <spa/param/latency.h>

#include <atomic>
#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <string>

#include "live/live_audio.h"

namespace jurn {

struct NodeOptions {
  std::string name = "JURN";
  std::string target;  // the name of the node to play to or to record from; empty: the default
  bool is_microphone = false;  // a source of what another source gives; otherwise a sink
  bool is_default = false;     // what programs use unless the user chose something else
};

/**
 * A sink or a source that programs see, and the stream that leads on from it or to it. Both are
 * driven by one graph; the rate is the graph's. Throws where no server answers.
 *
 * The thread of `loop` makes and destroys it; the audio thread is PipeWire's.
 */
class PipewireNode {
 public:
  /** Calls on_rate(rate) whenever the graph told the rate of the samples, before any of them. */
  PipewireNode(pw_loop* loop, const NodeOptions& options, LiveAudio* audio,
               std::function<void(int rate)> on_rate);
  PipewireNode(const PipewireNode&) = delete;
  PipewireNode& operator=(const PipewireNode&) = delete;

  /** Whether the server is gone. */
  bool is_lost() const { return is_lost_; }
  /** Throws what on_rate threw, which must not pass through PipeWire. */
  void rethrow() {
    if (problem_) std::rethrow_exception(problem_);
  }
  /** Tells the graph by how much the filter is late, when that changed. */
  void tell_latency();

 private:
  struct Free {
    void operator()(pw_context* context) const { pw_context_destroy(context); }
    void operator()(pw_core* core) const { pw_core_disconnect(core); }
    void operator()(pw_stream* stream) const { pw_stream_destroy(stream); }
  };
  struct Side {
    spa_hook listener{};
    int rate = 0;
    std::unique_ptr<pw_stream, Free> stream;
  };

  void connect(Side* side, pw_direction direction, const NodeOptions& options);
  void changed(Side* side, std::uint32_t id, const spa_pod* param);
  void process();

  static const pw_stream_events kInEvents, kOutEvents;
  static const pw_core_events kCoreEvents;

  LiveAudio* audio_;
  std::function<void(int rate)> on_rate_;
  std::atomic<spa_io_position*> position_{nullptr};
  std::uint64_t expected_ = 0;  // position of the next cycle
  std::uint32_t clock_ = 0;     // that it is one of
  bool is_lost_ = false;
  std::exception_ptr problem_;
  int told_latency_ = 0;
  spa_latency_info latency_[2]{};  // of what follows and of what comes before
  // Each after what it needs, also where a later one cannot be made.
  spa_hook core_listener_{};
  std::unique_ptr<pw_context, Free> context_;
  std::unique_ptr<pw_core, Free> core_;
  Side in_, out_;
};

}  // namespace jurn

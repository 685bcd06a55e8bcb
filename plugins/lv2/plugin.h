// What all plugins share: ports, the worker, fades, files and their state.
#pragma once

#include <lv2/atom/forge.h>
#include <lv2/core/lv2.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "host.h"
#include "streams/block_stream.h"

namespace jurn::lv2 {

/** How a plugin looks to a host. describe.cmake writes the same in Turtle; the ports stand in this
 * order: audio in, audio out, latency, "enabled" if it can be bypassed, controls, and for a plugin
 * with a file those of its messages. */
struct Description {
  const char* name;  // the end of the URI, behind kPrefix
  int inputs, outputs;
  int controls;
  int block;         // frames that the filter takes at once
  int history;       // frames of the past that a new filter can hear
  const char* file;  // the end of the URI of its file's property, or null
  bool has_bypass;
};

constexpr char kPrefix[] = "urn:jurn:";

/** What a filter is made of. */
struct Wanted {
  std::vector<float> controls;
  std::string file;
  int naming = 0;  // which time a file was named: the same name may mean another file
  int rate = 0;
};

/**
 * A plugin that runs. run() belongs to the audio thread: it allocates nothing, waits for nothing,
 * and asks the host's worker for another filter where a control or the file changed. The newest
 * filter fades in; while one is made, what changes meanwhile waits for the next. In a host without
 * a worker, run() makes the filters itself.
 */
class Plugin {
 public:
  Plugin(const Description& description, const Host& host, double rate);
  virtual ~Plugin() = default;
  Plugin(const Plugin&) = delete;
  Plugin& operator=(const Plugin&) = delete;

  void connect_port(std::uint32_t port, void* data);
  void activate();
  void run(int frames);
  void work(const void* message, std::uint32_t bytes, LV2_Worker_Respond_Function respond,
            LV2_Worker_Respond_Handle handle);
  void answer(const void* message, std::uint32_t bytes);
  LV2_State_Status save(LV2_State_Store_Function store, LV2_State_Handle handle,
                        const LV2_Feature* const* features);
  LV2_State_Status restore(LV2_State_Retrieve_Function retrieve, LV2_State_Handle handle,
                           const LV2_Feature* const* features);

 protected:
  /** The filter that is wanted; null where there is none. Throws a sentence for the user.
   * One thread at a time, never the audio thread. */
  virtual std::unique_ptr<OfferedFilter> make(const Wanted& wanted) = 0;

  /** What runs without a filter. */
  virtual std::unique_ptr<Voice> make_idle() const { return make_wire(format_); }

  /** A voice that is late by so many frames. */
  static std::unique_ptr<OfferedFilter> offer_of(std::unique_ptr<Voice> voice, int late = 0) {
    return std::make_unique<OfferedFilter>(std::move(voice), late);
  }

  const Host& host() const { return host_; }
  const Format& format() const { return format_; }

 private:
  std::unique_ptr<OfferedFilter> make_wanted(const std::vector<float>& controls);
  bool read_controls();
  void take_messages();
  void request();

  const Description& description_;
  Host host_;
  StreamFormat running_;
  Format format_;
  LV2_URID file_urid_ = 0;
  HandOver<OfferedFilter> offers_;

  // The audio thread's own.
  std::vector<const float*> in_;
  std::vector<float*> out_;
  float* latency_ = nullptr;
  std::vector<const float*> ports_;  // "enabled" and the controls
  const LV2_Atom_Sequence* messages_ = nullptr;
  LV2_Atom_Sequence* replies_ = nullptr;
  std::vector<float> controls_;  // what was asked for last
  std::vector<char> message_;    // to the worker: the controls, and behind them a file's name
  std::size_t named_bytes_ = 0;  // of a name that it has not got yet
  std::array<char, 4096> file_{};
  bool tells_file_ = false, is_changed_ = false;
  LV2_Atom_Forge forge_{};
  std::unique_ptr<BlockStream> stream_;
  std::atomic<int> requests_{0};  // that the worker has not done

  std::mutex mutex_;  // of what makes filters
  std::string wanted_file_;
  int naming_ = 0;
};

/** The plugins, each by its description. */
struct Kind {
  Description description;
  std::unique_ptr<Plugin> (*create)(const Description&, const Host&, double rate);
};
template <class Derived>
std::unique_ptr<Plugin> create(const Description& description, const Host& host, double rate) {
  return std::make_unique<Derived>(description, host, rate);
}
extern const Kind kEqualiserMono, kEqualiserStereo, kConvolverMono, kConvolverStereo, kBinaural,
    kSetupStereo, kSetupMulti;

}  // namespace jurn::lv2

// A filter in the graph of PipeWire, from a file, until somebody ends it.
#pragma once

#include <string>

#include "filters/filter_file.h"
#include "live/pipewire_node.h"

namespace jurn {

constexpr int kUsualRate = 48000;  // until the graph tells its own
constexpr int kMostChannels = 64;  // of PipeWire
constexpr char kKeys[] = "b bypass, + - gain, q quit";

struct LiveOptions {
  std::string file, record;
  FilterFileKind kind = FilterFileKind::kByContent;
  NodeOptions node;
  int channels = 0;
  double gain_db = 0.0;
  double check = 0.0;  // seconds to run, 0 until it is ended
  bool quiet = false, overwrite = false;
};

/** Runs it: until `check` seconds are over, a key or a signal. */
void run_live(const LiveOptions& options);

}  // namespace jurn

// Setups of loudspeakers: filters, delays and gains of single channels, and mixers between them.
#pragma once

#include <string>
#include <vector>

#include "design/prepare.h"

namespace jurn {

/** A way through a mixer; channels count from 0, and a negative gain turns the polarity. */
struct MixerRoute {
  int input, output;
  double gain;
};

/** One step of a setup. */
struct SetupStep {
  enum Kind { kMixer, kFilter, kDelay, kGain };
  Kind kind;
  std::string name;           // for messages
  std::vector<int> channels;  // that filter, delay or gain is for, each once; from 0
  int outputs = 0;            // of a mixer; one that no route leads to is silent
  std::vector<MixerRoute> routes;
  FilterDesign design{FilterDesign::kFir, {}, {}};
  int delay = 0;  // frames
  double gain = 1.0;
};

/** What becomes of some inputs, step by step. */
struct Setup {
  int inputs = 0;
  std::vector<SetupStep> steps;

  /** The channels after so many steps. */
  int channels_after(std::size_t steps_done) const;
  int outputs() const { return channels_after(steps.size()); }
};

constexpr int kMostSetupChannels = 64;

struct PreparedSetup {
  /** As it runs: sections that follow one another on the same channels are one filter. */
  Setup setup;
  std::vector<Prepared> filters;  // of each step; nothing runs where it is no filter
  /** Frames by which each output is late because of how its filters are made, as those of linear
   * phase are; what delays add is meant. The largest of the ways that lead there. */
  std::vector<int> late;
  /** Largest gain of each output over all frequencies, from all inputs in phase. */
  std::vector<double> peak_gain;
  int tail = 0;                 // frames that it rings on
  std::vector<Notice> notices;  // of the filters, each with the step's name

  /** Frames by which every output is late; whoever can, drops them. */
  int latency() const;
};

/** Multiplies all inputs by a gain. */
void scale(Setup* setup, double gain);

/** Prepares every filter to run in double, whatever precision `options` name. */
PreparedSetup prepare(const Setup& setup, const PrepareOptions& options);

}  // namespace jurn

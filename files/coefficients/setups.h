// Setups of loudspeakers from files.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "design/setup.h"

namespace jurn {

struct SetupFile {
  Setup setup;
  std::vector<std::string> remarks;  // what was rounded
  std::vector<std::string> files;    // of coefficients, that it names
};

/**
 * Reads a setup: lines of an equaliser, which `Channel` makes those of some channels; or settings
 * of CamillaDSP (YAML): `filters`, `mixers` and `pipeline`; of `devices` the rate,
 * for which taps and free coefficients hold, and the channels. Filters: Biquad, BiquadCombo, Conv,
 * Delay, DiffEq, Gain; and, besides what CamillaDSP has, Equaliser with `filters` in words and
 * Coefficients with the `filename` of any file of coefficients. Everything else is refused with its
 * line.
 *
 * `rate` is that of the recording, and `inputs` the channels of it, which only count where the
 * settings do not say how many they take.
 */
SetupFile read_setup(const std::string& path, int rate, int inputs);

/** The channels that a file's setup takes and gives, for any rate; 0 and 0 for one that takes as
 * many as there are. */
std::pair<int, int> count_setup_channels(const std::string& path);

}  // namespace jurn

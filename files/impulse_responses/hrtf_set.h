// Head-related impulse responses from SOFA files.
#pragma once

#include <mysofa.h>

#include <memory>
#include <string>
#include <vector>

#include "impulse_responses/impulse_response.h"

namespace jurn {

/** A set of responses from all directions around a listener. */
class HrtfSet {
 public:
  /** Opens a set for recordings at `rate`. A set at another rate is resampled; its loudness, equal
   * for all sets, is the same at every rate. Refuses responses, with their delays, that are longer
   * than the time domain runs. */
  HrtfSet(const std::string& path, int rate);

  /** Left and right taps for a source at `azimuth` degrees (0 in front, 90 to the left) and
   * `elevation` degrees (90 above), interpolated between the nearest measurements. */
  ImpulseResponse at(double azimuth, double elevation);

  /** Taps of each ear, at most kMaxTimeDomainTaps. */
  int taps() const { return measured_ + longest_delay_; }

 private:
  struct Close {
    void operator()(MYSOFA_EASY* set) const { mysofa_close(set); }
  };

  std::unique_ptr<MYSOFA_EASY, Close> set_;
  int measured_ = 0;       // taps of the set
  int longest_delay_ = 0;  // frames, on top of the taps
  double gain_ = 1.0;
  std::vector<float> ears_[2];  // as measured
};

}  // namespace jurn

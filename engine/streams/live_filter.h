// The 16-bit filter for live streams: calls of any length, no latency, nothing allocated.
#pragma once

#include <memory>
#include <vector>

#include "Filter_control.h"
#include "design/filter_design.h"

namespace jurn {

class StateBytes;

constexpr int kMaxAverage = 2156;
/** Frames of a direct-form IIR's calls. It sets small carried-over outputs to 0 at the start of
 * each call, so that the length of the calls can change the output; it is therefore always the
 * same. */
constexpr int kIirBlock = 512;

/**
 * Filters interleaved frames of any number of channels in calls of any length, and gives the bits
 * of calls that all have one length.
 *
 * Between two calls of different lengths, the history of an FIR is moved to where the next call
 * looks for it. The direct-form IIR sets small outputs to 0 at the start of each
 * call of kIirBlock frames; a call that ends inside such a block is repeated from the block's start
 * when the next one comes, and only the new frames are kept. Cascades and means take any length.
 *
 * Only the constructors allocate; a call is as safe in a real-time thread as the library.
 */
class LiveFilter {
 public:
  /** A filter with the coefficients of `design`, within the limits of 16 bits. */
  LiveFilter(const FilterDesign& design, int channels);
  /** The mean of `length` samples, at most kMaxAverage. */
  LiveFilter(int length, int channels);
  /** With the same past. */
  LiveFilter(const LiveFilter& other);
  ~LiveFilter();

  /** `out` may be `in`. */
  void process(const short* in, int frames, short* out);

  /** Returns to silence. */
  void reset();

  /** Passes the past, to bytes or from those of a filter with the same coefficients. */
  void pass_state(StateBytes* state);

  /** Whether the past of a recursive filter holds what is infinite or no number. */
  bool is_lost() const;

 private:
  class Lane;

  int channels_;
  std::vector<std::unique_ptr<Lane>> lanes_;  // for every two channels, or one
};

}  // namespace jurn

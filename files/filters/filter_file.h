// A file that filters a stream, whatever it holds.
#pragma once

#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "design/filter_design.h"
#include "design/setup.h"
#include "streams/changing_stream.h"
#include "streams/routing.h"

namespace jurn {

/** What a file is: by its content, and a set of HRTFs by its ending .sofa; or as somebody says. */
enum class FilterFileKind { kByContent, kCoefficients, kResponse, kRoutes, kSetup, kHrtf };

/**
 * A file read for streams at a rate: coefficients of every format, equalisers, impulse responses,
 * routes, setups of loudspeakers. A set of HRTFs gives a pair of headphones the loudspeakers of the
 * stream's channels: one in front, two at 30 degrees, or those of 4, 6 and 8 channels.
 *
 * What needs blocks runs in those of the stream's format.
 */
class FilterFile {
 public:
  /** For streams of so many channels; of 0, as many as the file takes, and 2 where it takes any
   * number. Responses at another rate are resampled. */
  FilterFile(const std::string& path, FilterFileKind kind, int rate, int channels);

  int inputs() const { return inputs_; }
  int outputs() const { return outputs_; }
  /** Other files that it names. */
  const std::vector<std::string>& files() const { return files_; }

  /** Whether the input itself may be heard instead: not where loudspeakers get bands of their own.
   */
  bool can_be_bypassed() const;

  /** The filter times a gain. Its notices that are warnings go to `warnings`, with the name. */
  std::unique_ptr<OfferedFilter> make(const StreamFormat& format, double gain,
                                      std::vector<std::string>* warnings) const;

 private:
  void read_coefficients(int rate);
  void read_hrtf(int rate);
  Ends ends() const;

  std::string path_;
  std::vector<std::string> files_;
  int inputs_, outputs_;
  std::variant<FilterDesign, Routing, Setup> filter_;
};

}  // namespace jurn

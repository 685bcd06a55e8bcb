// A filter forward and backward over a recording.
#pragma once

#include <memory>

#include "streams/stages.h"

namespace jurn {

/**
 * Filters forward with `forward`, and what came out backward with `backward`, the same filter once
 * more: the gain is squared and nothing is late, |H(f)|^2 with the phase 0. Before and after the
 * recording there is silence: the filter rings out behind the end before it runs backward, and what
 * it then rings on with before the start and behind the end is cut off.
 *
 * Between the two it keeps all frames in a file without a name in TMPDIR, in double.
 */
std::unique_ptr<Stage> make_zero_phase(std::unique_ptr<Stage> forward,
                                       std::unique_ptr<Stage> backward);

}  // namespace jurn

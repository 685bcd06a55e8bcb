// A setup of loudspeakers as one voice.
#pragma once

#include <memory>

#include "design/setup.h"
#include "streams/voice.h"

namespace jurn {

/** The steps of a setup one after the other, in double; the format has its inputs and outputs.
 * Works in blocks where a filter of it does, which what was prepared with `in_blocks` may have. */
std::unique_ptr<Voice> make_setup_voice(const PreparedSetup& prepared, const Format& format);

}  // namespace jurn

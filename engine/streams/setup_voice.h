// A setup of loudspeakers as one voice.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "design/setup.h"
#include "streams/changing_stream.h"

namespace jurn {

/** The steps of a setup one after the other, in double; the format has its inputs and outputs.
 * Works in blocks where a filter of it does, which what was prepared with `in_blocks` may have. */
std::unique_ptr<Voice> make_setup_voice(const PreparedSetup& prepared, const Format& format);

/** A setup, prepared for results of such samples, for a stream that takes offers. What a user has
 * to act on goes to `warnings`, behind `name`. */
std::unique_ptr<OfferedFilter> offer_setup(const Setup& setup, const Format& format,
                                           SampleFormat result, const std::string& name,
                                           std::vector<std::string>* warnings);

}  // namespace jurn

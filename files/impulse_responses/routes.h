// Files that say which input goes to which output through which taps.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "impulse_responses/impulse_response.h"
#include "streams/routing.h"

namespace jurn {

/**
 * Reads a file of routes. A line has the number of an input, of an output, and a file with the taps
 * of one channel; then may follow the number of another channel, a gain in dB ("-3dB", or a number
 * behind the channel), and "inverted". Channels count from 1, names are relative to the file and
 * may stand in quotes, # begins a comment.
 *
 * A configuration file of jconvolver is read too: /cd, /convolver/new, /impulse/read with gain,
 * delay, offset, length and channel, /impulse/dirac and /impulse/copy.
 */
Routing read_routes(const std::string& path, int rate, const ImpulseResponseOptions& options);

/** The files of impulse responses that a file of routes names. */
std::vector<std::string> files_of_routes(const std::string& path);

/** The inputs and outputs of a file of routes, whose impulse responses need not exist. */
std::pair<int, int> count_routes(const std::string& path);

}  // namespace jurn

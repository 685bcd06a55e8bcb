// Voices whose channels are alike and know nothing of each other, in double.
#pragma once

#include <memory>

#include "streams/voice.h"

namespace jurn {

/** Taps, tap by tap. */
std::unique_ptr<Voice> make_fir(const Prepared& prepared, const Format& format);
/** Numerator and feedback. */
std::unique_ptr<Voice> make_direct_form(const Prepared& prepared, const Format& format);
/** The mean of 2 or more samples. */
std::unique_ptr<Voice> make_mean_in_double(int length, const Format& format);

}  // namespace jurn

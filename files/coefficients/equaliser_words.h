// One filter of an equaliser, in words: "PK Fc 3000 Hz Gain -4 dB Q 2" or "PK 3k -4 Q 2".
#pragma once

#include "coefficients/words.h"
#include "design/equaliser.h"

namespace jurn {

/** A filter from its type on. */
EqualiserFilter filter_of(Words words);

/** Throws where the filter does not lie within the rate, or has too many taps. */
void check_rate(const Words& words, const EqualiserFilter& filter, int rate);

}  // namespace jurn

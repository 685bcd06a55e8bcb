// What was prepared is kept, so that nobody pays twice.
#pragma once

#include <memory>

#include "design/prepare.h"

namespace jurn {

/**
 * As prepare(). The last kKept results are kept by design and options, but none of more than
 * kLongTaps taps, which would take much memory and save little time. Any thread; the lock is not
 * held while a design is prepared.
 */
std::shared_ptr<const Prepared> prepare_once(const FilterDesign& design,
                                             const PrepareOptions& options = {});

constexpr std::size_t kKept = 32;

}  // namespace jurn

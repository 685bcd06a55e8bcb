// Designs, for packages of other languages.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "design/prepare.h"

namespace jurn::bindings {

/** A coefficient file's bytes; `name` is for messages. */
FilterDesign read_design(const std::string& name, std::string_view content, int rate);

/** Filters of an equaliser in words, one in a line. */
FilterDesign design_of_words(std::string_view lines, int rate);

/** What runs of it in calls of any length. Throws for more coefficients than can run. */
std::shared_ptr<const Prepared> prepared(const FilterDesign& design, int rate, Precision precision);

/** Its notices, one in a line, warnings behind '!' and others behind a blank. */
std::string notices_of(const Prepared& prepared);

}  // namespace jurn::bindings

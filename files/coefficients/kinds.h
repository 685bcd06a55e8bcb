// What kind of filter a file holds where nobody says what is wanted. It is decided here alone.
#pragma once

#include <string>
#include <vector>

#include "coefficients/rows.h"

namespace jurn {

/**
 * The kind of filter that arrays hold which are no zeros and poles, by the first of these rules
 * that fits:
 *
 * - By names: sections where an array is called so; numerator and denominator where a denominator
 * of several values is; taps where only a numerator is.
 * - Two vectors are numerator and denominator.
 * - One table of six columns is sections if every a0, its fourth column, is 1, so also a table of
 *   two rows; a single such row only if it is a stable section, for taps may hold a 1 as well. With
 *   three rows or more any a0 but 0 will do.
 * - Any other table of two rows is numerator and denominator.
 * - One vector is taps.
 *
 * So `np.save("ba.npy", butter(5, 0.3))`, of the shape (2, 6), is numerator and denominator: its
 * fourth column is hardly ever 1 in both.
 */
FilterDesign::Kind kind_of(const std::string& path, const std::vector<Array>& arrays);

/** The same for lists of numbers without names. */
FilterDesign::Kind kind_of_lists(const std::vector<std::vector<double>>& lists);

/** The same for lines of numbers, which begin denominators with 1. What may be sections without a0
 * or five taps in each line is refused. */
FilterDesign::Kind kind_of_rows(const std::string& path, const Rows& table);

}  // namespace jurn

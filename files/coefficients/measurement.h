// Measured responses and targets as text, and the equalisers that are fitted to them.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "design/fit.h"

namespace jurn {

/**
 * Frequencies and levels in dB from what REW, AutoEq, ARTA and HolmImpulse export and spreadsheets
 * save: a point a line, separated by commas, semicolons, tabs or spaces; comments behind * # % or
 * //. Titles say which column is the frequency and which the level ("raw" of AutoEq before others);
 * without titles they are the first two. Other columns, such as the phase, are passed over, and so
 * is a point at 0 Hz. Errors name the file, the line and the value.
 */
std::vector<GraphicPoint> parse_measurement(const std::string& path, std::string_view text);
/** The same of a file. */
std::vector<GraphicPoint> load_measurement(const std::string& path);

/** A level of 0 dB at all frequencies. */
std::vector<GraphicPoint> flat_target();

/** A fit as the lines of Equalizer APO; and how good it is, in words. */
std::string text_of(const Fit& fit);
std::string summary_of(const Fit& fit);

}  // namespace jurn

// Pictures, drawn by the program gnuplot.
#pragma once

#include <string>

namespace jurn {

enum class Picture { kTerminal, kPng, kSvg };

/** The format that a picture's name asks for by its ending; without a name, text on the terminal.
 */
Picture picture_format(const std::string& path);

/** A text as a string of gnuplot, whatever it holds. */
std::string plot_string(const std::string& text);

/** What a plot starts with; the size is in pixels, of text it follows the terminal. */
std::string set_terminal(Picture format, int width, int height);

/** Runs a script of gnuplot and puts the picture at `path`, or prints it when that is empty. An
 * error leaves nothing behind. */
void draw(const std::string& path, bool overwrite, const std::string& script);

}  // namespace jurn

// What the parsers of the formats share.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "coefficients/formats.h"
#include "design/export.h"

namespace jurn {

/** An array of a file; vectors have one row. */
struct Array {
  std::string name;
  std::size_t rows = 1;
  std::size_t columns = 0;
  std::vector<double> values;     // row by row
  std::vector<double> imaginary;  // parts of complex numbers, as many; empty for real ones
  std::string text;               // of one that holds no numbers: an exported file's mark
};

[[noreturn]] void fail(const std::string& path, const std::string& message);
[[noreturn]] void fail(const std::string& path, int line, const std::string& message);

/** No file of coefficients comes near; a recording or a device does. */
constexpr std::size_t kMostFileBytes = std::size_t{64} << 20;
/** The bytes of a file, `most` at most. */
std::string read_file(const std::string& path, std::size_t most = kMostFileBytes);

/** A piece of a file as an error shows it: short and printable, whatever the file holds. */
std::string quote(std::string_view text);

std::string lower(std::string_view text);

/** "1 tap", "2 taps". */
std::string count_of(std::size_t count, const std::string& noun);

/** A number as an error shows it. */
std::string shown(double value);

/** Whether float, which most filters store, holds the value. */
bool in_range(double value);

double parse_number(const std::string& path, int line, std::string_view token);

std::vector<std::string_view> split(std::string_view text, const char* separators);

/** The lines of a text, without byte-order mark and carriage returns. */
std::vector<std::string_view> lines_of(std::string_view text);

/** Throws for a design beyond its limit, or with a number that no float holds: gains and scales
 * were multiplied into what was read. */
void check_design(const std::string& path, const FilterDesign& design, const Limits& limits);

/** A filter of zeros, poles and gain, as sections. */
FilterDesign zpk_design(const std::string& path, const Array& zeros, const Array& poles,
                        double gain);

/** The design that arrays describe by their names or shapes. */
FilterDesign design_of(const std::string& path, const std::vector<Array>& arrays,
                       const ReadOptions& options);

/** Sections of six values each, as a design; refuses them where others are wanted. */
FilterDesign sections_design(const std::string& path, const std::vector<double>& sections,
                             const ReadOptions& options);

/** Taps without a header; full scale of integers is 1. */
std::vector<double> parse_raw(const std::string& path, std::string_view bytes,
                              CoefficientFormat format);
/** The samples of a mono recording; and what is said of one that is too long or not finite. */
std::vector<double> parse_audio(const std::string& path, std::string_view bytes,
                                const CoefficientLimit& limit);
void check_length_of_audio(const std::string& path, std::size_t length,
                           const CoefficientLimit& limit);
constexpr char kAudioIsTaps[] = "is audio; its samples are taps of fir";
constexpr char kNotFinite[] = "holds samples that are no finite numbers";
/** Whether a text is an impulse response that REW wrote, and its taps; one for another rate is
 * refused where the rate is known. */
bool is_rew_response(std::string_view text);
std::vector<double> parse_rew_response(const std::string& path, std::string_view text, int rate);
FilterDesign parse_numbers(const std::string& path, std::string_view text,
                           const ReadOptions& options);
/** The mark of an exported file in its first comments. */
std::optional<Mark> mark_of_comments(std::string_view text);
/** Reads as what a mark says: with its kind, which is an error where another is wanted, and
 * prepared as it says. */
FilterDesign read_marked(const std::string& path, const std::optional<Mark>& mark,
                         const ReadOptions& options,
                         const std::function<FilterDesign(const ReadOptions&)>& read);
/** One array, and the mark of an exported file; a complex one, or one of no numbers, only where
 * `of_archive` says that it stands beside others. */
std::vector<Array> parse_npy(const std::string& path, std::string_view bytes,
                             bool of_archive = false);
std::vector<Array> parse_header(const std::string& path, std::string_view text);
/** Whether a text names its arrays, as Octave's saves and MATLAB's .fcf do, assigns them, or prints
 * them as Python does. */
bool is_named_text(std::string_view text);
std::vector<Array> parse_named_text(const std::string& path, std::string_view text);
/** A text in UTF-16, with a mark or without, in ASCII: other letters become question marks. Numbers
 * without the types that NumPy 2 prints: np.float64(0.5). Anything else as it is. */
std::string plain_text(std::string_view bytes);
/** Whether a text gives coefficients one by one: "b0 = 0.5" or "h[0] = 0.5". */
bool is_scalar_text(std::string_view text);
std::vector<Array> parse_scalar_text(const std::string& path, std::string_view text);
std::vector<double> parse_biquads(const std::string& path, std::string_view text);
FilterDesign parse_equaliser(const std::string& path, std::string_view text,
                             const ReadOptions& options);

}  // namespace jurn

// Coefficient files in the formats that filter design and room correction programs write.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "design/equaliser.h"
#include "design/filter_design.h"
#include "design/graphic_equaliser.h"
#include "design/prepare.h"
#include "design/setup.h"

namespace jurn {

enum class CoefficientFormat {
  kByContent,
  kNumbers,
  kNamed,  // text that names its arrays
  kNumPy,
  kMatlab,
  kHeader,
  kBiquads,
  kEqualiser,
  kAudio,
  kNumPyArchive,
  kJson,
  kCamilla,
  kRewResponse,
  kScalars,  // text that gives coefficients one by one
  // Taps without a header; the last ones.
  kRawS16,
  kRawS24In3,
  kRawS24In4,
  kRawS32,
  kRawFloat32,
  kRawFloat64
};

inline bool is_raw(CoefficientFormat format) {
  return format >= CoefficientFormat::kRawS16;
}

/** Formats of taps without a header by CamillaDSP's names, "S16LE"; nothing for another name. */
std::optional<CoefficientFormat> raw_format_of(std::string_view name);

/** What a filter of each kind may have. */
struct Limits {
  CoefficientLimit fir, iir, sections;

  const CoefficientLimit& of(FilterDesign::Kind kind) const {
    return kind == FilterDesign::kFir ? fir : kind == FilterDesign::kIir ? iir : sections;
  }
};

/** What filters run in this precision. */
Limits filter_limits(Precision precision);

/** What is expected of a file. */
struct ReadOptions {
  std::optional<FilterDesign::Kind> wanted;  // nothing: what the file holds, see kinds.h
  Limits limits;
  CoefficientFormat format = CoefficientFormat::kByContent;
  std::vector<std::string> variables;  // arrays of a file with names: taps; b, a; sections, gain
  int rate = 0;                        // of the recording, which equalisers are designed for
  /** Of a graphic equaliser at most, within the limits. */
  std::size_t graphic_taps = kMostGraphicTaps;
};

/**
 * Reads any format. Denominators that do not start with 1 are an error in plain numbers, where they
 * are likely a slip; in the other formats the filter is divided by a0, as the programs that write
 * them define it. Errors name the file, the line or variable, the value and what is accepted.
 */
FilterDesign load_design(const std::string& path, const ReadOptions& options);

/** Reads numerator and denominator from a file each. */
FilterDesign load_design(const std::string& numerator, const std::string& denominator,
                         ReadOptions options);

/** The same from memory, for the formats that need no library: not kMatlab, kNumPyArchive, kJson
 * and kCamilla, and of kAudio what find_audio finds. `path` is for the errors. */
FilterDesign parse_design(const std::string& path, std::string_view bytes,
                          const ReadOptions& options);

/** An unfolded member of an archive. */
struct ArchiveMember {
  std::string name;  // "taps.npy"
  std::string content;
};

/** The same of the arrays of a .npz archive; other members are passed over. */
FilterDesign parse_archive(const std::string& path, const std::vector<ArchiveMember>& members,
                           const ReadOptions& options);
/** Whether a member of this name is an array. */
bool is_array(std::string_view name);

/** What a design was read as, in words: "12 taps", "numerator and denominator of 6 and 6
 * coefficients", "2 sections". */
std::string description_of(const FilterDesign& design);

/** Sections from the words of equaliser files, one filter each: "PK 3k -4 Q 2", "HP 80 order 4". Of
 * none of linear phase. */
FilterDesign parse_equaliser_words(const std::vector<std::string>& filters, int rate);
/** The filters of an equaliser's text (none if `path` is empty), and `filters` in words behind
 * them, as designs in series: sections, and an FIR for each filter of linear phase and for
 * GraphicEQ. The text has the lines of room correction programs, or a filter in words a line. */
std::vector<FilterDesign> parse_equaliser_chain(const std::string& path, std::string_view text,
                                                const std::vector<std::string>& filters,
                                                const ReadOptions& options);
/** An equaliser's text as a setup of so many channels, each line on those that the `Channel` before
 * it names. */
Setup parse_equaliser_setup(const std::string& path, std::string_view text, int channels,
                            const ReadOptions& options);
/** Whether such a text filters channels in different ways. */
bool names_channels(std::string_view text);
/** Whether a text has an equaliser's lines: those of room correction programs and AutoEq. */
bool holds_equaliser(std::string_view text);
/** The chain of a file's text, if `path` names one. */
std::vector<FilterDesign> load_equaliser(const std::string& path,
                                         const std::vector<std::string>& filters,
                                         const ReadOptions& options);
/** The same as a setup of so many channels, where the file filters them in different ways. */
std::optional<Setup> load_channel_filters(const std::string& path,
                                          const std::vector<std::string>& filters, int channels,
                                          const ReadOptions& options);
/** One of these filters, for any rate; and the words for it, whose numbers give the same filter. */
EqualiserFilter parse_equaliser_filter(const std::string& text);
std::string text_of(const EqualiserFilter& filter);
/** Whether a text begins with the type of such a filter. */
bool names_equaliser_type(std::string_view text);

/** The columns of a text, one channel of taps each; a first column that rises in even steps, an
 * index or a time, is left out. A single line, or lines of different lengths, are one channel. */
std::vector<std::vector<double>> parse_channels(const std::string& path, std::string_view text,
                                                int rate);

/** The format of a file's content, which is no text in UTF-16; throws for a file of a foreign kind
 * and says which it is. */
CoefficientFormat recognise(const std::string& path, std::string_view bytes);

}  // namespace jurn

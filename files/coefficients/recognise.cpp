#include <algorithm>
#include <cctype>

#include "coefficients/parse.h"
#include "file_kind.h"

namespace jurn {
namespace {

bool is_digit(std::string_view text, std::size_t at) {
  return at < text.size() && std::isdigit(static_cast<unsigned char>(text[at]));
}

/** Whether a line opens an equaliser: "Preamp:", "Filter:", "Filter 1:", "Filter  10 :". */
bool is_equaliser_line(std::string_view line) {
  const std::size_t colon = line.find(':');
  if (colon == std::string_view::npos) return false;
  const std::vector<std::string_view> key = split(line.substr(0, colon), " \t");
  if (key.empty()) return false;
  const std::string name = lower(key[0]);
  return ((name == "preamp" || name == "graphiceq") && key.size() == 1) ||
         (name == "filter" && (key.size() == 1 || (key.size() == 2 && is_digit(key[1], 0)))) ||
         (name.substr(0, 6) == "filter" && is_digit(name, 6) && key.size() == 1);
}

Format text_format(std::string_view text) {
  const std::vector<std::string_view> lines = lines_of(text);
  const auto any = [&](auto property) { return std::any_of(lines.begin(), lines.end(), property); };
  if (any(is_equaliser_line)) return Format::kEqualiser;
  if (any([](std::string_view line) {
        const std::vector<std::string_view> words = split(line, " \t,");
        return !words.empty() && lower(words[0].substr(0, 6)) == "biquad" && is_digit(words[0], 6);
      }))
    return Format::kBiquads;
  if (is_named_text(text)) return Format::kNamed;
  const std::size_t equals = text.find('=');
  if (text.find("MWSPT_NSEC") != std::string_view::npos ||
      (equals != std::string_view::npos && text.find('{', equals) != std::string_view::npos))
    return Format::kHeader;
  return Format::kNumbers;
}

}  // namespace

Format recognise(const std::string& path, std::string_view bytes) {
  const std::string_view kind = kind_of_file(bytes);
  if (kind.empty()) return text_format(bytes);
  if (kind == "a NumPy .npy file") return Format::kNumPy;
  if (kind == "a MATLAB .mat file") return Format::kMatlab;
  for (const char* audio :
       {"a WAV file", "a W64 file", "a FLAC file", "an AIFF file", "an AU file", "a CAF file"})
    if (kind == audio) return Format::kAudio;
  fail(path, "is " + std::string(kind) +
                 "; accepted are numbers as text or CSV, NumPy .npy, MATLAB .mat, C headers of "
                 "MATLAB, biquad lists, equaliser lines, and taps as WAV");
}

FilterDesign parse_design(const std::string& path, std::string_view original,
                          const ReadOptions& options) {
  const std::string bytes = plain_text(original);
  const Format format =
      options.format == Format::kByContent ? recognise(path, bytes) : options.format;
  FilterDesign design{options.wanted, {}, {}};
  switch (format) {
    case Format::kNumPy:
      design = design_of(path, parse_npy(path, bytes), options);
      break;
    case Format::kNamed:
      design = design_of(path, parse_named_text(path, bytes), options);
      break;
    case Format::kHeader:
      design = design_of(path, parse_header(path, bytes), options);
      break;
    case Format::kBiquads:
      design = sections_design(path, parse_biquads(path, bytes), options);
      break;
    case Format::kEqualiser:
      design = parse_equaliser(path, bytes, options);
      break;
    default:
      design = parse_numbers(path, bytes, options);
  }
  check_limit(path, design, options.limit);
  return design;
}

}  // namespace jurn

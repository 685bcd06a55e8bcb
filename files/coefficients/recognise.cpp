#include "exact.h"

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

/** Whether a line opens the filters of CamillaDSP's settings. */
bool is_camilla_line(std::string_view line) {
  return line.substr(0, 8) == "filters:" || line.substr(0, 9) == "pipeline:";
}

CoefficientFormat text_format(std::string_view text) {
  const std::vector<std::string_view> lines = lines_of(text);
  const auto any = [&](auto property) { return std::any_of(lines.begin(), lines.end(), property); };
  if (is_rew_response(text)) return CoefficientFormat::kRewResponse;
  const std::size_t first = text.find_first_not_of(" \t\r\n\xEF\xBB\xBF");
  if (first != std::string_view::npos && text[first] == '{') return CoefficientFormat::kJson;
  if (any(is_camilla_line)) return CoefficientFormat::kCamilla;
  if (holds_equaliser(text)) return CoefficientFormat::kEqualiser;
  if (any([](std::string_view line) {
        const std::vector<std::string_view> words = split(line, " \t,");
        return !words.empty() && lower(words[0].substr(0, 6)) == "biquad" && is_digit(words[0], 6);
      }))
    return CoefficientFormat::kBiquads;
  if (is_scalar_text(text)) return CoefficientFormat::kScalars;
  if (is_named_text(text)) return CoefficientFormat::kNamed;
  const std::size_t equals = text.find('=');
  if (text.find("MWSPT_NSEC") != std::string_view::npos ||
      (equals != std::string_view::npos && text.find('{', equals) != std::string_view::npos))
    return CoefficientFormat::kHeader;
  return CoefficientFormat::kNumbers;
}

}  // namespace

bool holds_equaliser(std::string_view text) {
  const std::string plain = plain_text(text);
  const std::vector<std::string_view> lines = lines_of(plain);
  return std::any_of(lines.begin(), lines.end(), is_equaliser_line);
}

CoefficientFormat recognise(const std::string& path, std::string_view bytes) {
  const std::string_view kind = kind_of_file(bytes);
  if (kind.empty()) {
    const std::string_view head = bytes.substr(0, 65536);
    if (std::any_of(head.begin(), head.end(),
                    [](char c) { return static_cast<unsigned char>(c) < '\t'; }))
      fail(path,
           "is no numeric text, but binary; taps without a header are read by --format S16LE, "
           "S24LE3, S24LE, S32LE, FLOAT32LE or FLOAT64LE");
    return text_format(bytes);
  }
  if (kind == "a NumPy .npz archive") return CoefficientFormat::kNumPyArchive;
  if (kind == "an HDF5 file") return CoefficientFormat::kMatlab;
  if (kind == "a NumPy .npy file") return CoefficientFormat::kNumPy;
  if (kind == "a MATLAB .mat file") return CoefficientFormat::kMatlab;
  for (const char* audio :
       {"a WAV file", "a W64 file", "a FLAC file", "an AIFF file", "an AU file", "a CAF file"})
    if (kind == audio) return CoefficientFormat::kAudio;
  fail(path, "is " + std::string(kind) +
                 "; accepted are numbers as text or CSV, NumPy .npy and .npz, MATLAB .mat, JSON, C "
                 "headers of MATLAB, biquad lists, equaliser lines, CamillaDSP's filters, and taps "
                 "as WAV");
}

FilterDesign parse_design(const std::string& path, std::string_view original,
                          const ReadOptions& options) {
  const std::string bytes = is_raw(options.format) ? std::string() : plain_text(original);
  const CoefficientFormat format =
      options.format == CoefficientFormat::kByContent ? recognise(path, bytes) : options.format;
  FilterDesign design{FilterDesign::kFir, {}, {}};
  const auto taps = [&](std::vector<double> values) {
    if (options.wanted && options.wanted != FilterDesign::kFir)
      fail(path, "holds taps, which run with fir");
    design.b = std::move(values);
  };
  switch (format) {
    case CoefficientFormat::kNumPy:
      design = design_of(path, parse_npy(path, bytes), options);
      break;
    case CoefficientFormat::kNamed:
      design = design_of(path, parse_named_text(path, bytes), options);
      break;
    case CoefficientFormat::kHeader:
      design = design_of(path, parse_header(path, bytes), options);
      break;
    case CoefficientFormat::kBiquads:
      design = sections_design(path, parse_biquads(path, bytes), options);
      break;
    case CoefficientFormat::kScalars:
      design = design_of(path, parse_scalar_text(path, bytes), options);
      break;
    case CoefficientFormat::kRewResponse:
      taps(parse_rew_response(path, bytes, options.rate));
      break;
    case CoefficientFormat::kRawS16:
    case CoefficientFormat::kRawS24In3:
    case CoefficientFormat::kRawS24In4:
    case CoefficientFormat::kRawS32:
    case CoefficientFormat::kRawFloat32:
    case CoefficientFormat::kRawFloat64:
      taps(parse_raw(path, original, format));
      break;
    case CoefficientFormat::kAudio:
      if (options.wanted && options.wanted != FilterDesign::kFir) fail(path, kAudioIsTaps);
      design.b = parse_audio(path, original, options.limits.fir);
      break;
    // These take libraries that are not everywhere.
    case CoefficientFormat::kCamilla:
      fail(path,
           "holds settings of CamillaDSP, which setup of jurn-filter, GStreamer and Python run; "
           "read here are lines of an equaliser, as Equalizer APO has them");
    case CoefficientFormat::kMatlab:
      fail(path,
           "is a .mat file, which jurn-filter, GStreamer and Python read; export --precision "
           "double of jurn-filter makes text of it");
    case CoefficientFormat::kJson:
      fail(path,
           "is JSON, which jurn-filter, GStreamer and Python read; export --precision "
           "double of jurn-filter makes text of it");
    case CoefficientFormat::kNumPyArchive:
      fail(path,
           "is an archive of NumPy, which jurn-filter, GStreamer and Python read; numpy.save "
           "writes its arrays one by one");
    case CoefficientFormat::kEqualiser:
      design = parse_equaliser(path, bytes, options);
      break;
    default:
      design = parse_numbers(path, bytes, options);
  }
  check_design(path, design, options.limits);
  return design;
}

}  // namespace jurn

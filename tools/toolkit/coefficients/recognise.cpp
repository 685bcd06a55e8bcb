#include <algorithm>
#include <cctype>

#include "coefficients/parse.h"

namespace tool {
namespace {

struct Magic {
  std::size_t offset;
  std::string_view bytes;
  const char* kind;
};

using namespace std::string_view_literals;

const Magic kMagic[] = {
    {0, "\x93NUMPY"sv, "a NumPy .npy file"},
    {0, "MATLAB 5.0 MAT-file"sv, "a MATLAB .mat file"},
    {0, "MATLAB 7.3 MAT-file"sv, "a MATLAB .mat file"},
    {8, "WAVE"sv, "a WAV file"},
    {0, "riff\x2e\x91\xcf\x11"sv, "a W64 file"},
    {0, "fLaC"sv, "a FLAC file"},
    {8, "AIFF"sv, "an AIFF file"},
    {8, "AIFC"sv, "an AIFF file"},
    {0, ".snd"sv, "an AU file"},
    {0, "caff"sv, "a CAF file"},
    {0, "OggS"sv, "an Ogg file"},
    {0, "ID3"sv, "an MP3 file"},
    {0, "\xff\xfb"sv, "an MP3 file"},
    {0, "\xff\xf3"sv, "an MP3 file"},
    {0, "\xff\xf2"sv, "an MP3 file"},
    {0, "\xff\xfa"sv, "an MP3 file"},
    {0, "\xff\xf1"sv, "an AAC file"},
    {0, "\xff\xf9"sv, "an AAC file"},
    {4, "ftyp"sv, "an MP4 file"},
    {0, "\x30\x26\xb2\x75"sv, "a WMA file"},
    {0, "wvpk"sv, "a WavPack file"},
    {0, "MAC "sv, "a Monkey's Audio file"},
    {8, "AVI "sv, "an AVI file"},
    {0, "\x1a\x45\xdf\xa3"sv, "a Matroska file"},
    {0, "\x89HDF\r\n\x1a\n"sv, "an HDF5 file"},
    {0, "CDF\x01"sv, "a NetCDF file"},
    {0, "\x89PNG"sv, "a PNG picture"},
    {0, "\xff\xd8\xff"sv, "a JPEG picture"},
    {0, "GIF8"sv, "a GIF picture"},
    {0, "%PDF"sv, "a PDF document"},
    {0, "PK\x03\x04"sv, "a ZIP archive (.npz, .xlsx and .zip are)"},
    {0, "\x1f\x8b"sv, "a gzip archive"},
    {0, "BZh"sv, "a bzip2 archive"},
    {0,
     "\xfd"
     "7zXZ"sv,
     "an xz archive"},
    {0, "7z\xbc\xaf"sv, "a 7z archive"},
    {0, "\xd0\xcf\x11\xe0"sv, "an old Microsoft Office document"},
    {0,
     "\x7f"
     "ELF"sv,
     "a program"},
    {0, "\xff\xfe"sv, "a text in UTF-16, not UTF-8"},
    {0, "\xfe\xff"sv, "a text in UTF-16, not UTF-8"},
    {0, "SQLite format 3"sv, "an SQLite database"},
    {0, "{\\rtf"sv, "an RTF document"},
    {0, "<?xml"sv, "an XML file"},
    {0, "<!DOCTYPE"sv, "an HTML page"},
    {0, "<html"sv, "an HTML page"},
    {0, "<svg"sv, "an SVG picture"},
};

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
  return (name == "preamp" && key.size() == 1) ||
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
  const std::size_t equals = text.find('=');
  if (text.find("MWSPT_NSEC") != std::string_view::npos ||
      (equals != std::string_view::npos && text.find('{', equals) != std::string_view::npos))
    return Format::kHeader;
  return Format::kNumbers;
}

}  // namespace

std::string_view kind_of_file(std::string_view bytes) {
  const Magic* found = std::find_if(std::begin(kMagic), std::end(kMagic), [&](const Magic& m) {
    return bytes.size() >= m.offset && bytes.substr(m.offset, m.bytes.size()) == m.bytes;
  });
  return found == std::end(kMagic) ? "" : found->kind;
}

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

FilterDesign parse_design(const std::string& path, std::string_view bytes,
                          const ReadOptions& options) {
  const Format format =
      options.format == Format::kByContent ? recognise(path, bytes) : options.format;
  FilterDesign design{options.wanted, {}, {}};
  switch (format) {
    case Format::kNumPy:
      design = design_of(path, parse_npy(path, bytes), options);
      break;
    case Format::kHeader:
      design = design_of(path, parse_header(path, bytes), options);
      break;
    case Format::kBiquads:
      design = sections_design(path, parse_biquads(path, bytes), options);
      break;
    case Format::kEqualiser:
      design = sections_design(path, parse_equaliser(path, bytes, options.rate), options);
      break;
    default:
      design = parse_numbers(path, bytes, options);
  }
  check_limit(path, design, options.limit);
  return design;
}

}  // namespace tool

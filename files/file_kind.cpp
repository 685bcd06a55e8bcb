#include "exact.h"

#include "file_kind.h"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <iterator>

namespace jurn {
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
    {0, "SQLite format 3"sv, "an SQLite database"},
    {0, "{\\rtf"sv, "an RTF document"},
    {0, "<?xml"sv, "an XML file"},
    {0, "<!DOCTYPE"sv, "an HTML page"},
    {0, "<html"sv, "an HTML page"},
    {0, "<svg"sv, "an SVG picture"},
};

/** Whether a file begins with a matrix of MATLAB's level 4, which has no magic: five integers
 * (type, rows, columns, imaginary part, length of the name) and a name. */
bool is_matlab_4(std::string_view bytes) {
  if (bytes.size() < 22) return false;
  const auto byte = [&](std::size_t at) { return static_cast<unsigned char>(bytes[at]); };
  const bool little = byte(1) == 0 && byte(2) == 0 && byte(3) == 0;
  const auto integer = [&](std::size_t field) {
    std::size_t value = 0;
    for (std::size_t k = 0; k < 4; ++k) value = value << 8 | byte(4 * field + (little ? 3 - k : k));
    return value;
  };
  const std::size_t type = integer(0), name = integer(4);
  return (little ? type : type - 1000) <= 52 && integer(1) - 1 < 1000000 &&
         integer(2) - 1 < 1000000 && integer(3) <= 1 && name >= 2 && name <= 64 &&
         bytes.size() >= 20 + name && bytes[20 + name - 1] == '\0' &&
         std::all_of(bytes.begin() + 20, bytes.begin() + 19 + static_cast<std::ptrdiff_t>(name),
                     [](unsigned char c) { return std::isalnum(c) || c == '_'; });
}

/** Whether a ZIP archive begins with an array of NumPy, by the name in its first header. */
bool is_numpy_archive(std::string_view bytes) {
  if (bytes.substr(0, 4) != "PK\x03\x04"sv || bytes.size() < 30) return false;
  const std::string_view name = bytes.substr(30, static_cast<unsigned char>(bytes[26]));
  return name.size() > 4 && name.substr(name.size() - 4) == ".npy";
}

}  // namespace

std::string_view kind_of_file(std::string_view bytes) {
  if (is_numpy_archive(bytes)) return "a NumPy .npz archive";
  const Magic* found = std::find_if(std::begin(kMagic), std::end(kMagic), [&](const Magic& m) {
    return bytes.size() >= m.offset && bytes.substr(m.offset, m.bytes.size()) == m.bytes;
  });
  if (found != std::end(kMagic)) return found->kind;
  return is_matlab_4(bytes) ? "a MATLAB .mat file" : "";
}

}  // namespace jurn

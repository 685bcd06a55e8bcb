// Formats that need more than memory: .mat through libmatio, WAV through libsndfile.
#include <fcntl.h>
#include <matio.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>

#include "coefficients/parse.h"
#include "recordings/audio_io.h"
#include "recordings/signals.h"

namespace tool {
namespace {

// No coefficient file comes near; a recording or a device does.
constexpr std::size_t kMaxBytes = std::size_t{64} << 20;
constexpr std::size_t kMaxValues = 1000000;

std::string read_file(const std::string& path) {
  std::error_code error;
  if (std::filesystem::is_directory(path, error)) fail(path, "is a directory");
  Descriptor file(path == kStandardStream ? STDIN_FILENO
                                          : open(path.c_str(), O_RDONLY | O_CLOEXEC));
  std::string bytes;
  char buffer[65536];
  ssize_t got = file.get() < 0 ? -1 : 1;
  while (got > 0 && bytes.size() <= kMaxBytes) {
    got = ::read(file.get(), buffer, sizeof buffer);
    if (got > 0) bytes.append(buffer, static_cast<std::size_t>(got));
  }
  const int reason = errno;
  check_interrupted();
  if (got < 0) fail(path, std::strerror(reason));
  return bytes;
}

/** Standard input, which can be read but once. */
const std::string& read_standard_input() {
  static const std::string bytes = read_file(kStandardStream);
  return bytes;
}

template <typename Value>
void append(const matvar_t& variable, Array* array) {
  const Value* values = static_cast<const Value*>(variable.data);
  for (std::size_t r = 0; r < array->rows; ++r)
    for (std::size_t c = 0; c < array->columns; ++c)
      array->values.push_back(static_cast<double>(values[c * array->rows + r]));
}

using Append = void (*)(const matvar_t&, Array*);

Append append_of(matio_classes type) {
  switch (type) {
    case MAT_C_DOUBLE:
      return append<double>;
    case MAT_C_SINGLE:
      return append<float>;
    case MAT_C_INT8:
      return append<std::int8_t>;
    case MAT_C_INT16:
      return append<std::int16_t>;
    case MAT_C_INT32:
      return append<std::int32_t>;
    case MAT_C_INT64:
      return append<std::int64_t>;
    case MAT_C_UINT8:
      return append<std::uint8_t>;
    case MAT_C_UINT16:
      return append<std::uint16_t>;
    case MAT_C_UINT32:
      return append<std::uint32_t>;
    case MAT_C_UINT64:
      return append<std::uint64_t>;
    default:
      return nullptr;  // text, cells, structures, filter objects
  }
}

/** Whether a variable holds numbers that can be coefficients; text and cells do not. */
bool is_matrix(const matvar_t& variable) {
  return append_of(variable.class_type) && !variable.isComplex && variable.rank == 2 &&
         variable.dims[0] > 0 && variable.dims[1] > 0;
}

void check_size(const std::string& path, const matvar_t& variable) {
  const std::size_t rows = variable.dims[0], columns = variable.dims[1];
  if (rows > kMaxValues || columns > kMaxValues / rows)
    fail(path, quote(variable.name) + " has " + std::to_string(rows) + " x " +
                   std::to_string(columns) + " values; accepted are " + std::to_string(kMaxValues) +
                   " at most");
}

/** Adds a variable whose values were read; of a structure, its fields by their own names. */
void add_arrays(const std::string& path, const matvar_t& variable, std::vector<Array>* arrays) {
  if (variable.class_type == MAT_C_STRUCT) {
    const unsigned count = Mat_VarGetNumberOfFields(const_cast<matvar_t*>(&variable));
    for (unsigned i = 0; i < count; ++i)
      if (const matvar_t* field =
              Mat_VarGetStructFieldByIndex(const_cast<matvar_t*>(&variable), i, 0))
        if (field->name && field->data) add_arrays(path, *field, arrays);
    return;
  }
  if (!is_matrix(variable)) return;
  check_size(path, variable);
  Array array;
  array.name = variable.name;
  array.rows = variable.dims[0];
  array.columns = variable.dims[1];
  append_of(variable.class_type)(variable, &array);
  arrays->push_back(std::move(array));
}

std::vector<double> read_taps(const std::string& path, const CoefficientLimit& limit) {
  AudioReader reader(path, 1);
  if (reader.frames() > static_cast<std::int64_t>(limit.count))
    fail(path, "holds " + std::to_string(reader.frames()) + " samples, more than " + limit.reason +
                   "; convolve takes longer responses");
  std::vector<float> samples(limit.count);
  samples.resize(reader.read(samples.data(), samples.size()));
  if (reader.not_finite()) fail(path, "holds samples that are no finite numbers");
  std::vector<double> taps;
  for (const float sample : samples) taps.push_back(static_cast<double>(sample) / 32768.0);
  return taps;
}

}  // namespace

/** Whether a file of level 5 ends inside one of its elements, which libmatio does not notice: it
 * would hand out memory that nothing was read into. */
static bool is_cut_off(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  unsigned char header[128];
  if (!file.read(reinterpret_cast<char*>(header), sizeof header)) return false;
  const bool little = header[126] == 'I' && header[127] == 'M';
  if (header[little ? 125 : 124] != 1) return false;  // another version: HDF5 tells by itself
  const std::uintmax_t size = std::filesystem::file_size(path);
  std::uintmax_t position = sizeof header;
  for (unsigned char tag[8]; position + sizeof tag <= size;) {
    file.seekg(static_cast<std::streamoff>(position));
    if (!file.read(reinterpret_cast<char*>(tag), sizeof tag)) return true;
    std::uintmax_t bytes = 0;
    for (int k = 0; k < 4; ++k) bytes = bytes * 256 + tag[little ? 7 - k : 4 + k];
    position += sizeof tag + bytes;
  }
  return position > size;
}

std::vector<Array> read_mat(const std::string& path) {
  if (is_cut_off(path)) fail(path, "is a MATLAB file that was cut off");
  const std::unique_ptr<mat_t, int (*)(mat_t*)> file(Mat_Open(path.c_str(), MAT_ACC_RDONLY),
                                                     Mat_Close);
  if (!file) fail(path, "is no MATLAB file that can be read");
  std::vector<Array> arrays;
  while (matvar_t* next = Mat_VarReadNextInfo(file.get())) {
    const std::unique_ptr<matvar_t, void (*)(matvar_t*)> variable(next, Mat_VarFree);
    if (!variable->name) continue;
    if (variable->class_type != MAT_C_STRUCT) {
      if (!is_matrix(*variable)) continue;
      check_size(path, *variable);
    }
    if (Mat_VarReadDataAll(file.get(), variable.get()) != 0 || !variable->data)
      fail(path, "damaged: the values of " + quote(variable->name) + " cannot be read");
    add_arrays(path, *variable, &arrays);
  }
  return arrays;
}

FilterDesign load_design(const std::string& given, const ReadOptions& options) {
  Format format = options.format;
  const bool piped = given == kStandardStream;
  const std::string path = piped ? "standard input" : given;
  std::string bytes;
  if (format != Format::kAudio && format != Format::kMatlab) {
    bytes = piped ? read_standard_input() : read_file(path);
    if (format == Format::kByContent) format = recognise(path, from_utf16(bytes));
  }
  if (piped && (format == Format::kAudio || format == Format::kMatlab))
    fail(path, "coefficients of audio and .mat files come from files only");
  FilterDesign design{options.wanted, {}, {}};
  if (format == Format::kAudio) {
    if (options.wanted != FilterDesign::kFir) fail(path, "is audio; its samples are taps of fir");
    design.b = read_taps(path, options.limit);
  } else if (format == Format::kMatlab) {
    design = design_of(path, read_mat(path), options);
  } else {
    if (bytes.size() > kMaxBytes) fail(path, "is larger than any file of coefficients");
    return parse_design(path, bytes, options);
  }
  check_limit(path, design, options.limit);
  return design;
}

FilterDesign load_design(const std::string& numerator, const std::string& denominator,
                         ReadOptions options) {
  options.wanted = FilterDesign::kFir;
  FilterDesign design = load_design(numerator, options);
  design.kind = FilterDesign::kIir;
  design.a = load_design(denominator, options).b;
  if (design.a[0] != 1.0)
    fail(denominator, "the denominator starts with " + shown(design.a[0]) +
                          ", not with 1; divide the filter's coefficients by it");
  return design;
}

}  // namespace tool

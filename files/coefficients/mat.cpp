// MATLAB files, through libmatio. It brings some thirty libraries, so it is loaded when it is
// needed.
#include "exact.h"

#include "coefficients/libraries.h"

#include <dlfcn.h>
#include <matio.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <mutex>

#include "coefficients/parse.h"
#include "errors.h"

namespace jurn {
namespace {

constexpr std::size_t kMaxValues = 1000000;

/** What is used of the library. */
struct Matio {
  void* library;
  decltype(&Mat_Open) open;
  decltype(&Mat_Close) close;
  decltype(&Mat_VarReadNextInfo) next_info;
  decltype(&Mat_VarReadDataAll) read_data;
  decltype(&Mat_VarGetNumberOfFields) count_fields;
  decltype(&Mat_VarGetStructFieldByIndex) field;
  decltype(&Mat_VarFree) free;
};

template <typename Function>
void find(void* library, const char* name, Function* function) {
  *function = library ? reinterpret_cast<Function>(dlsym(library, name)) : nullptr;
  if (*function) return;
  const char* const reason = dlerror();
  throw Error(kInputError, std::string("libmatio, which reads MATLAB files, cannot be loaded (") +
                               (reason ? reason : name) + ")");
}

const Matio& matio() {
  static const Matio loaded = [] {
    void* const library = dlopen(JURN_MATIO_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    Matio m{};
    m.library = library;
    find(library, "Mat_Open", &m.open);
    find(library, "Mat_Close", &m.close);
    find(library, "Mat_VarReadNextInfo", &m.next_info);
    find(library, "Mat_VarReadDataAll", &m.read_data);
    find(library, "Mat_VarGetNumberOfFields", &m.count_fields);
    find(library, "Mat_VarGetStructFieldByIndex", &m.field);
    find(library, "Mat_VarFree", &m.free);
    return m;
  }();
  return loaded;
}

/** Adds the values of a matrix, which stand column by column, row by row. */
template <typename Value>
void append(const void* data, const Array& array, std::vector<double>* out) {
  const Value* values = static_cast<const Value*>(data);
  for (std::size_t r = 0; r < array.rows; ++r)
    for (std::size_t c = 0; c < array.columns; ++c)
      out->push_back(static_cast<double>(values[c * array.rows + r]));
}

using Append = void (*)(const void*, const Array&, std::vector<double>*);

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
  return append_of(variable.class_type) && variable.rank == 2 && variable.dims[0] > 0 &&
         variable.dims[1] > 0;
}

/** Whether it is what export writes about itself. */
bool is_mark(const matvar_t& variable) {
  return variable.class_type == MAT_C_CHAR && variable.name == std::string(kMarkName) &&
         variable.rank == 2 && variable.dims[0] == 1 && variable.dims[1] < 100;
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
    const unsigned count = matio().count_fields(const_cast<matvar_t*>(&variable));
    for (unsigned i = 0; i < count; ++i)
      if (const matvar_t* field = matio().field(const_cast<matvar_t*>(&variable), i, 0))
        if (field->name && field->data) add_arrays(path, *field, arrays);
    return;
  }
  Array array;
  array.name = variable.name;
  if (is_mark(variable)) {
    const auto* const letters = static_cast<const char*>(variable.data);
    array.text.assign(letters, letters + variable.dims[1]);
    return arrays->push_back(std::move(array));
  }
  if (!is_matrix(variable)) return;
  check_size(path, variable);
  array.rows = variable.dims[0];
  array.columns = variable.dims[1];
  const Append append = append_of(variable.class_type);
  if (variable.isComplex) {
    const auto* const parts = static_cast<const mat_complex_split_t*>(variable.data);
    append(parts->Re, array, &array.values);
    append(parts->Im, array, &array.imaginary);
  } else {
    append(variable.data, array, &array.values);
  }
  arrays->push_back(std::move(array));
}

/** Whether a file is one of level 7.3, or another of HDF5, which may begin with a block of the
 * user's. */
bool is_hdf5(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  for (const int at : {0, 512, 1024, 2048}) {
    char magic[8];
    file.seekg(at);
    if (!file.read(magic, sizeof magic)) return false;
    if (std::memcmp(magic, "\x89HDF\r\n\x1a\n", sizeof magic) == 0) return true;
  }
  return false;
}

/** Whether a file of level 5 ends inside one of its elements, which libmatio does not notice: it
 * would hand out memory that nothing was read into. */
bool is_cut_off(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  unsigned char header[128];
  if (!file.read(reinterpret_cast<char*>(header), sizeof header)) return false;
  const bool little = header[126] == 'I' && header[127] == 'M';
  if (header[little ? 125 : 124] != 1) return false;  // level 4
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

}  // namespace

std::vector<Array> read_mat(const std::string& path) {
  static std::mutex mutex;  // the libraries are made for one thread
  const std::lock_guard<std::mutex> lock(mutex);
  if (is_hdf5(path)) return read_hdf5(path, matio().library);
  if (is_cut_off(path)) fail(path, "is a MATLAB file that was cut off");
  const std::unique_ptr<mat_t, int (*)(mat_t*)> file(matio().open(path.c_str(), MAT_ACC_RDONLY),
                                                     matio().close);
  if (!file) fail(path, "is no MATLAB file that can be read");
  std::vector<Array> arrays;
  while (matvar_t* next = matio().next_info(file.get())) {
    const std::unique_ptr<matvar_t, void (*)(matvar_t*)> variable(next, matio().free);
    if (!variable->name) continue;
    if (variable->class_type != MAT_C_STRUCT) {
      if (!is_matrix(*variable) && !is_mark(*variable)) continue;
      check_size(path, *variable);
    }
    if (matio().read_data(file.get(), variable.get()) != 0 || !variable->data)
      fail(path, "damaged: the values of " + quote(variable->name) + " cannot be read");
    add_arrays(path, *variable, &arrays);
  }
  return arrays;
}

}  // namespace jurn

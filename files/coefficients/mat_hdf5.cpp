// MATLAB files of level 7.3, which are HDF5 files, and other HDF5 files with arrays: through the
// HDF5 library that libmatio brings. libmatio itself reads those alone that MATLAB wrote.
#include "exact.h"

#include <dlfcn.h>
#include <hdf5.h>

#include <algorithm>
#include <cstring>
#include <iterator>

#include "coefficients/libraries.h"

namespace jurn {
namespace {

constexpr hsize_t kMaxValues = 1000000;
constexpr unsigned kReadOnly = 0;  // the macro for it calls the library
constexpr int kMaxGroups = 8;      // of structures

/** What is used of the library. */
struct Hdf5 {
  decltype(&H5open) start;
  decltype(&H5Eset_auto2) set_printing;
  decltype(&H5Fopen) open_file;
  decltype(&H5Gget_info) group_info;
  decltype(&H5Lget_name_by_idx) link_name;
  decltype(&H5Oopen) open;
  decltype(&H5Iget_type) kind_of;
  decltype(&H5Idec_ref) close;
  decltype(&H5Aexists) has_attribute;
  decltype(&H5Aopen) open_attribute;
  decltype(&H5Aget_type) attribute_type;
  decltype(&H5Aread) read_attribute;
  decltype(&H5free_memory) free;
  decltype(&H5Dget_space) space;
  decltype(&H5Sget_simple_extent_ndims) rank;
  decltype(&H5Sget_simple_extent_dims) dimensions;
  decltype(&H5Dget_type) type;
  decltype(&H5Dread) read;
  decltype(&H5Tget_class) class_of;
  decltype(&H5Tget_size) size_of;
  decltype(&H5Tis_variable_str) is_variable;
  decltype(&H5Tget_member_index) member;
  decltype(&H5Tcreate) make_type;
  decltype(&H5Tinsert) insert;
  hid_t* native_double;  // a value once the library has started
};

template <typename Function>
bool find(void* library, const char* name, Function* function) {
  *function = reinterpret_cast<Function>(dlsym(library, name));
  return *function != nullptr;
}

bool load(void* library, Hdf5* h) {
  return find(library, "H5open", &h->start) && find(library, "H5Eset_auto2", &h->set_printing) &&
         find(library, "H5Fopen", &h->open_file) && find(library, "H5Gget_info", &h->group_info) &&
         find(library, "H5Lget_name_by_idx", &h->link_name) && find(library, "H5Oopen", &h->open) &&
         find(library, "H5Iget_type", &h->kind_of) && find(library, "H5Idec_ref", &h->close) &&
         find(library, "H5Aexists", &h->has_attribute) &&
         find(library, "H5Aopen", &h->open_attribute) &&
         find(library, "H5Aget_type", &h->attribute_type) &&
         find(library, "H5Aread", &h->read_attribute) && find(library, "H5free_memory", &h->free) &&
         find(library, "H5Dget_space", &h->space) &&
         find(library, "H5Sget_simple_extent_ndims", &h->rank) &&
         find(library, "H5Sget_simple_extent_dims", &h->dimensions) &&
         find(library, "H5Dget_type", &h->type) && find(library, "H5Dread", &h->read) &&
         find(library, "H5Tget_class", &h->class_of) && find(library, "H5Tget_size", &h->size_of) &&
         find(library, "H5Tis_variable_str", &h->is_variable) &&
         find(library, "H5Tget_member_index", &h->member) &&
         find(library, "H5Tcreate", &h->make_type) && find(library, "H5Tinsert", &h->insert) &&
         find(library, "H5T_NATIVE_DOUBLE_g", &h->native_double);
}

/** An object of the library's, let go at the end. */
class Object {
 public:
  Object(const Hdf5& library, hid_t id) : library_(library), id_(id) {}
  ~Object() {
    if (id_ >= 0) library_.close(id_);
  }
  Object(const Object&) = delete;
  Object& operator=(const Object&) = delete;

  explicit operator bool() const { return id_ >= 0; }
  hid_t id() const { return id_; }

 private:
  const Hdf5& library_;
  hid_t id_;
};

class Reader {
 public:
  Reader(const Hdf5& library, const std::string& path) : h_(library), path_(path) {}

  std::vector<Array> read() {
    // Every thread has its own; the library would print its account of every error.
    h_.set_printing(H5E_DEFAULT, nullptr, nullptr);
    const Object file(h_, h_.open_file(path_.c_str(), kReadOnly, H5P_DEFAULT));
    if (!file) fail(path_, "damaged: it begins as an HDF5 file and cannot be read");
    add_group(file.id(), 0);
    return std::move(arrays_);
  }

 private:
  /** Arrays of a group, those of structures by the names of their fields. */
  void add_group(hid_t group, int depth) {
    H5G_info_t info;
    if (depth > kMaxGroups || h_.group_info(group, &info) < 0) return;
    for (hsize_t i = 0; i < info.nlinks; ++i) {
      char name[256];
      if (h_.link_name(group, ".", H5_INDEX_NAME, H5_ITER_INC, i, name, sizeof name, H5P_DEFAULT) <
              0 ||
          name[0] == '#')  // MATLAB's own: what cells and objects refer to
        continue;
      const Object object(h_, h_.open(group, name, H5P_DEFAULT));
      if (!object || h_.has_attribute(object.id(), "MATLAB_empty") > 0 ||
          h_.has_attribute(object.id(), "MATLAB_sparse") > 0)
        continue;
      const H5I_type_t kind = h_.kind_of(object.id());
      if (kind == H5I_GROUP) add_group(object.id(), depth + 1);
      if (kind == H5I_DATASET) add_array(object.id(), name);
    }
  }

  /** The text of "MATLAB_class", empty where the file is none of MATLAB's. */
  std::string class_of(hid_t object) {
    const char* const name = "MATLAB_class";
    if (h_.has_attribute(object, name) <= 0) return {};
    const Object attribute(h_, h_.open_attribute(object, name, H5P_DEFAULT));
    const Object type(h_, attribute ? h_.attribute_type(attribute.id()) : -1);
    if (!type || h_.class_of(type.id()) != H5T_STRING) return "unknown";
    if (h_.is_variable(type.id()) > 0) {
      char* text = nullptr;
      if (h_.read_attribute(attribute.id(), type.id(), &text) < 0 || !text) return "unknown";
      std::string result = text;
      h_.free(text);
      return result;
    }
    std::string result(std::min<std::size_t>(h_.size_of(type.id()), 1000) + 1, '\0');
    if (h_.size_of(type.id()) >= result.size() ||
        h_.read_attribute(attribute.id(), type.id(), result.data()) < 0)
      return "unknown";
    result.resize(std::strlen(result.c_str()));  // it may be padded
    return result;
  }

  void add_array(hid_t object, const char* name) {
    static const char* const numeric[] = {"",      "double", "single", "int8",   "int16", "int32",
                                          "int64", "uint8",  "uint16", "uint32", "uint64"};
    const std::string matlab = class_of(object);
    const Object space(h_, h_.space(object)), type(h_, h_.type(object));
    if (!space || !type ||
        std::find(std::begin(numeric), std::end(numeric), matlab) == std::end(numeric))
      return;  // text, cells, filter objects
    const H5T_class_t kind = h_.class_of(type.id());
    const bool is_complex = kind == H5T_COMPOUND && h_.member(type.id(), "real") >= 0 &&
                            h_.member(type.id(), "imag") >= 0;
    const int rank = h_.rank(space.id());
    if ((kind != H5T_INTEGER && kind != H5T_FLOAT && !is_complex) || rank < 0 || rank > 2) return;
    hsize_t size[2] = {1, 1};
    h_.dimensions(space.id(), size + (2 - rank), nullptr);
    if (size[0] == 0 || size[1] == 0) return;
    if (size[0] > kMaxValues || size[1] > kMaxValues / size[0])
      fail(path_, quote(name) + " has " + std::to_string(size[0]) + " x " +
                      std::to_string(size[1]) + " values; accepted are " +
                      std::to_string(kMaxValues) + " at most");

    const Object complex(h_, is_complex ? h_.make_type(H5T_COMPOUND, 2 * sizeof(double)) : -1);
    if (is_complex) {
      h_.insert(complex.id(), "real", 0, *h_.native_double);
      h_.insert(complex.id(), "imag", sizeof(double), *h_.native_double);
    }
    const std::size_t count = static_cast<std::size_t>(size[0] * size[1]);
    const std::size_t parts = is_complex ? 2 : 1;
    std::vector<double> values(parts * count);
    if (h_.read(object, is_complex ? complex.id() : *h_.native_double, H5S_ALL, H5S_ALL,
                H5P_DEFAULT, values.data()) < 0)
      fail(path_, "damaged: the values of " + quote(name) + " cannot be read");
    Array array;
    array.name = name;
    array.rows = static_cast<std::size_t>(size[0]);
    array.columns = static_cast<std::size_t>(size[1]);
    const bool by_columns = !matlab.empty() && rank == 2;  // as MATLAB stores them
    if (by_columns) std::swap(array.rows, array.columns);
    for (std::size_t r = 0; r < array.rows; ++r)
      for (std::size_t c = 0; c < array.columns; ++c) {
        const std::size_t at = by_columns ? c * array.rows + r : r * array.columns + c;
        array.values.push_back(values[parts * at]);
        if (is_complex) array.imaginary.push_back(values[parts * at + 1]);
      }
    arrays_.push_back(std::move(array));
  }

  const Hdf5& h_;
  const std::string& path_;
  std::vector<Array> arrays_;
};

}  // namespace

std::vector<Array> read_hdf5(const std::string& path, void* library) {
  Hdf5 loaded{};
  if (!load(library, &loaded) || loaded.start() < 0)
    fail(path, "the HDF5 library, which reads MATLAB files of level 7.3, cannot be loaded");
  return Reader(loaded, path).read();
}

}  // namespace jurn

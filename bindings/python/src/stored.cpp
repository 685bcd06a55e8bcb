// The checksum that stored streams have in common.
#include <cstring>

#include "stream.h"

namespace jurn::python {
namespace {

std::uint32_t checksum(std::string_view data) {
  const auto bytes =
      py::memoryview::from_memory(data.data(), static_cast<py::ssize_t>(data.size()));
  return py::module_::import("zlib").attr("crc32")(bytes).cast<std::uint32_t>();
}

}  // namespace

py::bytes sealed(std::string data) {
  const std::uint32_t sum = checksum(data);
  data.append(reinterpret_cast<const char*>(&sum), sizeof sum);
  return py::bytes(data);
}

std::string_view unsealed(std::string_view data) {
  std::uint32_t sum = 0;
  if (data.size() < sizeof sum) throw py::value_error("data: is cut");
  const std::string_view rest = data.substr(0, data.size() - sizeof sum);
  std::memcpy(&sum, data.data() + rest.size(), sizeof sum);
  if (checksum(rest) != sum) throw py::value_error("data: was altered, or is cut");
  return rest;
}

}  // namespace jurn::python

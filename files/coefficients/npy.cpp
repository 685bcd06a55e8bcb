// Arrays that numpy.save writes.
#include "exact.h"

#include <cstdint>
#include <cstring>

#include "coefficients/parse.h"

namespace jurn {
namespace {

constexpr char kNumPyMagic[] = "\x93NUMPY";

/** The text after a key of the header, which is a Python dictionary in one line. */
std::string_view value_of(const std::string& path, std::string_view header, const char* key) {
  std::size_t at = header.find("'" + std::string(key) + "'");
  if (at != std::string_view::npos) at = header.find(':', at);
  if (at != std::string_view::npos) at = header.find_first_not_of(' ', at + 1);
  if (at == std::string_view::npos)
    fail(path, std::string("damaged: the header of the array has no '") + key + "'");
  return header.substr(at);
}

/** A number whose bytes are put together in the file's order, which need not be the machine's. */
template <typename Value, typename Bits>
double element(const char* at, bool big_endian) {
  static_assert(sizeof(Value) == sizeof(Bits));
  std::uint64_t whole = 0;
  for (std::size_t i = 0; i < sizeof(Value); ++i)
    whole = whole << 8 | static_cast<unsigned char>(at[big_endian ? i : sizeof(Value) - 1 - i]);
  const Bits bits = static_cast<Bits>(whole);
  Value value;
  std::memcpy(&value, &bits, sizeof value);
  return static_cast<double>(value);
}

using Element = double (*)(const char*, bool);

Element element_type(const std::string& path, std::string_view type, bool complex,
                     std::size_t* size) {
  static const struct {
    const char* name;
    Element element;
    std::size_t size;
  } types[] = {{"f8", element<double, std::uint64_t>, 8},
               {"f4", element<float, std::uint32_t>, 4},
               {"i8", element<std::int64_t, std::uint64_t>, 8},
               {"i4", element<std::int32_t, std::uint32_t>, 4},
               {"i2", element<std::int16_t, std::uint16_t>, 2}};
  if (complex && (type.substr(1) == "c16" || type.substr(1) == "c8")) {
    *size = type.substr(1) == "c16" ? 8 : 4;
    return *size == 8 ? element<double, std::uint64_t> : element<float, std::uint32_t>;
  }
  for (const auto& t : types)
    if (type.size() == 3 && (type[0] == '<' || type[0] == '>') && type.substr(1) == t.name) {
      *size = t.size;
      return t.element;
    }
  fail(path, "holds values of the type " + quote(type) +
                 "; accepted are float64, float32 and signed integers");
}

std::vector<std::size_t> parse_shape(const std::string& path, std::string_view text) {
  const std::size_t end = text.find(')');
  if (text[0] != '(' || end == std::string_view::npos)
    fail(path, "damaged: the array has the shape " + quote(text));
  std::vector<std::size_t> shape;
  for (const std::string_view token : split(text.substr(1, end - 1), ", ")) {
    const double length = parse_number(path, 1, token);
    if (!(length >= 0.0 && length < 1e9)) fail(path, "the array has the shape " + quote(text));
    shape.push_back(static_cast<std::size_t>(length));
  }
  if (shape.empty()) shape.push_back(1);
  if (shape.size() > 2)
    fail(path, "the array has the shape " + quote(text.substr(0, end + 1)) +
                   "; accepted are (n,), (2, n) and (L, 6)");
  return shape;
}

/** The text of an array of one text behind the numbers, as export writes it; nothing of others. */
std::string text_of_array(std::string_view bytes) {
  const std::size_t end = bytes.find('\n');
  const bool is_text = bytes.substr(0, 6) == kNumPyMagic && end != std::string_view::npos &&
                       bytes.substr(0, end).find("'descr': '|S") != std::string_view::npos;
  return is_text ? std::string(bytes.substr(end + 1)) : std::string();
}

}  // namespace

std::vector<Array> parse_npy(const std::string& path, std::string_view bytes, bool of_archive) {
  if (bytes.substr(0, 6) != kNumPyMagic) fail(path, "is no .npy file of NumPy");
  const auto byte = [&](std::size_t i) {
    return i < bytes.size() ? static_cast<std::size_t>(static_cast<unsigned char>(bytes[i])) : 0;
  };
  const bool version1 = byte(6) == 1;
  const std::size_t start = version1 ? 10 : 12;
  const std::size_t length =
      byte(8) + (byte(9) << 8) + (version1 ? 0 : (byte(10) << 16) + (byte(11) << 24));
  if (bytes.size() < start || bytes.size() - start < length)
    fail(path, "damaged: the file ends within the header of the array");
  const std::string_view header = bytes.substr(start, length);
  const std::string_view data = bytes.substr(start + length);

  const std::vector<std::string_view> type = split(value_of(path, header, "descr"), "'\",");
  std::size_t size = 0;
  const Element element_at = element_type(path, type.empty() ? "" : type[0], of_archive, &size);
  const bool has_imaginary = !type.empty() && type[0].substr(1, 1) == "c";
  const std::size_t step = has_imaginary ? 2 * size : size;
  const bool fortran = value_of(path, header, "fortran_order").substr(0, 4) == "True";
  const std::vector<std::size_t> shape = parse_shape(path, value_of(path, header, "shape"));

  Array array;
  array.columns = shape.back();
  if (shape.size() == 2) array.rows = shape[0];
  const std::uint64_t count = std::uint64_t{array.rows} * array.columns;
  if (count == 0 && !of_archive) fail(path, "holds no numbers");
  Array mark;
  mark.name = kMarkName;
  if (data.size() / step >= count)
    mark.text = text_of_array(data.substr(static_cast<std::size_t>(count * step)));
  if (mark.text.empty() && data.size() != count * step)
    fail(path, "damaged: " + std::to_string(count) + " values take " +
                   std::to_string(count * step) + " bytes, the file has " +
                   std::to_string(data.size()));
  for (std::size_t r = 0; r < array.rows; ++r)
    for (std::size_t c = 0; c < array.columns; ++c) {
      const std::size_t i = fortran ? c * array.rows + r : r * array.columns + c;
      const bool big_endian = type[0][0] == '>';
      array.values.push_back(element_at(data.data() + i * step, big_endian));
      if (has_imaginary)
        array.imaginary.push_back(element_at(data.data() + i * step + size, big_endian));
    }
  std::vector<Array> arrays = {std::move(array)};
  if (!mark.text.empty()) arrays.push_back(std::move(mark));
  return arrays;
}

/** Whether an array holds text or objects, which can be no coefficients. */
static bool holds_no_numbers(std::string_view content) {
  const std::size_t at = content.find("'descr': '");
  return at != std::string_view::npos && at + 11 < content.size() &&
         std::string_view("USOb?").find(content[at + 11]) != std::string_view::npos;
}

bool is_array(std::string_view name) {
  return name.size() > 4 && name.substr(name.size() - 4) == ".npy";
}

FilterDesign parse_archive(const std::string& path, const std::vector<ArchiveMember>& members,
                           const ReadOptions& options) {
  std::vector<Array> arrays;
  for (const ArchiveMember& member : members) {
    if (!is_array(member.name) || holds_no_numbers(member.content)) continue;
    const std::string name = member.name.substr(0, member.name.size() - 4);
    Array array = parse_npy(path + "(" + name + ")", member.content, true)[0];
    if (array.values.empty()) continue;
    array.name = name;
    arrays.push_back(std::move(array));
  }
  FilterDesign design = design_of(path, arrays, options);
  check_design(path, design, options.limits);
  return design;
}

}  // namespace jurn

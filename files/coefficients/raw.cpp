// Taps without a header, as CamillaDSP takes and other programs write them.
#include <cmath>
#include <cstdint>
#include <cstring>

#include "coefficients/parse.h"

namespace jurn {

std::optional<CoefficientFormat> raw_format_of(std::string_view name) {
  static const struct {
    const char* name;
    CoefficientFormat format;
  } formats[] = {
      {"S16LE", CoefficientFormat::kRawS16},         {"S24LE3", CoefficientFormat::kRawS24In3},
      {"S24LE", CoefficientFormat::kRawS24In4},      {"S32LE", CoefficientFormat::kRawS32},
      {"FLOAT32LE", CoefficientFormat::kRawFloat32}, {"FLOAT64LE", CoefficientFormat::kRawFloat64}};
  for (const auto& f : formats)
    if (name == f.name) return f.format;
  return std::nullopt;
}

std::vector<double> parse_raw(const std::string& path, std::string_view bytes,
                              CoefficientFormat format) {
  const std::size_t size = format == CoefficientFormat::kRawS16       ? 2
                           : format == CoefficientFormat::kRawS24In3  ? 3
                           : format == CoefficientFormat::kRawFloat64 ? 8
                                                                      : 4;
  if (bytes.empty() || bytes.size() % size != 0)
    fail(path, "has " + std::to_string(bytes.size()) + " bytes, which are no whole samples of " +
                   std::to_string(size));
  std::vector<double> taps;
  for (std::size_t at = 0; at < bytes.size(); at += size) {
    std::uint64_t bits = 0;  // little-endian, in the upper bytes
    for (std::size_t k = size; k-- > 0;)
      bits = bits << 8 | static_cast<unsigned char>(bytes[at + k]);
    double value = 0.0;
    if (format == CoefficientFormat::kRawFloat64) {
      std::memcpy(&value, &bits, sizeof value);
    } else if (format == CoefficientFormat::kRawFloat32) {
      const std::uint32_t low = static_cast<std::uint32_t>(bits);
      float single = 0.0f;
      std::memcpy(&single, &low, sizeof single);
      value = static_cast<double>(single);
    } else {
      // 24 bits in four bytes stand in the lower three.
      const int width = format == CoefficientFormat::kRawS16   ? 16
                        : format == CoefficientFormat::kRawS32 ? 32
                                                               : 24;
      const std::uint64_t magnitude = bits & ((std::uint64_t{1} << width) - 1);
      const bool negative = magnitude >> (width - 1);
      value = std::ldexp(static_cast<double>(magnitude), 1 - width) - (negative ? 2.0 : 0.0);
    }
    if (!in_range(value))
      fail(path, "holds " + shown(value) + " as sample " + std::to_string(at / size + 1) +
                     "; is it of another format?");
    taps.push_back(value);
  }
  return taps;
}

}  // namespace jurn

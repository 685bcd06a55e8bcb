// Taps without a header, as CamillaDSP takes and other programs write them.
#include "exact.h"

#include "audio_bytes.h"
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
  // 24 bits in four bytes stand in the lower three.
  SampleBytes written{format == CoefficientFormat::kRawS24In4 ? 3 : static_cast<int>(size)};
  written.is_float =
      format == CoefficientFormat::kRawFloat32 || format == CoefficientFormat::kRawFloat64;
  if (bytes.empty() || bytes.size() % size != 0)
    fail(path, "has " + std::to_string(bytes.size()) + " bytes, which are no whole samples of " +
                   std::to_string(size));
  std::vector<double> taps;
  for (std::size_t at = 0; at < bytes.size(); at += size) {
    const double value = sample_of(bytes.data() + at, written);
    if (!in_range(value))
      fail(path, "holds " + shown(value) + " as sample " + std::to_string(at / size + 1) +
                     "; is it of another format?");
    taps.push_back(value);
  }
  return taps;
}

}  // namespace jurn

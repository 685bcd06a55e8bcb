/* The tool's readers of coefficient files: whatever a file holds, the result is a design within the
 * limit whose numbers a float holds, points that rise, or one line that names the file. The first
 * bytes choose what is wanted and the format. */
#include <string>

#include "../walks/walk.h"
#include "coefficients/formats.h"
#include "coefficients/measurement.h"
#include "errors.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) return 0;
  const jurn::CoefficientFormat formats[] = {
      jurn::CoefficientFormat::kByContent, jurn::CoefficientFormat::kNumbers,
      jurn::CoefficientFormat::kNumPy,     jurn::CoefficientFormat::kHeader,
      jurn::CoefficientFormat::kBiquads,   jurn::CoefficientFormat::kEqualiser,
      jurn::CoefficientFormat::kScalars,   jurn::CoefficientFormat::kRewResponse,
      jurn::CoefficientFormat::kRawS24In3, jurn::CoefficientFormat::kRawFloat32};
  jurn::ReadOptions options;
  if (data[0] % 4 != 3) options.wanted = static_cast<jurn::FilterDesign::Kind>(data[0] % 4);
  const jurn::CoefficientLimit limit = {20, "20, the limit of this test"};
  options.limits = {limit, limit, limit};
  options.format = formats[data[1] % std::size(formats)];
  options.rate = data[0] & 128 ? 48000 : 0;
  if (data[0] & 64) options.variables = {"b", "a"};
  const std::string path = "name";
  try {
    if (data[0] & 32) {  // a measurement
      double before = 0.0;
      for (const jurn::GraphicPoint& point :
           jurn::parse_measurement(path, {reinterpret_cast<const char*>(data) + 2, size - 2})) {
        require(point.frequency > before && std::fabs(point.gain) <= 300.0, "points rise");
        before = point.frequency;
      }
      return 0;
    }
    const jurn::FilterDesign design =
        jurn::parse_design(path, {reinterpret_cast<const char*>(data) + 2, size - 2}, options);
    const size_t most = (design.kind == jurn::FilterDesign::kSections ? 3 : 1) * limit.count;
    require(!design.b.empty() && design.b.size() <= most && design.a.size() <= most,
            "the design keeps the limit");
    for (const auto* values : {&design.b, &design.a})
      for (double x : *values)
        require(std::fabs(x) <= std::numeric_limits<float>::max(), "a float holds every value");
    require(!options.wanted || design.kind == *options.wanted, "the design is of the kind wanted");
    require(design.a.empty() == (design.kind == jurn::FilterDesign::kFir), "only FIRs lack an a");
    if (!design.a.empty()) require(design.a[0] == 1.0, "the denominator starts with 1");
  } catch (const jurn::Error& error) {
    const std::string message = error.what();
    require(message.compare(0, path.size(), path) == 0, "the message starts with the file's name");
    for (char c : message) require(c >= ' ' && c <= '~', "the message is one printable line");
  }
  return 0;
}

#include "exact.h"

#include "designs.h"

#include <optional>
#include <vector>

#include "coefficients/formats.h"
#include "design/prepare_once.h"
#include "design/stability.h"
#include "errors.h"

namespace jurn::bindings {

FilterDesign read_design(const std::string& name, std::string_view content, int rate) {
  const ReadOptions options{
      {}, filter_limits(Precision::kDouble), CoefficientFormat::kByContent, {}, rate};
  FilterDesign design = parse_design(name, content, options);
  check_signs(name, std::nullopt, &design);
  return design;
}

FilterDesign design_of_words(std::string_view lines, int rate) {
  std::vector<std::string> filters(1);
  for (const char c : lines)
    if (c == '\n')
      filters.emplace_back();
    else
      filters.back() += c;
  return parse_equaliser_words(filters, rate);
}

std::shared_ptr<const Prepared> prepared(const FilterDesign& design, int rate,
                                         Precision precision) {
  if (!fits(design, precision))
    throw Error(kUsageError,
                "the filter has more than " + coefficient_limit(design.kind, precision).reason);
  PrepareOptions options;
  options.precision = precision;
  options.result = precision == Precision::kInt16 ? SampleFormat::kInt16 : SampleFormat::kFloat;
  options.rate = rate;
  options.in_blocks = false;
  return prepare_once(design, options);
}

std::string notices_of(const Prepared& prepared) {
  std::string notices;
  for (const Notice& notice : prepared.notices)
    notices += (notice.is_warning() ? "!" : " ") + notice.text + "\n";
  return notices;
}

}  // namespace jurn::bindings

// The marks of exported files: what they hold, and for what precision it was prepared.
#include "exact.h"

#include "coefficients/parse.h"

namespace jurn {

std::optional<Mark> mark_of_comments(std::string_view text) {
  const std::string name = std::string(kMarkName) + ": ";
  for (const std::string_view line : lines_of(text)) {
    const std::size_t begin = line.find_first_not_of("#/ ");
    if (begin == 0 || begin == std::string_view::npos) break;  // no comment
    if (line.substr(begin, name.size()) == name)
      return parse_mark(line.substr(begin + name.size()));
  }
  return std::nullopt;
}

FilterDesign read_marked(const std::string& path, const std::optional<Mark>& mark,
                         const ReadOptions& options,
                         const std::function<FilterDesign(const ReadOptions&)>& read) {
  if (!mark) return read(options);
  static const char* const kinds[] = {"taps, which run with fir",
                                      "numerator and denominator, which run with iir",
                                      "sections, which run with sos"};
  if (options.wanted && *options.wanted != mark->kind)
    fail(path, std::string("holds ") + kinds[mark->kind]);
  ReadOptions as_marked = options;
  as_marked.wanted = mark->kind;
  FilterDesign design = read(as_marked);
  design.prepared = mark->precision;
  return design;
}

}  // namespace jurn

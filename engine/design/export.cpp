#include "exact.h"

#include "design/export.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstring>
#include <vector>

#include "FloatFilter_control.h"
#include "errors.h"
#include "number_text.h"

namespace jurn {
namespace {

/** Rows of equal length: the taps; numerator and denominator; or the sections. */
struct Table {
  std::size_t columns;
  std::vector<double> values;
};

Table table_of(const FilterDesign& design) {
  if (design.kind == FilterDesign::kFir) return {design.b.size(), design.b};
  if (design.kind == FilterDesign::kIir) {
    Table table{std::max(design.b.size(), design.a.size()), {}};
    for (const std::vector<double>* part : {&design.b, &design.a}) {
      table.values.insert(table.values.end(), part->begin(), part->end());
      table.values.resize((part == &design.b ? 1 : 2) * table.columns);
    }
    return table;
  }
  return {6, rows_of_sections(design)};
}

constexpr const char* kKinds[] = {"fir", "iir", "sections"};
constexpr const char* kPrecisions[] = {"int16", "double"};

Mark mark_for(const FilterDesign& design, const ExportOptions& options) {
  return {design.kind, options.precision};
}

std::string comment_of(const Mark& mark) {
  return std::string(kMarkName) + ": " + text_of(mark);
}

std::string literal(double value, Precision precision) {
  std::string text =
      precision == Precision::kInt16 ? number_text(static_cast<float>(value)) : number_text(value);
  if (text.find_first_of(".e") == std::string::npos) text += ".0";
  if (precision == Precision::kInt16) text += "f";
  return text;
}

/** Every line of a text after `prefix`. */
std::string with_prefix(const std::string& text, const std::string& prefix) {
  std::string result;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = std::min(text.find('\n', at), text.size());
    result += prefix + text.substr(at, end - at) + "\n";
    at = end + 1;
  }
  return result;
}

std::string text_file(const FilterDesign& design, const ExportOptions& options) {
  std::string out = with_prefix(options.remark, "# ");
  out += with_prefix(comment_of(mark_for(design, options)), "# ");
  // Also of floats all digits of the double: it is read as one, and a double beside the float would
  // be another design, which may be prepared otherwise.
  const auto line = [&](const double* values, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) out += (i ? " " : "") + number_text(values[i]);
    out += "\n";
  };
  if (design.kind == FilterDesign::kFir) {
    for (const double& tap : design.b) line(&tap, 1);
  } else if (design.kind == FilterDesign::kIir) {
    line(design.b.data(), design.b.size());
    line(design.a.data(), design.a.size());
  } else {
    const Table table = table_of(design);
    for (std::size_t at = 0; at < table.values.size(); at += 6) line(&table.values[at], 6);
  }
  return out;
}

void append_little_endian(std::uint64_t bits, int bytes, std::string* out) {
  for (int i = 0; i < bytes; ++i) out->push_back(static_cast<char>(bits >> (8 * i) & 255));
}

void append(double value, std::string* out) {
  std::uint64_t bits;
  std::memcpy(&bits, &value, sizeof bits);
  append_little_endian(bits, 8, out);
}

std::string numpy_header(const std::string& type, const std::string& shape) {
  std::string header =
      "{'descr': '" + type + "', 'fortran_order': False, 'shape': (" + shape + "), }";
  header.resize((header.size() + 10 + 63) / 64 * 64 + 64 - 10, ' ');
  header.back() = '\n';
  std::string out = "\x93NUMPY";
  out += '\x01';
  out += '\0';
  out += static_cast<char>(header.size() & 255);
  out += static_cast<char>(header.size() >> 8);
  return out + header;
}

std::string numpy_file(const FilterDesign& design, const ExportOptions& options) {
  const Table table = table_of(design);
  std::string shape = std::to_string(table.columns) + ",";
  if (design.kind != FilterDesign::kFir)
    shape =
        std::to_string(table.values.size() / table.columns) + ", " + std::to_string(table.columns);
  std::string out = numpy_header("<f8", shape);
  for (const double value : table.values) append(value, &out);
  const std::string mark = text_of(mark_for(design, options));
  return out + numpy_header("|S" + std::to_string(mark.size()), "") + mark;
}

/** One matrix of level 4: five integers, the name, and the values column by column, doubles for
 * numbers and for text. */
void append_matrix(const std::string& name, std::size_t rows, const std::vector<double>& values,
                   std::string* out, bool is_text = false) {
  const std::size_t columns = values.size() / rows;
  for (const std::size_t x : {std::size_t{is_text}, rows, columns, std::size_t{0}, name.size() + 1})
    append_little_endian(x, 4, out);
  out->append(name.c_str(), name.size() + 1);
  for (std::size_t c = 0; c < columns; ++c)
    for (std::size_t r = 0; r < rows; ++r) append(values[r * columns + c], out);
}

std::string matlab_file(const FilterDesign& design, const ExportOptions& options) {
  std::string out;
  if (design.kind == FilterDesign::kSections) {
    const Table table = table_of(design);
    append_matrix("sos", table.values.size() / 6, table.values, &out);
  } else {
    append_matrix("b", 1, design.b, &out);
    if (design.kind == FilterDesign::kIir) append_matrix("a", 1, design.a, &out);
  }
  const std::string mark = text_of(mark_for(design, options));
  append_matrix(kMarkName, 1, {mark.begin(), mark.end()}, &out, true);
  return out;
}

/** Replaces @name@, @NAME@ and @type@. */
std::string filled_in(std::string text, const ExportOptions& options) {
  std::string upper = options.name;
  for (char& c : upper) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  const std::pair<const char*, std::string> values[] = {
      {"@name@", options.name},
      {"@NAME@", upper},
      {"@type@", options.precision == Precision::kInt16 ? "float" : "double"}};
  for (const auto& [key, value] : values)
    for (std::size_t at = 0; (at = text.find(key, at)) != std::string::npos; at += value.size())
      text.replace(at, std::strlen(key), value);
  return text;
}

std::string array_of(const std::string& name, const std::vector<double>& values,
                     std::size_t columns, const ExportOptions& options) {
  const bool two_dimensions = columns != 0;
  std::string out = "static const @type@ @name@_" + name + "[" +
                    std::to_string(two_dimensions ? values.size() / columns : values.size()) + "]";
  if (two_dimensions) out += "[" + std::to_string(columns) + "]";
  out += " = {\n";
  const std::size_t per_line = two_dimensions ? columns : 4;
  for (std::size_t i = 0; i < values.size(); ++i) {
    const bool first = i % per_line == 0, last = (i + 1) % per_line == 0 || i + 1 == values.size();
    out += first ? (two_dimensions ? "    {" : "    ") : " ";
    out += literal(values[i], options.precision);
    if (last && two_dimensions) out += "}";
    out += i + 1 == values.size() ? "};\n" : last ? ",\n" : ",";
  }
  return out;
}

const char* kind_of(FilterDesign::Kind kind) {
  return kind == FilterDesign::kSections ? "JURN_CASCADE"
         : kind == FilterDesign::kIir    ? "JURN_IIR"
                                         : "JURN_FIR";
}

const char kInt16Setup[] =
    "/** Configures a filter for JURN_MONO or JURN_STEREO channels and clears it. */\n"
    "static inline void @name@_setup(Filter_ID* filter, int channels) {\n"
    "  memset(filter, 0, sizeof *filter);\n"
    "  filter->chanel = channels;\n";

const char kInt16Run[] =
    "}\n\n"
    "/** Filters a block of `frames` frames, of the same length every time; output may be input. "
    "*/\n"
    "static inline void @name@_run(Filter_ID* filter, const short* input, int frames,\n"
    "                              short* output) {\n"
    "  MORVAX_FilterRun_API(filter, input, frames * filter->chanel, output);\n"
    "}\n";

const char kDoubleSetup[] =
    "/** Configures @name@_filters records for one channel and clears them. */\n"
    "static inline void @name@_setup(Filterf_ID filters[@name@_filters]) {\n"
    "  memset(filters, 0, @name@_filters * sizeof *filters);\n";

const char kDoubleRun[] =
    "}\n\n"
    "/** Filters a block of one channel, of the same length every time; output may be input. */\n"
    "static inline void @name@_run(Filterf_ID filters[@name@_filters], const float* input,\n"
    "                              int frames, float* output) {\n"
    "  MORVAX_FilterfRun_API(&filters[0], input, frames, output);\n"
    "  for (int k = 1; k < @name@_filters; ++k)\n"
    "    MORVAX_FilterfRun_API(&filters[k], output, frames, output);\n"
    "}\n";

std::string header_file(const FilterDesign& design, const ExportOptions& options) {
  const bool int16 = options.precision == Precision::kInt16;
  const bool sections = design.kind == FilterDesign::kSections;
  const bool iir = design.kind == FilterDesign::kIir;
  const std::string count = std::to_string(design.b.size() / 3);
  const std::size_t longest = std::max(design.b.size(), design.a.size());
  if (!int16 && !sections && longest > JURN_FLOAT_COEFFICIENTS)
    throw Error(kUsageError,
                "the library's record of float streams, which a C header fills, takes " +
                    std::to_string(JURN_FLOAT_COEFFICIENTS) + " coefficients, not " +
                    std::to_string(longest) + "; .npy, .mat and text take more");
  std::string out = with_prefix(options.remark, "// ");
  out += with_prefix(comment_of(mark_for(design, options)), "// ");
  out +=
      "#ifndef @NAME@_FILTER_H\n#define @NAME@_FILTER_H\n\n#include <string.h>\n\n"
      "#include \"Filter_control.h\"\n\n";
  if (sections) {
    out += "// Sections: b0, b1, b2, 1, a1, a2.\n";
    out += array_of("sections", table_of(design).values, 6, options);
  } else {
    out += array_of("b", design.b, 0, options);
    if (iir) out += array_of("a", design.a, 0, options);
  }
  out += "\n";
  if (int16) {
    out += kInt16Setup;
    out += std::string("  filter->filtertype = ") + kind_of(design.kind) + ";\n";
  } else {
    out += "enum { @name@_filters = " + (sections ? count : "1") + " };\n\n";
    out += kDoubleSetup;
  }
  const std::string target = int16 ? "filter->" : "filters[0].";
  if (sections) {
    if (int16) out += "  filter->n = 2;\n  filter->ns = " + count + ";\n";
    out += "  for (int k = 0; k < " + count + "; ++k) {\n";
    for (const char* part : {"b", "a"})
      out += std::string("    memcpy(") +
             (int16 ? "filter->" + std::string(part) + " + 3 * k"
                    : "filters[k]." + std::string(part)) +
             ", @name@_sections[k]" + (*part == 'b' ? "" : " + 3") + ", 3 * sizeof(@type@));\n";
    if (!int16) {
      out += "    filters[k].filtertype = JURN_IIR;\n";
      out += "    filters[k].blen = filters[k].alen = 3;\n";
    }
    out += "  }\n";
  } else {
    if (!int16) out += std::string("  filters[0].filtertype = ") + kind_of(design.kind) + ";\n";
    for (const char* part : {"b", "a"}) {
      if (*part == 'a' && !iir) continue;
      const std::size_t length = *part == 'b' ? design.b.size() : design.a.size();
      out += "  memcpy(" + target + part + ", @name@_" + part + ", sizeof @name@_" + part +
             ");\n  " + target + part + "len = " + std::to_string(length) + ";\n";
    }
  }
  out += int16 ? kInt16Run : kDoubleRun;
  out += "\n#endif\n";
  return filled_in(std::move(out), options);
}

}  // namespace

std::string text_of(const Mark& mark) {
  return std::string(kKinds[mark.kind]) + ", " + kPrecisions[static_cast<int>(mark.precision)];
}

std::optional<Mark> parse_mark(std::string_view text) {
  for (const auto kind : {FilterDesign::kFir, FilterDesign::kIir, FilterDesign::kSections})
    for (const auto precision : {Precision::kInt16, Precision::kDouble}) {
      const Mark mark{kind, precision};
      const std::string words = text_of(mark);
      if (text.substr(0, words.size()) == words) return mark;
    }
  return std::nullopt;
}

std::string export_design(const FilterDesign& design, ExportFormat format,
                          const ExportOptions& options) {
  switch (format) {
    case ExportFormat::kHeader:
      return header_file(design, options);
    case ExportFormat::kNumPy:
      return numpy_file(design, options);
    case ExportFormat::kMatlab:
      return matlab_file(design, options);
    default:
      return text_file(design, options);
  }
}

std::string identifier_of(const std::string& name) {
  std::string result;
  for (const char c : name) {
    const bool letter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
    if (result.empty() && c >= '0' && c <= '9') result = "filter_";
    result += letter || (c >= '0' && c <= '9') ? c : '_';
  }
  return result.empty() ? "filter" : result;
}

}  // namespace jurn

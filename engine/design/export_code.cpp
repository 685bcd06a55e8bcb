#include "exact.h"

#include "design/export_code.h"

#include <cstddef>
#include <utility>
#include <vector>

#include "errors.h"
#include "number_text.h"

namespace jurn {
namespace {

std::string literal(double value) {
  std::string text = number_text(static_cast<float>(value));
  if (text.find_first_of(".e") == std::string::npos) text += ".0";
  return text + "f";
}

std::string list_of(const std::vector<double>& values) {
  std::string list;
  for (const double value : values) list += (list.empty() ? "" : ", ") + number_text(value);
  return list;
}

/** One section after another, six numbers each; a direct form of second order is one. */
std::vector<std::vector<double>> sections_of(const FilterDesign& design, const char* format) {
  std::vector<std::vector<double>> sections;
  const bool direct = design.kind == FilterDesign::kIir;
  if (direct && (design.b.size() > 3 || design.a.size() > 3))
    throw Error(kInputError, std::string(format) +
                                 " takes sections of second order, and this is a direct form of a "
                                 "higher one");
  for (std::size_t k = 0; k < (direct ? 1 : design.b.size()); k += 3) {
    std::vector<double> section(6);
    for (std::size_t i = 0; i < 3; ++i) {
      if (k + i < design.b.size()) section[i] = design.b[k + i];
      if (k + i < design.a.size()) section[3 + i] = design.a[k + i];
    }
    sections.push_back(std::move(section));
  }
  return sections;
}

/** With the name and the counts in the place of @...@. */
std::string filled_in(std::string text, const std::string& name, std::size_t count) {
  for (const auto& [mark, value] :
       {std::pair<const char*, std::string>{"@name@", name}, {"@count@", std::to_string(count)}})
    for (std::size_t at = 0; (at = text.find(mark)) != std::string::npos;)
      text.replace(at, std::char_traits<char>::length(mark), value);
  return text;
}

std::string cmsis_of(const FilterDesign& design, const std::string& name) {
  if (design.kind == FilterDesign::kFir) {
    std::string taps;
    // In the order of CMSIS-DSP: the last one first.
    for (std::size_t i = design.b.size(); i-- > 0;)
      taps += "    " + literal(design.b[i]) + (i ? ",\n" : "\n");
    return filled_in(
        "#include \"arm_math.h\"\n\n"
        "/* The taps, the last one first. */\n"
        "static const float32_t @name@_taps[@count@] = {\n" +
            taps +
            "};\n\n"
            "/* For blocks of block_size frames of one channel; state has @count@ + block_size - 1 "
            "floats.\n"
            " * Then arm_fir_f32(filter, input, output, block_size). */\n"
            "static inline void @name@_init(arm_fir_instance_f32* filter, float32_t* state,\n"
            "                               uint32_t block_size) {\n"
            "  arm_fir_init_f32(filter, @count@, @name@_taps, state, block_size);\n"
            "}\n",
        name, design.b.size());
  }
  const auto sections = sections_of(design, "CMSIS-DSP");
  std::string lines;
  for (const std::vector<double>& s : sections)
    lines += "    " + literal(s[0]) + ", " + literal(s[1]) + ", " + literal(s[2]) + ", " +
             literal(-s[4]) + ", " + literal(-s[5]) + ",\n";
  return filled_in(
      "#include \"arm_math.h\"\n\n"
      "/* Sections: b0, b1, b2, -a1, -a2, as CMSIS-DSP adds the feedback. */\n"
      "static const float32_t @name@_sections[5 * @count@] = {\n" +
          lines +
          "};\n\n"
          "/* For one channel; state has 2 * @count@ floats. Then\n"
          " * arm_biquad_cascade_df2T_f32(filter, input, output, block_size). */\n"
          "static inline void @name@_init(arm_biquad_cascade_df2T_instance_f32* filter, float32_t* "
          "state) {\n"
          "  arm_biquad_cascade_df2T_init_f32(filter, @count@, @name@_sections, state);\n"
          "}\n",
      name, sections.size());
}

std::string web_audio_of(const FilterDesign& design, const std::string& name, int rate) {
  const std::string head = "// For an AudioContext of " + std::to_string(rate) + " Hz.\n";
  if (design.kind == FilterDesign::kFir)
    return filled_in(
        head +
            "export function @name@(context) {\n"
            "  const taps = [" +
            list_of(design.b) +
            "];\n"
            "  const buffer = new AudioBuffer({ length: @count@, sampleRate: context.sampleRate "
            "});\n"
            "  buffer.copyToChannel(Float32Array.from(taps), 0);\n"
            "  return new ConvolverNode(context, { buffer, disableNormalization: true });\n"
            "}\n",
        name, design.b.size());
  std::vector<std::vector<double>> b, a;
  if (design.kind == FilterDesign::kIir) {
    if (design.b.size() > 20 || design.a.size() > 20)
      throw Error(kInputError, "an IIRFilterNode takes up to 20 coefficients");
    b.push_back(design.b);
    a.push_back(design.a);
  } else {
    for (const std::vector<double>& s : sections_of(design, "Web Audio")) {
      b.emplace_back(s.begin(), s.begin() + 3);
      a.emplace_back(s.begin() + 3, s.end());
    }
  }
  std::string lines;
  for (std::size_t k = 0; k < b.size(); ++k)
    lines += "    [[" + list_of(b[k]) + "], [" + list_of(a[k]) + "]],\n";
  return filled_in(head +
                       "// The nodes in their order: connect the source to the first; the last one "
                       "is connected on.\n"
                       "export function @name@(context) {\n"
                       "  const nodes = [\n" +
                       lines +
                       "  ].map(([feedforward, feedback]) => new IIRFilterNode(context, { "
                       "feedforward, feedback }));\n"
                       "  nodes.reduce((before, node) => before.connect(node));\n"
                       "  return nodes;\n"
                       "}\n",
                   name, b.size());
}

std::string equaliser_of(const FilterDesign& design, int rate) {
  if (design.kind == FilterDesign::kFir)
    throw Error(kInputError, "equalisers have no lines for the taps of an FIR");
  std::string lines = "# For a sample rate of " + std::to_string(rate) + " Hz.\n";
  for (const std::vector<double>& s : sections_of(design, "an equaliser")) {
    lines += "Filter: ON IIR Order 2 Coefficients";
    for (const double value : s) lines += " " + number_text(value);
    lines += "\n";
  }
  return lines;
}

}  // namespace

std::string code_of(const FilterDesign& design, CodeFormat format, const std::string& name,
                    int rate) {
  switch (format) {
    case CodeFormat::kCmsis:
      return cmsis_of(design, name);
    case CodeFormat::kWebAudio:
      return web_audio_of(design, name, rate);
    default:
      return equaliser_of(design, rate);
  }
}

}  // namespace jurn

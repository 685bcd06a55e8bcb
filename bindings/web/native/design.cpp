// What the WebAssembly module of the designs exports: coefficient files read from memory, designs
// prepared and looked at. Results are JSON.
#include <cmath>
#include <complex>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "audio_bytes.h"
#include "coefficients/formats.h"
#include "coefficients/measurement.h"
#include "design/by_family.h"
#include "design/export.h"
#include "design/export_code.h"
#include "design/frequency_response.h"
#include "design/prepare.h"
#include "design/roots.h"
#include "design/spectrum.h"
#include "design/stability.h"
#include "refuse.h"
#include "result.h"

#define EXPORT extern "C" __attribute__((used, visibility("default")))

namespace {

jurn::Precision precision_of(int int16) {
  return int16 ? jurn::Precision::kInt16 : jurn::Precision::kDouble;
}

FilterDesign design_of(int kind, const double* b, int b_count, const double* a, int a_count) {
  return {static_cast<FilterDesign::Kind>(kind), {b, b + b_count}, {a, a + a_count}};
}

jurn::ReadOptions options_of(int wanted, int int16, int rate) {
  jurn::ReadOptions options{
      {}, jurn::filter_limits(precision_of(int16)), jurn::CoefficientFormat::kByContent, {}, rate};
  if (wanted >= 0) options.wanted = static_cast<FilterDesign::Kind>(wanted);
  return options;
}

/** The text of a design that was read. A negative `negate` refuses what looks turned. */
const char* read_design(const std::string& path, FilterDesign design, int negate) {
  jurn::check_signs(path, negate < 0 ? std::nullopt : std::optional<bool>(negate > 0), &design);
  text.clear();
  append_design(design);
  return text.c_str();
}

/** The recording of jurn_find_audio. The first three are part of the interface. */
struct Found {
  int rate, channels;
  unsigned frames;
  jurn::AudioBytes audio;
} found;

}  // namespace

EXPORT void* jurn_allocate(int bytes) {
  return std::malloc(static_cast<std::size_t>(bytes));
}

EXPORT void jurn_free(void* memory) {
  std::free(memory);
}

/** Coefficients that an array may have. */
EXPORT int jurn_most_coefficients(int kind, int int16) {
  const auto design = static_cast<FilterDesign::Kind>(kind);
  const std::size_t most = jurn::coefficient_limit(design, precision_of(int16)).count;
  return static_cast<int>(most) * (design == FilterDesign::kSections ? 3 : 1);
}

/** Reads a coefficient file, within what filters of the precision take. `name` and the bytes are
 * not ended by a zero; a negative `wanted` is whatever the file holds. `negate` says whether to
 * turn the signs of the feedback; negative: what looks turned is refused. */
EXPORT const char* jurn_parse(const char* name, int name_length, const char* bytes, int length,
                              int wanted, int int16, int rate, int negate) {
  const std::string path(name, static_cast<std::size_t>(name_length));
  const std::string_view content(bytes, static_cast<std::size_t>(length));
  return read_design(path, jurn::parse_design(path, content, options_of(wanted, int16, rate)),
                     negate);
}

/** The same of a .npz archive: of each member `lengths` has the bytes of its name and of its
 * content, which follow one another in `members`. */
EXPORT const char* jurn_parse_archive(const char* name, int name_length, const char* members,
                                      const int* lengths, int count, int wanted, int int16,
                                      int rate, int negate) {
  std::vector<jurn::ArchiveMember> list;
  const auto take = [&](int length) {
    members += length;
    return std::string(members - length, members);
  };
  for (int i = 0; i < count; ++i, lengths += 2) {
    std::string member = take(lengths[0]);
    list.push_back({std::move(member), take(lengths[1])});
  }
  const std::string path(name, static_cast<std::size_t>(name_length));
  return read_design(path, jurn::parse_archive(path, list, options_of(wanted, int16, rate)),
                     negate);
}

/** The filters of single channels in an equaliser's text, as steps for so many channels; null where
 * the text filters all channels alike. */
EXPORT const char* jurn_parse_channels(const char* name, int name_length, const char* bytes,
                                       int length, int channels, int rate) {
  const std::string path(name, static_cast<std::size_t>(name_length));
  const std::string_view content(bytes, static_cast<std::size_t>(length));
  text = "null";
  if (!jurn::names_channels(content)) return text.c_str();
  const jurn::Setup setup =
      jurn::parse_equaliser_setup(path, content, channels, options_of(-1, 0, rate));
  text = "[";
  for (const jurn::SetupStep& step : setup.steps) {
    if (step.design.kind != FilterDesign::kSections)
      throw std::runtime_error(
          path +
          ": has GraphicEQ or linear filters for single channels, which setup of "
          "jurn-filter runs");
    text += text.size() > 1 ? ",{" : "{";
    append_numbers("channels", {step.channels.begin(), step.channels.end()});
    text += ",\"design\":";
    append_design(step.design);
    text += '}';
  }
  text += ']';
  return text.c_str();
}

/** The recording in a file: rate, channels and frames; null where there is none that the engine
 * reads. The bytes stay the caller's, for jurn_read_audio. */
EXPORT const Found* jurn_find_audio(const char* name, int name_length, const char* bytes,
                                    unsigned length) {
  const std::optional<jurn::AudioBytes> audio = jurn::find_audio(
      std::string(name, static_cast<std::size_t>(name_length)), std::string_view(bytes, length));
  if (!audio) return nullptr;
  found = {audio->rate, audio->channels, static_cast<unsigned>(audio->length()), *audio};
  return &found;
}

/** Samples of a channel as floats. Those that are no finite numbers become 0; returns how many. */
EXPORT int jurn_read_audio(unsigned first, unsigned count, int channel, float* samples) {
  int bad = 0;
  for (unsigned i = 0; i < count; ++i) {
    const float sample = static_cast<float>(found.audio.at(first + i, channel));
    bad += !std::isfinite(sample);
    samples[i] = std::isfinite(sample) ? sample : 0.0f;
  }
  return bad;
}

/** `prepared` says for what the design was prepared before: 0 for double, 1 for 16 bits; negative:
 * for nothing. */
EXPORT const char* jurn_prepare(int kind, const double* b, int b_count, const double* a,
                                int a_count, int int16, int prepared) {
  jurn::PrepareOptions options;
  options.precision = precision_of(int16);
  FilterDesign design = design_of(kind, b, b_count, a, a_count);
  if (prepared >= 0) design.prepared = precision_of(prepared);
  const jurn::Prepared result = jurn::prepare(design, options);
  text = "{\"design\":";
  append_design(result.design);
  text += ",\"stable\":";
  text += result.stable ? "true" : "false";
  text += ",\"poleRadius\":";
  append_number(result.pole_radius);
  text += ",\"expectedError\":";
  append_number(result.expected_error);
  text += ",\"notices\":[";
  for (std::size_t i = 0; i < result.notices.size(); ++i) {
    text += i > 0 ? ",{\"text\":" : "{\"text\":";
    append_string(result.notices[i].text);
    text += result.notices[i].is_warning() ? ",\"warning\":true}" : ",\"warning\":false}";
  }
  text += "]}";
  return text.c_str();
}

/** What a design is, in words. */
EXPORT const char* jurn_describe(int kind, const double* b, int b_count, const double* a,
                                 int a_count) {
  text = jurn::description_of(design_of(kind, b, b_count, a, a_count));
  return text.c_str();
}

EXPORT const char* jurn_roots(int kind, const double* b, int b_count, const double* a,
                              int a_count) {
  const FilterDesign design = design_of(kind, b, b_count, a, a_count);
  text = "{";
  append_roots("zeros", jurn::roots_of(design, design.b));
  text += ',';
  append_roots("poles", design.a.empty() ? std::vector<std::complex<double>>()
                                         : jurn::roots_of(design, design.a));
  text += '}';
  return text.c_str();
}

EXPORT const char* jurn_peak_gain(int kind, const double* b, int b_count, const double* a,
                                  int a_count) {
  text.clear();
  append_number(jurn::peak_gain(design_of(kind, b, b_count, a, a_count)));
  return text.c_str();
}

/** A design of a family, by the numbers of FamilyDesign in their order. */
EXPORT const char* jurn_design(const double* numbers, int rate) {
  const auto whole = [&] { return static_cast<int>(*numbers++); };
  jurn::FamilyDesign f;
  f.family = static_cast<jurn::Family>(whole());
  f.order = whole();
  f.corners.pass = static_cast<jurn::Pass>(whole());
  f.corners.low = *numbers++;
  f.corners.high = *numbers++;
  f.ripple = *numbers++;
  f.attenuation = *numbers++;
  f.window = static_cast<jurn::Window>(whole());
  f.beta = *numbers++;
  f.transition = *numbers++;
  f.weight = *numbers++;
  text.clear();
  append_design(jurn::design_of_family(f, rate));
  return text.c_str();
}

/** Whether a text is an equaliser already, and no measurement of anything. */
EXPORT int jurn_holds_equaliser(const char* bytes, int length) {
  return jurn::holds_equaliser({bytes, static_cast<std::size_t>(length)});
}

/** An equaliser for a measurement, by the numbers of FitOptions in their order; without a name of
 * the target it is flat. */
EXPORT const char* jurn_fit(const char* name, int name_length, const char* bytes, int length,
                            const char* target_name, int target_name_length,
                            const char* target_bytes, int target_length, const double* numbers) {
  const auto points = [](const char* path, int path_length, const char* content, int size) {
    return jurn::parse_measurement({path, static_cast<std::size_t>(path_length)},
                                   {content, static_cast<std::size_t>(size)});
  };
  jurn::FitOptions options;
  options.rate = static_cast<int>(*numbers++);
  options.bands = static_cast<int>(*numbers++);
  options.most_gain = *numbers++;
  options.most_q = *numbers++;
  options.lowest = *numbers++;
  options.highest = *numbers++;
  const jurn::Fit fit = jurn::fit_equaliser(
      points(name, name_length, bytes, length),
      target_name_length ? points(target_name, target_name_length, target_bytes, target_length)
                         : jurn::flat_target(),
      options);
  text = "{\"bands\":[";
  for (const jurn::EqualiserFilter& f : fit.filters) {
    text += text.back() == '[' ? "{" : ",{";
    text += f.type == jurn::EqualiserType::kPeak       ? "\"type\":\"PK\""
            : f.type == jurn::EqualiserType::kLowShelf ? "\"type\":\"LSC\""
                                                       : "\"type\":\"HSC\"";
    for (const auto& [key, value] :
         {std::pair{"frequency", f.frequency}, std::pair{"gain", f.gain}, std::pair{"q", f.q}}) {
      text += std::string(",\"") + key + "\":";
      append_number(value);
    }
    text += '}';
  }
  text += "],\"preamp\":";
  append_number(fit.preamp);
  text += ",\"rms\":";
  append_number(fit.after.rms);
  text += ",\"largest\":";
  append_number(fit.after.largest);
  text += ",\"text\":";
  append_string(jurn::text_of(fit));
  text += ",\"summary\":";
  append_string(jurn::summary_of(fit));
  for (const auto& [key, values] :
       {std::pair{"frequency", &fit.frequency}, std::pair{"measured", &fit.measured},
        std::pair{"target", &fit.target}, std::pair{"corrected", &fit.corrected}}) {
    text += ',';
    append_numbers(key, *values);
  }
  text += '}';
  return text.c_str();
}

/** What an impulse and a step become, until the first has decayed. */
EXPORT const char* jurn_time_responses(int kind, const double* b, int b_count, const double* a,
                                       int a_count) {
  const std::vector<double> impulse =
      jurn::impulse_response(design_of(kind, b, b_count, a, a_count));
  std::vector<double> step;
  double sum = 0.0;
  for (const double x : impulse) step.push_back(sum += x);
  text = "{";
  append_numbers("impulse", impulse);
  text += ',';
  append_numbers("step", step);
  text += '}';
  return text.c_str();
}

/** The design as it stands for other programs, by the numbers of CodeFormat. */
EXPORT const char* jurn_code(int kind, const double* b, int b_count, const double* a, int a_count,
                             int format, const char* name, int name_length, int rate) {
  text = jurn::code_of(
      design_of(kind, b, b_count, a, a_count), static_cast<jurn::CodeFormat>(format),
      jurn::identifier_of(std::string(name, static_cast<std::size_t>(name_length))), rate);
  return text.c_str();
}

/** Bytes of the last result. */
EXPORT unsigned jurn_length() {
  return static_cast<unsigned>(text.size());
}

/** A file of the design as it runs, by the numbers of ExportFormat. `name` is made an identifier.
 */
EXPORT const char* jurn_export(int kind, const double* b, int b_count, const double* a, int a_count,
                               int int16, int format, const char* name, int name_length) {
  jurn::ExportOptions options;
  options.precision = precision_of(int16);
  options.name = jurn::identifier_of(std::string(name, static_cast<std::size_t>(name_length)));
  text = jurn::export_design(design_of(kind, b, b_count, a, a_count),
                             static_cast<jurn::ExportFormat>(format), options);
  return text.c_str();
}

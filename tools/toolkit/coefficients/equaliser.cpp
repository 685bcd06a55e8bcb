// Room correction programs: lists of biquads, and the lines of parametric equalisers.
#include <algorithm>
#include <cctype>
#include <cmath>
#include <iterator>

#include "coefficients/parse.h"
#include "design/equaliser.h"
#include "units.h"

namespace tool {
namespace {

const char* const kSpace = " \t\v\f";

std::string_view without_space(std::string_view text) {
  const std::size_t first = text.find_first_not_of(kSpace);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kSpace) - first + 1);
}

using Type = EqualiserType;

const struct {
  const char* name;
  Type type;
} kTypes[] = {
    {"pk", Type::kPeak},       {"peq", Type::kPeak},      {"ls", Type::kLowShelf},
    {"lsc", Type::kLowShelf},  {"lsq", Type::kLowShelf},  {"hs", Type::kHighShelf},
    {"hsc", Type::kHighShelf}, {"hsq", Type::kHighShelf}, {"lp", Type::kLowPass},
    {"lpq", Type::kLowPass},   {"hp", Type::kHighPass},   {"hpq", Type::kHighPass},
    {"bp", Type::kBandPass},   {"no", Type::kNotch},      {"ap", Type::kAllPass},
};

bool has_gain(Type type) {
  return type == Type::kPeak || type == Type::kLowShelf || type == Type::kHighShelf;
}

bool needs_width(Type type) {
  return type == Type::kPeak || type == Type::kBandPass || type == Type::kNotch ||
         type == Type::kAllPass;
}

/** "-3 dB" after its keyword: a number, perhaps with its unit attached or as the next word. */
double quantity(const std::string& path, int line, const std::vector<std::string_view>& words,
                std::size_t* at, const std::string& keyword, const std::string& unit) {
  if (*at >= words.size()) fail(path, line, quote(keyword) + " ends without a number");
  std::string_view word = words[(*at)++];
  const std::string text = lower(word);
  double factor = 1.0;
  const auto take_unit = [&](std::string_view end) {
    if (text.size() <= end.size() || text.compare(text.size() - end.size(), end.size(), end) != 0)
      return false;
    word.remove_suffix(end.size());
    return true;
  };
  bool has_unit = false;
  if (unit == "hz" && take_unit("khz")) {
    factor = 1000.0;
    has_unit = true;
  } else if (!unit.empty()) {
    has_unit = take_unit(unit);
  }
  const double value = parse_number(path, line, word);
  if (!has_unit && !unit.empty() && *at < words.size()) {
    const std::string next = lower(words[*at]);
    if (next == "k" + unit) factor = 1000.0;
    *at += next == unit || (unit == "hz" && next == "khz");
  }
  return factor * value;
}

void check_filter(const std::string& path, int line, const EqualiserFilter& f,
                  const std::string& type, int rate) {
  if (!(f.frequency > 0.0 && f.frequency < rate / 2.0))
    fail(path, line,
         "Fc " + shown(f.frequency) + " Hz: at " + std::to_string(rate) +
             " Hz a frequency has to lie between 0 and " + shown(rate / 2.0) + " Hz");
  if (f.q < 0.0 || f.octaves < 0.0 || f.q > 1e6 || f.octaves > 100.0)
    fail(path, line,
         f.octaves != 0.0 ? "BW Oct " + shown(f.octaves) + ": accepted is 0 to 100"
                          : "Q " + shown(f.q) + ": accepted is 0 to 1000000");
  if (std::abs(f.gain) > 200.0)
    fail(path, line, "Gain " + shown(f.gain) + " dB: accepted is -200 to 200");
  if (needs_width(f.type) && f.q == 0.0 && f.octaves == 0.0)
    fail(path, line, "a filter of the type " + type + " needs Q, or BW Oct, above 0");
}

/** The part of a line behind "Filter N:". */
void parse_filter(const std::string& path, int line, std::string_view text, int rate,
                  std::vector<double>* out) {
  const std::vector<std::string_view> words = split(text, kSpace);
  const std::string state = words.empty() ? "" : lower(words[0]);
  if (state == "off") return;
  if (state != "on")
    fail(path, line, quote(words.empty() ? "" : words[0]) + " where a filter says ON or OFF");
  if (words.size() < 2 || lower(words[1]) == "none") return;
  const auto found = std::find_if(std::begin(kTypes), std::end(kTypes),
                                  [&](const auto& t) { return lower(words[1]) == t.name; });
  if (found == std::end(kTypes))
    fail(path, line,
         quote(words[1]) +
             " is no known type; accepted are PK, LS, LSC, HS, HSC, LP, HP, BP, NO and AP");
  EqualiserFilter f;
  f.type = found->type;
  bool gain = false;
  for (std::size_t at = 2; at < words.size();) {
    const std::string word = lower(words[at++]);
    if (word == "fc") {
      f.frequency = quantity(path, line, words, &at, "Fc", "hz");
    } else if (word == "gain") {
      f.gain = quantity(path, line, words, &at, "Gain", "db");
      gain = true;
    } else if (word == "q") {
      f.q = quantity(path, line, words, &at, "Q", "");
    } else if (word == "bw" && at < words.size() && lower(words[at]) == "oct") {
      ++at;
      f.octaves = quantity(path, line, words, &at, "BW Oct", "");
    } else {
      fail(path, line,
           quote(words[at - 1]) + " is not understood; accepted are Fc, Gain, Q and BW Oct");
    }
  }
  if (has_gain(f.type) && !gain)
    fail(path, line, "a filter of the type " + std::string(words[1]) + " needs Gain");
  if (!has_gain(f.type)) f.gain = 0.0;
  check_filter(path, line, f, std::string(words[1]), rate);
  append_sections(f, rate, out);
}

bool is_one_of(const std::string& text, std::initializer_list<const char*> names) {
  return std::find(names.begin(), names.end(), text) != names.end();
}

}  // namespace

std::vector<double> parse_equaliser(const std::string& path, std::string_view text, int rate) {
  if (rate <= 0) fail(path, "an equaliser needs the sampling rate that it is designed for");
  const std::vector<std::string_view> lines = lines_of(text);
  std::vector<double> sections;
  double preamp = 0.0;
  bool any = false;
  for (std::size_t i = 0; i < lines.size(); ++i) {
    const int line = static_cast<int>(i + 1);
    const std::string_view content = lines[i].substr(0, lines[i].find('#'));
    const std::size_t colon = content.find(':');
    if (colon == std::string_view::npos) continue;
    const std::vector<std::string_view> key = split(content.substr(0, colon), kSpace);
    const std::string name = key.empty() ? "" : lower(key[0]);
    const std::string_view value = content.substr(colon + 1);
    if (name == "preamp") {
      std::size_t at = 0;
      const std::vector<std::string_view> words = split(value, kSpace);
      preamp += quantity(path, line, words, &at, "Preamp", "db");
      if (std::abs(preamp) > 200.0)
        fail(path, line, "Preamp " + shown(preamp) + " dB: accepted is -200 to 200");
      any = true;
    } else if (name.substr(0, 6) == "filter" && key.size() <= 2 &&
               (name.size() == 6 || std::isdigit(static_cast<unsigned char>(name[6])))) {
      parse_filter(path, line, value, rate, &sections);
      any = true;
    } else if (is_one_of(name, {"channel", "copy", "convolution", "delay", "device", "graphiceq",
                                "include"})) {
      // Leaving these out would give another filter than the file describes.
      fail(path, line, quote(key[0]) + " is not supported; accepted are Preamp and Filter");
    }
  }
  if (!any) fail(path, "holds no equaliser; accepted are lines of Preamp and Filter");
  if (sections.empty()) sections = {1.0, 0.0, 0.0, 1.0, 0.0, 0.0};
  for (std::size_t i = 0; i < 3; ++i) sections[i] *= from_decibels(preamp);
  return sections;
}

std::vector<double> parse_biquads(const std::string& path, std::string_view text) {
  static const char* const names[] = {"b0", "b1", "b2", "a1", "a2"};
  const std::vector<std::string_view> lines = lines_of(text);
  std::vector<double> sections;
  double values[5];
  bool given[5] = {};
  int start = 0;  // line of the biquad that is being read
  const auto finish = [&] {
    if (!start) return;
    for (int i = 0; i < 5; ++i)
      if (!given[i])
        fail(path, start,
             std::string("the biquad has no ") + names[i] + "; it takes b0, b1, b2, a1 and a2");
    // These programs add the feedback instead of subtracting it.
    for (const double x : {values[0], values[1], values[2], 1.0, -values[3], -values[4]})
      sections.push_back(x);
    std::fill(given, given + 5, false);
  };
  for (std::size_t i = 0; i < lines.size(); ++i) {
    const int line = static_cast<int>(i + 1);
    for (const std::string_view part : split(lines[i].substr(0, lines[i].find('#')), ",")) {
      const std::string_view entry = without_space(part);
      const std::size_t equals = entry.find('=');
      if (entry.empty()) continue;
      if (lower(entry.substr(0, 6)) == "biquad" && equals == std::string_view::npos) {
        finish();
        start = line;
        continue;
      }
      const std::string name = lower(without_space(entry.substr(0, equals)));
      const auto* found = std::find(std::begin(names), std::end(names), name);
      if (equals == std::string_view::npos || found == std::end(names))
        fail(path, line,
             quote(entry) + " is not understood; accepted are biquad1, b0=, b1=, b2=, a1= and a2=");
      const auto k = found - names;
      if (!start) fail(path, line, quote(entry) + " stands before the first biquad1");
      if (given[k]) fail(path, line, quote(name) + " is given twice for one biquad");
      given[k] = true;
      values[k] = parse_number(path, line, without_space(entry.substr(equals + 1)));
    }
  }
  finish();
  if (sections.empty()) fail(path, "holds no biquad");
  return sections;
}

}  // namespace tool

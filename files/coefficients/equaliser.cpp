// Parametric equalisers: lines of room correction programs, and the same words on a command line.
#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <iterator>

#include "coefficients/parse.h"
#include "design/equaliser.h"
#include "design/graphic_equaliser.h"
#include "units.h"

namespace jurn {
namespace {

const char* const kSpace = " \t\v\f";
using Type = EqualiserType;

const struct {
  const char* name;
  Type type;
  bool at_corner;  // a shelf whose Fc is its corner, not its centre, where its slope is given
} kTypes[] = {
    {"pk", Type::kPeak, false},
    {"peq", Type::kPeak, false},
    {"ls", Type::kLowShelf, true},
    {"lsc", Type::kLowShelf, false},
    {"lsq", Type::kLowShelf, false},
    {"hs", Type::kHighShelf, true},
    {"hsc", Type::kHighShelf, false},
    {"hsq", Type::kHighShelf, false},
    {"lp", Type::kLowPass, false},
    {"lpq", Type::kLowPass, false},
    {"hp", Type::kHighPass, false},
    {"hpq", Type::kHighPass, false},
    {"bp", Type::kBandPass, false},
    {"no", Type::kNotch, false},
    {"ap", Type::kAllPass, false},
    // As people and other programs write them.
    {"peak", Type::kPeak, false},
    {"peaking", Type::kPeak, false},
    {"bell", Type::kPeak, false},
    {"lowshelf", Type::kLowShelf, true},
    {"highshelf", Type::kHighShelf, true},
    {"lpf", Type::kLowPass, false},
    {"lowpass", Type::kLowPass, false},
    {"highcut", Type::kLowPass, false},
    {"hpf", Type::kHighPass, false},
    {"highpass", Type::kHighPass, false},
    {"lowcut", Type::kHighPass, false},
    {"bpf", Type::kBandPass, false},
    {"bandpass", Type::kBandPass, false},
    {"notch", Type::kNotch, false},
    {"apf", Type::kAllPass, false},
    {"allpass", Type::kAllPass, false},
};
constexpr char kKnownTypes[] = "PK, LS, LSC, HS, HSC, LP, HP, BP, NO and AP";

bool is_shelf(Type type) {
  return type == Type::kLowShelf || type == Type::kHighShelf;
}
bool is_pass(Type type) {
  return type == Type::kLowPass || type == Type::kHighPass;
}
bool has_gain(Type type) {
  return type == Type::kPeak || is_shelf(type);
}
bool needs_width(Type type) {
  return !is_shelf(type) && !is_pass(type);
}

/** The words of one filter, and where they stand; line 0 is a command line. */
class Words {
 public:
  Words(const std::string& path, int line, std::string_view text)
      : path_(path), line_(line), words_(split(text, kSpace)) {}

  bool left() const { return at_ < words_.size(); }
  std::string_view next() { return words_[at_++]; }
  std::string ahead() const { return left() ? lower(words_[at_]) : std::string(); }
  void skip() { ++at_; }

  [[noreturn]] void fail(const std::string& message) const {
    if (line_) jurn::fail(path_, line_, message);
    jurn::fail(path_, message);
  }

  double number(std::string_view text) const {
    std::string point(text);
    if (point.find('.') == std::string::npos) std::replace(point.begin(), point.end(), ',', '.');
    return parse_number(path_, line_ ? line_ : 1, point);
  }

  /** "-3 dB", "1k", "1,234 Hz", "63,50Hz": a number, perhaps with its unit attached or behind it.
   */
  double quantity(const std::string& keyword, const std::string& unit) {
    if (!left()) fail(quote(keyword) + " ends without a number");
    const std::string_view word = next();
    std::string text = lower(word);
    double factor = 1.0;
    const auto drop_ending = [&](const std::string& end) {
      if (text.size() <= end.size() || text.compare(text.size() - end.size(), end.size(), end) != 0)
        return false;
      text.resize(text.size() - end.size());
      return true;
    };
    const bool hertz = unit == "hz";
    bool has_unit = !unit.empty() && drop_ending(unit);
    if (hertz && drop_ending("k")) {
      factor = 1000.0;
      has_unit = true;
    }
    const std::size_t comma = text.find(',');
    if (hertz && comma != std::string::npos && text.size() >= comma + 4 &&
        (text.size() == comma + 4 || text[comma + 4] == '.'))
      text.erase(comma, 1);  // thousands
    else if (comma != std::string::npos && text.find('.') == std::string::npos)
      text[comma] = '.';
    const double value = number(text);
    if (!has_unit && !unit.empty()) {
      if (hertz && ahead() == "khz") factor = 1000.0;
      if (ahead() == unit || (hertz && ahead() == "khz")) skip();
    }
    return factor * value;
  }

 private:
  std::string path_;
  int line_;
  std::vector<std::string_view> words_;
  std::size_t at_ = 0;
};

bool starts_number(const std::string& word) {
  return !word.empty() && (std::isdigit(static_cast<unsigned char>(word[0])) || word[0] == '-' ||
                           word[0] == '+' || word[0] == '.');
}

/** The slope of a shelf, "12dB" or "12 dB", if one stands behind its type. */
double slope_of(Words* words) {
  const std::string word = words->ahead();
  const std::size_t end = word.find_first_not_of("0123456789.,");
  const bool attached = end != std::string::npos && end > 0 && word.substr(end) == "db";
  if (!attached) {
    if (!starts_number(word) || end != std::string::npos) return 0.0;
    Words two = *words;
    two.skip();
    if (two.ahead() != "db") return 0.0;
  }
  const double slope = words->quantity("slope", "db");
  if (!(slope > 0.0 && slope <= 12.0))
    words->fail("a shelf's slope of " + shown(slope) + " dB: accepted is above 0 and up to 12");
  return slope;
}

void check_frequency(const Words& words, const EqualiserFilter& f, int rate) {
  if (!(f.frequency > 0.0 && f.frequency < rate / 2.0))
    words.fail("Fc " + shown(f.frequency) + " Hz: at " + std::to_string(rate) +
               " Hz a frequency has to lie between 0 and " + shown(rate / 2.0) + " Hz");
}

void check_filter(const Words& words, const EqualiserFilter& f, const std::string& type) {
  if (f.q < 0.0 || f.octaves < 0.0 || f.q > 1e6 || f.octaves > 100.0)
    words.fail(f.octaves != 0.0 ? "BW Oct " + shown(f.octaves) + ": accepted is 0 to 100"
                                : "Q " + shown(f.q) + ": accepted is 0 to 1000000");
  if (std::abs(f.gain) > 200.0)
    words.fail("Gain " + shown(f.gain) + " dB: accepted is -200 to 200");
  if (needs_width(f.type) && f.q == 0.0 && f.octaves == 0.0)
    words.fail("a filter of the type " + type + " needs Q, or BW Oct, above 0");
  if (f.order && !is_pass(f.type)) words.fail("only LP and HP have an order");
  if (f.order > kMaxPassOrder)
    words.fail("order " + std::to_string(f.order) + ": accepted are whole numbers from 1 to " +
               std::to_string(kMaxPassOrder));
  if (f.order && (f.q != 0.0 || f.octaves != 0.0))
    words.fail("takes an order or a width, not both");
  if (f.linkwitz_riley && (f.order % 2 || f.order == 0))
    words.fail("a Linkwitz-Riley filter has an even order: order 2, 4 ...");
}

int order_of(Words* words) {
  const double value = words->quantity("order", "");
  if (!(value >= 1.0 && value <= kMaxPassOrder) || value != std::floor(value))
    words->fail("order " + shown(value) + ": accepted are whole numbers from 1 to " +
                std::to_string(kMaxPassOrder));
  return static_cast<int>(value);
}

/** The type of a filter: one word, or two as "LP Q" and "All Pass"; hyphens do not matter. */
std::string take_type(Words* words) {
  std::string type(words->left() ? words->next() : "");
  const auto ahead = [&](const char* word) { return words->ahead() == word; };
  const std::string first = lower(type);
  if (ahead("pass") || ahead("shelf") || ahead("cut")) {
    type += words->next();
  } else if (ahead("q") && (first == "lp" || first == "hp" || first == "ls" || first == "hs")) {
    Words two = *words;
    two.skip();
    if (!starts_number(two.ahead())) type += words->next();
  }
  type.erase(std::remove(type.begin(), type.end(), '-'), type.end());
  return type;
}

/** The order that "24dB", "24 dB" or "24dB/oct" behind a pass stands for; 0 where none does. */
int slope_order(Words* words) {
  Words all = *words;
  std::string word = all.ahead();
  const std::size_t end = word.find_first_not_of("0123456789");
  if (end == 0 || word.empty()) return 0;
  all.skip();
  const int slope = std::atoi(word.substr(0, std::min<std::size_t>(end, 4)).c_str());
  if (end == std::string::npos) {
    word = all.ahead();
    all.skip();
  } else {
    word = word.substr(end);
  }
  if (word != "db" && word != "db/oct") return 0;
  if (slope < 6 || slope % 6)
    words->fail("a slope of " + std::to_string(slope) +
                " dB per octave; accepted are 6, 12, 18 ... for LP and HP");
  *words = all;
  return slope / 6;
}

/** "BW4" and "LR4": Butterworth and Linkwitz-Riley with their order attached. */
bool parse_attached_order(const std::string& word, EqualiserFilter* f) {
  const bool linkwitz_riley = word.compare(0, 2, "lr") == 0;
  if ((!linkwitz_riley && word.compare(0, 2, "bw") != 0) || word.size() < 3 || word.size() > 4 ||
      word.find_first_not_of("0123456789", 2) != std::string::npos)
    return false;
  f->order = std::atoi(word.c_str() + 2);
  f->linkwitz_riley = linkwitz_riley;
  return true;
}

/** A filter from its type on: "PK Fc 3000 Hz Gain -4 dB Q 2" or "PK 3k -4 Q 2". */
EqualiserFilter filter_of(Words words) {
  const std::string type = take_type(&words);
  const auto* const found = std::find_if(std::begin(kTypes), std::end(kTypes),
                                         [&](const auto& t) { return lower(type) == t.name; });
  if (found == std::end(kTypes))
    words.fail(quote(type) + " is no known type; accepted are " + kKnownTypes);
  EqualiserFilter f;
  f.type = found->type;
  const double slope = is_shelf(f.type) ? slope_of(&words) : 0.0;
  bool frequency = false, gain = false;
  while (words.left()) {
    const std::string word = words.ahead();
    if (is_pass(f.type) && frequency && !f.order && (f.order = slope_order(&words))) continue;
    if (starts_number(word) && !frequency) {
      f.frequency = words.quantity("Fc", "hz");
      frequency = true;
      continue;
    }
    if (starts_number(word) && has_gain(f.type) && !gain) {
      f.gain = words.quantity("Gain", "db");
      gain = true;
      continue;
    }
    const std::string_view shown_word = words.next();
    if (word == "fc") {
      f.frequency = words.quantity("Fc", "hz");
      frequency = true;
    } else if (word == "gain") {
      f.gain = words.quantity("Gain", "db");
      gain = true;
    } else if (word == "q") {
      f.q = words.quantity("Q", "");
    } else if (word[0] == 'q' && starts_number(word.substr(1))) {
      f.q = words.number(shown_word.substr(1));
    } else if (word == "bw/60") {
      f.octaves = words.quantity("BW/60", "") / 60.0;
    } else if (word == "bw") {
      if (words.ahead() == "oct") words.skip();
      f.octaves = words.quantity("BW Oct", "");
      if (words.ahead() == "oct") words.skip();
    } else if (word == "order") {
      f.order = order_of(&words);
    } else if (word == "lr") {
      f.linkwitz_riley = true;
    } else if (!parse_attached_order(word, &f)) {
      words.fail(quote(shown_word) +
                 " is not understood; accepted are Fc, Gain, Q, BW Oct and, for LP and HP, order N "
                 "and LR");
    }
  }
  if (has_gain(f.type) && !gain) words.fail("a filter of the type " + type + " needs Gain");
  if (!has_gain(f.type)) f.gain = 0.0;
  if (slope != 0.0) {
    const double steepness = slope / 12.0;
    const double amp = from_decibels(f.gain / 2.0);
    f.q = 1.0 / std::sqrt((amp + 1.0 / amp) * (1.0 / steepness - 1.0) + 2.0);
    // From the corner a straight line of this slope takes half the gain to the centre.
    const double octaves = std::abs(f.gain) / 2.0 / slope;
    if (found->at_corner) f.frequency *= std::exp2(f.type == Type::kLowShelf ? octaves : -octaves);
  }
  check_filter(words, f, type);
  return f;
}

void parse_words(const Words& words, int rate, std::vector<double>* out) {
  const EqualiserFilter f = filter_of(words);
  check_frequency(words, f, rate);
  append_sections(f, rate, out);
}

/** The part of a line behind "Filter N:". */
void parse_filter(const std::string& path, int line, std::string_view text, int rate,
                  std::vector<double>* out) {
  Words words(path, line, text);
  const std::string state = words.ahead();
  if (state == "off") return;
  if (state != "on")
    words.fail(quote(words.left() ? words.next() : "") + " where a filter says ON or OFF");
  words.skip();
  if (words.left() && words.ahead() != "none") parse_words(words, rate, out);
}

/** Lines that room correction programs write about a measurement, which change no filter. */
bool is_remark(const std::vector<std::string_view>& key) {
  static const char* const names[] = {
      "notes", "dated",  "date",      "equaliser", "equalizer", "average",     "measurement",
      "title", "name",   "author",    "created",   "comment",   "description", "version",
      "stage", "target", "headphone", "sampling",  "smoothing", "source"};
  const std::string name = lower(key[0]);
  return std::find(std::begin(names), std::end(names), name) != std::end(names);
}

/** "25 0; 40 -1.5; 63 3": frequencies and gains. */
std::vector<GraphicPoint> parse_points(const std::string& path, int line, std::string_view text) {
  std::vector<GraphicPoint> points;
  for (const std::string_view pair : split(text, ";")) {
    Words words(path, line, pair);
    if (!words.left()) continue;
    const double frequency = words.quantity("GraphicEQ", "hz");
    points.push_back({frequency, words.quantity("GraphicEQ", "db")});
    if (words.left()) words.fail(quote(words.next()) + " where a semicolon separates the points");
    if (frequency < 0.0 || (points.size() > 1 && frequency <= points[points.size() - 2].frequency))
      words.fail("the frequencies have to rise; " + shown(frequency) + " does not");
    if (std::abs(points.back().gain) > 200.0)
      words.fail("Gain " + shown(points.back().gain) + " dB: accepted is -200 to 200");
  }
  if (points.empty()) fail(path, line, "GraphicEQ has no points");
  return points;
}

}  // namespace

FilterDesign parse_equaliser(const std::string& path, std::string_view text,
                             const ReadOptions& options) {
  const int rate = options.rate;
  if (rate <= 0) fail(path, "an equaliser needs the sampling rate that it is designed for");
  const std::vector<std::string_view> lines = lines_of(text);
  std::vector<double> sections;
  std::vector<GraphicPoint> points;
  double preamp = 0.0;
  bool any = false, in_notes = false;  // REW's notes may have any lines
  for (std::size_t i = 0; i < lines.size(); ++i) {
    const int line = static_cast<int>(i + 1);
    const std::string_view content = lines[i].substr(0, lines[i].find('#'));
    const std::size_t colon = content.find(':');
    if (colon == std::string_view::npos) {
      const std::vector<std::string_view> words = split(content, kSpace);
      if (words.size() > 2 && lower(words[0]) == "filter" &&
          std::isdigit(static_cast<unsigned char>(words[1][0])))
        fail(path, line, quote(content) + " has no colon behind the filter's number");
      continue;
    }
    const std::vector<std::string_view> key = split(content.substr(0, colon), kSpace);
    const std::string name = key.empty() ? "" : lower(key[0]);
    if (in_notes && name != "equaliser" && name != "equalizer" && name != "filter") continue;
    in_notes = name == "notes";
    const std::string_view value = content.substr(colon + 1);
    if (name == "preamp") {
      Words words(path, line, value);
      preamp += words.quantity("Preamp", "db");
      if (std::abs(preamp) > 200.0)
        fail(path, line, "Preamp " + shown(preamp) + " dB: accepted is -200 to 200");
      any = true;
    } else if (name.substr(0, 6) == "filter" && key.size() <= 2 &&
               (name.size() == 6 || std::isdigit(static_cast<unsigned char>(name[6])))) {
      parse_filter(path, line, value, rate, &sections);
      any = true;
    } else if (name == "graphiceq") {
      if (!points.empty()) fail(path, line, "a second GraphicEQ is not supported");
      points = parse_points(path, line, value);
    } else if (name == "channel" || name == "device") {
      // What is for some channels or devices only would become another filter.
      const std::vector<std::string_view> words = split(value, kSpace);
      if (words.size() != 1 || lower(words[0]) != "all")
        fail(path, line,
             quote(key[0]) +
                 " of Equalizer APO is supported for \"all\" alone: a filter of some "
                 "channels would run on every one");
    } else if (!key.empty() && !is_remark(key)) {
      fail(path, line,
           quote(content.substr(0, colon)) +
               " is no line of a filter; of Equalizer APO, AutoEq and REW accepted are Preamp, "
               "Filter and GraphicEQ, and # before a comment");
    }
  }
  if (!points.empty()) {
    if (!sections.empty()) fail(path, "has GraphicEQ and filters; only one of them can run");
    if (options.wanted && options.wanted != FilterDesign::kFir)
      fail(path, "holds GraphicEQ, which becomes an FIR: fir takes it");
    FilterDesign design{FilterDesign::kFir, {}, {}};
    design.b = linear_phase_taps(
        points, rate, graphic_taps(rate, std::min(options.limits.fir.count, options.graphic_taps)));
    design.delay = static_cast<int>(design.b.size() / 2);
    scale(&design, from_decibels(preamp));
    return design;
  }
  if (!any) fail(path, "holds no equaliser; accepted are lines of Preamp, Filter and GraphicEQ");
  if (sections.empty()) sections = {1.0, 0.0, 0.0, 1.0, 0.0, 0.0};
  for (std::size_t i = 0; i < 3; ++i) sections[i] *= from_decibels(preamp);
  return sections_design(path, sections, options);
}

FilterDesign parse_equaliser_words(const std::vector<std::string>& filters, int rate) {
  ReadOptions options{};
  std::vector<double> sections;
  for (const std::string& filter : filters)
    parse_words(Words("'" + filter + "'", 0, filter), rate, &sections);
  return sections_design("the filters", sections, options);
}

EqualiserFilter parse_equaliser_filter(const std::string& text) {
  const std::string name = "'" + text + "'";
  return filter_of(Words(name, 0, text));
}

std::string text_of(const EqualiserFilter& f) {
  const auto number = [](double value) {
    // As few digits as give the same number, with a point, whatever the locale.
    char text[40];
    return std::string(text, std::to_chars(text, text + sizeof text, value).ptr);
  };
  const auto* const type = std::find_if(std::begin(kTypes), std::end(kTypes), [&](const auto& t) {
    return t.type == f.type && !t.at_corner;
  });
  std::string text = type->name;
  for (char& c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  text += " Fc " + number(f.frequency) + " Hz";
  if (has_gain(f.type)) text += " Gain " + number(f.gain) + " dB";
  if (f.order)
    text += " order " + std::to_string(f.order) + (f.linkwitz_riley ? " LR" : "");
  else if (f.octaves != 0.0)
    text += " BW Oct " + number(f.octaves);
  else if (f.q != 0.0)
    text += " Q " + number(f.q);
  return text;
}

bool names_equaliser_type(std::string_view text) {
  const std::vector<std::string_view> words = split(text, kSpace);
  return words.size() > 1 && std::any_of(std::begin(kTypes), std::end(kTypes),
                                         [&](const auto& t) { return lower(words[0]) == t.name; });
}

}  // namespace jurn

// One filter of an equaliser in words, as room correction programs write it and as people type it.
#include "exact.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <iterator>

#include "coefficients/equaliser_words.h"
#include "design/linear_phase.h"
#include "elementary.h"
#include "number_text.h"
#include "units.h"

namespace jurn {
namespace {

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
    {"tilt", Type::kTilt, false},
    {"lt", Type::kLinkwitzTransform, false},
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
    {"linkwitztransform", Type::kLinkwitzTransform, false},
};
constexpr char kKnownTypes[] = "PK, LS, LSC, HS, HSC, LP, HP, BP, NO, AP, TILT and LT";

bool is_shelf(Type type) {
  return type == Type::kLowShelf || type == Type::kHighShelf;
}
bool is_pass(Type type) {
  return type == Type::kLowPass || type == Type::kHighPass;
}
bool has_gain(Type type) {
  return type == Type::kPeak || type == Type::kTilt || is_shelf(type);
}
bool needs_width(const EqualiserFilter& f) {
  return !is_shelf(f.type) && !is_pass(f.type) && f.type != Type::kTilt && f.order == 0;
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

void check_filter(const Words& words, const EqualiserFilter& f, const std::string& type) {
  if (f.q < 0.0 || f.octaves < 0.0 || f.q > 1e6 || f.octaves > 100.0)
    words.fail(f.octaves != 0.0 ? "BW Oct " + shown(f.octaves) + ": accepted is 0 to 100"
                                : "Q " + shown(f.q) + ": accepted is 0 to 1000000");
  if (std::abs(f.gain) > 200.0)
    words.fail("Gain " + shown(f.gain) + " dB: accepted is -200 to 200");
  const bool has_width = f.q != 0.0 || f.octaves != 0.0;
  if (needs_width(f) && !has_width)
    words.fail("a filter of the type " + type + " needs Q, or BW Oct, above 0");
  if (f.type == Type::kTilt && has_width) words.fail("TILT is of first order and has no width");
  if (f.order && !is_pass(f.type) &&
      (f.order > 1 || !(is_shelf(f.type) || f.type == Type::kAllPass)))
    words.fail("only LP and HP have an order, and LS, HS and AP may have order 1");
  if (f.order > kMaxPassOrder)
    words.fail("order " + std::to_string(f.order) + ": accepted are whole numbers from 1 to " +
               std::to_string(kMaxPassOrder));
  if (f.order && has_width) words.fail("takes an order or a width, not both");
  if (f.linkwitz_riley && (f.order % 2 || f.order == 0))
    words.fail("a Linkwitz-Riley filter has an even order: order 2, 4 ...");
  if (f.linear_phase && !is_pass(f.type) && f.type != Type::kBandPass)
    words.fail("only LP, HP and BP can be linear");
  if (f.linear_phase && is_pass(f.type) && (f.order || has_width))
    words.fail("a linear LP or HP has no order and no Q; transition N says how steep it is, in Hz");
  if (f.transition != 0.0 && !f.linear_phase) words.fail("only a linear filter has a transition");
  if (f.transition < 0.0) words.fail("transition " + shown(f.transition) + " Hz is not above 0");
}

/** "70 Q 1.1 to 28 Q 0.7": the box that there is, and the one that it becomes. */
void parse_linkwitz_transform(Words* words, EqualiserFilter* f) {
  const auto frequency = [&] {
    if (words->ahead() == "fc") words->skip();
    return words->quantity("Fc", "hz");
  };
  const auto q = [&] {
    const std::string word = words->ahead();
    if (word.size() > 1 && word[0] == 'q') return words->number(words->next().substr(1));
    if (word == "q") words->skip();
    return words->quantity("Q", "");
  };
  f->frequency = frequency();
  f->q = q();
  if (words->ahead() == "to") words->skip();
  f->target_frequency = frequency();
  f->target_q = q();
  if (words->left())
    words->fail(quote(words->next()) +
                " is not understood; LT takes Fc and Q of the box as it is, "
                "and Fc and Q that it gets");
  if (!(f->q > 0.0 && f->target_q > 0.0)) words->fail("LT needs two Q above 0");
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

}  // namespace

EqualiserFilter filter_of(Words words) {
  const std::string type = take_type(&words);
  const auto* const found = std::find_if(std::begin(kTypes), std::end(kTypes),
                                         [&](const auto& t) { return lower(type) == t.name; });
  if (found == std::end(kTypes))
    words.fail(quote(type) + " is no known type; accepted are " + kKnownTypes);
  EqualiserFilter f;
  f.type = found->type;
  if (f.type == Type::kLinkwitzTransform) {
    parse_linkwitz_transform(&words, &f);
    check_filter(words, f, type);
    return f;
  }
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
    } else if (word == "linear") {
      f.linear_phase = true;
    } else if (word == "transition") {
      f.transition = words.quantity("transition", "hz");
    } else if (!parse_attached_order(word, &f)) {
      words.fail(quote(shown_word) +
                 " is not understood; accepted are Fc, Gain, Q, BW Oct, order N and, for LP and "
                 "HP, LR and linear");
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
    if (found->at_corner)
      f.frequency *= elementary::exp(kLogTwo * (f.type == Type::kLowShelf ? octaves : -octaves));
  }
  check_filter(words, f, type);
  return f;
}

void check_rate(const Words& words, const EqualiserFilter& f, int rate) {
  const auto check = [&](const char* name, double frequency) {
    if (!(frequency > 0.0 && frequency < rate / 2.0))
      words.fail(name + (" " + shown(frequency)) + " Hz: at " + std::to_string(rate) +
                 " Hz a frequency has to lie between 0 and " + shown(rate / 2.0) + " Hz");
  };
  check("Fc", f.frequency);
  if (f.type == Type::kLinkwitzTransform) check("Fc", f.target_frequency);
  if (!f.linear_phase) return;
  const LinearPhaseBand band = linear_phase_band(f, rate);
  if (f.type == Type::kBandPass) check("the upper corner", band.high);
  const double room = std::min(band.low > 0.0 ? band.low : band.high,
                               rate / 2.0 - (band.high < rate / 2.0 ? band.high : band.low));
  if (!(band.transition <= 2.0 * room))
    words.fail("a transition of " + shown(band.transition) + " Hz: here it may be up to " +
               shown(2.0 * room) + " Hz");
  if (const std::size_t count = linear_phase_count(f, rate); count > kMostLinearTaps)
    words.fail("a transition of " + shown(band.transition) + " Hz takes " + std::to_string(count) +
               " taps; at most " + std::to_string(kMostLinearTaps) + " are supported");
}

EqualiserFilter parse_equaliser_filter(const std::string& text) {
  const std::string name = "'" + text + "'";
  return filter_of(Words(name, 0, text));
}

std::string text_of(const EqualiserFilter& f) {
  const auto* const type = std::find_if(std::begin(kTypes), std::end(kTypes), [&](const auto& t) {
    return t.type == f.type && !t.at_corner;
  });
  std::string text = type->name;
  for (char& c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  text += " Fc " + number_text(f.frequency) + " Hz";
  if (f.type == Type::kLinkwitzTransform)
    return text + " Q " + number_text(f.q) + " to " + number_text(f.target_frequency) + " Hz Q " +
           number_text(f.target_q);
  if (has_gain(f.type)) text += " Gain " + number_text(f.gain) + " dB";
  if (f.order)
    text += " order " + std::to_string(f.order) + (f.linkwitz_riley ? " LR" : "");
  else if (f.octaves != 0.0)
    text += " BW Oct " + number_text(f.octaves);
  else if (f.q != 0.0)
    text += " Q " + number_text(f.q);
  if (f.linear_phase) text += " linear";
  if (f.transition != 0.0) text += " transition " + number_text(f.transition) + " Hz";
  return text;
}

bool names_equaliser_type(std::string_view text) {
  const std::vector<std::string_view> words = split(text, " \t\v\f");
  return words.size() > 1 && std::any_of(std::begin(kTypes), std::end(kTypes),
                                         [&](const auto& t) { return lower(words[0]) == t.name; });
}

}  // namespace jurn

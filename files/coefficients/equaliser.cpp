// Equalisers: lines of room correction programs, and filters in words.
#include "exact.h"

#include <algorithm>
#include <cctype>
#include <cmath>

#include "coefficients/channels.h"
#include "coefficients/equaliser_words.h"
#include "coefficients/parse.h"
#include "design/graphic_equaliser.h"
#include "design/linear_phase.h"
#include "units.h"

namespace jurn {
namespace {

const char* const kSpace = " \t\v\f";

/** What an equaliser becomes: sections, and an FIR for each filter of linear phase. */
class Equaliser {
 public:
  Equaliser(const std::string& path, const ReadOptions& options) : path_(path), options_(options) {
    if (options.rate <= 0)
      fail(path, "an equaliser needs the sampling rate that it is designed for");
  }

  void add(const Words& words) {
    const EqualiserFilter f = filter_of(words);
    check_rate(words, f, options_.rate);
    if (!f.linear_phase) return append_sections(f, options_.rate, &sections_);
    // Together, so that a text of many lines takes no more memory or time than one response.
    const CoefficientLimit& limit = options_.limits.fir;
    linear_taps_ += linear_phase_count(f, options_.rate);
    if (linear_taps_ > limit.count)
      words.fail("the linear filters have " + count_of(linear_taps_, "tap") + ", more than " +
                 limit.reason);
    add_taps(linear_phase_pass(f, options_.rate));
  }

  /** "IIR Order 2 Coefficients b0 b1 b2 a0 a1 a2", as Equalizer APO has them, or those of order 1.
   */
  void add_coefficients(Words words) {
    for (const char* const word : {"iir", "order"}) {
      if (words.ahead() != word) words.fail("IIR takes: Order 2 Coefficients b0 b1 b2 a0 a1 a2");
      words.skip();
    }
    const double order = words.left() ? words.number(words.next()) : 0.0;
    if ((order != 1.0 && order != 2.0) || words.ahead() != "coefficients")
      words.fail("IIR of order 1 or 2 is supported, with its Coefficients behind");
    words.skip();
    const std::size_t count = static_cast<std::size_t>(order) + 1;
    std::vector<double> section(6, 0.0);
    for (std::size_t i = 0; i < 2 * count; ++i) {
      if (!words.left())
        words.fail("IIR of this order has " + std::to_string(2 * count) + " numbers");
      section[i < count ? i : 3 + i - count] = words.number(words.next());
    }
    if (words.left()) words.fail(quote(words.next()) + " behind the coefficients");
    const double a0 = section[3];
    if (a0 == 0.0) words.fail("IIR has an a0 of 0");
    for (double& value : section) value /= a0;
    sections_.insert(sections_.end(), section.begin(), section.end());
  }

  /** Of linear phase. */
  void add_taps(std::vector<double> taps) {
    FilterDesign design{FilterDesign::kFir, std::move(taps), {}};
    design.delay = static_cast<int>(design.b.size() / 2);
    firs_.push_back(std::move(design));
  }

  /** The filters in series. */
  std::vector<FilterDesign> chain(double gain) const {
    std::vector<FilterDesign> all;
    if (!sections_.empty() || firs_.empty()) {
      const std::vector<double> unit = {1.0, 0.0, 0.0, 1.0, 0.0, 0.0};
      all.push_back(sections_design(path_, sections_.empty() ? unit : sections_, options_));
    }
    all.insert(all.end(), firs_.begin(), firs_.end());
    scale(&all[0], gain);
    for (const FilterDesign& design : all) check_design(path_, design, options_.limits);
    return all;
  }

 private:
  const std::string& path_;
  const ReadOptions& options_;
  std::vector<double> sections_;
  std::vector<FilterDesign> firs_;
  std::size_t linear_taps_ = 0;
};

/** The part of a line behind "Filter N:". */
void parse_filter(const std::string& path, int line, std::string_view text, Equaliser* equaliser) {
  Words words(path, line, text);
  const std::string state = words.ahead();
  if (state == "off") return;
  if (state != "on")
    words.fail(quote(words.left() ? words.next() : "") + " where a filter says ON or OFF");
  words.skip();
  if (words.ahead() == "iir")
    equaliser->add_coefficients(words);
  else if (words.left() && words.ahead() != "none")
    equaliser->add(words);
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

/** Lines that hold for the same channels. */
struct Group {
  std::vector<std::string> channels;  // none: all
  int line;                           // where they are named
  Equaliser equaliser;
  double preamp = 0.0;
  bool any = false, has_points = false;

  std::vector<FilterDesign> chain() const { return equaliser.chain(from_decibels(preamp)); }
};

/** The filters of a text. */
class Lines {
 public:
  Lines(const std::string& path, const ReadOptions& options, std::string_view text)
      : path_(path), options_(options) {
    begin({});
    read_all(text);
  }

  /** One filter for all channels. */
  std::vector<FilterDesign> chain(const std::vector<std::string>& more = {}) {
    for (const Group& group : groups_)
      if (!group.channels.empty())
        fail(path_, group.line,
             "'Channel' of Equalizer APO filters channels in different ways; one filter for all "
             "channels runs here, and setup runs them all");
    for (const std::string& filter : more)
      groups_[0].equaliser.add(Words("'" + filter + "'", 0, filter));
    return groups_[0].chain();
  }

  /** What becomes of each of so many channels. */
  Setup setup(int channels) const {
    Setup setup;
    setup.inputs = channels;
    for (const Group& group : groups_)
      for (FilterDesign& design : group.chain()) {
        if (!group.any && !group.has_points) continue;
        SetupStep step{};
        step.kind = SetupStep::kFilter;
        step.name = group.line ? "line " + std::to_string(group.line) : "the first lines";
        step.channels = channels_of(path_, group.line, group.channels, channels);
        step.design = std::move(design);
        setup.steps.push_back(std::move(step));
      }
    return setup;
  }

 private:
  /** Lines for these channels, behind those for others; all lines for all make one group. */
  void begin(const std::vector<std::string>& channels) {
    if (!groups_.empty() && groups_.back().channels == channels) return;
    groups_.push_back({channels, line_, Equaliser(path_, options_)});
  }

  void read_all(std::string_view text) {
    const std::vector<std::string_view> lines = lines_of(text);
    // Without a colon it is filters in words alone, one a line.
    const bool words = std::none_of(lines.begin(), lines.end(), [](std::string_view line) {
      return line.substr(0, line.find('#')).find(':') != std::string_view::npos;
    });
    for (std::size_t i = 0; i < lines.size(); ++i) {
      line_ = static_cast<int>(i + 1);
      const std::string_view content = lines[i].substr(0, lines[i].find('#'));
      if (!words) {
        read(content);
      } else if (!split(content, kSpace).empty()) {
        last().equaliser.add(Words(path_, line_, content));
        last().any = true;
      }
    }
    if (std::none_of(groups_.begin(), groups_.end(),
                     [](const Group& group) { return group.any || group.has_points; }))
      fail(path_, "holds no equaliser; accepted are lines of Preamp, Filter and GraphicEQ");
  }

  Group& last() { return groups_.back(); }

  void read(std::string_view content) {
    const std::size_t colon = content.find(':');
    if (colon == std::string_view::npos) return read_without_colon(content);
    const std::vector<std::string_view> key = split(content.substr(0, colon), kSpace);
    const std::string name = key.empty() ? "" : lower(key[0]);
    if (in_notes_ && name != "equaliser" && name != "equalizer" && name != "filter") return;
    in_notes_ = name == "notes";
    const std::string_view value = content.substr(colon + 1);
    if (name == "preamp") {
      Words words(path_, line_, value);
      last().preamp += words.quantity("Preamp", "db");
      if (std::abs(last().preamp) > 200.0)
        fail(path_, line_, "Preamp " + shown(last().preamp) + " dB: accepted is -200 to 200");
      last().any = true;
    } else if (name.substr(0, 6) == "filter" && key.size() <= 2 &&
               (name.size() == 6 || std::isdigit(static_cast<unsigned char>(name[6])))) {
      parse_filter(path_, line_, value, &last().equaliser);
      last().any = true;
    } else if (name == "graphiceq") {
      if (last().has_points) fail(path_, line_, "a second GraphicEQ is not supported");
      last().has_points = true;
      const std::size_t most = std::min(options_.limits.fir.count, options_.graphic_taps);
      last().equaliser.add_taps(linear_phase_taps(parse_points(path_, line_, value), options_.rate,
                                                  graphic_taps(options_.rate, most)));
    } else if (name == "channel") {
      begin(channel_names(path_, line_, value));
    } else if (name == "device") {
      // What is for some devices only would become another filter.
      const std::vector<std::string_view> words = split(value, kSpace);
      if (words.size() != 1 || lower(words[0]) != "all")
        fail(path_, line_, "'Device' of Equalizer APO is supported for \"all\" alone");
    } else if (!key.empty() && !is_remark(key)) {
      fail(path_, line_,
           quote(content.substr(0, colon)) +
               " is no line of a filter; of Equalizer APO, AutoEq and REW accepted are Preamp, "
               "Filter and GraphicEQ, and # before a comment");
    }
  }

  /** Programs write titles so; but a filter in words is meant to run. */
  void read_without_colon(std::string_view content) {
    const std::vector<std::string_view> words = split(content, kSpace);
    if (words.size() > 2 && lower(words[0]) == "filter" &&
        std::isdigit(static_cast<unsigned char>(words[1][0])))
      fail(path_, line_, quote(content) + " has no colon behind the filter's number");
    if (in_notes_ || !names_equaliser_type(content) || !starts_number(std::string(words[1])))
      return;
    last().equaliser.add(Words(path_, line_, content));
    last().any = true;
  }

  const std::string& path_;
  const ReadOptions& options_;
  std::vector<Group> groups_;
  int line_ = 0;
  bool in_notes_ = false;  // REW's notes may have any lines
};

}  // namespace

FilterDesign parse_equaliser(const std::string& path, std::string_view text,
                             const ReadOptions& options) {
  ReadOptions any_kind = options;
  any_kind.wanted.reset();
  std::vector<FilterDesign> chain = Lines(path, any_kind, text).chain();
  if (chain.size() > 1)
    fail(
        path,
        "has GraphicEQ or linear filters beside others, which is more than one filter; eq runs it");
  if (options.wanted && options.wanted != chain[0].kind)
    fail(path, chain[0].kind == FilterDesign::kFir
                   ? "holds GraphicEQ or a linear filter, which becomes an FIR: fir takes it"
                   : "holds " + description_of(chain[0]) + ", which run with sos");
  return std::move(chain[0]);
}

std::vector<FilterDesign> parse_equaliser_chain(const std::string& path, std::string_view text,
                                                const std::vector<std::string>& filters,
                                                const ReadOptions& options) {
  if (!path.empty()) return Lines(path, options, plain_text(text)).chain(filters);
  static const std::string name = "the filters";
  Equaliser equaliser(name, options);
  for (const std::string& filter : filters) equaliser.add(Words("'" + filter + "'", 0, filter));
  return equaliser.chain(1.0);
}

Setup parse_equaliser_setup(const std::string& path, std::string_view text, int channels,
                            const ReadOptions& options) {
  return Lines(path, options, plain_text(text)).setup(channels);
}

bool names_channels(std::string_view text) {
  const std::string plain = plain_text(text);
  for (const std::string_view line : lines_of(plain)) {
    const std::vector<std::string_view> words = split(line.substr(0, line.find('#')), " \t:,");
    if (words.size() > 1 && lower(words[0]) == "channel" && lower(words[1]) != "all") return true;
  }
  return false;
}

FilterDesign parse_equaliser_words(const std::vector<std::string>& filters, int rate) {
  ReadOptions options{};
  options.rate = rate;
  options.limits = filter_limits(Precision::kDouble);
  std::vector<FilterDesign> chain = parse_equaliser_chain({}, {}, filters, options);
  if (chain.size() > 1 || chain[0].kind != FilterDesign::kSections)
    fail("the filters", "linear ones run with eq of jurn-filter and in setups alone");
  return std::move(chain[0]);
}

}  // namespace jurn

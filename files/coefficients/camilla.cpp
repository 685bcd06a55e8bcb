// The filters of CamillaDSP's settings, through yaml-cpp.
#include <yaml-cpp/yaml.h>

#include <cstdio>
#include <filesystem>
#include <map>
#include <set>

#include "coefficients/libraries.h"
#include "errors.h"
#include "units.h"

namespace jurn {
namespace {

class Settings {
 public:
  Settings(const std::string& path, const YAML::Node& root, const ReadOptions& options)
      : path_(path), root_(root), options_(options) {
    const YAML::Node rate = device("samplerate");
    rate_ = rate ? static_cast<int>(number(rate, "samplerate")) : 0;
  }

  FilterDesign design() {
    for (const std::string& name : names()) add(name, root_["filters"][name]);
    if (other_.b.empty()) {
      if (sections_.empty()) sections_ = {1.0, 0.0, 0.0, 1.0, 0.0, 0.0};
      FilterDesign design = sections_design(path_, sections_, options_);
      scale(&design, gain_);
      return design;
    }
    if (!sections_.empty())
      fail(path_, "has taps or DiffEq beside biquads in one chain; only one of them can run");
    if (options_.wanted && options_.wanted != other_.kind)
      fail(path_, other_.kind == FilterDesign::kFir ? "holds taps, which run with fir"
                                                    : "holds a DiffEq, which runs with iir");
    scale(&other_, gain_);
    return other_;
  }

 private:
  [[noreturn]] void refuse(const YAML::Node& node, const std::string& message) const {
    fail(path_, node.Mark().line + 1, message);
  }

  /** A setting of the devices; a node that is false where there is none. */
  YAML::Node device(const char* key) const {
    const YAML::Node devices = root_["devices"];
    return devices && devices.IsMap() ? devices[key] : YAML::Node(YAML::NodeType::Undefined);
  }

  double number(const YAML::Node& node, const std::string& key) const {
    if (!node.IsScalar()) refuse(node, quote(key) + " is no number");
    return parse_number(path_, node.Mark().line + 1, node.Scalar());
  }

  /** A parameter that has to be there. */
  double parameter(const YAML::Node& parameters, const std::string& key) const {
    const YAML::Node node = parameters[key];
    if (!node || node.IsNull()) refuse(parameters, "there is no " + quote(key));
    return number(node, key);
  }

  std::vector<double> numbers(const YAML::Node& parameters, const std::string& key) const {
    const YAML::Node node = parameters[key];
    if (!node || !node.IsSequence() || node.size() == 0)
      refuse(parameters, quote(key) + " is no list of numbers");
    std::vector<double> values;
    for (const YAML::Node& value : node) values.push_back(number(value, key));
    return values;
  }

  static std::string text(const YAML::Node& node) {
    return node && node.IsScalar() ? node.Scalar() : std::string();
  }

  /** The filters that run, in their order: those of the pipeline, or all. */
  std::vector<std::string> names() const {
    std::vector<std::string> all;
    const YAML::Node filters = root_["filters"], pipeline = root_["pipeline"];
    if (!filters || !filters.IsMap() || filters.size() == 0) fail(path_, "holds no filters");
    if (!pipeline || pipeline.IsNull()) {
      for (const auto& filter : filters) all.push_back(text(filter.first));
      return all;
    }
    struct Step {
      std::set<std::string> channels;  // none: all
      std::vector<std::string> names;
    };
    std::vector<Step> steps;
    std::set<std::string> channels;
    for (const YAML::Node& node : pipeline) {
      if (text(node["bypassed"]) == "true") continue;
      if (text(node["type"]) != "Filter")
        refuse(node, "the pipeline's step " + quote(text(node["type"])) +
                         " of CamillaDSP is not supported; accepted is Filter");
      Step step;
      for (const char* const key : {"channel", "channels"})
        if (const YAML::Node list = node[key]; list && list.IsSequence())
          for (const YAML::Node& channel : list) step.channels.insert(text(channel));
        else if (list && list.IsScalar())
          step.channels.insert(text(list));
      for (const YAML::Node& name : node["names"]) {
        if (!filters[text(name)]) refuse(name, "there is no filter " + quote(text(name)));
        step.names.push_back(text(name));
      }
      channels.insert(step.channels.begin(), step.channels.end());
      steps.push_back(std::move(step));
    }
    const auto chain_of = [&](const std::string& channel) {
      std::vector<std::string> chain;
      for (const Step& step : steps)
        if (step.channels.empty() || step.channels.count(channel))
          chain.insert(chain.end(), step.names.begin(), step.names.end());
      return chain;
    };
    // Where the settings do not say how many channels there are, several that are named are all.
    const YAML::Node capture = device("capture");
    const YAML::Node count = capture && capture.IsMap() ? capture["channels"] : capture;
    const bool all_named = count ? number(count, "channels") == static_cast<double>(channels.size())
                                 : channels.size() > 1;
    all = chain_of(all_named ? *channels.begin() : std::string());
    for (const std::string& channel : channels)
      if (chain_of(channel) != all)
        fail(path_,
             "CamillaDSP's pipeline filters channels in different ways; one filter for all "
             "channels is supported");
    return all;
  }

  void add(const std::string& name, const YAML::Node& filter) {
    const std::string type = text(filter["type"]);
    const YAML::Node parameters = filter["parameters"];
    if (!parameters || !parameters.IsMap())
      refuse(filter, "the filter " + quote(name) + " has no parameters");
    if (type == "Biquad")
      biquad(name, parameters);
    else if (type == "BiquadCombo")
      combination(name, parameters);
    else if (type == "Gain")
      gain(parameters);
    else if (type == "Conv")
      convolution(name, parameters);
    else if (type == "DiffEq")
      set_other(name, parameters,
                {FilterDesign::kIir, numbers(parameters, "b"), numbers(parameters, "a")});
    else
      refuse(filter, "the filter " + quote(name) + " of the type " + quote(type) +
                         " of CamillaDSP is not supported; accepted are Biquad, BiquadCombo, Conv, "
                         "DiffEq and Gain");
  }

  /** One filter in an equaliser's words. */
  void words(const std::string& name, const YAML::Node& parameters, const std::string& filter) {
    const int rate = options_.rate > 0 ? options_.rate : rate_;
    if (rate <= 0) fail(path_, "an equaliser needs the sampling rate that it is designed for");
    try {
      const FilterDesign one = parse_equaliser_words({filter}, rate);
      for (std::size_t k = 0; k < one.b.size(); k += 3) {
        sections_.insert(sections_.end(), &one.b[k], &one.b[k] + 3);
        sections_.insert(sections_.end(), &one.a[k], &one.a[k] + 3);
      }
    } catch (const Error& error) {
      refuse(parameters, "the filter " + quote(name) + ", " + error.what());
    }
  }

  static std::string digits(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.17g", value);
    return text;
  }

  /** " Fc 100", " Gain -3", and the width by whatever of its names is there. */
  std::string word(const char* name, const YAML::Node& parameters, const char* key) const {
    return std::string(" ") + name + " " + digits(parameter(parameters, key));
  }
  std::string width(const YAML::Node& parameters) const {
    return parameters["bandwidth"] ? word("BW", parameters, "bandwidth")
                                   : word("Q", parameters, "q");
  }

  void biquad(const std::string& name, const YAML::Node& p) {
    const std::string type = text(p["type"]);
    if (type == "Free") {
      check_rate(name, p);
      for (const char* const key : {"b0", "b1", "b2"}) sections_.push_back(parameter(p, key));
      sections_.push_back(1.0);
      for (const char* const key : {"a1", "a2"}) sections_.push_back(parameter(p, key));
      return;
    }
    static const std::map<std::string, const char*> types = {
        {"Peaking", "PK"},   {"Lowshelf", "LSC"}, {"Highshelf", "HSC"}, {"Lowpass", "LP"},
        {"Highpass", "HP"},  {"Notch", "NO"},     {"Bandpass", "BP"},   {"Allpass", "AP"},
        {"LowpassFO", "LP"}, {"HighpassFO", "HP"}};
    const auto found = types.find(type);
    if (found == types.end())
      refuse(p, "the filter " + quote(name) + " is a biquad " + quote(type) +
                    " of CamillaDSP, which is not supported; accepted are Free, Peaking, Lowshelf, "
                    "Highshelf, Lowpass, Highpass, LowpassFO, HighpassFO, Notch, Bandpass and "
                    "Allpass");
    const std::string kind = found->second, at = word("Fc", p, "freq");
    if (type == "LowpassFO" || type == "HighpassFO") return words(name, p, kind + at + " order 1");
    if (type == "Lowshelf" || type == "Highshelf") {
      const std::string level = word("Gain", p, "gain");
      return p["slope"]
                 ? words(name, p, kind + " " + digits(parameter(p, "slope")) + "dB" + at + level)
                 : words(name, p, kind + at + level + width(p));
    }
    words(name, p, kind + at + (type == "Peaking" ? word("Gain", p, "gain") : "") + width(p));
  }

  void combination(const std::string& name, const YAML::Node& p) {
    const std::string type = text(p["type"]);
    for (const bool low : {true, false})
      for (const bool linkwitz : {true, false}) {
        const std::string full = std::string(linkwitz ? "LinkwitzRiley" : "Butterworth") +
                                 (low ? "Lowpass" : "Highpass");
        if (type == full)
          return words(name, p,
                       (low ? "LP" : "HP") + word("Fc", p, "freq") + (linkwitz ? " LR" : "") +
                           word("order", p, "order"));
      }
    refuse(p, "the filter " + quote(name) + " is a combination " + quote(type) +
                  " of CamillaDSP, which is not supported; accepted are ButterworthLowpass, "
                  "ButterworthHighpass, LinkwitzRileyLowpass and LinkwitzRileyHighpass");
  }

  void gain(const YAML::Node& p) {
    const double value = parameter(p, "gain");
    gain_ *= text(p["scale"]) == "linear" ? value : from_decibels(value);
    if (text(p["inverted"]) == "true") gain_ = -gain_;
    if (text(p["mute"]) == "true") gain_ = 0.0;
  }

  /** Coefficients hold for one rate. */
  void check_rate(const std::string& name, const YAML::Node& node) const {
    if (rate_ > 0 && options_.rate > 0 && rate_ != options_.rate)
      refuse(node, "the filter " + quote(name) + " has coefficients for " + std::to_string(rate_) +
                       " Hz instead of " + std::to_string(options_.rate) + " Hz");
  }

  void set_other(const std::string& name, const YAML::Node& node, FilterDesign design) {
    check_rate(name, node);
    if (!other_.b.empty())
      refuse(node, "the filter " + quote(name) + " is a second one of taps or DiffEq in the chain");
    if (design.kind == FilterDesign::kIir && design.a[0] != 1.0)
      refuse(node, "the denominator of " + quote(name) + " starts with " + shown(design.a[0]) +
                       ", not with 1");
    other_ = std::move(design);
  }

  void convolution(const std::string& name, const YAML::Node& p) {
    const std::string type = text(p["type"]);
    if (type == "Values") return set_other(name, p, {FilterDesign::kFir, numbers(p, "values"), {}});
    if (type != "Raw" && type != "Wav")
      refuse(p, "the filter " + quote(name) + " is a convolution " + quote(type) +
                    " of CamillaDSP, which is not supported; accepted are Values, Raw and Wav");
    for (const char* const key : {"channel", "skip_bytes_lines", "read_bytes_lines"})
      if (p[key] && !p[key].IsNull() && parameter(p, key) != 0.0)
        refuse(p, "the filter " + quote(name) + " has " + quote(key) + ", which is not supported");
    ReadOptions options = options_;
    options.wanted = FilterDesign::kFir;
    options.format = CoefficientFormat::kAudio;
    if (type == "Raw") {
      const std::string format = text(p["format"]);
      const std::optional<CoefficientFormat> raw = raw_format_of(format);
      if (!raw && !format.empty() && format != "TEXT")
        refuse(p, quote(format) + " is no known format of raw taps");
      options.format = raw.value_or(CoefficientFormat::kNumbers);
    }
    const std::filesystem::path file =
        std::filesystem::path(path_).parent_path() / text(p["filename"]);
    set_other(name, p, load_design(file.string(), options));
  }

  const std::string& path_;
  const YAML::Node root_;
  const ReadOptions& options_;
  int rate_ = 0;                  // that the settings name
  std::vector<double> sections_;  // six values each
  FilterDesign other_{FilterDesign::kFir, {}, {}};
  double gain_ = 1.0;
};

}  // namespace

FilterDesign read_camilla(const std::string& path, const std::string& text,
                          const ReadOptions& options) {
  try {
    return Settings(path, YAML::Load(text), options).design();
  } catch (const YAML::Exception& error) {
    fail(path, error.mark.line + 1, "is no YAML of CamillaDSP: " + error.msg);
  }
}

}  // namespace jurn

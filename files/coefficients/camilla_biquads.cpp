// Biquads of CamillaDSP, and what is made of several.
#include "exact.h"

#include <cmath>
#include <map>

#include "coefficients/camilla_filters.h"
#include "elementary.h"
#include "number_text.h"
#include "units.h"

namespace jurn {
namespace {

using Strings = std::vector<std::string>;

}  // namespace

SetupStep CamillaFilters::biquad(const std::string& name, const YAML::Node& p) const {
  const std::string type = text(p["type"]);
  const auto word = [&](const char* what, const char* key) {
    return std::string(" ") + what + " " + number_text(parameter(p, key));
  };
  if (type == "Free") {
    check_rate(name, p);
    std::vector<double> row;
    for (const char* const key : {"b0", "b1", "b2"}) row.push_back(parameter(p, key));
    row.push_back(1.0);
    for (const char* const key : {"a1", "a2"}) row.push_back(parameter(p, key));
    return sections(name, row);
  }
  if (type == "LinkwitzTransform")
    return words(name, p,
                 {"LT" + word("Fc", "freq_act") + word("Q", "q_act") + word("to", "freq_target") +
                  word("Q", "q_target")});
  if (type == "GeneralNotch") {
    const int rate = rate_for_designs();
    const double zero = parameter(p, "freq_z"), pole = parameter(p, "freq_p");
    const double q = parameter(p, "q_p");
    if (!(zero > 0.0 && pole > 0.0 && zero < rate / 2.0 && pole < rate / 2.0 && q > 0.0))
      refuse(p, "the filter " + quote(name) + ": frequencies have to lie between 0 and " +
                    shown(rate / 2.0) + " Hz, and q_p above 0");
    std::vector<double> row;
    append_zeros_and_poles(zero, 0.0, pole, q, rate, &row);
    SetupStep step = sections(name, row);
    if (text(p["normalize_at_dc"]) == "true") {
      const double ratio = elementary::tan(kPi * pole / rate) / elementary::tan(kPi * zero / rate);
      scale(&step.design, ratio * ratio);
    }
    return step;
  }
  struct Type {
    const char* words;
    bool gain, first_order;
  };
  static const std::map<std::string, Type> types = {
      {"Peaking", {"PK", true, false}},     {"Lowshelf", {"LSC", true, false}},
      {"Highshelf", {"HSC", true, false}},  {"LowshelfFO", {"LSC", true, true}},
      {"HighshelfFO", {"HSC", true, true}}, {"Lowpass", {"LP", false, false}},
      {"Highpass", {"HP", false, false}},   {"LowpassFO", {"LP", false, true}},
      {"HighpassFO", {"HP", false, true}},  {"Notch", {"NO", false, false}},
      {"Bandpass", {"BP", false, false}},   {"Allpass", {"AP", false, false}},
      {"AllpassFO", {"AP", false, true}}};
  const auto found = types.find(type);
  if (found == types.end()) {
    std::string known;
    for (const auto& [key, unused] : types) known += key + ", ";
    refuse(p, "the filter " + quote(name) + " is a biquad " + quote(type) +
                  " of CamillaDSP, which is not supported; accepted are " + known +
                  "Free, GeneralNotch and LinkwitzTransform");
  }
  std::string filter = found->second.words;
  const bool slope = p["slope"] && !p["slope"].IsNull() && filter.size() == 3;  // of a shelf
  if (slope) filter += " " + number_text(parameter(p, "slope")) + "dB";
  filter += word("Fc", "freq");
  if (found->second.gain) filter += word("Gain", "gain");
  if (found->second.first_order)
    filter += " order 1";
  else if (!slope)
    filter += p["bandwidth"] && !p["bandwidth"].IsNull() ? word("BW", "bandwidth") : word("Q", "q");
  return words(name, p, {filter});
}

SetupStep CamillaFilters::combination(const std::string& name, const YAML::Node& p) const {
  const std::string type = text(p["type"]);
  const auto word = [&](const char* what, const std::string& key) {
    return std::string(" ") + what + " " + number_text(parameter(p, key));
  };
  for (const bool low : {true, false})
    for (const bool linkwitz : {true, false})
      if (type ==
          std::string(linkwitz ? "LinkwitzRiley" : "Butterworth") + (low ? "Lowpass" : "Highpass"))
        return words(name, p,
                     {(low ? "LP" : "HP") + word("Fc", "freq") + (linkwitz ? " LR" : "") +
                      word("order", "order")});
  if (type == "Tilt") {
    // Two wide shelves, whose middle is at 620 Hz.
    const double gain = parameter(p, "gain") / 2.0;
    return words(name, p,
                 {"LSC Fc 110 Gain " + number_text(-gain) + " Q 0.35",
                  "HSC Fc 3500 Gain " + number_text(gain) + " Q 0.35"});
  }
  if (type == "FivePointPeq") {
    Strings filters;
    for (const char* const band : {"ls", "p1", "p2", "p3", "hs"}) {
      const std::string key = band;
      const std::string kind = key == "ls" ? "LSC" : key == "hs" ? "HSC" : "PK";
      filters.push_back(kind + word("Fc", "f" + key) + word("Gain", "g" + key) +
                        word("Q", "q" + key));
    }
    return words(name, p, filters);
  }
  if (type == "GraphicEqualizer") {
    const auto edge = [&](const char* key, double standard) {
      return p[key] && !p[key].IsNull() ? parameter(p, key) : standard;
    };
    const std::vector<double> gains = numbers(p, "gains");
    const double low = edge("freq_min", 20.0);
    const double octaves =
        std::log2(edge("freq_max", 20000.0) / low) / static_cast<double>(gains.size());
    Strings filters;
    for (std::size_t i = 0; i < gains.size(); ++i) {
      const double centre = low * std::exp2(octaves * (static_cast<double>(i) + 0.5));
      if (gains[i] != 0.0)
        filters.push_back("PK Fc " + number_text(centre) + " Gain " + number_text(gains[i]) +
                          " BW " + number_text(octaves));
    }
    return filters.empty() ? sections(name, {1.0, 0.0, 0.0, 1.0, 0.0, 0.0})
                           : words(name, p, filters);
  }
  refuse(p, "the filter " + quote(name) + " is a combination " + quote(type) +
                " of CamillaDSP, which is not supported; accepted are ButterworthLowpass, "
                "ButterworthHighpass, LinkwitzRileyLowpass, LinkwitzRileyHighpass, Tilt, "
                "FivePointPeq and GraphicEqualizer");
}

}  // namespace jurn

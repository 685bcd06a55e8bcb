// The filters of CamillaDSP's settings as one filter for all channels, through yaml-cpp.
#include "exact.h"

#include <set>

#include "coefficients/camilla_filters.h"
#include "coefficients/libraries.h"

namespace jurn {
namespace {

class Settings {
 public:
  Settings(const std::string& path, const YAML::Node& root, const ReadOptions& options)
      : path_(path), root_(root), options_(options), filters_(path, root, options) {}

  FilterDesign design() {
    for (const std::string& name : names())
      for (const SetupStep& step : filters_.steps_of(name, root_["filters"]))
        add(step, root_["filters"][name]);
    if (other_.b.empty()) {
      if (sections_.empty()) sections_ = {1.0, 0.0, 0.0, 1.0, 0.0, 0.0};
      FilterDesign design = sections_design(path_, sections_, options_);
      scale(&design, gain_);
      return design;
    }
    if (!sections_.empty())
      fail(path_, "has taps or DiffEq beside biquads in one chain; setup runs both");
    if (options_.wanted && options_.wanted != other_.kind)
      fail(path_, other_.kind == FilterDesign::kFir ? "holds taps, which run with fir"
                                                    : "holds a DiffEq, which runs with iir");
    scale(&other_, gain_);
    return other_;
  }

 private:
  /** The filters that run, in their order: those of the pipeline, or all. */
  std::vector<std::string> names() const {
    std::vector<std::string> all;
    const YAML::Node filters = root_["filters"], pipeline = root_["pipeline"];
    if (!filters || !filters.IsMap() || filters.size() == 0) fail(path_, "holds no filters");
    if (!pipeline || pipeline.IsNull()) {
      for (const auto& filter : filters) all.push_back(CamillaFilters::text(filter.first));
      return all;
    }
    struct Step {
      std::set<std::string> channels;  // none: all
      std::vector<std::string> names;
    };
    std::vector<Step> steps;
    std::set<std::string> channels;
    for (const YAML::Node& node : pipeline) {
      if (CamillaFilters::text(node["bypassed"]) == "true") continue;
      if (CamillaFilters::text(node["type"]) != "Filter")
        filters_.refuse(
            node,
            "the pipeline's step " + quote(CamillaFilters::text(node["type"])) +
                " of CamillaDSP is not supported here; accepted is Filter, and setup runs Mixer");
      Step step;
      for (const char* const key : {"channel", "channels"})
        if (const YAML::Node list = node[key]; list && list.IsSequence())
          for (const YAML::Node& channel : list)
            step.channels.insert(CamillaFilters::text(channel));
        else if (list && list.IsScalar())
          step.channels.insert(CamillaFilters::text(list));
      for (const YAML::Node& name : node["names"]) {
        if (!filters[CamillaFilters::text(name)])
          filters_.refuse(name, "there is no filter " + quote(CamillaFilters::text(name)));
        step.names.push_back(CamillaFilters::text(name));
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
    const int count = filters_.channels_of("capture");
    const bool all_named = count ? count == static_cast<int>(channels.size()) : channels.size() > 1;
    all = chain_of(all_named ? *channels.begin() : std::string());
    for (const std::string& channel : channels)
      if (chain_of(channel) != all)
        fail(path_,
             "CamillaDSP's pipeline filters channels in different ways; one filter for all "
             "channels is supported here, and setup runs them all");
    return all;
  }

  void add(const SetupStep& step, const YAML::Node& filter) {
    const FilterDesign& d = step.design;
    if (step.kind == SetupStep::kGain) {
      gain_ *= step.gain;
    } else if (step.kind == SetupStep::kDelay) {
      filters_.refuse(filter, "the filter " + quote(step.name) +
                                  " of the type 'Delay' is not supported here; setup runs it");
    } else if (d.kind == FilterDesign::kSections) {
      const std::vector<double> rows = rows_of_sections(d);
      sections_.insert(sections_.end(), rows.begin(), rows.end());
    } else if (!other_.b.empty()) {
      filters_.refuse(filter, "the filter " + quote(step.name) +
                                  " is a second one of taps or DiffEq in the chain; setup runs it");
    } else {
      other_ = d;
    }
  }

  const std::string& path_;
  const YAML::Node root_;
  const ReadOptions& options_;
  CamillaFilters filters_;
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

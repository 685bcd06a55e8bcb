#include "exact.h"

#include "coefficients/setups.h"

#include <algorithm>
#include <set>

#include "coefficients/camilla_filters.h"

namespace jurn {
namespace {

int checked_channels(const std::string& path, int channels) {
  if (channels < 1 || channels > kMostSetupChannels)
    fail(path, "runs on " + std::to_string(channels) + " channels; a setup takes 1 to " +
                   std::to_string(kMostSetupChannels));
  return channels;
}

/** From the pipeline of settings to the steps of a setup. */
class Pipeline {
 public:
  Pipeline(const std::string& path, const YAML::Node& root, const ReadOptions& options)
      : path_(path), root_(root), filters_(path, root, options) {}

  SetupFile read(int inputs) {
    const YAML::Node pipeline = steps();
    const int said = count().first;
    setup_.inputs = checked_channels(path_, said ? said : inputs);
    for (const YAML::Node& step : pipeline) {
      if (!step.IsMap()) filters_.refuse(step, "a step of the pipeline has a type");
      if (CamillaFilters::text(step["bypassed"]) == "true") continue;
      const std::string type = CamillaFilters::text(step["type"]);
      if (type == "Filter")
        add_filters(step);
      else if (type == "Mixer")
        add_mixer(step);
      else
        filters_.refuse(step, "the pipeline's step " + quote(type) +
                                  " of CamillaDSP is not supported; accepted are Filter and Mixer");
    }
    const int playback = filters_.channels_of("playback");
    if (playback && playback != setup_.outputs())
      filters_.refuse(filters_.device("playback"), "the playback has " + std::to_string(playback) +
                                                       " channels, and the pipeline makes " +
                                                       std::to_string(setup_.outputs()));
    return {setup_, filters_.remarks(), filters_.files()};
  }

  /** Its channels, 0 where the settings do not say. */
  std::pair<int, int> count() const {
    std::pair<int, int> channels{filters_.channels_of("capture"), 0};
    channels.second = channels.first;
    for (const YAML::Node& step : steps()) {
      if (!is_mixer(step)) continue;
      if (!channels.first) channels.first = mixer_channels(mixer_of(step), "in");
      channels.second = mixer_channels(mixer_of(step), "out");
    }
    return channels;
  }

 private:
  YAML::Node steps() const {
    const YAML::Node pipeline = root_["pipeline"];
    if (!pipeline || !pipeline.IsSequence() || pipeline.size() == 0)
      fail(path_, "holds no pipeline, a list of steps that says what runs on which channel");
    return pipeline;
  }

  static bool is_mixer(const YAML::Node& step) {
    return step.IsMap() && CamillaFilters::text(step["type"]) == "Mixer" &&
           CamillaFilters::text(step["bypassed"]) != "true";
  }

  int channels() const { return setup_.outputs(); }  // after the steps so far

  void add_filters(const YAML::Node& step) {
    std::set<int> chosen;
    for (const char* const key : {"channels", "channel"}) {
      const YAML::Node list = step[key];
      if (!list || list.IsNull()) continue;
      if (list.IsScalar()) chosen.insert(filters_.whole(list, key, 0, channels() - 1));
      for (const YAML::Node& channel : list)
        chosen.insert(filters_.whole(channel, key, 0, channels() - 1));
    }
    std::vector<int> all(chosen.begin(), chosen.end());
    if (all.empty())
      for (int c = 0; c < channels(); ++c) all.push_back(c);
    const YAML::Node names = step["names"];
    if (!names || !names.IsSequence()) filters_.refuse(step, "a filter step has a list of 'names'");
    for (const YAML::Node& name : names)
      for (SetupStep& filter : filters_.steps_of(CamillaFilters::text(name), name)) {
        filter.channels = all;
        setup_.steps.push_back(std::move(filter));
      }
  }

  YAML::Node mixer_of(const YAML::Node& step) const {
    const std::string name = CamillaFilters::text(step["name"]);
    const YAML::Node mixers = root_["mixers"];
    const YAML::Node mixer = mixers && mixers.IsMap() ? mixers[name] : YAML::Node();
    if (!mixer || !mixer.IsMap()) filters_.refuse(step, "there is no mixer " + quote(name));
    return mixer;
  }

  int mixer_channels(const YAML::Node& mixer, const char* key) const {
    const YAML::Node count = mixer["channels"];
    if (!count || !count.IsMap() || !count[key])
      filters_.refuse(mixer, "a mixer has channels: {in: N, out: N}");
    return filters_.whole(count[key], key, 1, kMostSetupChannels);
  }

  void add_mixer(const YAML::Node& step) {
    const YAML::Node node = mixer_of(step);
    SetupStep mixer{};
    mixer.kind = SetupStep::kMixer;
    mixer.name = CamillaFilters::text(step["name"]);
    const int inputs = mixer_channels(node, "in");
    mixer.outputs = mixer_channels(node, "out");
    if (inputs != channels())
      filters_.refuse(node, "the mixer " + quote(mixer.name) + " takes " + std::to_string(inputs) +
                                " channels, and " + std::to_string(channels()) + " come in");
    std::set<int> mapped;
    for (const YAML::Node& way : node["mapping"]) {
      if (!way.IsMap() || !way["dest"]) filters_.refuse(way, "a mapping has a 'dest'");
      const int output = filters_.whole(way["dest"], "dest", 0, mixer.outputs - 1);
      if (!mapped.insert(output).second)
        filters_.refuse(way, "the mixer " + quote(mixer.name) + " maps the output " +
                                 std::to_string(output) + " twice");
      if (CamillaFilters::text(way["mute"]) == "true") continue;
      for (const YAML::Node& source : way["sources"]) {
        if (!source.IsMap() || !source["channel"])
          filters_.refuse(source, "a source has a 'channel'");
        const int input = filters_.whole(source["channel"], "channel", 0, inputs - 1);
        if (const double gain = filters_.gain_of(source); gain != 0.0)
          mixer.routes.push_back({input, output, gain});
      }
    }
    setup_.steps.push_back(std::move(mixer));
  }

  const std::string& path_;
  const YAML::Node root_;
  CamillaFilters filters_;
  Setup setup_;
};

}  // namespace

static std::string read_text(const std::string& path) {
  std::string text = read_file(path);
  if (text.size() == kMostFileBytes) fail(path, "is larger than any setup");
  return text;
}

static bool is_equaliser(const std::string& path, const std::string& text) {
  return recognise(path, plain_text(text)) == CoefficientFormat::kEqualiser;
}

/** Lets `use` read the settings of a text. */
template <typename Use>
static auto with_settings(const std::string& path, const std::string& text, int rate, Use use) {
  ReadOptions options{};
  options.limits = filter_limits(Precision::kDouble);
  options.rate = rate;
  try {
    const YAML::Node root = YAML::Load(text);
    if (!root.IsMap()) fail(path, "is no setup: settings of CamillaDSP in YAML are");
    Pipeline pipeline(path, root, options);
    return use(&pipeline);
  } catch (const YAML::Exception& error) {
    fail(path, error.mark.line + 1, "is no YAML of CamillaDSP: " + error.msg);
  }
}

SetupFile read_setup(const std::string& path, int rate, int inputs) {
  const std::string text = read_text(path);
  if (is_equaliser(path, text)) {
    ReadOptions options{};
    options.limits = filter_limits(Precision::kDouble);
    options.rate = rate;
    return {parse_equaliser_setup(path, text, checked_channels(path, inputs), options), {}, {}};
  }
  return with_settings(path, text, rate, [&](Pipeline* p) { return p->read(inputs); });
}

std::pair<int, int> count_setup_channels(const std::string& path) {
  const std::string text = read_text(path);
  if (is_equaliser(path, text)) return {0, 0};
  return with_settings(path, text, 0, [](Pipeline* p) { return p->count(); });
}

}  // namespace jurn

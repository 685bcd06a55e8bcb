// The named filters of CamillaDSP's settings, as steps of a setup.
#pragma once

#include <yaml-cpp/yaml.h>

#include <string>
#include <vector>

#include "coefficients/parse.h"
#include "design/setup.h"

namespace jurn {

/** Settings, and errors that name their file and line. */
class CamillaFilters {
 public:
  CamillaFilters(const std::string& path, const YAML::Node& root, const ReadOptions& options);

  [[noreturn]] void refuse(const YAML::Node& node, const std::string& message) const;

  /** A setting of the devices; a node that is false where there is none. */
  YAML::Node device(const char* key) const;
  /** The channels of "capture" or "playback"; 0 where the settings do not say. */
  int channels_of(const char* side) const;

  /** The text of a scalar, or none. */
  static std::string text(const YAML::Node& node);
  double number(const YAML::Node& node, const std::string& key) const;
  /** A parameter that has to be there. */
  double parameter(const YAML::Node& parameters, const std::string& key) const;
  /** A whole number from `low` to `high`. */
  int whole(const YAML::Node& node, const std::string& key, int low, int high) const;
  /** A gain with `scale`, `inverted` and `mute`; 1 where there is none. */
  double gain_of(const YAML::Node& parameters) const;

  /** What a filter does, for no channels yet. `used` is where its name stands. */
  std::vector<SetupStep> steps_of(const std::string& name, const YAML::Node& used);

  /** What was rounded on the way. */
  const std::vector<std::string>& remarks() const { return remarks_; }
  /** The files that were read. */
  const std::vector<std::string>& files() const { return files_; }

 private:
  int rate_for_designs() const;
  std::vector<double> numbers(const YAML::Node& parameters, const std::string& key) const;
  void check_rate(const std::string& name, const YAML::Node& node) const;
  std::string file_of(const YAML::Node& parameters);

  SetupStep words(const std::string& name, const YAML::Node& node,
                  const std::vector<std::string>& filters) const;
  SetupStep sections(const std::string& name, const std::vector<double>& rows) const;
  SetupStep biquad(const std::string& name, const YAML::Node& p) const;
  SetupStep combination(const std::string& name, const YAML::Node& p) const;
  SetupStep convolution(const std::string& name, const YAML::Node& p);
  SetupStep difference_equation(const std::string& name, const YAML::Node& p) const;
  std::vector<SetupStep> equaliser(const std::string& name, const YAML::Node& p) const;
  std::vector<SetupStep> delay(const std::string& name, const YAML::Node& p);

  const std::string& path_;
  const YAML::Node root_;
  const ReadOptions& options_;
  int rate_ = 0;  // that the settings name
  std::vector<std::string> remarks_, files_;
};

}  // namespace jurn

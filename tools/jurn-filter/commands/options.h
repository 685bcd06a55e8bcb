// Options that several subcommands take.
#pragma once

#include <CLI/CLI.hpp>
#include <map>
#include <string>

#include "errors.h"
#include "recordings/audio_io.h"

namespace jurn {

/** How a subcommand reports and what it may replace. */
struct CommonOptions {
  bool overwrite = false, quiet = false, json = false;
};
void add_overwrite(CLI::App* command, bool* overwrite);
void add_common_options(CLI::App* command, CommonOptions* common);

/** A number from `low` to `high`. CLI::Range takes what is no number, too. */
CLI::Validator between(double low, double high);

void add_raw(CLI::App* command, InputFormat* raw);
void add_gain_option(CLI::App* command, double* gain_db);

/** A check of nothing whose name tells the completion what an option takes: words and spaces. */
CLI::Validator choices(const std::string& words);

/** A choice between named values. */
template <typename Value, typename Target>
CLI::Option* add_choice(CLI::App* command, const char* name, Target* value, const char* description,
                        const std::map<std::string, Value>& values, const char* standard) {
  const auto choose = [=](const std::string& text) {
    const auto found = values.find(text);
    std::string known;
    for (const auto& [key, unused] : values) known += (known.empty() ? "" : ", ") + key;
    if (found == values.end())
      throw Error(kUsageError, std::string(name) + " " + text + ": takes one of " + known);
    *value = found->second;
  };
  std::string words;
  for (const auto& [key, unused] : values) words += key + " ";
  return command->add_option_function<std::string>(name, choose, description)
      ->check(choices(words))
      ->type_name("NAME")
      ->default_str(standard);
}

}  // namespace jurn

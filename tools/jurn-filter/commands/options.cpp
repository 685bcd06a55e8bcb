#include "commands/options.h"

#include <cstdio>
#include <cstdlib>

#include "coefficients/parse.h"

namespace jurn {
namespace {

InputFormat parse_raw(const std::string& text) {
  InputFormat raw;
  int end = 0;
  if (std::sscanf(text.c_str(), "%d,%d%n", &raw.rate, &raw.channels, &end) != 2 ||
      text.c_str()[end] || raw.rate < 1 || raw.rate > kMostRate || raw.channels < 1 ||
      raw.channels > kMaxChannels)
    throw Error(kUsageError, "--raw " + text + ": takes RATE,CHANNELS, like 48000,2 or 8000,1");
  return raw;
}

}  // namespace

CLI::Validator between(double low, double high) {
  const std::string range = "[" + shown(low) + " - " + shown(high) + "]";
  const auto check = [=](const std::string& text) -> std::string {
    char* end = nullptr;
    const double value = std::strtod(text.c_str(), &end);
    if (end != text.c_str() && !*end && value >= low && value <= high) return {};
    return "Value " + text + " not in range " + range;
  };
  return CLI::Validator(check, "FLOAT in " + range);
}

CLI::Validator choices(const std::string& words) {
  return CLI::Validator(std::string()).name(words);
}

void add_raw(CLI::App* command, InputFormat* raw) {
  command
      ->add_option_function<std::string>(
          "--raw",
          [raw](const std::string& text) {
            const bool partial = raw->partial;
            *raw = parse_raw(text);
            raw->partial = partial;
          },
          "IN has little-endian int16 samples and no header; a result to standard output, too")
      ->type_name("RATE,CHANNELS");
  command->add_flag("--partial", raw->partial, "Take what is there of an IN that was cut off");
}

void add_overwrite(CLI::App* command, bool* overwrite) {
  command->add_flag("--overwrite", *overwrite, "Replace files that exist");
}

void add_common_options(CLI::App* command, CommonOptions* common) {
  add_overwrite(command, &common->overwrite);
  command->add_flag("-q,--quiet", common->quiet, "Say nothing unless there is a problem");
  command->add_flag("--json", common->json, "Print the summary as a line of JSON");
}

void add_gain_option(CLI::App* command, double* gain_db) {
  command->add_option("--gain", *gain_db, "Gain of the filter in dB")
      ->check(between(-200.0, 200.0));
}

}  // namespace jurn

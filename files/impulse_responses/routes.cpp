#include "impulse_responses/routes.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <map>
#include <sstream>

#include "Convolution_control.h"
#include "coefficients/parse.h"
#include "errors.h"
#include "units.h"

namespace fs = std::filesystem;

namespace jurn {
namespace {

/** A route as its file names it. */
struct Entry {
  int line;
  int input, output;  // from 0
  double gain = 1.0;
  long delay = 0;               // frames of silence before the taps
  long offset = 0, length = 0;  // which part of the file; a length of 0 is all
  int channel = 1;              // of the file
  std::string file;             // empty: a single tap
};

/** What a file of routes says. */
struct RouteList {
  std::string name;
  int inputs = 0, outputs = 0;
  long most_taps = 0;  // 0: no limit
  std::vector<Entry> entries;

  [[noreturn]] void fail(int line, const std::string& problem) const {
    throw Error(kInputError, name + ":" + std::to_string(line) + ": " + problem);
  }
  void check_channel(int line, int channel, const char* what) const {
    if (channel < 1 || channel > JURN_CONVOLUTION_CHANNELS)
      fail(line, std::string(what) + " " + std::to_string(channel) + " is not from 1 to " +
                     std::to_string(JURN_CONVOLUTION_CHANNELS));
  }
  void add(Entry entry, int input, int output) {
    check_channel(entry.line, input, "input");
    check_channel(entry.line, output, "output");
    if (entry.channel < 1 || entry.delay < 0 || entry.offset < 0 || entry.length < 0)
      fail(entry.line, "delay, offset, length and channel are not negative");
    entry.input = input - 1;
    entry.output = output - 1;
    inputs = std::max(inputs, input);
    outputs = std::max(outputs, output);
    if (entries.size() == JURN_CONVOLUTION_ROUTES)
      fail(entry.line, "more than " + std::to_string(JURN_CONVOLUTION_ROUTES) + " routes");
    entries.push_back(std::move(entry));
  }
};

std::string after_space(std::istringstream* words) {
  std::string rest;
  std::getline(*words >> std::ws, rest);
  const std::size_t end = rest.find_last_not_of(" \t\r");
  return end == std::string::npos ? std::string() : rest.substr(0, end + 1);
}

/** One command of a configuration file of jconvolver. `folder` is where its files lie. */
void read_command(const std::string& command, std::istringstream* words, int line, fs::path* folder,
                  RouteList* list) {
  const auto wanted = [&](const char* what) { list->fail(line, command + " takes " + what); };
  Entry entry{};
  entry.line = line;
  int input = 0, output = 0;
  if (command == "/cd") {
    *folder /= after_space(words);
  } else if (command == "/convolver/new") {
    if (list->inputs > 0) list->fail(line, command + " comes once, before the routes");
    int partition;
    if (!(*words >> list->inputs >> list->outputs >> partition >> list->most_taps))
      wanted("inputs, outputs, partition and longest response");
    list->check_channel(line, list->inputs, "the count of inputs,");
    list->check_channel(line, list->outputs, "the count of outputs,");
  } else if (command == "/impulse/read") {
    if (!(*words >> input >> output >> entry.gain >> entry.delay >> entry.offset >> entry.length >>
          entry.channel))
      wanted("input, output, gain, delay, offset, length, channel and a file");
    const std::string file = after_space(words);
    if (file.empty()) wanted("a file after the channel");
    entry.file = (*folder / file).string();
    // The folder is often one of the author's machine, with the files beside the configuration.
    std::error_code ignored;
    const fs::path beside = fs::path(list->name).parent_path() / file;
    if (!fs::exists(entry.file, ignored) && fs::exists(beside, ignored))
      entry.file = beside.string();
    list->add(entry, input, output);
  } else if (command == "/impulse/dirac") {
    if (!(*words >> input >> output >> entry.gain >> entry.delay))
      wanted("input, output, gain and delay");
    list->add(entry, input, output);
  } else if (command == "/impulse/copy") {
    int from_input = 0, from_output = 0;
    if (!(*words >> input >> output >> from_input >> from_output))
      wanted("input, output, and the input and output to copy from");
    const std::vector<Entry> before = list->entries;
    for (Entry copied : before) {
      if (copied.input != from_input - 1 || copied.output != from_output - 1) continue;
      copied.line = line;
      list->add(copied, input, output);
    }
    if (list->entries.size() == before.size())
      list->fail(line, "there is no route from input " + std::to_string(from_input) +
                           " to output " + std::to_string(from_output) + " to copy");
  } else if (command != "/input/name" && command != "/output/name") {
    list->fail(line, command + " is not supported");
  }
}

/** What may follow the file of a route: its channel, a gain in dB, and "inverted". */
void read_details(std::istringstream* words, int line, const RouteList& list, Entry* entry) {
  bool has_channel = false, has_gain = false;
  for (std::string word; *words >> word && word[0] != '#';) {
    std::string text = lower(word);
    if (text == "inverted") {
      entry->gain = -entry->gain;
      continue;
    }
    const bool decibels = text.size() > 2 && text.compare(text.size() - 2, 2, "db") == 0;
    if (decibels) text.resize(text.size() - 2);
    std::istringstream number(text);
    double value = 0.0;
    const bool is_number = number >> value && number.eof() && std::abs(value) <= 200.0;
    const bool is_channel = !decibels && !has_channel && value == std::floor(value) && value >= 1.0;
    if (!is_number || has_gain || !(decibels || has_channel || is_channel))
      list.fail(line,
                "after the file come the number of its channel and a gain in dB (-3dB), not '" +
                    word + "'; a name with spaces stands in quotes");
    if (is_channel) {
      entry->channel = static_cast<int>(value);
      has_channel = true;
    } else {
      entry->gain *= from_decibels(value);
      has_gain = true;
    }
  }
}

RouteList read_list(const std::string& path) {
  RouteList list;
  list.name = path;
  std::error_code error;
  if (!fs::exists(path, error)) throw Error(kInputError, path + ": no such file");
  std::ifstream file(path);
  if (fs::is_directory(path, error) || !file) throw Error(kInputError, path + ": cannot be read");
  fs::path folder = fs::path(path).parent_path();
  std::string text;
  for (int line = 1; std::getline(file, text); ++line) {
    if (!text.empty() && text.back() == '\r') text.pop_back();
    const auto is_control = [](unsigned char c) { return std::iscntrl(c) && c != '\t'; };
    if (std::any_of(text.begin(), text.end(), is_control) || text.size() > 10000)
      list.fail(line, "is no text of routes");
    std::istringstream words(text);
    std::string first;
    if (!(words >> first) || first[0] == '#') continue;
    if (first[0] == '/') {
      read_command(first, &words, line, &folder, &list);
      continue;
    }
    words.str(text);
    words.clear();
    Entry entry{};
    entry.line = line;
    int input = 0, output = 0;
    std::string name;
    if (!(words >> input >> output >> std::quoted(name)))
      list.fail(line,
                "a route has an input, an output, a file, and perhaps a channel of it and a gain");
    read_details(&words, line, list, &entry);
    entry.file = (folder / name).string();
    list.add(entry, input, output);
  }
  if (list.entries.empty()) throw Error(kInputError, path + ": holds no routes");
  return list;
}

}  // namespace

Routing read_routes(const std::string& path, int rate, const ImpulseResponseOptions& options) {
  const RouteList list = read_list(path);
  std::map<std::string, ImpulseResponse> files;
  Routing routing{list.inputs, list.outputs, {}};
  const double limit = list.most_taps ? static_cast<double>(list.most_taps) : options.max_taps;
  for (const Entry& entry : list.entries) {
    std::vector<double> taps{1.0};
    if (!entry.file.empty()) {
      ImpulseResponseOptions whole = options;
      whole.normalise = false;
      whole.part = {static_cast<std::size_t>(entry.offset), static_cast<std::size_t>(entry.length)};
      const std::string key =
          entry.file + '\n' + std::to_string(entry.offset) + ' ' + std::to_string(entry.length);
      if (!files.count(key)) files[key] = read_impulse_response({entry.file}, rate, whole);
      const ImpulseResponse& response = files[key];
      if (entry.channel > static_cast<int>(response.size()))
        list.fail(entry.line, entry.file + " has " + std::to_string(response.size()) +
                                  " channels, not " + std::to_string(entry.channel));
      taps = response[static_cast<std::size_t>(entry.channel) - 1];
    }
    if (static_cast<double>(entry.delay) >= limit)
      list.fail(entry.line,
                "a delay of " + std::to_string(entry.delay) + " frames leaves no room for taps");
    taps.insert(taps.begin(), static_cast<std::size_t>(entry.delay), 0.0);
    if (static_cast<double>(taps.size()) > limit) taps.resize(static_cast<std::size_t>(limit));
    for (double& tap : taps) {
      tap *= entry.gain;
      if (!in_range(tap))
        list.fail(entry.line, "a gain of " + shown(entry.gain) + " makes taps that no float holds");
    }
    routing.routes.push_back({entry.input, entry.output, std::move(taps)});
  }
  return routing;
}

std::vector<std::string> files_of_routes(const std::string& path) {
  std::vector<std::string> files;
  for (const Entry& entry : read_list(path).entries) files.push_back(entry.file);
  return files;
}

std::pair<int, int> count_routes(const std::string& path) {
  const RouteList list = read_list(path);
  return {list.inputs, list.outputs};
}

}  // namespace jurn

#include <filesystem>
#include <map>
#include <memory>

#include "coefficients/parse.h"
#include "commands/commands.h"
#include "errors.h"
#include "live/live_run.h"
#include "live/service.h"
#include "report.h"

namespace jurn {
namespace {

const std::map<std::string, FilterFileKind> kKinds = {
    {"coefficients", FilterFileKind::kCoefficients},
    {"response", FilterFileKind::kResponse},
    {"routes", FilterFileKind::kRoutes},
    {"setup", FilterFileKind::kSetup},
    {"hrtf", FilterFileKind::kHrtf}};

struct Options {
  LiveOptions live;
  bool is_named = false, installs = false, uninstalls = false;
};

/** The words for a service that does the same. */
std::vector<std::string> arguments_of(const LiveOptions& o) {
  std::vector<std::string> words = {
      "live", std::filesystem::absolute(o.file).string(), "--default", "-q", "--name", o.node.name};
  if (o.node.is_microphone) words.push_back("--input");
  const auto add = [&](const char* name, const std::string& value) {
    words.insert(words.end(), {name, value});
  };
  if (!o.node.target.empty()) add("--target", o.node.target);
  if (o.channels) add("--channels", std::to_string(o.channels));
  if (o.gain_db != 0.0) add("--gain", shown(o.gain_db));
  for (const auto& [name, kind] : kKinds)
    if (kind == o.kind) add("--as", name);
  return words;
}

void run(Options options) {
  LiveOptions& o = options.live;
  if (!options.is_named && o.node.is_microphone) o.node.name = "JURN microphone";
  if (options.uninstalls) {
    note(uninstall_service(o.node.name) + ": removed");
    return;
  }
  if (o.file.empty()) throw Error(kUsageError, "live takes a file of a filter");
  if (options.installs) {
    [[maybe_unused]] const FilterFile refused_now(o.file, o.kind, kUsualRate, o.channels);
    note(install_service(o.node.name, arguments_of(o)) + ": runs now and at each login; \"" +
         o.node.name + "\" is what programs use unless another one was chosen in the settings");
    return;
  }
  run_live(o);
}

}  // namespace

void add_live(CLI::App* app, Run* to_run) {
  const auto options = std::make_shared<Options>();
  LiveOptions* const o = &options->live;
  CLI::App* live = app->add_subcommand(
      "live", "Filters what programs play, while they play it: a node of PipeWire");
  live->add_option("FILE", o->file,
                   "Coefficients, equaliser, impulse response, routes, setup of loudspeakers, or a "
                   "set of HRTFs (.sofa). Saved anew, it fades in");
  add_choice<FilterFileKind>(live, "--as", &o->kind, "What the file is, where its content misleads",
                             kKinds, "by its content");
  live->add_flag("--input", o->node.is_microphone,
                 "Filter what programs record: make a microphone, not an output");
  live->add_option("--channels", o->channels, "Channels of the input; by default those of the file")
      ->check(CLI::Range(1, kMostChannels));
  live->add_option("--target", o->node.target,
                   "Name of the node to play to or record from, as pw-cli shows it; by default the "
                   "default one")
      ->type_name("NODE");
  CLI::Option* name =
      live->add_option("--name", o->node.name, "What programs show")->capture_default_str();
  live->add_flag("--default", o->node.is_default,
                 "Be what programs use unless another one was chosen in the settings");
  add_gain_option(live, &o->gain_db);
  CLI::Option* record =
      live->add_option("--record", o->record, "Keeps what is heard, in floats, until the end")
          ->type_name("OUT");
  CLI::Option* check =
      live->add_option(
              "--check", o->check,
              "Runs so many seconds, then prints missed cycles, the dearest one and the cost")
          ->check(between(0.1, 1e6))
          ->type_name("SECONDS");
  CLI::Option* install = live->add_flag(
      "--install", options->installs,
      "Run as a service of systemd, with these options, now and at each login; implies --default");
  install->excludes(record)->excludes(check);
  live->add_flag("--uninstall", options->uninstalls, "Remove the service of this name")
      ->excludes(install);
  add_overwrite(live, &o->overwrite);
  live->add_flag("-q,--quiet", o->quiet, "Say nothing but warnings");
  live->final_callback([=] {
    options->is_named = name->count() > 0;
    *to_run = [options] { run(*options); };
  });
  live->footer(std::string("Keys on a terminal: ") + kKeys +
               ".\nExample:\n  jurn-filter live ParametricEQ.txt --gain -3");
}

}  // namespace jurn

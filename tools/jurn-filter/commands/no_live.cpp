// In a build without PipeWire.
#include "commands/commands.h"
#include "errors.h"

namespace jurn {

void add_live(CLI::App* app, Run* run) {
  CLI::App* live = app->add_subcommand("live", "Needs a build with PipeWire");
  live->allow_extras()->final_callback(
      [=] { *run = [] { throw Error(kUsageError, "live: this build has no PipeWire"); }; });
}

}  // namespace jurn

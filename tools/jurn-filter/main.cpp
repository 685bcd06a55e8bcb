// jurn-filter: filters recordings through the library. The subcommands are in commands/.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>
#include <new>
#include <sstream>
#include <string>
#include <vector>

#include "JURN_api.h"
#include "JURN_self_check.h"
#include "commands/commands.h"
#include "errors.h"
#include "recordings/output_file.h"
#include "recordings/signals.h"
#include "report.h"

namespace {

using namespace jurn;

/** What the command line asks for: filters in series, or something else to run. */
struct Request {
  Files files;
  std::vector<std::unique_ptr<Filter>> filters;
  Run run;
};

/** Adds the filters and, of the first one, everything else. */
void add_subcommands(bool follows, CLI::App* app, Request* request) {
  request->filters.push_back(std::make_unique<Filter>());
  app->require_subcommand(1);
  for (const auto& add :
       {add_fir, add_iir, add_sos, add_eq, add_average, add_convolve, add_binaural, add_setup})
    add(app, request->filters.back().get(), follows ? nullptr : &request->files);
  if (!follows)
    for (const auto& add :
         {add_level, add_response, add_spectrogram, add_export, add_fit, add_live})
      add(app, &request->run);
}

/** Parses one filter and, of the first, everything else. The arguments come last one first. */
void parse(std::vector<std::string> arguments, CLI::App* app, Request* request) {
  const bool follows = !request->filters.empty();
  add_subcommands(follows, app, request);
  const std::string name = arguments.empty() ? "" : arguments.back();
  std::string known;
  bool found = name.substr(0, 1) == "-";
  for (const CLI::App* command : app->get_subcommands(nullptr)) {
    known += (known.empty() ? "" : ", ") + command->get_name();
    found = found || command->get_name() == name;
  }
  if (!found)
    throw Error(kUsageError, (name.empty() ? "" : "'" + name + "' is no subcommand; ") +
                                 (follows ? "--then takes a subcommand that filters: "
                                          : "jurn-filter takes a subcommand: ") +
                                 known);
  app->parse(std::move(arguments));
}

/** Prints what may stand in place of the last word: a line each, perhaps with a tab and what it is.
 * Nothing where a file's name stands, or a value of the user's. */
void complete(const std::vector<std::string>& words, CLI::App* app) {
  if (words.empty()) return;
  const std::string& last = words.back();
  const auto print = [&](const std::string& word, const std::string& what) {
    if (word.compare(0, last.size(), last) == 0)
      std::printf("%s%s%s\n", word.c_str(), what.empty() ? "" : "\t", what.c_str());
  };
  const auto then = std::find(words.rbegin() + 1, words.rend(), "--then");
  Request request;
  add_subcommands(then != words.rend(), app, &request);
  const auto own = then.base();  // the words of the filter at hand
  if (&*own == &last) {
    for (const CLI::App* command : app->get_subcommands(nullptr))
      print(command->get_name(), command->get_description());
    for (const CLI::Option* option : app->get_options())
      print("--" + option->get_lnames().front(), option->get_description());
  } else if (CLI::App* const command = app->get_subcommand(*own); last.substr(0, 1) == "-") {
    for (const CLI::Option* option : command->get_options())
      for (const std::string& name : option->get_lnames())
        print("--" + name, option->get_description());
    if (command->get_option_no_throw("--block")) print("--then", "Another filter");
  } else if (CLI::Option* const option = command->get_option_no_throw(*(words.rbegin() + 1))) {
    std::istringstream choices(option->get_validator(0)->get_name());
    for (std::string choice; choices >> choice;) print(choice, "");
  }
}

/** Runs the subcommand that the arguments name. */
int run_command(const std::vector<std::string>& arguments, CLI::App* app) {
  if (!arguments.empty() && arguments[0] == "--complete") {
    try {
      complete({arguments.begin() + 1, arguments.end()}, app);
    } catch (const CLI::OptionNotFound&) {  // no such subcommand, or an option without choices
    }
    return 0;
  }
  Request request;
  auto end = std::find(arguments.begin(), arguments.end(), "--then");
  parse({std::make_reverse_iterator(end), arguments.rend()}, app, &request);
  while (end != arguments.end()) {
    const auto begin = end + 1;
    end = std::find(begin, arguments.end(), "--then");
    CLI::App next("A filter after --then takes its own options only.", "jurn-filter ... --then");
    try {
      parse({std::make_reverse_iterator(end), std::make_reverse_iterator(begin)}, &next, &request);
    } catch (const CLI::ParseError& e) {
      if (e.get_exit_code() == 0) return next.exit(e);  // --help
      throw Error(kUsageError, "after --then: " + std::string(e.what()));
    }
  }
  if (!request.run) return run_filters(request.files, request.filters);
  if (request.filters.size() > 1)
    throw Error(kUsageError, "--then follows a subcommand that filters");
  request.run();
  return 0;
}

/** What was printed has to arrive, too. Returns the exit code. */
int finish_output(int code) {
  if (std::fflush(stdout) == 0 && !std::ferror(stdout)) return code;
  if (errno == EPIPE) return exit_code(kPipeClosed);
  const std::string reason = errno ? std::strerror(errno) : "an earlier write failed";
  return report_error(exit_code(kOutputError),
                      "standard output: cannot be written (" + reason + ")");
}

/** Says that the memory is used up, without any. */
int report_no_memory() {
  std::fputs("jurn-filter: not enough memory\n", stderr);
  return exit_code(kInputError);
}

/** CLI11 allocates in functions that promise not to throw. */
[[noreturn]] void end_where_nothing_may_be_thrown() {
  try {
    if (const auto error = std::current_exception()) std::rethrow_exception(error);
  } catch (const std::bad_alloc&) {
    std::_Exit(report_no_memory());
  } catch (...) {
  }
  std::abort();
}

}  // namespace

int main(int argc, char** argv) {
  std::set_terminate(end_where_nothing_may_be_thrown);
  try {
    CLI::App app("Filters recordings: FIR, IIR, sections, moving average, long impulse responses.",
                 "jurn-filter");
    app.set_version_flag("--version", "jurn-filter " JURN_VERSION_STRING);
    app.footer(
        "Filters in series: jurn-filter fir IN OUT -c taps.txt --then average --length 8\n"
        "Exit codes: 0 done, 2 wrong command line, 3 unreadable input, 4 unwritable result, "
        "130 interrupted, 141 closed pipe");
    open_standard_streams();
    catch_signals();
    if (const int broken = MORVAX_SelfCheck_API())
      warn(
          "this build, or the floating-point mode that it was started in, does not give the same "
          "bits as others (self-check " +
          std::to_string(broken) + ")");
    try {
      return finish_output(run_command({argv + 1, argv + argc}, &app));
    } catch (const CLI::ParseError& e) {
      if (e.get_exit_code() == 0) return finish_output(app.exit(e));  // --help
      return report_error(exit_code(kUsageError), e.what());
    } catch (const Error& e) {
      return report_error(exit_code(e.kind), e.what());
    }
  } catch (const std::bad_alloc&) {
    return report_no_memory();
  } catch (const std::exception& e) {
    return report_error(exit_code(kInputError), e.what());
  }
}

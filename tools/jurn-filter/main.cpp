// jurn-filter: filters recordings through the library. This file only turns the command line into
// jobs.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <map>
#include <string>

#include "coefficients.h"
#include "errors.h"
#include "run.h"
#include "stages.h"

namespace {

using namespace tool;

struct Options {
  Job job;
  int block = 1024;
  std::string coefficients, numerator, denominator;
  int length = 0;
};

/** What every subcommand that writes a recording takes. */
CLI::App* add_command(CLI::App* app, Options* o, const char* name, const char* description,
                      const char* example) {
  CLI::App* command = app->add_subcommand(name, description);
  command->add_option("IN", o->job.input, "Recording, mono or stereo, in any format of libsndfile")
      ->required();
  command->add_option("OUT", o->job.output, "Result; its name's ending chooses the format")
      ->required();
  command
      ->add_option("--block", o->block,
                   "Frames per call of the library; changes no sample of the result")
      ->check(CLI::Range(1, kMaxBlock))
      ->capture_default_str();
  command->footer(std::string("Example:\n  jurn-filter ") + example);
  return command;
}

void add_coefficients(CLI::App* command, Options* o, const char* description) {
  command->add_option("-c,--coefficients", o->coefficients, description);
}

FilterDesign read_iir_design(const Options& o) {
  if (o.coefficients.empty() == (o.numerator.empty() || o.denominator.empty()))
    throw Error(kUsageError, "iir takes either --coefficients or --numerator and --denominator");
  if (!o.coefficients.empty()) return read_iir(o.coefficients, iir_limit());
  return read_iir(o.numerator, o.denominator, iir_limit());
}

/** A job that runs one design. */
void set_filter(Options* o, FilterDesign design) {
  o->job.also_read = {o->coefficients, o->numerator, o->denominator};
  const int block = o->block;
  o->job.make_chain = [design = std::move(design), block](int channels, int, double gain) {
    FilterDesign scaled = design;
    scale(&scaled, gain);
    Chain chain;
    chain.push_back(make_filter(scaled, channels, block));
    return chain;
  };
}

void set_average(Options* o) {
  const int block = o->block, length = o->length;
  o->job.make_chain = [=](int channels, int, double) {
    Chain chain;
    chain.push_back(make_average(length, channels, block));
    return chain;
  };
}

void add_commands(CLI::App* app, Options* o) {
  CLI::App* fir = add_command(app, o, "fir", "Filters with taps of a text file",
                              "fir speech.wav out.wav --coefficients taps.txt");
  add_coefficients(fir, o, "Taps: numbers separated by white space or commas, # comments");
  fir->get_option("--coefficients")->required();
  fir->final_callback([o] { set_filter(o, read_fir(o->coefficients, fir_limit())); });

  CLI::App* iir = add_command(app, o, "iir", "Filters with a direct-form IIR",
                              "iir speech.wav out.wav --coefficients ba.txt");
  add_coefficients(iir, o, "Two lines of numbers: numerator, and denominator starting with 1");
  iir->add_option("--numerator", o->numerator, "Numerator in a file of its own");
  iir->add_option("--denominator", o->denominator, "Denominator in a file of its own");
  iir->final_callback([o] { set_filter(o, read_iir_design(*o)); });

  CLI::App* sos = add_command(app, o, "sos", "Filters with a cascade of second-order sections",
                              "sos music.flac out.flac --coefficients sections.txt");
  add_coefficients(sos, o, "One section per line: b0 b1 b2 a0 a1 a2, with a0 = 1");
  sos->get_option("--coefficients")->required();
  sos->final_callback([o] { set_filter(o, read_sections(o->coefficients, section_limit())); });

  CLI::App* average = add_command(app, o, "average", "Replaces each sample by a moving average",
                                  "average music.flac out.wav --length 64");
  average->add_option("--length", o->length, "Samples that are averaged")
      ->required()
      ->check(CLI::Range(1, kMaxAverage));
  average->final_callback([o] { set_average(o); });
}

/** Every failure is one line. */
int report(int code, std::string message) {
  std::replace(message.begin(), message.end(), '\n', ' ');
  std::fprintf(stderr, "jurn-filter: %s\n", message.c_str());
  return code;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("Filters recordings: FIR, IIR, sections, moving average.", "jurn-filter");
  app.require_subcommand(1);
  Options options;
  add_commands(&app, &options);
  catch_interruptions();
  try {
    app.parse(argc, argv);
    print(run(options.job));
  } catch (const CLI::ParseError& e) {
    if (e.get_exit_code() == 0) return app.exit(e);  // --help
    return report(kUsageError, e.what());
  } catch (const Error& e) {
    return report(e.code, e.what());
  } catch (const std::exception& e) {
    return report(kInputError, e.what());
  }
  return kSuccess;
}

#include "design/export.h"

#include <cstdio>
#include <filesystem>

#include "commands/coefficients.h"
#include "commands/commands.h"
#include "design/stability.h"
#include "errors.h"
#include "recordings/output_file.h"
#include "report.h"
#include "units.h"

namespace jurn {
namespace {

struct ExportCommand {
  DesignOptions design;
  std::string fir, iir, sos, output, name;
  std::vector<std::string> filters;
  std::optional<ExportFormat> format;
  int rate = 48000;
  double gain_db = 0.0;
  bool overwrite = false, quiet = false;
};

ExportFormat format_of(const ExportCommand& o) {
  if (o.format) return *o.format;
  const std::string ending = std::filesystem::path(o.output).extension().string();
  if (ending == ".h" || ending == ".hpp") return ExportFormat::kHeader;
  if (ending == ".npy") return ExportFormat::kNumPy;
  if (ending == ".mat") return ExportFormat::kMatlab;
  if (ending == ".txt" || ending == ".csv" || o.output == kStandardStream)
    return ExportFormat::kText;
  throw Error(kUsageError, o.output +
                               ": its name ends in .h, .npy, .mat or .txt, or --type says "
                               "what it becomes");
}

void run_export(const ExportCommand& o) {
  CoefficientFiles files = o.design.files;
  FilterDesign::Kind kind = FilterDesign::kIir;
  if (!o.fir.empty()) {
    files.all = o.fir;
    kind = FilterDesign::kFir;
  } else if (!o.sos.empty()) {
    files.all = o.sos;
    kind = FilterDesign::kSections;
  } else if (!o.iir.empty()) {
    files.all = o.iir;
  }
  const double gain = from_decibels(o.gain_db);
  const std::string source = o.filters.empty() ? files.name() : "the equaliser";
  FilterDesign design{};
  if (o.filters.empty()) {
    design = read_design(files, kind, o.design.precision, o.design.reading, o.rate);
  } else {
    design = parse_equaliser_words(o.filters, o.rate);
    if (o.design.reading.normalise) normalise(source, &design);
  }
  scale(&design, gain);
  warn(check_peak(source, design, 1.0));
  ExportOptions options;
  options.precision = o.design.precision;
  const Prepared prepared =
      prepare_and_say(source, design, o.design, {source, 1, o.rate, 0, SampleFormat::kInt16}, true);
  const std::string stem = std::filesystem::path(o.output).stem().string();
  options.name = identifier_of(!o.name.empty() ? o.name : stem == "-" ? "filter" : stem);
  char error[80];
  std::snprintf(error, sizeof error,
                "%.2g LSB of 16 bits at most from the design, in noise and tones",
                prepared.expected_error);
  options.remark = "Coefficients of " + std::filesystem::path(source).filename().string() +
                   ", as they run" + (o.filters.empty() ? "" : ":");
  for (const std::string& filter : o.filters) options.remark += "\n  " + filter;
  if (!o.filters.empty()) options.remark += "\nat " + std::to_string(o.rate) + " Hz";
  if (prepared.design.kind != FilterDesign::kFir) options.remark += "\n" + std::string(error);
  refuse_overwrite(o.output, {files.all, files.numerator, files.denominator});
  write_file(o.output, o.overwrite, export_design(prepared.design, format_of(o), options));
}

}  // namespace

void add_export(CLI::App* app, Run* run) {
  const auto o = std::make_shared<ExportCommand>();
  CLI::App* command = app->add_subcommand(
      "export", "Writes a filter's coefficients exactly as they run, for a program of yours");
  command->add_option("OUT", o->output, "Result; .h becomes C, .npy, .mat and .txt what they say")
      ->required();
  CLI::Option_group* source = command->add_option_group("Filter", "One of these");
  source->add_option("--fir", o->fir, "Taps, in a file as fir takes it");
  source->add_option("--iir", o->iir, "Numerator and denominator, in a file as iir takes it");
  source->add_option("--denominator", o->design.files.denominator, "With --numerator")
      ->needs(command->add_option("--numerator", o->design.files.numerator,
                                  "Numerator in a file of its own"));
  source->add_option("--sos", o->sos, "Sections, in a file as sos takes it");
  source->add_option("--eq", o->filters, "A filter in the words of eq; may be given several times")
      ->allow_extra_args(false);
  source->require_option(1);
  add_choice<ExportFormat>(command, "--type", &o->format,
                           "What OUT becomes: header, npy, mat, text",
                           {{"header", ExportFormat::kHeader},
                            {"npy", ExportFormat::kNumPy},
                            {"mat", ExportFormat::kMatlab},
                            {"text", ExportFormat::kText}},
                           "by its name");
  command->add_option("--rate", o->rate, "Sampling rate that equalisers are designed for")
      ->check(CLI::Range(1, kMostRate))
      ->capture_default_str();
  command->add_option("--name", o->name, "Of the functions and arrays of a header");
  add_gain_option(command, &o->gain_db);
  add_reading(command, &o->design.reading);
  add_signs(command, &o->design.reading);
  o->design.precision = Precision::kInt16;
  add_choice<Precision>(command, "--precision", &o->design.precision,
                        "int16: for the filter of 16-bit streams, in float; double: for that of "
                        "float streams",
                        {{"int16", Precision::kInt16}, {"double", Precision::kDouble}}, "int16");
  add_as_is(command, &o->design);
  add_overwrite(command, &o->overwrite);
  command->footer("Example:\n  jurn-filter export presence.h --eq 'PK 3k -4 Q 2' --rate 48000");
  command->final_callback([=] { *run = [o] { run_export(*o); }; });
}

}  // namespace jurn

#include <algorithm>

#include "commands/coefficients.h"
#include "commands/commands.h"
#include "errors.h"
#include "impulse_responses/impulse_response.h"
#include "plotting/response_plot.h"
#include "recordings/output_file.h"
#include "streams/convolve.h"
#include "text.h"
#include "units.h"

namespace tool {
namespace {

struct Options {
  std::vector<std::string> fir_files, iir_files, section_files, numerators, denominators;
  std::vector<std::string> impulse_responses;
  std::vector<int> averages;
  double gain_db = 0.0;
  ReadingOptions reading;
  ImpulseResponseOptions impulse_response;
  int rate = 0;
  std::vector<Panel> panels;  // of the picture; empty for the usual ones
  std::string picture;        // its file; printed as text when this and `csv` are empty
  std::string csv;            // file of all values, "-" for standard output
  bool overwrite = false;
  std::vector<std::string> also_read;
};

struct NamedFilter {
  std::string name;
  FilterDesign design;
};

/** The filters of a picture, in the order of the command line. */
std::vector<NamedFilter> read_filters(const CLI::App& command, Options* o) {
  std::vector<NamedFilter> filters;
  if (o->rate == 0)
    o->rate = o->impulse_responses.empty() ? 48000 : AudioReader(o->impulse_responses[0], 4).rate();
  o->impulse_response.normalise = o->reading.normalise;
  o->impulse_response.max_taps = JURN_CONVOLUTION_TAPS;
  o->impulse_response.limit =
      "at most " + std::to_string(o->impulse_response.max_taps) + " can run";
  const double gain = from_decibels(o->gain_db);
  const auto add = [&](const std::string& name, FilterDesign design) {
    scale(&design, gain);
    filters.push_back({name, std::move(design)});
  };
  const auto add_files = [&](const CoefficientFiles& files, FilterDesign::Kind kind,
                             const CoefficientLimit& limit) {
    add(short_name(files.name()), read_design(files, kind, limit, o->reading, o->rate, gain));
    o->also_read.insert(o->also_read.end(), {files.all, files.numerator, files.denominator});
  };
  if (o->numerators.size() != o->denominators.size())
    throw Error(kUsageError, "each --numerator takes a --denominator");
  std::map<std::string, std::size_t> used;
  for (const CLI::Option* option : command.parse_order()) {
    const std::string name = option->get_name();
    const std::size_t i = used[name]++;
    if (name == "--fir") {
      add_files({o->fir_files[i], {}, {}}, FilterDesign::kFir, fir_limit());
    } else if (name == "--iir") {
      add_files({o->iir_files[i], {}, {}}, FilterDesign::kIir, iir_limit());
    } else if (name == "--sos") {
      add_files({o->section_files[i], {}, {}}, FilterDesign::kSections, section_limit());
    } else if (name == "--denominator") {
      add_files({{}, o->numerators[i], o->denominators[i]}, FilterDesign::kIir, iir_limit());
    } else if (name == "--average") {
      const std::size_t n = static_cast<std::size_t>(o->averages[i]);
      filters.push_back(
          {"mean of " + std::to_string(n),
           {FilterDesign::kFir, std::vector<double>(n, 1.0 / static_cast<double>(n)), {}}});
    } else if (name == "--ir") {
      const std::string& path = o->impulse_responses[i];
      const ImpulseResponse channels = read_impulse_response({path}, o->rate, o->impulse_response);
      for (std::size_t c = 0; c < channels.size(); ++c)
        add(short_name(path) + (channels.size() > 1 ? ", channel " + std::to_string(c + 1) : ""),
            {FilterDesign::kFir, channels[c], {}});
      o->also_read.push_back(path);
    }
  }
  if (filters.empty())
    throw Error(kUsageError,
                "response takes filters: --fir, --iir, --sos, --average or --ir, each as often as "
                "needed");
  return filters;
}

std::string table(const std::vector<NamedResponse>& responses, int rate) {
  std::string text = "filter,quantity,x,y\n";
  for (const NamedResponse& r : responses) {
    const std::string name = csv_field(r.name);
    const auto row = [&](const char* quantity, double x, double y) {
      append(&text, "%s,%s,%.9g,%.9g\n", name.c_str(), quantity, x, y);
    };
    for (std::size_t i = 0; i < r.frequency.size(); ++i) {
      row("magnitude_db", r.frequency[i], r.magnitude[i]);
      row("phase_degrees", r.frequency[i], r.phase[i]);
      row("group_delay_ms", r.frequency[i], r.delay[i]);
    }
    for (std::size_t i = 0; i < r.impulse.size(); ++i) {
      const double ms = 1000.0 * static_cast<double>(i) / rate;
      row("impulse", ms, r.impulse[i]);
      row("step", ms, r.step[i]);
    }
    for (const std::complex<double>& z : r.poles) row("pole", z.real(), z.imag());
    for (const std::complex<double>& z : r.zeros) row("zero", z.real(), z.imag());
  }
  return text;
}

void run_response(const Options& o, const std::vector<NamedFilter>& filters) {
  std::vector<Panel> panels = o.panels;
  if (panels.empty()) {
    panels = {Panel::kMagnitude};
    if (!o.picture.empty())
      panels = {Panel::kMagnitude, Panel::kImpulse,    Panel::kPhase,
                Panel::kStep,      Panel::kGroupDelay, Panel::kPoles};
  }
  for (const std::string* output : {&o.picture, &o.csv})
    if (!output->empty()) refuse_overwrite(*output, o.also_read);
  std::vector<NamedResponse> responses;
  for (const NamedFilter& filter : filters)
    responses.push_back({respond(filter.design, o.rate), filter.name});
  if (!o.csv.empty()) write_file(o.csv, o.overwrite, table(responses, o.rate));
  if (!o.picture.empty() || o.csv.empty())
    draw(o.picture, o.overwrite,
         plot_responses(picture_format(o.picture), panels, o.rate, responses));
}

}  // namespace

void add_response(CLI::App* app, Run* run) {
  const auto o = std::make_shared<Options>();
  CLI::App* response =
      app->add_subcommand("response", "Shows what filters do to frequencies, impulses and steps");
  const auto several = [&](const char* name, auto* values, const char* description) {
    return response->add_option(name, *values, description)->allow_extra_args(false);
  };
  several("--fir", &o->fir_files, "File of taps, as for the subcommand fir");
  several("--iir", &o->iir_files, "File of numerator and denominator, as for iir");
  several("--numerator", &o->numerators, "Numerator of an IIR filter in a file of its own");
  several("--denominator", &o->denominators, "Denominator of the same filter");
  several("--sos", &o->section_files, "File of sections, as for sos");
  several("--average", &o->averages, "Length of a moving average")
      ->check(CLI::Range(1, kMaxAverage));
  several("--ir", &o->impulse_responses,
          "Impulse response, as for convolve; every channel is a filter");
  response
      ->add_option("--rate", o->rate,
                   "Samples per second; by default that of the first --ir, or 48000")
      ->check(CLI::Range(1, 100000000))
      ->default_str("");
  response->add_option("-p,--picture", o->picture,
                       "Picture, .png or .svg; without it the response is printed");
  response->add_option("--csv", o->csv, "File of all values; - for standard output");
  response
      ->add_option(
          "--show", o->panels,
          "Parts of the picture: magnitude, phase, delay, impulse, step, poles; by default "
          "all in a picture and the magnitude in print")
      ->transform(
          CLI::CheckedTransformer(std::map<std::string, Panel>{{"magnitude", Panel::kMagnitude},
                                                               {"phase", Panel::kPhase},
                                                               {"delay", Panel::kGroupDelay},
                                                               {"impulse", Panel::kImpulse},
                                                               {"step", Panel::kStep},
                                                               {"poles", Panel::kPoles}})
              .description(""))
      ->delimiter(',')
      ->allow_extra_args(false)
      ->type_name("NAMES");
  add_overwrite(response, &o->overwrite);
  add_gain_option(response, &o->gain_db);
  add_reading(response, &o->reading);
  add_signs(response, &o->reading);
  response->add_flag("--resample", o->impulse_response.resample,
                     "Convert impulse responses at another rate");
  response
      ->add_option("--truncate", o->impulse_response.truncate, "Taps of impulse responses to keep")
      ->check(CLI::Range(1, JURN_CONVOLUTION_TAPS));
  response->footer(
      "Example:\n  jurn-filter response --fir taps.txt --sos sections.txt --picture response.svg");
  response->final_callback([=] {
    picture_format(o->picture);  // a wrong name fails before any work
    const std::vector<NamedFilter> filters = read_filters(*response, o.get());
    *run = [=] { run_response(*o, filters); };
  });
}

}  // namespace tool

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

namespace jurn {
namespace {

/** What the options of one filter say. */
struct FilterOptions {
  double gain_db = 0.0;
  ReadingOptions reading;
  ImpulseResponseOptions impulse_response;
  std::string label;
};

/** A filter of the command line: files of coefficients, an impulse response or a mean. */
struct FilterRequest {
  FilterDesign::Kind kind = FilterDesign::kFir;
  CoefficientFiles files;
  std::string impulse_response;
  int average = 0;
  FilterOptions options;
};

struct ResponseOptions {
  std::vector<FilterRequest> filters;
  FilterOptions of_all;   // what stands before the first filter
  FilterOptions current;  // of the last filter so far
  int rate = 0;
  std::vector<Panel> panels;  // of the picture; empty for the usual ones
  std::string picture;        // its file; printed as text when this and `csv` are empty
  std::string csv;            // file of all values, "-" for standard output
  bool overwrite = false;
  std::vector<std::string> also_read;
};

/** Ends the options of the last filter. */
void keep_options(ResponseOptions* o) {
  if (o->filters.empty())
    o->of_all = o->current;
  else
    o->filters.back().options = o->current;
  o->current = o->of_all;
}

FilterRequest* add_request(ResponseOptions* o, FilterDesign::Kind kind) {
  keep_options(o);
  o->filters.emplace_back().kind = kind;
  return &o->filters.back();
}

/** Half of a filter in two files; the other half may stand before it. */
void add_half(ResponseOptions* o, std::string CoefficientFiles::*half, const std::string& path) {
  const auto& last = o->filters;
  const bool completes = !last.empty() && (last.back().files.*half).empty() &&
                         !(last.back().files.numerator + last.back().files.denominator).empty();
  FilterRequest* request = completes ? &o->filters.back() : add_request(o, FilterDesign::kIir);
  request->files.*half = path;
}

struct NamedFilter {
  std::string name;
  FilterDesign design;
};

/** The filters of a picture, in the order of the command line. */
std::vector<NamedFilter> read_filters(ResponseOptions* o) {
  if (o->filters.empty())
    throw Error(kUsageError,
                "response takes filters: --fir, --iir, --sos, --average or --ir, each as often as "
                "needed");
  for (FilterRequest& request : o->filters) {
    const ReadingOptions& reading = request.options.reading;
    ImpulseResponseOptions& response = request.options.impulse_response;
    response.normalise = reading.normalise;
    response.format = reading.format;
    response.variables = reading.variables;
    if (o->rate == 0 && !request.impulse_response.empty())
      o->rate = rate_of_response(request.impulse_response, response);
  }
  if (o->rate == 0) o->rate = 48000;
  std::vector<NamedFilter> filters;
  for (FilterRequest& request : o->filters) {
    FilterOptions& options = request.options;
    const double gain = from_decibels(options.gain_db);
    const auto add = [&](const std::string& name, const std::string& part, FilterDesign design) {
      scale(&design, gain);
      filters.push_back({(options.label.empty() ? name : options.label) + part, std::move(design)});
    };
    if (request.average > 0) {
      const std::size_t n = static_cast<std::size_t>(request.average);
      add("mean of " + std::to_string(n), "",
          {FilterDesign::kFir, std::vector<double>(n, 1.0 / static_cast<double>(n)), {}});
    } else if (!request.impulse_response.empty()) {
      const std::string& path = request.impulse_response;
      const ImpulseResponse channels =
          read_impulse_response({path}, o->rate, options.impulse_response);
      for (std::size_t c = 0; c < channels.size(); ++c)
        add(short_name(path), channels.size() > 1 ? ", channel " + std::to_string(c + 1) : "",
            {FilterDesign::kFir, channels[c], {}});
      o->also_read.push_back(path);
    } else {
      const CoefficientFiles& files = request.files;
      if (files.all.empty() && (files.numerator.empty() || files.denominator.empty()))
        throw Error(kUsageError, "each --numerator takes a --denominator");
      add(short_name(files.name()), "",
          read_design(files, request.kind, Precision::kDouble, options.reading, o->rate));
      o->also_read.insert(o->also_read.end(), {files.all, files.numerator, files.denominator});
    }
  }
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

void run_response(const ResponseOptions& o, const std::vector<NamedFilter>& filters) {
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
  const auto o = std::make_shared<ResponseOptions>();
  CLI::App* response =
      app->add_subcommand("response", "Shows what filters do to frequencies, impulses and steps");
  // Each of these starts a filter, in the order of the command line.
  const auto filter = [&](const char* name, std::function<void(const std::string&)> start,
                          const char* description) {
    return response->add_option_function<std::string>(name, start, description)
        ->trigger_on_parse()
        ->type_name("FILE");
  };
  const auto whole = [=](FilterDesign::Kind kind) {
    return [=](const std::string& path) { add_request(o.get(), kind)->files.all = path; };
  };
  filter("--fir", whole(FilterDesign::kFir), "File of taps, as for the subcommand fir");
  filter("--iir", whole(FilterDesign::kIir), "File of numerator and denominator, as for iir");
  filter(
      "--numerator",
      [=](const std::string& path) { add_half(o.get(), &CoefficientFiles::numerator, path); },
      "Numerator of an IIR filter in a file of its own");
  filter(
      "--denominator",
      [=](const std::string& path) { add_half(o.get(), &CoefficientFiles::denominator, path); },
      "Denominator of the same filter");
  filter("--sos", whole(FilterDesign::kSections), "File of sections, as for sos");
  response
      ->add_option_function<int>(
          "--average",
          [=](int length) { add_request(o.get(), FilterDesign::kFir)->average = length; },
          "Length of a moving average")
      ->trigger_on_parse()
      ->check(CLI::Range(1, kMaxAverage));
  filter(
      "--ir",
      [=](const std::string& path) {
        add_request(o.get(), FilterDesign::kFir)->impulse_response = path;
      },
      "Impulse response, as for convolve; every channel is a filter");
  response
      ->add_option("--rate", o->rate,
                   "Samples per second; by default that of the first --ir, or 48000")
      ->check(CLI::Range(1, kMostRate))
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
              .description("")
              .name("magnitude phase delay impulse step poles"))
      ->delimiter(',')
      ->allow_extra_args(false)
      ->type_name("NAMES");
  add_overwrite(response, &o->overwrite);
  // These hold for the filter that they follow; before the first one, for all.
  const std::size_t common = response->get_options().size();
  FilterOptions* current = &o->current;
  add_gain_option(response, &current->gain_db);
  add_reading(response, &current->reading);
  add_signs(response, &current->reading);
  response->add_flag("--resample", current->impulse_response.resample,
                     "Convert an impulse response at another rate");
  response
      ->add_option("--truncate", current->impulse_response.truncate,
                   "Taps of an impulse response to keep")
      ->check(CLI::Range(1, JURN_CONVOLUTION_TAPS));
  response->add_option("--label", current->label, "Name in the picture instead of the file's");
  const std::vector<CLI::Option*> options = response->get_options();
  for (std::size_t i = common; i < options.size(); ++i)
    options[i]->trigger_on_parse()->group("Options of the filter before them, or of all");
  CLI::Option *negate = response->get_option("--negate-a"),
              *keep = response->get_option("--keep-a");
  negate->remove_excludes(keep);  // they may stand at two filters
  keep->remove_excludes(negate);
  response->footer(
      "Example:\n  jurn-filter response --fir taps.txt --sos sections.txt --gain -6 --picture "
      "response.svg");
  response->final_callback([=] {
    picture_format(o->picture);  // a wrong name fails before any work
    keep_options(o.get());
    const std::vector<NamedFilter> filters = read_filters(o.get());
    *run = [=] { run_response(*o, filters); };
  });
}

}  // namespace jurn

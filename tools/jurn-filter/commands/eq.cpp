#include "commands/coefficients.h"
#include "commands/commands.h"
#include "commands/setup.h"
#include "errors.h"
#include "units.h"

namespace jurn {
namespace {

constexpr char kName[] = "the equaliser";
constexpr char kWords[] =
    "Filters, each as one word in quotes: a type (PK, LS, HS, LP, HP, BP, NO, AP, TILT, LT), a "
    "frequency, for PK, shelves and TILT a gain in dB, and Q N or BW N; LP and HP take order N for "
    "a Butterworth filter, LR order N for one of Linkwitz and Riley; LS, HS and AP take order 1; "
    "LP, HP and BP take linear for linear phase, and transition N; LT takes frequency and Q of a "
    "closed box, and those that it gets";

/** Takes the filters out of the names: what begins with a type, and with two files before it all.
 */
void take_filters(Files* files, std::vector<std::string>* filters) {
  std::vector<std::string> names;
  for (const std::string& word : files->names) {
    const bool is_name = files->output_dir.empty() ? names.size() < 2 : true;
    if (is_name && !names_equaliser_type(word))
      names.push_back(word);
    else
      filters->push_back(word);
  }
  files->names = names;
}

/** What only a filter that is the same for all channels can have. */
void check_setup_options(const std::string& name, const DesignOptions& o) {
  const char* const option = o.precision == Precision::kInt16 ? "--precision int16"
                             : o.reading.normalise            ? "--normalise"
                             : o.align                        ? "--align"
                             : o.zero_phase                   ? "--zero-phase"
                                                              : nullptr;
  if (option)
    throw Error(kUsageError, name +
                                 ": has filters of single channels ('Channel'), which run "
                                 "without " +
                                 option);
}

}  // namespace

void add_eq(CLI::App* app, Filter* filter, Files* files) {
  const auto o = std::make_shared<DesignOptions>();
  const auto filters = std::make_shared<std::vector<std::string>>();
  CLI::App* eq =
      add_filter_command(app, filter, files, "eq", "Filters with an equaliser given in words",
                         "eq song.flac out.wav 'HP 80 order 4' 'PK 3k -4 Q 2' 'HS 8k +3'");
  if (files)
    eq->get_option("FILES")->type_name("IN OUT FILTER...");
  else
    eq->add_option("FILTERS", *filters, kWords)->type_name("FILTER...");
  if (files) eq->footer(std::string(kWords) + ".\n" + eq->get_footer());
  add_gain(eq, filter);
  eq->add_option(
      "-c,--coefficients", o->files.all,
      "File of filters that run first: lines of room correction programs (Preamp, Filter, "
      "GraphicEQ), or a filter in words a line");
  eq->add_flag("--normalise", o->reading.normalise,
               "Scale the largest gain over all frequencies to 0 dB, before --gain");
  add_preparation(eq, o.get());
  add_ends(eq, o.get());
  eq->final_callback([=] {
    if (files) take_filters(files, filters.get());
    if (filters->empty() && o->files.all.empty())
      throw Error(kUsageError,
                  "eq takes filters, like 'HP 80 Q 0.7' or 'PK 3k -4 Q 2', or -c FILE");
    filter->also_read = {o->files.all};
    const std::string name = o->files.all.empty() ? kName : o->files.all;
    filter->make_chain = [=, designs = std::vector<FilterDesign>(),
                          by_channel = std::optional<Setup>(), rate = 0,
                          channels = 0](const Recording& recording, double gain) mutable {
      const bool is_new = rate != recording.rate || (by_channel && channels != recording.channels);
      ReadOptions options{};
      if (is_new) {
        rate = recording.rate;
        options.limits = filter_limits(o->precision);
        options.rate = rate;
        channels = recording.channels;
        by_channel = load_channel_filters(o->files.all, *filters, channels, options);
        if (by_channel) check_setup_options(name, *o);
      }
      if (by_channel) {
        std::unique_ptr<Stage> stage = make_setup(name, {*by_channel, {}, {}}, gain, recording,
                                                  is_new, files && files->common.quiet);
        stage->keep_tail = o->tail;
        return chain_of(std::move(stage));
      }
      if (is_new) {
        designs = load_equaliser(o->files.all, *filters, options);
        if (o->reading.normalise) normalise(name, &designs);
      }
      Chain chain;
      for (const FilterDesign& design : designs)
        chain.push_back(
            make_filter(name, design, chain.empty() ? gain : 1.0, *o, recording, is_new));
      return chain;
    };
  });
}

}  // namespace jurn

#include "commands/coefficients.h"
#include "commands/commands.h"

namespace jurn {

void add_fir(CLI::App* app, Filter* filter, Files* files) {
  const auto o = std::make_shared<DesignOptions>();
  CLI::App* fir = add_filter_command(app, filter, files, "fir", "Filters with taps of a file",
                                     "fir speech.wav out.wav --coefficients taps.txt");
  add_coefficients(fir, filter, o.get(),
                   "Taps: numbers as text or CSV (# comments), NumPy .npy, .mat, C header, or WAV")
      ->required();
  add_precision(fir, o.get());
  fir->add_flag("--time-domain", o->time_domain,
                "Tap by tap whatever the number of taps, as live filters run; by default from 64 "
                "taps on by transforms, where that is exact enough");
  add_ends(fir, o.get());
  fir->final_callback([=] { set_design(filter, o, FilterDesign::kFir); });
}

}  // namespace jurn

#include "commands/coefficients.h"
#include "commands/commands.h"
#include "errors.h"

namespace jurn {

void add_iir(CLI::App* app, Filter* filter, Files* files) {
  const auto o = std::make_shared<DesignOptions>();
  CLI::App* iir = add_filter_command(app, filter, files, "iir", "Filters with a direct-form IIR",
                                     "iir speech.wav out.wav --coefficients ba.txt");
  add_coefficients(iir, filter, o.get(),
                   "Two lines of numbers, numerator and denominator starting with 1; or b and a of "
                   "an .npy, a .mat or a C header, which are divided by a0");
  iir->add_option("--numerator", o->files.numerator, "Numerator in a file of its own");
  iir->add_option("--denominator", o->files.denominator, "Denominator in a file of its own");
  add_signs(iir, &o->reading);
  add_preparation(iir, o.get());
  iir->add_flag(
      "--as-sections", o->as_sections,
      "With --precision int16: run as sections in any case, not only where rounding spoils "
      "the direct form");
  add_ends(iir, o.get());
  iir->final_callback([=] {
    if (o->files.all.empty() == (o->files.numerator.empty() || o->files.denominator.empty()))
      throw Error(kUsageError, "iir takes either --coefficients or --numerator and --denominator");
    set_design(filter, o, FilterDesign::kIir);
  });
}

}  // namespace jurn

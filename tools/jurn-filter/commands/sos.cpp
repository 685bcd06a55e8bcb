#include "commands/coefficients.h"
#include "commands/commands.h"

namespace jurn {

void add_sos(CLI::App* app, Filter* filter, Files* files) {
  const auto o = std::make_shared<DesignOptions>();
  CLI::App* sos = add_filter_command(app, filter, files, "sos",
                                     "Filters with a cascade of second-order sections",
                                     "sos music.flac out.flac --coefficients sections.txt");
  add_coefficients(sos, filter, o.get(),
                   "One section per line: b0 b1 b2 a0 a1 a2, with a0 = 1; or sections of an .npy, "
                   "a .mat or a C header, a biquad list, or equaliser lines")
      ->required();
  add_signs(sos, &o->reading);
  add_preparation(sos, o.get());
  add_ends(sos, o.get());
  sos->final_callback([=] { set_design(filter, o, FilterDesign::kSections); });
}

}  // namespace jurn

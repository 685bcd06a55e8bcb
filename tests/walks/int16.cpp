/* Filter_ID against the reference: configurations, set-ups, copies and blocks on whatever state the
 * calls before have left. */
#include "../reference.h"
#include "walk.h"

void walk_int16(Random& random) {
  const auto configured = [&](Filter_ID* r) {
    if (random.one_in(2)) fill_rubbish(random, r);
    configure(random, r, JURN_COEFFICIENTS);
    if (random.one_in(20)) r->chanel = random.one_of({0, 3, -1});
    if (random.one_in(20)) r->filtertype = random.one_of({-2, 3, 99});
  };
  const auto reset = [](bool library, Filter_ID* r) {
    library ? MORVAX_FilterReset_API(r) : ref::reset(r);
  };
  // Counts that a run may not meet end in a new configuration.
  const auto set_up = [&](Twins<Filter_ID>& twins, bool odd) {
    const int type = odd ? random.in(-2, -1) : random.in(-1, 2);
    const int order = odd ? random.in(-2, -1) : random.count(0, type < 1 ? 1249 : 832);
    const int entries = type < 1 ? std::max(0, order + 1) : (order + 1) / 2 * 3;
    const auto taps = [&](float* x, int count) { random.taps(x, count); };
    Twin<float> num(random, entries, taps), den(random, entries, taps);
    MORVAX_FilterCalcu_API_FromMatlabTable(twins[true], num[true], den[true], order, type);
    ref::set_up(twins[false], num[false], den[false], order, type);
  };
  const auto copy = [&](Twins<Filter_ID>& twins, bool odd) {
    const auto other = std::make_unique<Filter_ID>();
    fill_rubbish(random, other.get());
    other->blen = odd ? random.in(-1, 0) : random.in(1, JURN_COEFFICIENTS);
    other->alen = odd ? random.in(-1, 0) : random.in(1, JURN_COEFFICIENTS);
    MORVAX_Filter_abCopy_API(twins[true], other.get());
    ref::copy(twins[false], other.get());
    MORVAX_Filter_abCopy_API(twins[true], twins[true]);
  };
  walk<Filter_ID>(
      random, 40, [&](Twins<Filter_ID>& twins) { twins.both(configured); }, reset,
      [&](Twins<Filter_ID>& twins) {
        const bool odd = random.one_in(5);
        random.one_in(2) ? set_up(twins, odd) : copy(twins, odd);
        require(same_record(twins[true], twins[false]), "the set-ups are equal");
        if (odd) twins.both(configured);
        // The moving average's sum belongs to a ring of its length, which none of the two makes.
        for (bool library : {false, true})
          if (!odd && twins[library]->filtertype == 2) reset(library, twins[library]);
      },
      [&](Twins<Filter_ID>& twins) {
        const int inLen = random.count(0, longest_block(twins[true]));
        return runs_alike(random, inLen, inLen, [&](bool library, const short* in, short* out) {
          library ? MORVAX_FilterRun_API(twins[true], in, inLen, out)
                  : ref::run(twins[false], in, inLen, out);
        });
      });
}

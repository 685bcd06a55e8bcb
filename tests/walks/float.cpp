/* Filterf_ID against the reference, with float and with int16 input. */
#include "../reference.h"
#include "walk.h"

void walk_float(Random& random) {
  const auto configured = [&](Filterf_ID* r) {
    const bool wild = random.one_in(10);
    if (random.one_in(2)) {
      random.floats(r->memL.meminput, static_cast<int>(std::size(r->memL.meminput)), wild);
      random.states(r->memL.memoutput, static_cast<int>(std::size(r->memL.memoutput)));
    }
    r->blen = random.count(1, 201);
    r->alen = random.count(1, 201);
    random.taps(r->b, r->blen, wild);
    random.denominator(r->a, r->alen, wild);
    r->filtertype = random.one_in(10) ? random.one_of({1, 2, 5, -2}) : random.in(-1, 0);
  };
  const auto configure = [&](Twins<Filterf_ID>& twins) { twins.both(configured); };
  walk<Filterf_ID>(
      random, 40, configure,
      [](bool library, Filterf_ID* r) { library ? MORVAX_FilterfReset_API(r) : ref::reset(r); },
      configure,
      [&](Twins<Filterf_ID>& twins) {
        const Filterf_ID* const r = twins[true];
        MORVAX_FilterfRun_API_shortin(twins[true], nullptr, -random.in(1, 5), nullptr);
        const int len = random.count(0, 2513 - std::max(r->blen, r->filtertype ? 1 : r->alen));
        if (len <= 1056 && random.one_in(2)) {
          Twin<short> input(random, len, [&](short* x, int count) { random.signal(x, count); });
          return runs_alike<float>(
              random, len, input, [&](bool library, const short* in, float* out) {
                library ? MORVAX_FilterfRun_API_shortin(twins[true], in, len, out)
                        : ref::run(twins[false], in, len, out);
              });
        }
        const bool wild = random.one_in(10);
        Twin<float> input(random, len, [&](float* x, int count) { random.floats(x, count, wild); });
        return runs_alike<float>(random, len, input,
                                 [&](bool library, const float* in, float* out) {
                                   library ? MORVAX_FilterfRun_API(twins[true], in, len, out)
                                           : ref::run(twins[false], in, len, out);
                                 });
      });
}

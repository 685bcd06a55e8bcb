/* Filterlongfir_ID, all kinds but the FFT ones, against the reference: outputs and whole record. */
#include "fuzz.h"

namespace {

void configure_long(Bytes* bytes, Filterlongfir_ID* r) {
  const int most = bytes->in(0, 7) ? 2000 : 32767;
  if (bytes->in(0, 1)) {
    configure(bytes, r, most);
    return;
  }
  r->chanel = bytes->in(1, 2);
  r->filtertype = r->chanel == 1 ? -6 : -3;
  r->blen = bytes->in(1, most);
  r->bRlen = bytes->in(0, 1) ? r->blen : bytes->in(1, most);
  bytes->coefficients(r->b, r->blen);
  bytes->coefficients(r->bR, std::max(r->blen, r->bRlen));
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Bytes bytes(data, size);
  Twins<Filterlongfir_ID> twins;
  int inLen = 64;
  twins.both([&](Filterlongfir_ID* r) { configure_long(&bytes, r); });
  MORVAX_FilterlongfirReset_API(twins.actual);
  ref::reset(twins.expected);
  for (int call = 0; call < 24 && !bytes.empty(); ++call) {
    bool changed = false;
    Filterlongfir_ID* const r = twins.actual;
    switch (bytes.in(0, 11)) {
      case 0:
        twins.both([&](Filterlongfir_ID* f) { configure_long(&bytes, f); });
        changed = true;
        break;
      case 1:
        MORVAX_FilterlongfirReset_API(r);
        ref::reset(twins.expected);
        break;
      case 2:
      case 3:
      case 4:  // a fade, from the taps that are there to others
        MORVAX_FilterlongfirCalcu_APItime(r);
        ref::save_for_fade(twins.expected);
        bytes.coefficients(r->b, r->filtertype < 0 ? r->blen : 0);
        std::memcpy(twins.expected->b, r->b, sizeof r->b);
        bytes.coefficients(r->bR, r->filtertype < -1 ? r->blen : 0);
        std::memcpy(twins.expected->bR, r->bR, sizeof r->bR);
        break;
      case 5:
        twins.save();
        break;
      case 6:
        twins.restore();
        changed = true;
        break;
      case 7:
        twins.move(bytes.in(0, 15));
        break;
      default: {
        if (bytes.in(0, 1)) inLen = bytes.in(0, 2112);
        int frames = std::min(inLen / 2, longest_block(r));
        if (r->filtertype < -1) {
          frames = std::min({frames, 1056, 33824 - std::max(r->blen, r->bRlen) + 1});
          if (r->cmemcall == 1) frames = std::min(frames, 33824 - r->cmemblen + 1);
        }
        const int count = r->chanel * frames;
        const bool in_place = bytes.in(0, 1) && r->filtertype != -6;
        twins.run<short>(bytes.signal<short>(count), r->filtertype == -6 ? 2 * count : count,
                         in_place, MORVAX_FilterlongfirRun_API,
                         [](Filterlongfir_ID* f, const short* in, int n, short* out) {
                           ref::run(f, in, n, out);
                         });
      }
    }
    // The moving average's sum belongs to its ring, which the other kinds and lengths overwrite.
    if (changed && twins.actual->filtertype == 2) {
      MORVAX_FilterlongfirReset_API(twins.actual);
      ref::reset(twins.expected);
    }
  }
  require(same_record(twins.actual, twins.expected), "the records are equal");
  return 0;
}

/* Filter_ID against the reference, outputs and whole record bit by bit. */
#include "fuzz.h"

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Bytes bytes(data, size);
  Twins<Filter_ID> twins;
  int inLen = 64;
  twins.both([&](Filter_ID* r) { configure(&bytes, r, 1250); });
  MORVAX_FilterReset_API(twins.actual);
  ref::reset(twins.expected);
  for (int call = 0; call < 40 && !bytes.empty(); ++call) {
    bool changed = true;
    switch (bytes.in(0, 11)) {
      case 0:
        twins.both([&](Filter_ID* r) { configure(&bytes, r, 1250); });
        break;
      case 1: {
        const int type = bytes.in(-2, 3), order = bytes.in(0, type < 1 ? 1249 : 832);
        const int entries = type < 1 ? order + 1 : (order + 1) / 2 * 3;
        std::vector<float> num(entries), den(entries);
        bytes.coefficients(num.data(), entries);
        bytes.coefficients(den.data(), entries);
        MORVAX_FilterCalcu_API_FromMatlabTable(twins.actual, num.data(), den.data(), order, type);
        ref::set_up(twins.expected, num.data(), den.data(), order, type);
        break;
      }
      case 2: {
        auto other = std::make_unique<Filter_ID>();
        configure(&bytes, other.get(), 1250);
        MORVAX_Filter_abCopy_API(twins.actual, other.get());
        ref::copy(twins.expected, other.get());
        break;
      }
      case 3:
        MORVAX_FilterReset_API(twins.actual);
        ref::reset(twins.expected);
        break;
      case 4:
        twins.save();
        changed = false;
        break;
      case 5:
        twins.restore();
        break;
      case 6:
        twins.move(bytes.in(0, 15));
        changed = false;
        break;
      default:
        changed = false;
        if (bytes.in(0, 1)) inLen = bytes.in(0, 2112);
        const int frames = std::min(inLen / 2, longest_block(twins.actual));
        const int count = twins.actual->chanel == 2 ? 2 * frames + inLen % 2 : frames;
        if (count > 2112) break;
        const bool in_place = bytes.in(0, 1);
        twins.run<short>(
            bytes.signal<short>(count), count, in_place, MORVAX_FilterRun_API,
            [](Filter_ID* r, const short* in, int n, short* out) { ref::run(r, in, n, out); });
    }
    // The moving average's sum belongs to its ring, which the other kinds and lengths overwrite.
    if (changed && twins.actual->filtertype == 2) {
      MORVAX_FilterReset_API(twins.actual);
      ref::reset(twins.expected);
    }
    require(same_record(twins.actual, twins.expected), "the records are equal");
  }
  return 0;
}

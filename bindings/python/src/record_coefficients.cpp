// Coefficients of Python in the records of the library, and a change of them.
#include <memory>
#include <string>
#include <vector>

#include "records.h"

namespace jurn::python {
namespace {

[[noreturn]] void fail_parameter(const std::string& message) {
  throw py::type_error(message);
}

/** Writes the coefficients of the kinds -1, 0 and 1. */
template <class Record>
void plain_coefficients(Record& r, py::handle b, py::handle a, int most_b, int most_a) {
  if (a.is_none() != (r.filtertype != JURN_IIR))
    fail_parameter(a.is_none() ? "a direct-form IIR takes b and a" : "this kind takes no a");
  if constexpr (sizeof r.b[0] == sizeof(float)) {
    if (r.filtertype == JURN_CASCADE) {
      const Sections s = sections(b, JURN_COEFFICIENTS);
      store(s.b, r.b, "sos");
      store(s.a, r.a, "sos");
      r.n = s.order;
      r.blen = r.alen = static_cast<int>(s.b.size());
      r.ns = r.blen / (r.n + 1);
      r.Order = r.ns * r.n;
      return;
    }
  }
  const std::vector<double> numerator =
      numbers(b, r.filtertype == JURN_IIR ? "b" : "taps", 1, static_cast<std::size_t>(most_b));
  std::vector<double> denominator;
  if (r.filtertype == JURN_IIR) {
    denominator = numbers(a, "a", 1, static_cast<std::size_t>(most_a));
    check_leading(denominator[0], "a");
  }
  store(numerator, r.b, r.filtertype == JURN_IIR ? "b" : "taps");
  store(denominator, r.a, "a");
  r.blen = static_cast<int>(numerator.size());
  r.alen = static_cast<int>(denominator.size());
}

void set_taps(Filterlongfir_ID& r, py::handle taps, py::handle right) {
  if (!right.is_none() && !has_two_filters(r))
    fail_parameter("right: this kind has one set of taps");
  const std::vector<double> left = numbers(taps, "taps", 1, 32767);
  records::set_taps(r, left,
                    right.is_none() ? std::vector<double>{} : numbers(right, "right", 1, 32767));
}

}  // namespace

void set_coefficients(Filter_ID& r, py::handle b, py::handle a, py::handle right) {
  if (!right.is_none()) fail_parameter("right: this filter has one set of coefficients");
  plain_coefficients(r, b, a, JURN_COEFFICIENTS, JURN_COEFFICIENTS);
}
void set_coefficients(Filterf_ID& r, py::handle b, py::handle a, py::handle right) {
  if (!right.is_none()) fail_parameter("right: this filter has one set of coefficients");
  plain_coefficients(r, b, a, JURN_FLOAT_COEFFICIENTS, JURN_FLOAT_COEFFICIENTS);
}
void set_coefficients(Filterlongfir_ID& r, py::handle b, py::handle a, py::handle right) {
  if (r.filtertype < JURN_FIR) {
    if (!a.is_none()) fail_parameter("this kind takes no a");
    return set_taps(r, b, right);
  }
  if (!right.is_none()) fail_parameter("right: this kind has one set of coefficients");
  plain_coefficients(r, b, a, r.filtertype == JURN_FIR ? 32767 : JURN_COEFFICIENTS,
                     JURN_COEFFICIENTS);
}

bool fade_inside(Filter_ID&, py::handle, py::handle) {
  return false;
}
bool fade_inside(Filterf_ID&, py::handle, py::handle) {
  return false;
}
bool fade_inside(Filterlongfir_ID& r, py::handle taps, py::handle right) {
  if (r.filtertype >= JURN_FIR) return false;
  const auto next = std::make_unique<Filterlongfir_ID>(r);
  set_taps(*next, taps, right);
  check_fade(*next, r.blen);
  records::fade_inside(r, *next);
  return true;
}

}  // namespace jurn::python

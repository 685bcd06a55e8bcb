/* The memory of the sections objects, and the coefficients of a step. */
#include "../../../../common/exact_arithmetic.h"

#include "sections.h"

#include <stdint.h>
#include <string.h>

#include "../../../../common/internal.h"
#include "pair_arithmetic.h"

static_assert(sizeof(double) == 8 && sizeof(int) == 4 &&
                  sizeof(Sections_filter_st) % sizeof(double) == 0 &&
                  sizeof(Sections_stream_st) % sizeof(double) == 0 &&
                  alignof(Sections_filter_st) <= alignof(double) &&
                  alignof(Sections_stream_st) <= alignof(double),
              "the memories' layout");

namespace {

constexpr int row = 6;

int check(int channels, int sections) {
  if (channels < 1 || channels > JURN_SECTIONS_CHANNELS) return JURN_SECTIONS_BAD_CHANNELS;
  if (sections < 0 || sections > JURN_SECTIONS_SECTIONS) return JURN_SECTIONS_BAD_SECTIONS;
  return JURN_SECTIONS_OK;
}

bool is_finite(double x) {
  return x - x == 0.0;
}

/* Without the C library, whose sqrt and frexp are its own. */

double magnitude(double x) {
  return x < 0 ? -x : x;
}

double power_of_two(int exponent) {
  const uint64_t bits = static_cast<uint64_t>(exponent + 1023) << 52;
  double x;
  memcpy(&x, &bits, sizeof x);
  return x;
}

/** The exponent of a positive x that is no denormal: x = 2^exponent times something in [1, 2). */
int exponent_of(double x) {
  uint64_t bits;
  memcpy(&bits, &x, sizeof bits);
  return static_cast<int>(bits >> 52) - 1023;
}

/** The square root of x >= 0 within a rounding or two; 0 below 1e-300. */
double root(double x) {
  if (x < 1e-300) return 0;
  double y = power_of_two(exponent_of(x) / 2);
  for (int i = 0; i < 6; ++i) y = 0.5 * (y + x / y);
  return y;
}

struct Section {
  Pair b0, b1, b2, a1, a2;
};

Section normalised(const double* sos) {
  const auto divided = [&](int i) { return pair_of(sos[i]) / sos[3]; };
  return {divided(0), divided(1), divided(2), divided(4), divided(5)};
}

/** Exponents of the largest gain from the input to behind each section, at frequencies where gains
 * are large: 0, a quarter and a half of the sampling rate, and those of the poles. */
class Levels {
 public:
  Levels(const double* sos, int sections) : sos_(sos), sections_(sections) {
    for (int k = 0; k < sections; ++k) level_[k] = none;
    for (int quarter = -1; quarter <= 1; ++quarter) add_frequency(quarter);
    for (int k = 0; k < sections; ++k) {
      const double* const s = sos + k * row;
      const double a1 = s[4] / s[3], a2 = s[5] / s[3];
      if (a2 > 0 && a1 * a1 < 4 * a2) add_frequency(-a1 / (2 * root(a2)));
    }
    int before = 0;
    for (int k = 0; k < sections; ++k) {
      if (level_[k] == none) level_[k] = before;
      if (level_[k] > most) level_[k] = most;
      if (level_[k] < -most) level_[k] = -most;
      before = level_[k];
    }
  }
  int before(int k) const { return k > 0 ? level_[k - 1] : 0; }
  int behind(int k) const { return k + 1 < sections_ ? level_[k] : 0; }

 private:
  enum { none = -1000000, most = 900 };

  /** |c0 + c1 z + c2 z^2|^2 on the unit circle. */
  static double power(double c0, double c1, double c2, double cosine) {
    const double sine2 = 1 - cosine * cosine, x = c0 + c1 * cosine + c2 * (2 * cosine * cosine - 1);
    const double y = c1 + 2 * c2 * cosine;
    return x * x + y * y * sine2;
  }

  void add_frequency(double cosine) {
    double gain = 1.0;  // of the power, without its exponent
    int exponent = 0;
    for (int k = 0; k < sections_; ++k) {
      const double* const s = sos_ + k * row;
      gain *= power(s[0] / s[3], s[1] / s[3], s[2] / s[3], cosine) /
              power(1.0, s[4] / s[3], s[5] / s[3], cosine);
      if (!(gain > 1e-300 && gain < 1e300)) return;
      const int by = exponent_of(gain);
      gain *= power_of_two(-by);
      exponent += by;
      if (exponent / 2 > level_[k]) level_[k] = exponent / 2;
    }
  }

  const double* sos_;
  int sections_;
  int level_[JURN_SECTIONS_SECTIONS];
};

/** Writes the coefficients of one section, each 4 doubles after the one before, between signals
 * that are divided by 2^before and 2^behind. Says whether all are finite. */
bool write_section(double* out, const Section& s, int before, int behind) {
  const int scale = before - behind;
  const Pair half = pair_of(0.5), one = pair_of(1.0);
  const Pair m = -(s.a1 * half), D = m * m - s.a2;
  double k = root(magnitude(D.high));
  const double room = magnitude(1 - magnitude(m.high));
  if (k < room) k = room;
  if (k == 0) k = 1;
  const Pair K = pair_of(k), h = D / k;
  // The matrix is m I + N with N^2 = D I, so its powers are p[j] I + q[j] N.
  Pair p[section_step + 1] = {one, m}, q[section_step + 1] = {pair_of(0.0), one};
  for (int j = 2; j <= section_step; ++j) {
    p[j] = m * p[j - 1] + D * q[j - 1];
    q[j] = p[j - 1] + m * q[j - 1];
  }
  const Pair e = s.b1 - s.a1 * s.b0, c = (s.b2 - s.a2 * s.b0 + m * e) / k;
  bool all_finite = true;
  const auto write = [&](int index, Pair value, int by) {
    const double x = value.high * power_of_two(by / 2) * power_of_two(by - by / 2);
    out[index * section_group] = x;
    all_finite = all_finite && is_finite(x);
  };
  for (int j = 0; j < section_step; ++j) {
    write(section_c + j, p[j] * c + q[j] * h * e, scale);
    write(section_e + j, p[j] * e + q[j] * K * c, scale);
  }
  write(section_b, s.b0, scale);
  write(section_p, p[4], 0);
  write(section_q, q[4] * K, 0);
  write(section_r, q[4] * h, 0);
  for (int j = 0; j < 3; ++j) {
    write(section_f + j, q[3 - j] * K, 0);
    write(section_g + j, p[3 - j], 0);
  }
  write(section_h, h, 0);
  write(section_level, one, -before);
  return all_finite;
}

size_t filter_doubles(int groups, int lists) {
  return static_cast<size_t>(lists) * groups * section_coefficients * section_group;
}

size_t stream_doubles(const Sections_shape* shape) {
  const size_t states =
      static_cast<size_t>(JURN_section_groups(shape->sections)) * section_states * section_group;
  return shape->channels * (section_step + states);
}

}  // namespace

size_t MORVAX_SectionsFilterSize_API(int sections, int lists) {
  if (check(lists, sections) != JURN_SECTIONS_OK) return 0;
  return sizeof(Sections_filter_st) +
         filter_doubles(JURN_section_groups(sections), lists) * sizeof(double);
}

int MORVAX_SectionsFilterCalcu_API(SectionsFilter_ID* filter, size_t size, const double* sos,
                                   int sections, int lists) {
  if (size >= sizeof *filter) filter->ready = 0;
  const int error = check(lists, sections);
  if (error) return error;
  if (size < MORVAX_SectionsFilterSize_API(sections, lists)) return JURN_SECTIONS_TOO_SMALL;
  const int groups = JURN_section_groups(sections);
  *filter = {0, sections, lists, groups};
  auto* const coefficients = reinterpret_cast<double*>(filter + 1);
  for (int i = 0; i < lists * sections * row; ++i)
    if (!is_finite(sos[i])) return JURN_SECTIONS_BAD_VALUE;
  for (int i = 0; i < lists * sections; ++i)
    if (sos[i * row + 3] == 0) return JURN_SECTIONS_BAD_A0;
  memset(coefficients, 0, filter_doubles(groups, lists) * sizeof(double));
  for (int list = 0; list < lists; ++list, sos += static_cast<size_t>(sections) * row) {
    const Levels levels(sos, sections);
    double* const out = coefficients + filter_doubles(groups, 1) * list;
    for (int k = 0; k < sections; ++k)
      if (!write_section(out + JURN_section_at(sections, k, section_coefficients),
                         normalised(sos + k * row), levels.before(k), levels.behind(k)))
        return JURN_SECTIONS_BAD_VALUE;
  }
  filter->ready = section_ready;
  return JURN_SECTIONS_OK;
}

size_t MORVAX_SectionsStreamSize_API(const Sections_shape* shape) {
  if (check(shape->channels, shape->sections) != JURN_SECTIONS_OK) return 0;
  return sizeof(Sections_stream_st) + stream_doubles(shape) * sizeof(double);
}

int MORVAX_SectionsStreamCalcu_API(SectionsStream_ID* stream, size_t size,
                                   const Sections_shape* shape) {
  if (size >= sizeof *stream) stream->ready = 0;
  const int error = check(shape->channels, shape->sections);
  if (error) return error;
  if (size < MORVAX_SectionsStreamSize_API(shape)) return JURN_SECTIONS_TOO_SMALL;
  *stream = {section_ready,
             shape->channels,
             shape->sections,
             JURN_section_groups(shape->sections),
             0,
             0,
             0};
  memset(stream + 1, 0, stream_doubles(shape) * sizeof(double));
  return JURN_SECTIONS_OK;
}

void MORVAX_SectionsReset_API(SectionsStream_ID* stream) {
  JURN_LIMIT(stream->ready == section_ready, "SectionsStream_ID: the stream must be set up");
  const Sections_shape shape = {stream->channels, stream->sections};
  MORVAX_SectionsStreamCalcu_API(stream, MORVAX_SectionsStreamSize_API(&shape), &shape);
}

unsigned long long MORVAX_SectionsBadSamples_API(const SectionsStream_ID* stream) {
  JURN_LIMIT(stream->ready == section_ready, "SectionsStream_ID: the stream must be set up");
  return stream->bad;
}

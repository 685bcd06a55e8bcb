/* The start of a stream from the past of another. */
#include "../../../../common/exact_arithmetic.h"

#include "sections.h"

#include <string.h>

#include "../../../../common/internal.h"

namespace {

constexpr double much_louder = 32;

/** The step of one sample, {{m, k}, {h, m}}, and the level of its input. */
struct Step {
  double m, k, h, level;
};

Step step_of(const double* coefficients) {
  const auto at = [&](int i) { return coefficients[i * section_group]; };
  return {at(section_g + 2), at(section_f + 2), at(section_h), at(section_level)};
}

bool is_stable(const Step& s) {
  const double a2 = s.m * s.m - s.k * s.h;
  return a2 < 1 && 2 * s.m < 1 + a2 && -2 * s.m < 1 + a2;
}

struct Matrix {
  double at[2][2];
};

/** X = A X B^T + {{0, 0}, {0, 1}}: four equations for X by rows, by elimination. */
Matrix covariance(const Step& a, const Step& b) {
  const double A[2][2] = {{a.m, a.k}, {a.h, a.m}}, B[2][2] = {{b.m, b.k}, {b.h, b.m}};
  double e[4][5];
  for (int row = 0; row < 4; ++row) {
    for (int column = 0; column < 4; ++column)
      e[row][column] =
          (row == column ? 1.0 : 0.0) - A[row / 2][column / 2] * B[row % 2][column % 2];
    e[row][4] = row == 3 ? 1.0 : 0.0;
  }
  for (int i = 0; i < 4; ++i) {
    int pivot = i;
    for (int row = i + 1; row < 4; ++row)
      if (e[row][i] * e[row][i] > e[pivot][i] * e[pivot][i]) pivot = row;
    for (int row = 0; row < 4; ++row) {
      if (row == pivot) continue;
      const double factor = e[row][i] / e[pivot][i];
      for (int column = i + 1; column < 5; ++column) e[row][column] -= factor * e[pivot][column];
      e[row][i] = 0;
    }
    for (int column = 0; column < 5; ++column) {
      const double kept = e[i][column];
      e[i][column] = e[pivot][column];
      e[pivot][column] = kept;
    }
  }
  return {{{e[0][4] / e[0][0], e[1][4] / e[1][1]}, {e[2][4] / e[2][2], e[3][4] / e[3][3]}}};
}

/** What the previous states of a section are to be multiplied with, and with `level`. */
Matrix states_matrix(const Step& next, const Step& previous, double level) {
  if (next.m == previous.m && next.k == previous.k && next.h == previous.h)
    return {{{level, 0}, {0, level}}};
  if (!is_stable(next) || !is_stable(previous)) return {};
  const Matrix p = covariance(next, previous), q = covariance(previous, previous);
  const double factor = level / (q.at[0][0] * q.at[1][1] - q.at[0][1] * q.at[1][0]);
  Matrix out;
  for (int row = 0; row < 2; ++row) {
    out.at[row][0] = (p.at[row][0] * q.at[1][1] - p.at[row][1] * q.at[1][0]) * factor;
    out.at[row][1] = (p.at[row][1] * q.at[0][0] - p.at[row][0] * q.at[0][1]) * factor;
    for (const double x : out.at[row])
      if (x - x != 0.0) return {};
  }
  return out;
}

}  // namespace

void MORVAX_SectionsFollow_API(SectionsStream_ID* next, const SectionsFilter_ID* next_filter,
                               const SectionsStream_ID* previous,
                               const SectionsFilter_ID* previous_filter) {
  JURN_LIMIT(next->ready == section_ready && previous->ready == section_ready,
             "SectionsStream_ID: the stream must be set up");
  JURN_LIMIT(next_filter->ready == section_ready && previous_filter->ready == section_ready,
             "SectionsFilter_ID: the filter must be set up");
  JURN_LIMIT(next->channels == previous->channels && next != previous,
             "SectionsStream_ID: next must be another stream with as many channels");
  JURN_LIMIT(
      next_filter->sections <= next->sections && previous_filter->sections <= previous->sections,
      "SectionsStream_ID: the stream must have room for the filter's sections");
  MORVAX_SectionsReset_API(next);
  next->position = previous->position;
  auto* const from = const_cast<SectionsStream_ID*>(previous);  // is read only
  const int sections = next_filter->sections < previous_filter->sections
                           ? next_filter->sections
                           : previous_filter->sections;
  for (int channel = 0; channel < next->channels; ++channel) {
    memcpy(JURN_section_inputs(next, channel), JURN_section_inputs(from, channel),
           section_step * sizeof(double));
    const auto step = [&](const SectionsFilter_ID* filter, int k) {
      return step_of(JURN_section_coefficients(filter, filter->lists > 1 ? channel : 0) +
                     JURN_section_at(filter->sections, k, section_coefficients));
    };
    bool was_much_louder = false;
    for (int k = 0; k < sections; ++k)
      if (step(next_filter, k).level / step(previous_filter, k).level > much_louder)
        was_much_louder = true;
    for (int k = 0; k < sections; ++k) {
      const Step to = step(next_filter, k), old = step(previous_filter, k);
      const Matrix matrix = states_matrix(to, old, was_much_louder ? 1.0 : to.level / old.level);
      const double* const s = JURN_section_states(from, channel) +
                              JURN_section_at(previous_filter->sections, k, section_states);
      double* const out = JURN_section_states(next, channel) +
                          JURN_section_at(next_filter->sections, k, section_states);
      for (int row = 0; row < 2; ++row) {
        const double x = matrix.at[row][0] * s[0] + matrix.at[row][1] * s[section_group];
        out[row * section_group] = x - x == 0.0 ? x : 0.0;
      }
    }
  }
}

#include "plotting/spectrogram_plot.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "text.h"

namespace jurn {
namespace {

constexpr std::size_t kMaxRows = 512;

/** Bins from 0 to the highest frequency that is shown. */
std::size_t bins_of(const NamedSpectra& a, const SpectrogramView& view) {
  const double all = 0.5 * view.window;
  const double shown = view.top > 0.0 ? std::ceil(view.top * view.window / a.rate) : all;
  return static_cast<std::size_t>(std::min(shown, all)) + 1;
}

/** The pixels of a recording, rows of time from low to high frequencies; of several bins in a row
 * the loudest counts. */
std::string pixels(const NamedSpectra& a, const SpectrogramView& view, std::size_t bins_per_row) {
  std::string text;
  const std::size_t bins = bins_of(a, view);
  for (std::size_t first = 0; first < bins; first += bins_per_row) {
    for (std::size_t c = 0; c < a.spectra.columns(); ++c) {
      double loudest = kSpectrogramSilence;
      for (std::size_t k = first; k < std::min(first + bins_per_row, bins); ++k)
        loudest = std::max(loudest, a.spectra.dbfs(c, k));
      append(&text, "%.1f ", std::max(loudest, view.floor));
    }
    text += "\n";
  }
  return text;
}

}  // namespace

std::string plot_spectrograms(Picture format, const SpectrogramView& view,
                              const std::vector<NamedSpectra>& analyses) {
  double seconds = 0.0, loudest = view.floor + 10.0, top = 0.0;
  for (const NamedSpectra& a : analyses) {
    seconds = std::max(seconds, a.seconds);
    top = std::max(top, a.rate / 2.0);
    for (std::size_t c = 0; c < a.spectra.columns(); ++c)
      for (std::size_t k = 0; k < bins_of(a, view); ++k)
        loudest = std::max(loudest, a.spectra.dbfs(c, k));
  }
  if (view.top > 0.0) top = std::min(top, view.top);

  const int rows = static_cast<int>(analyses.size());
  const int left = 100, right = 145, below = 75, above = 35, width = 1000;
  const int height = rows * (above + 270 + below);
  const double w = width, h = height;
  std::string script = set_terminal(format, width, height);
  append(&script,
         "set multiplot layout %d,1 margins %.4f,%.4f,%.4f,%.4f spacing 0,%.4f\n"
         "set palette defined (0 '#000004', 1 '#330a5f', 2 '#781c6d', 3 '#bb3754', 4 '#ed6925', "
         "5 '#fbb61a', 6 '#fcffa4')\n"
         "set cbrange [%g:%g]\nset cblabel 'dBFS' offset 0.5,0\nset border front\n"
         "set tics front out nomirror\nset xrange [0:%.6g]\nset yrange [0:%.6g]\nunset key\n"
         "set ylabel 'Frequency in Hz'\nset xlabel 'Time in s'\n",
         rows, left / w, 1.0 - right / w, below / h, 1.0 - above / h, (above + below) / h,
         view.floor, 10.0 * std::ceil(loudest / 10.0), seconds, top);
  for (std::size_t i = 0; i < analyses.size(); ++i) {
    const NamedSpectra& a = analyses[i];
    const std::size_t per_row = (bins_of(a, view) + kMaxRows - 1) / kMaxRows;
    const double bin = static_cast<double>(a.rate) / view.window;
    append(&script, "$pixels%zu << END\n%sEND\nset title %s noenhanced offset 0,-0.5\n", i,
           pixels(a, view, per_row).c_str(), plot_string(a.name).c_str());
    append(&script, "plot $pixels%zu matrix using (%.9g+%.9g*$1):(%.9g+%.9g*$2):3 with image\n", i,
           a.spectra.middle(0) / a.rate, static_cast<double>(a.spectra.column_frames()) / a.rate,
           0.5 * bin * static_cast<double>(per_row - 1), bin * static_cast<double>(per_row));
  }
  return script;
}

std::string tabulate(const SpectrogramView& view, const std::vector<NamedSpectra>& analyses) {
  std::string text = "recording,seconds,hertz,dbfs\n";
  for (const NamedSpectra& a : analyses) {
    const std::string name = csv_field(a.name);
    for (std::size_t c = 0; c < a.spectra.columns(); ++c)
      for (std::size_t k = 0; k < bins_of(a, view); ++k)
        append(&text, "%s,%.6f,%.6g,%.2f\n", name.c_str(), a.spectra.middle(c) / a.rate,
               static_cast<double>(k) * a.rate / view.window, a.spectra.dbfs(c, k));
  }
  return text;
}

}  // namespace jurn

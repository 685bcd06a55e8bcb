#include "spectrogram.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "design/spectrum.h"
#include "errors.h"
#include "plot.h"
#include "recordings/signals.h"

namespace tool {
namespace {

const double kPi = std::acos(-1.0);
constexpr std::size_t kMaxColumns = 1000;  // and at least half as many of a long recording
constexpr std::size_t kMaxRows = 512;
constexpr std::size_t kOverlap = 8;  // windows that a sample is in at first
constexpr double kSilence = -200.0;  // dBFS

/** Mean power of the bins over time; 1 is a sine at full scale. Columns become longer as the
 * recording goes on, so that their number stays. */
class Spectrogram {
 public:
  Spectrogram(int channels, int window)
      : channels_(static_cast<std::size_t>(channels)),
        size_(static_cast<std::size_t>(window)),
        hop_(size_ / kOverlap),
        column_frames_(hop_),
        pending_(size_ / 2 * channels_, 0.0f) {  // the first window's middle is the first sample
    double sum = 0.0;
    for (std::size_t i = 0; i < size_; ++i) {
      window_.push_back(0.5 - 0.5 * std::cos(2.0 * kPi * static_cast<double>(i) / window));
      sum += window_.back();
    }
    for (double& w : window_) w *= 2.0 / (32768.0 * sum);
  }

  void push(const float* samples, std::size_t frames) {
    pending_.insert(pending_.end(), samples, samples + frames * channels_);
    const std::size_t start = position_;
    while ((position_ - start + size_) * channels_ <= pending_.size())
      add(pending_.data() + (position_ - start) * channels_);
    pending_.erase(pending_.begin(),
                   pending_.begin() + static_cast<std::ptrdiff_t>((position_ - start) * channels_));
  }

  /** Ends with the windows whose middle is still in the recording. */
  void finish() {
    const std::vector<float> silence(size_ / 2 * channels_, 0.0f);
    push(silence.data(), size_ / 2);
  }

  std::size_t columns() const { return columns_.size(); }
  std::size_t column_frames() const { return column_frames_; }

  /** The middle of a column in frames from the recording's start. */
  double middle(std::size_t column) const {
    return 0.5 * static_cast<double>(columns_[column].first + columns_[column].last);
  }

  double dbfs(std::size_t column, std::size_t bin) const {
    const Column& c = columns_[column];
    const double power = c.power[bin] / static_cast<double>(c.windows);
    return power > 0.0 ? std::max(10.0 * std::log10(power), kSilence) : kSilence;
  }

 private:
  struct Column {
    std::vector<double> power;
    std::size_t windows, first, last;  // and the middles of the first and the last
  };

  void add(const float* frames) {
    if (position_ == column_frames_ * kMaxColumns) halve();
    if (position_ % column_frames_ == 0)
      columns_.push_back({std::vector<double>(size_ / 2 + 1, 0.0), 0, position_, position_});
    Column& column = columns_.back();
    std::vector<double> x(size_);
    for (std::size_t c = 0; c < channels_; ++c) {
      for (std::size_t i = 0; i < size_; ++i)
        x[i] = window_[i] * static_cast<double>(frames[i * channels_ + c]);
      const std::vector<std::complex<double>> bins = spectrum(x, size_);
      for (std::size_t k = 0; k < column.power.size(); ++k)
        column.power[k] += std::norm(bins[k]) / static_cast<double>(channels_);
    }
    ++column.windows;
    column.last = position_;
    position_ += hop_;
  }

  /** Makes one column of two. So wide columns need fewer windows, too. */
  void halve() {
    for (std::size_t i = 0; i < columns_.size(); i += 2) {
      Column sum = std::move(columns_[i]);
      const Column& next = columns_[i + 1];
      for (std::size_t k = 0; k < sum.power.size(); ++k) sum.power[k] += next.power[k];
      sum.windows += next.windows;
      sum.last = next.last;
      columns_[i / 2] = std::move(sum);
    }
    columns_.resize(columns_.size() / 2);
    column_frames_ *= 2;
    hop_ = std::min(2 * hop_, size_ / 2);
  }

  std::size_t channels_, size_, hop_;
  std::size_t column_frames_;
  std::size_t position_ = 0;  // of the next window's middle
  std::vector<double> window_;
  std::vector<float> pending_;
  std::vector<Column> columns_;
};

struct Analysis {
  std::string name;
  int rate;
  double seconds;
  Spectrogram spectra;
};

Analysis analyse(const std::string& path, RawFormat raw, int window) {
  AudioReader reader(path, 2, raw);
  Analysis a{short_name(path), reader.rate(), 0.0, Spectrogram(reader.channels(), window)};
  std::vector<float> samples(1024 * static_cast<std::size_t>(reader.channels()));
  std::int64_t total = 0;
  while (const std::size_t got = reader.read(samples.data(), 1024)) {
    check_interrupted();
    a.spectra.push(samples.data(), got);
    total += static_cast<std::int64_t>(got);
  }
  a.spectra.finish();
  a.seconds = static_cast<double>(total) / a.rate;
  return a;
}

/** Bins from 0 to the highest frequency that is shown. */
std::size_t bins_of(const Analysis& a, const SpectrogramJob& job) {
  const double all = 0.5 * job.window;
  const double shown = job.top > 0.0 ? std::ceil(job.top * job.window / a.rate) : all;
  return static_cast<std::size_t>(std::min(shown, all)) + 1;
}

std::string table(const std::vector<Analysis>& analyses, const SpectrogramJob& job) {
  std::string text = "recording,seconds,hertz,dbfs\n";
  for (const Analysis& a : analyses) {
    const std::string name = csv_field(a.name);
    for (std::size_t c = 0; c < a.spectra.columns(); ++c)
      for (std::size_t k = 0; k < bins_of(a, job); ++k)
        append(&text, "%s,%.6f,%.6g,%.2f\n", name.c_str(), a.spectra.middle(c) / a.rate,
               static_cast<double>(k) * a.rate / job.window, a.spectra.dbfs(c, k));
  }
  return text;
}

/** The pixels of a recording, rows of time from low to high frequencies; of several bins in a row
 * the loudest counts. */
std::string pixels(const Analysis& a, const SpectrogramJob& job, std::size_t bins_per_row) {
  std::string text;
  const std::size_t bins = bins_of(a, job);
  for (std::size_t first = 0; first < bins; first += bins_per_row) {
    for (std::size_t c = 0; c < a.spectra.columns(); ++c) {
      double loudest = kSilence;
      for (std::size_t k = first; k < std::min(first + bins_per_row, bins); ++k)
        loudest = std::max(loudest, a.spectra.dbfs(c, k));
      append(&text, "%.1f ", std::max(loudest, job.floor));
    }
    text += "\n";
  }
  return text;
}

std::string plot_script(const std::vector<Analysis>& analyses, const SpectrogramJob& job) {
  double seconds = 0.0, loudest = job.floor + 10.0, top = 0.0;
  for (const Analysis& a : analyses) {
    seconds = std::max(seconds, a.seconds);
    top = std::max(top, a.rate / 2.0);
    for (std::size_t c = 0; c < a.spectra.columns(); ++c)
      for (std::size_t k = 0; k < bins_of(a, job); ++k)
        loudest = std::max(loudest, a.spectra.dbfs(c, k));
  }
  if (job.top > 0.0) top = std::min(top, job.top);

  const int rows = static_cast<int>(analyses.size());
  const int left = 95, right = 130, below = 60, above = 35, width = 1000;
  const int height = rows * (above + 270 + below);
  const double w = width, h = height;
  std::string script = set_terminal(picture_format(job.picture), width, height);
  append(&script,
         "set multiplot layout %d,1 margins %.4f,%.4f,%.4f,%.4f spacing 0,%.4f\n"
         "set palette defined (0 '#000004', 1 '#330a5f', 2 '#781c6d', 3 '#bb3754', 4 '#ed6925', "
         "5 '#fbb61a', 6 '#fcffa4')\n"
         "set cbrange [%g:%g]\nset cblabel 'dBFS' offset 0.5,0\nset border front\n"
         "set tics front out nomirror\nset xrange [0:%.6g]\nset yrange [0:%.6g]\nunset key\n"
         "set ylabel 'Frequency in Hz'\nset xlabel 'Time in s'\n",
         rows, left / w, 1.0 - right / w, below / h, 1.0 - above / h, (above + below) / h,
         job.floor, 10.0 * std::ceil(loudest / 10.0), seconds, top);
  for (std::size_t i = 0; i < analyses.size(); ++i) {
    const Analysis& a = analyses[i];
    const std::size_t per_row = (bins_of(a, job) + kMaxRows - 1) / kMaxRows;
    const double bin = static_cast<double>(a.rate) / job.window;
    append(&script, "$pixels%zu << END\n%sEND\nset title %s noenhanced offset 0,-0.5\n", i,
           pixels(a, job, per_row).c_str(), plot_string(a.name).c_str());
    append(&script, "plot $pixels%zu matrix using (%.9g+%.9g*$1):(%.9g+%.9g*$2):3 with image\n", i,
           a.spectra.middle(0) / a.rate, static_cast<double>(a.spectra.column_frames()) / a.rate,
           0.5 * bin * static_cast<double>(per_row - 1), bin * static_cast<double>(per_row));
  }
  return script;
}

}  // namespace

void run_spectrogram(const SpectrogramJob& job) {
  for (const std::string* output : {&job.picture, &job.csv})
    if (!output->empty()) refuse_overwrite(*output, job.recordings);
  std::vector<Analysis> analyses;
  for (const std::string& path : job.recordings)
    analyses.push_back(analyse(path, analyses.empty() ? job.raw : RawFormat{}, job.window));
  if (!job.csv.empty()) write_csv(job.csv, job.overwrite, table(analyses, job));
  if (!job.picture.empty()) draw(job.picture, job.overwrite, plot_script(analyses, job));
}

}  // namespace tool

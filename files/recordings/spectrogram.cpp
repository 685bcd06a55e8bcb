#include "recordings/spectrogram.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdint>

#include "design/spectrum.h"
#include "recordings/signals.h"
#include "units.h"

namespace jurn {
namespace {

constexpr std::size_t kMaxColumns = 1000;  // and at least half as many of a long recording
constexpr std::size_t kOverlap = 8;        // windows that a sample is in at first

}  // namespace

Spectrogram::Spectrogram(int channels, int window)
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

void Spectrogram::push(const float* samples, std::size_t frames) {
  pending_.insert(pending_.end(), samples, samples + frames * channels_);
  const std::size_t start = position_;
  while ((position_ - start + size_) * channels_ <= pending_.size())
    add(pending_.data() + (position_ - start) * channels_);
  pending_.erase(pending_.begin(),
                 pending_.begin() + static_cast<std::ptrdiff_t>((position_ - start) * channels_));
}

void Spectrogram::finish() {
  const std::vector<float> silence(size_ / 2 * channels_, 0.0f);
  push(silence.data(), size_ / 2);
}

double Spectrogram::middle(std::size_t column) const {
  return 0.5 * static_cast<double>(columns_[column].first + columns_[column].last);
}

double Spectrogram::dbfs(std::size_t column, std::size_t bin) const {
  const Column& c = columns_[column];
  const double power = c.power[bin] / static_cast<double>(c.windows);
  return power > 0.0 ? std::max(power_to_decibels(power), kSpectrogramSilence)
                     : kSpectrogramSilence;
}

void Spectrogram::add(const float* frames) {
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
void Spectrogram::halve() {
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

RecordingSpectra analyse(const std::string& path, InputFormat raw, int window) {
  AudioReader reader(path, 2, raw);
  RecordingSpectra a{reader.rate(), 0.0, Spectrogram(reader.channels(), window)};
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

}  // namespace jurn

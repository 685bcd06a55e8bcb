// Taps that are the samples of a recording in memory. The tool reads these through libsndfile, and
// so every format that it knows.
#include "exact.h"

#include <cmath>

#include "audio_bytes.h"
#include "coefficients/parse.h"

namespace jurn {

std::vector<double> parse_audio(const std::string& path, std::string_view bytes,
                                const CoefficientLimit& limit) {
  const std::optional<AudioBytes> audio = find_audio(path, bytes);
  if (!audio)
    fail(path,
         "is audio of a kind that jurn-filter, GStreamer and Python read; read here are WAV and "
         "AIFF of whole numbers or floats, which sox makes of it");
  if (audio->channels > 1)
    fail(path, "has " + std::to_string(audio->channels) + " channels; at most 1 are supported");
  const std::size_t length = audio->length();
  if (length == 0) fail(path, "holds no samples");
  check_length_of_audio(path, length, limit);
  std::vector<double> taps;
  for (std::size_t i = 0; i < length; ++i) {
    const float sample = static_cast<float>(audio->at(i, 0));
    if (!std::isfinite(sample)) fail(path, kNotFinite);
    taps.push_back(static_cast<double>(sample));
  }
  return taps;
}

void check_length_of_audio(const std::string& path, std::size_t length,
                           const CoefficientLimit& limit) {
  if (length > limit.count)
    fail(path, "holds " + std::to_string(length) + " samples, more than " + limit.reason +
                   "; convolve takes longer responses");
}

}  // namespace jurn

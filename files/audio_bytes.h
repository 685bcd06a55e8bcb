// Recordings in memory, and the samples that bytes stand for: needs no library, so that it also
// serves the web. Files of other kinds are left to libsndfile, or to a browser.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace jurn {

/** How a sample is written. */
struct SampleBytes {
  int count;  // bytes: 1 to 4 of whole numbers, 4 or 8 of floats
  bool is_float = false;
  bool big_endian = false;
  bool offset = false;  // whole numbers without a sign, whose zero is in the middle
};

/** The sample; the full scale of whole numbers is 1. */
double sample_of(const char* bytes, const SampleBytes& written);

/** A recording, frame by frame in the bytes that it was found in. */
struct AudioBytes {
  int rate = 0, channels = 0;
  SampleBytes sample{};
  std::string_view frames;

  std::size_t frame_bytes() const {
    return static_cast<std::size_t>(sample.count) * static_cast<std::size_t>(channels);
  }
  std::size_t length() const { return frames.size() / frame_bytes(); }
  double at(std::size_t frame, int channel) const {
    return sample_of(frames.data() + frame * frame_bytes() + channel * sample.count, sample);
  }
};

/**
 * The recording of a WAV (RF64, too) or AIFF file of whole numbers or floats, as libsndfile reads
 * it; nothing for other files and for compressed ones. Throws for one that is cut off. `path` is
 * for the error.
 */
std::optional<AudioBytes> find_audio(const std::string& path, std::string_view bytes);

/** Whether a program that writes to a pipe means "no idea" by this length of a header: 0, all ones,
 * or the largest signed number, some of these less a header. */
bool is_unknown(std::uint32_t length);

}  // namespace jurn

#include "exact.h"

#include "audio_bytes.h"

#include <cmath>
#include <cstring>

#include "errors.h"

namespace jurn {
namespace {

/** Reads numbers and chunks of a file; beyond its end everything is 0. */
class Bytes {
 public:
  Bytes(std::string_view bytes, bool big_endian) : bytes_(bytes), big_endian_(big_endian) {}

  std::uint64_t number(std::size_t at, int count) const {
    std::uint64_t value = 0;
    for (int i = 0; i < count; ++i) {
      const std::size_t byte = at + static_cast<std::size_t>(big_endian_ ? i : count - 1 - i);
      value = value << 8 | (byte < bytes_.size() ? static_cast<unsigned char>(bytes_[byte]) : 0u);
    }
    return value;
  }
  std::string_view mark(std::size_t at) const {
    return at < bytes_.size() ? bytes_.substr(at, 4) : std::string_view();
  }
  std::size_t size() const { return bytes_.size(); }

  /** Calls use(name, begin, length) for each chunk until one is the last: begin is behind its head.
   */
  template <typename Use>
  void each_chunk(Use use) const {
    for (std::uint64_t at = 12; at + 8 <= size();) {
      const std::uint64_t length = number(at + 4, 4);
      if (use(mark(at), static_cast<std::size_t>(at + 8), length)) return;
      at += 8 + length + length % 2;
    }
  }

 private:
  const std::string_view bytes_;
  const bool big_endian_;
};

/** What lies between, or the refusal of a file that should be longer. A header may miscount by its
 * own length. */
std::string_view samples_between(const std::string& path, std::string_view bytes,
                                 std::uint64_t from, std::uint64_t length) {
  if (from + length > bytes.size() + 16)
    throw Error(kInputError, path + ": was cut off (its header counts " +
                                 std::to_string(from + length) + " bytes, the file has " +
                                 std::to_string(bytes.size()) + ")");
  if (from >= bytes.size()) return {};
  return bytes.substr(static_cast<std::size_t>(from), static_cast<std::size_t>(length));
}

bool is_readable(const AudioBytes& audio) {
  const int count = audio.sample.count;
  return audio.rate > 0 && audio.channels > 0 &&
         (audio.sample.is_float ? count == 4 || count == 8 : count >= 1 && count <= 4);
}

std::optional<AudioBytes> find_wav(const std::string& path, std::string_view content) {
  const Bytes bytes(content, false);
  const bool wide = bytes.mark(0) == "RF64";
  constexpr std::uint64_t kPcm = 1, kFloat = 3, kExtended = 0xFFFE;
  AudioBytes audio;
  bool known = false, found = false;
  bytes.each_chunk([&](std::string_view name, std::size_t from, std::uint64_t length) {
    if (name == "fmt ") {
      std::uint64_t format = bytes.number(from, 2);
      if (format == kExtended && length >= 26) format = bytes.number(from + 24, 2);
      known = length >= 16 && (format == kPcm || format == kFloat);
      audio.channels = static_cast<int>(bytes.number(from + 2, 2));
      audio.rate = static_cast<int>(bytes.number(from + 4, 4));
      audio.sample.count = static_cast<int>(bytes.number(from + 14, 2) + 7) / 8;
      audio.sample.is_float = format == kFloat;
      audio.sample.offset = audio.sample.count == 1;
    }
    if (name != "data") return false;
    found = true;
    const std::uint64_t rest = bytes.size() - from;
    if (wide && length >= 0xFFFFFFFFu) {
      length = bytes.number(28, 8);
    } else if (is_unknown(static_cast<std::uint32_t>(length)) && length != rest) {
      // Other chunks can follow a recording that really is empty.
      const bool empty = length == 0 && rest >= 8 && bytes.number(from + 4, 4) + 8 <= rest;
      length = empty ? 0 : rest;
    }
    audio.frames = samples_between(path, content, from, length);
    return true;
  });
  if (!known || !found || !is_readable(audio)) return std::nullopt;
  return audio;
}

/** An 80-bit float of AIFF. */
double extended(const Bytes& bytes, std::size_t at) {
  const int exponent = static_cast<int>(bytes.number(at, 2) & 0x7FFF) - 16383 - 63;
  return std::ldexp(static_cast<double>(bytes.number(at + 2, 8)), exponent);
}

std::optional<AudioBytes> find_aiff(const std::string& path, std::string_view content) {
  const Bytes bytes(content, true);
  static const struct {
    const char* name;
    int bytes;  // 0: as the header says
    bool is_float, big_endian, offset;
  } kinds[] = {{"NONE", 0, false, true, false},  {"twos", 0, false, true, false},
               {"sowt", 0, false, false, false}, {"raw ", 0, false, true, true},
               {"fl32", 4, true, true, false},   {"FL32", 4, true, true, false},
               {"fl64", 8, true, true, false},   {"FL64", 8, true, true, false},
               {"in24", 3, false, true, false},  {"in32", 4, false, true, false}};
  const bool compressed = bytes.mark(8) == "AIFC";
  AudioBytes audio;
  bool known = false, found = false;
  std::uint64_t frames = 0;
  std::uint64_t begin = 0;
  bytes.each_chunk([&](std::string_view name, std::size_t from, std::uint64_t) {
    if (name == "COMM") {
      audio.channels = static_cast<int>(bytes.number(from, 2));
      frames = bytes.number(from + 2, 4);
      const int bits = static_cast<int>(bytes.number(from + 6, 2));
      const double rate = extended(bytes, from + 8);
      audio.rate = rate < 1e9 ? static_cast<int>(std::lround(rate)) : 0;
      const std::string_view kind = compressed ? bytes.mark(from + 18) : "NONE";
      for (const auto& k : kinds) {
        if (kind != k.name) continue;
        known = true;
        audio.sample = {k.bytes ? k.bytes : (bits + 7) / 8, k.is_float, k.big_endian, k.offset};
      }
    }
    if (name == "SSND") {
      found = true;
      begin = from + 8 + bytes.number(from, 4);
    }
    return false;
  });
  if (frames == 0 && known) found = true;  // an empty one needs no samples
  if (!known || !found || !is_readable(audio)) return std::nullopt;
  audio.frames = samples_between(path, content, begin, frames * audio.frame_bytes());
  return audio;
}

}  // namespace

bool is_unknown(std::uint32_t length) {
  return length == 0 || length >= 0xFFFFFF00u || (length >= 0x7FFFF000u && length <= 0x80000000u);
}

double sample_of(const char* bytes, const SampleBytes& written) {
  std::uint64_t bits = 0;
  for (int i = 0; i < written.count; ++i)
    bits = bits << 8 |
           static_cast<unsigned char>(bytes[written.big_endian ? i : written.count - 1 - i]);
  if (written.is_float && written.count == 8) {
    double value = 0.0;
    std::memcpy(&value, &bits, sizeof value);
    return value;
  }
  if (written.is_float) {
    const std::uint32_t low = static_cast<std::uint32_t>(bits);
    float value = 0.0f;
    std::memcpy(&value, &low, sizeof value);
    return static_cast<double>(value);
  }
  const int width = 8 * written.count;
  const bool negative = written.offset || bits >> (width - 1) != 0;
  const double whole = std::ldexp(static_cast<double>(bits), 1 - width);
  return whole - (written.offset ? 1.0 : negative ? 2.0 : 0.0);
}

std::optional<AudioBytes> find_audio(const std::string& path, std::string_view bytes) {
  const std::string_view head = bytes.substr(0, 12);
  if (head.size() < 12) return std::nullopt;
  const std::string_view form = head.substr(0, 4), kind = head.substr(8);
  if ((form == "RIFF" || form == "RF64") && kind == "WAVE") return find_wav(path, bytes);
  if (form == "FORM" && (kind == "AIFF" || kind == "AIFC")) return find_aiff(path, bytes);
  return std::nullopt;
}

}  // namespace jurn

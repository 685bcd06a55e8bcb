#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <filesystem>

#include "audio_bytes.h"
#include "errors.h"
#include "file_kind.h"
#include "recordings/audio_io.h"
#include "recordings/signals.h"

namespace jurn {
namespace {

namespace fs = std::filesystem;

constexpr double kFullScale = 32768.0;
constexpr std::int64_t kNoLength = std::int64_t{1} << 50;  // beyond it nobody knows

/** Explains why a file cannot be read, as far as the file system knows. */
void check_readable(const std::string& path) {
  std::error_code error;
  const fs::file_status status = fs::status(path, error);
  if (status.type() == fs::file_type::none)  // a name too long, or a folder that is closed
    throw Error(kInputError, path + ": " + error.message());
  if (!fs::exists(status)) throw Error(kInputError, path + ": no such file");
  if (fs::is_directory(status)) throw Error(kInputError, path + ": is a directory");
  if (access(path.c_str(), R_OK) != 0) throw Error(kInputError, path + ": " + std::strerror(errno));
  if (fs::is_regular_file(status) && fs::file_size(path, error) == 0)
    throw Error(kInputError, path + ": the file is empty");
}

/** What the file is by its first bytes; empty for a pipe. */
std::string kind_of(int descriptor) {
  char bytes[512];
  const ssize_t got = pread(descriptor, bytes, sizeof bytes, 0);
  return std::string(kind_of_file({bytes, static_cast<std::size_t>(std::max<ssize_t>(got, 0))}));
}

std::uint64_t read_number(const unsigned char* bytes, int count, bool big_endian) {
  std::uint64_t number = 0;
  for (int i = 0; i < count; ++i) number = number << 8 | bytes[big_endian ? i : count - 1 - i];
  return number;
}

/** What the header of a file says about its length. */
struct Counted {
  std::uint64_t bytes = 0;       // that the file should have
  bool samples_unknown = false;  // by a program that wrote to a pipe
};

Counted count_wav(int descriptor, std::int64_t bytes) {
  unsigned char head[36], chunk[8];
  if (pread(descriptor, head, sizeof head, 0) != sizeof head) return {};
  const bool wide = std::memcmp(head, "RF64", 4) == 0;
  const std::uint64_t riff = read_number(head + 4, 4, false), size = std::uint64_t(bytes);
  Counted counted;
  if (!wide && !is_unknown(static_cast<std::uint32_t>(riff))) counted.bytes = riff + 8;
  std::uint64_t at = 12;
  while (pread(descriptor, chunk, sizeof chunk, static_cast<off_t>(at)) == sizeof chunk) {
    const std::uint64_t length = read_number(chunk + 4, 4, false), begin = at + sizeof chunk;
    at = begin + length + length % 2;
    if (std::memcmp(chunk, "data", 4) != 0) continue;
    if (wide) {
      const std::uint64_t samples = read_number(head + 28, 8, false);
      if (samples < std::uint64_t{kNoLength}) counted.bytes = begin + samples;
    } else if (begin + length <= size && length != 0) {
      break;
    } else if (!is_unknown(static_cast<std::uint32_t>(length))) {
      counted.bytes = std::max(counted.bytes, begin + length);
    } else {
      // Other chunks can follow a recording that really is empty.
      const bool empty =
          riff != 0 && length == 0 &&
          pread(descriptor, chunk, sizeof chunk, static_cast<off_t>(begin)) == sizeof chunk &&
          begin + sizeof chunk + read_number(chunk + 4, 4, false) <= size;
      counted.samples_unknown = !empty;
    }
    break;
  }
  return counted;
}

Counted count_caf(int descriptor) {
  unsigned char chunk[12];
  std::uint64_t at = 8;
  while (pread(descriptor, chunk, sizeof chunk, static_cast<off_t>(at)) == sizeof chunk) {
    const std::uint64_t length = read_number(chunk + 4, 8, true);
    if (length >= std::uint64_t{kNoLength}) break;  // of the last chunk
    at += sizeof chunk + length;
    if (std::memcmp(chunk, "data", 4) == 0) return {at, false};
  }
  return {};
}

Counted count_bytes(int descriptor, std::int64_t bytes) {
  unsigned char head[24];
  if (pread(descriptor, head, sizeof head, 0) != sizeof head) return {};
  const auto starts = [&](const char* magic) { return std::memcmp(head, magic, 4) == 0; };
  if (starts("RIFF") || starts("RF64")) return count_wav(descriptor, bytes);
  if (starts("caff")) return count_caf(descriptor);
  if (starts("riff")) {  // Wave64
    const std::uint64_t whole = read_number(head + 16, 8, false);
    return {whole < std::uint64_t{kNoLength} ? whole : 0, false};
  }
  const std::uint64_t length = read_number(head + (starts(".snd") ? 8 : 4), 4, true);
  const std::uint64_t before = starts(".snd") ? read_number(head + 4, 4, true) : 8;
  if ((!starts("FORM") && !starts(".snd")) || is_unknown(static_cast<std::uint32_t>(length)))
    return {};
  return {before + length, false};
}

/** Throws for a WAV file with an entry of a list that is larger than 2 GiB: libsndfile takes its
 * length for a way back, and goes it for ever. read_head(at, head) is false where no 8 bytes are
 * left. */
template <typename ReadHead>
void check_lists(const std::string& path, ReadHead read_head) {
  unsigned char head[8];
  if (!read_head(0, head)) return;
  const bool big_endian = std::memcmp(head, "RIFX", 4) == 0;
  if (!big_endian && std::memcmp(head, "RIFF", 4) != 0 && std::memcmp(head, "RF64", 4) != 0) return;
  // Zeros, which a recording may be followed by, are no chunks.
  for (std::uint64_t at = 12, next = 0; read_head(at, head) && head[0] != 0; at = next) {
    next = at + 8 + read_number(head + 4, 4, big_endian);
    next += next % 2;
    if (std::memcmp(head, "LIST", 4) != 0) continue;
    for (at += 12; at < next && read_head(at, head) && head[0] != 0; at += at % 2) {
      const std::uint64_t length = read_number(head + 4, 4, big_endian);
      if (length > INT32_MAX)
        throw Error(kInputError, path + ": is damaged (an entry of a list counts " +
                                     std::to_string(length) + " bytes)");
      at += 8 + length;
    }
  }
}

/** Throws when the header of a file counts more bytes than the file has: libsndfile would read what
 * is left of the recording and keep quiet. Some programs miscount by a header. */
void check_complete(const std::string& path, std::uint64_t counted, std::int64_t bytes) {
  if (counted <= static_cast<std::uint64_t>(bytes) + 16) return;
  throw Error(kInputError, path + ": was cut off (its header counts " + std::to_string(counted) +
                               " bytes, the file has " + std::to_string(bytes) +
                               "); --partial takes what is there");
}

}  // namespace

AudioReader::AudioReader(const std::string& path, int max_channels, InputFormat format)
    : path_(path), partial_(format.partial) {
  if (path == kStandardStream) {
    path_ = "standard input";
    if (isatty(STDIN_FILENO))
      throw Error(kUsageError, "standard input is a terminal; '-' takes a pipe or a file");
    descriptor_.reset(STDIN_FILENO);
  } else {
    check_readable(path);
    descriptor_.reset(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (descriptor_.get() < 0) {
      const int error = errno;
      check_interrupted();  // while a FIFO waited for its writer
      throw Error(kInputError, path_ + ": " + std::strerror(error));
    }
  }
  struct stat status {};
  if (fstat(descriptor_.get(), &status) != 0)
    throw Error(kInputError, path_ + ": " + std::strerror(errno));
  const std::string kind = kind_of(descriptor_.get());
  if (format.rate) {
    info_.samplerate = format.rate;
    info_.channels = format.channels;
    info_.format = SF_FORMAT_RAW | SF_FORMAT_PCM_16 | SF_ENDIAN_LITTLE;
  }
  const bool raw = format.rate != 0;
  bool is_stream = !S_ISREG(status.st_mode);
  repeatable_ = !is_stream && path != kStandardStream;
  if (!is_stream && !raw) {
    const Counted counted = count_bytes(descriptor_.get(), status.st_size);
    if (!partial_) check_complete(path_, counted.bytes, status.st_size);
    is_stream = counted.samples_unknown;
  }
  if (is_stream) {
    pipe_ = std::make_unique<PipeReader>(descriptor_.get(), raw);
    if (!raw && !pipe_->reads_in_one_pass()) {
      Descriptor copy(open_temporary_file());
      pipe_->copy_to(copy.get());
      check_received();
      pipe_.reset();
      descriptor_.swap(copy);
      const off_t size = lseek(descriptor_.get(), 0, SEEK_END);
      if (!partial_) check_complete(path_, count_bytes(descriptor_.get(), size).bytes, size);
      lseek(descriptor_.get(), 0, SEEK_SET);
    }
  }
  if (!raw)
    check_lists(path_, [&](std::uint64_t at, unsigned char* head) {
      if (pipe_) return pipe_->look(at, head);
      return pread(descriptor_.get(), head, 8, static_cast<off_t>(at)) == 8;
    });
  std::unique_lock lock(opening_by_libsndfile, std::defer_lock);
  if (!pipe_) lock.lock();  // a pipe may wait for its writer
  // libsndfile closes what it cannot read, whatever it is told. By then the number may be that of
  // another thread's file; so it gets one of its own.
  file_.reset(
      pipe_ ? pipe_->open(&info_)
            : sf_open_fd(fcntl(descriptor_.get(), F_DUPFD_CLOEXEC, 0), SFM_READ, &info_, SF_TRUE));
  check_received();
  if (!file_) {
    throw Error(kInputError, path_ + ": " + (kind.empty() ? "" : "is " + kind + ", ") +
                                 "no audio file that can be read (" + sf_strerror(nullptr) +
                                 "); samples without a header take --raw RATE,CHANNELS");
  }
  if (info_.channels > max_channels)
    throw Error(kInputError, path_ + ": has " + std::to_string(info_.channels) +
                                 " channels; at most " + std::to_string(max_channels) +
                                 " are supported");
  if (rate() < 1 || rate() > kMostRate)
    throw Error(kInputError, path_ + ": is at a sampling rate of " + std::to_string(rate()) +
                                 " Hz; 1 to " + std::to_string(kMostRate) + " are supported");
}

std::int64_t AudioReader::frames() const {
  return pipe_ || info_.frames >= kNoLength ? 0 : info_.frames;
}

void AudioReader::check_received() const {
  check_interrupted();
  if (pipe_ && pipe_->error())
    throw Error(kInputError, path_ + ": cannot be read (" + std::strerror(pipe_->error()) + ")");
}

SampleFormat AudioReader::samples() const {
  switch (info_.format & SF_FORMAT_SUBMASK) {
    case SF_FORMAT_PCM_24:
    case SF_FORMAT_ALAC_20:
    case SF_FORMAT_ALAC_24:
      return SampleFormat::kInt24;
    case SF_FORMAT_PCM_32:
    case SF_FORMAT_ALAC_32:
    case SF_FORMAT_FLOAT:
    case SF_FORMAT_DOUBLE:
      return SampleFormat::kFloat;
    default:
      return SampleFormat::kInt16;
  }
}

Tags AudioReader::tags() const {
  Tags tags;
  for (int i = SF_STR_FIRST; i <= SF_STR_LAST; ++i)
    if (const char* text = sf_get_string(file_.get(), i))
      if (i != SF_STR_SOFTWARE) tags.emplace_back(i, text);
  return tags;
}

Metadata AudioReader::metadata() const {
  return pipe_ ? Metadata() : read_metadata(file_.get(), info_.format, path_);
}

std::size_t AudioReader::read(float* out, std::size_t frames) {
  return read_samples(out, frames);
}
std::size_t AudioReader::read(double* out, std::size_t frames) {
  return read_samples(out, frames);
}

template <typename Sample>
std::size_t AudioReader::read_samples(Sample* out, std::size_t frames) {
  const std::size_t wanted = frames * static_cast<std::size_t>(channels());
  const auto read_as = [&](auto* samples, auto* call, double scale) {
    samples->resize(wanted);
    const sf_count_t got = call(file_.get(), samples->data(), static_cast<sf_count_t>(frames));
    const auto* const in = samples->data();
    const std::size_t count = static_cast<std::size_t>(got) * static_cast<std::size_t>(channels());
    for (std::size_t i = 0; i < count; ++i)
      out[i] = static_cast<Sample>(static_cast<double>(in[i]) * scale);
    return got;
  };
  bool is_integer = true;
  sf_count_t got = 0;
  switch (info_.format & SF_FORMAT_SUBMASK) {
    case SF_FORMAT_PCM_16:
      got = read_as(&int16_, sf_readf_short, 1.0);
      break;
    case SF_FORMAT_PCM_24:
    case SF_FORMAT_PCM_32:
      got = read_as(&int32_, sf_readf_int, 1.0 / 65536.0);
      break;
    case SF_FORMAT_DOUBLE:
      is_integer = false;
      got = read_as(&double_, sf_readf_double, kFullScale);
      break;
    default:
      is_integer = false;
      got = read_as(&float_, sf_readf_float, kFullScale);
      break;
  }
  check_received();
  if (got == 0 && frames_read_ == 0) throw Error(kInputError, path_ + ": holds no samples");
  if (got < static_cast<sf_count_t>(frames) && !partial_) {
    const std::int64_t end = frames_read_ + got;
    if (sf_error(file_.get()) != SF_ERR_NO_ERROR)
      throw Error(kInputError, path_ + ": damaged after " + std::to_string(end) + " frames (" +
                                   sf_strerror(file_.get()) + "); --partial takes these");
    const int kind = info_.format & SF_FORMAT_TYPEMASK;  // some only estimate their lengths
    if (kind == SF_FORMAT_OGG && !pipe_ && info_.frames >= kNoLength)
      throw Error(kInputError, path_ + ": was cut off (its last page is missing, " +
                                   std::to_string(end) + " frames came); --partial takes these");
    const bool exact = pipe_ || (kind != SF_FORMAT_MPEG && kind != SF_FORMAT_OGG);
    if (exact && info_.frames < kNoLength && end < info_.frames)
      throw Error(kInputError, path_ + ": was cut off (its header counts " +
                                   std::to_string(info_.frames) + " frames, " +
                                   std::to_string(end) + " came); --partial takes these");
  }
  const std::size_t count = static_cast<std::size_t>(got) * static_cast<std::size_t>(channels());
  for (std::size_t i = 0; i < count && !is_integer; ++i) {
    if (std::isfinite(static_cast<float>(out[i]))) continue;
    out[i] = 0;
    ++not_finite_;
  }
  frames_read_ += got;
  return static_cast<std::size_t>(got);
}

}  // namespace jurn

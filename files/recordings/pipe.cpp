#include "recordings/pipe.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>

#include "audio_bytes.h"
#include "errors.h"
#include "recordings/signals.h"

namespace jurn {
namespace {

constexpr sf_count_t kHeadBytes = 65536;
constexpr sf_count_t kEndless = sf_count_t{1} << 60;
constexpr sf_count_t kUnknown = 0xFFFFFFFF;

std::string little_endian(std::uint64_t value, int bytes) {
  std::string text;
  for (int i = 0; i < bytes; ++i) text += static_cast<char>(value >> (8 * i) & 0xFF);
  return text;
}

std::uint32_t read_uint32(const char* bytes) {
  std::uint32_t value = 0;
  for (int i = 3; i >= 0; --i) value = value << 8 | static_cast<unsigned char>(bytes[i]);
  return value;
}

}  // namespace

PipeReader::PipeReader(int descriptor, bool raw) : descriptor_(descriptor) {
  if (!raw) complete_wav_header();
}

SNDFILE* PipeReader::open(SF_INFO* info) {
  SF_VIRTUAL_IO io{};
  io.get_filelen = [](void*) { return kEndless; };
  io.seek = [](sf_count_t offset, int whence, void* user) {
    PipeReader* self = static_cast<PipeReader*>(user);
    if (whence == SEEK_END) return sf_count_t{-1};  // a pipe's end is out of reach
    return self->position_ = offset + (whence == SEEK_CUR ? self->position_ : 0);
  };
  io.read = [](void* to, sf_count_t count, void* user) {
    return static_cast<PipeReader*>(user)->read(static_cast<char*>(to), count);
  };
  io.tell = [](void* user) { return static_cast<PipeReader*>(user)->position_; };
  return sf_open_virtual(&io, SFM_READ, info, this);
}

bool PipeReader::reads_in_one_pass() {
  if (!fill_head(4)) return true;
  const std::string magic = head_.substr(0, 4);
  return magic == "RIFF" || magic == "RF64" || magic == ".snd" || magic == "fLaC";
}

void PipeReader::copy_to(int file) {
  ByteWriter copy(file);
  char buffer[65536];
  sf_count_t got;
  while ((got = read(buffer, sizeof buffer)) > 0)
    if (!copy.send(buffer, got)) {
      check_interrupted();
      throw Error(kInputError, std::string("a temporary file cannot be written (") +
                                   std::strerror(copy.error()) + ")");
    }
  lseek(file, 0, SEEK_SET);
}

/** Returns 0 at the end, after an error, and when a signal has come. */
sf_count_t PipeReader::receive(char* to, sf_count_t count) {
  const ssize_t got = ::read(descriptor_, to, static_cast<std::size_t>(count));
  if (got < 0 && errno != EINTR) error_ = errno;
  if (got <= 0) return 0;
  if (received_ == static_cast<sf_count_t>(head_.size()) && received_ < kHeadBytes)
    head_.append(to, static_cast<std::size_t>(got));
  received_ += got;
  return got;
}

bool PipeReader::fill_head(std::size_t size) {
  char buffer[256];
  while (head_.size() < size) {
    const sf_count_t missing = static_cast<sf_count_t>(size - head_.size());
    if (received_ >= kHeadBytes ||
        receive(buffer, std::min<sf_count_t>(missing, sizeof buffer)) == 0)
      return false;
  }
  return true;
}

bool PipeReader::look(std::uint64_t at, unsigned char* head) {
  const std::size_t from = static_cast<std::size_t>(at);
  if (at > kHeadBytes || !fill_head(from + 8) || head_.compare(from, 4, "data") == 0) return false;
  std::memcpy(head, &head_[from], 8);
  return true;
}

void PipeReader::complete_wav_header() {
  if (!fill_head(12) || head_.compare(0, 4, "RIFF") != 0 || head_.compare(8, 4, "WAVE") != 0)
    return;
  std::size_t chunk = 12;
  while (fill_head(chunk + 8) && head_.compare(chunk, 4, "data") != 0) {
    const std::uint64_t length = read_uint32(&head_[chunk + 4]);
    const std::uint64_t next = chunk + 8 + length + length % 2;  // may be more than a size holds
    if (next > kHeadBytes) return;
    chunk = static_cast<std::size_t>(next);
  }
  if (head_.size() != chunk + 8 || !is_unknown(read_uint32(&head_[chunk + 4]))) return;
  // RF64 is the same header with lengths of 64 bits.
  const std::string length = little_endian(kEndless, 8);
  head_.replace(chunk + 4, 4, little_endian(kUnknown, 4));
  head_.replace(0, 12,
                "RF64" + little_endian(kUnknown, 4) + "WAVEds64" + little_endian(28, 4) + length +
                    length + length + little_endian(0, 4));
  received_ = static_cast<sf_count_t>(head_.size());
}

sf_count_t PipeReader::read(char* to, sf_count_t count) {
  // Far behind the samples libsndfile looks for more chunks. It gets the end of the file.
  if (position_ - received_ > kHeadBytes) return 0;
  sf_count_t done = 0;
  while (done < count) {
    const sf_count_t in_head = static_cast<sf_count_t>(head_.size()) - position_;
    sf_count_t got = 0;
    if (in_head > 0) {
      got = std::min(in_head, count - done);
      std::memcpy(to + done, &head_[static_cast<std::size_t>(position_)],
                  static_cast<std::size_t>(got));
    } else if (position_ > received_) {
      char skipped[4096];
      if (receive(skipped, std::min<sf_count_t>(position_ - received_, sizeof skipped)) == 0) break;
    } else if (position_ == received_) {
      got = receive(to + done, count - done);
      if (got == 0) break;
    } else {
      break;  // gone by
    }
    done += got;
    position_ += got;
  }
  return done;
}

SNDFILE* ByteWriter::open(SF_INFO* info) {
  SF_VIRTUAL_IO io{};
  io.get_filelen = [](void* user) { return static_cast<ByteWriter*>(user)->length_; };
  io.seek = [](sf_count_t offset, int whence, void* user) {
    ByteWriter* self = static_cast<ByteWriter*>(user);
    self->position_ = offset + (whence == SEEK_SET   ? 0
                                : whence == SEEK_CUR ? self->position_
                                                     : self->length_);
    return self->position_;
  };
  io.write = [](const void* from, sf_count_t count, void* user) {
    return static_cast<ByteWriter*>(user)->write(static_cast<const char*>(from), count);
  };
  io.read = [](void*, sf_count_t, void*) { return sf_count_t{0}; };
  io.tell = [](void* user) { return static_cast<ByteWriter*>(user)->position_; };
  return sf_open_virtual(&io, SFM_WRITE, info, this);
}

sf_count_t ByteWriter::write(const char* from, sf_count_t count) {
  if (is_stream_ ? position_ == length_ && !send(from, count) : !write_all(from, count, position_))
    return 0;
  position_ += count;
  length_ = std::max(length_, position_);
  return count;
}

bool ByteWriter::send(const char* from, sf_count_t count) {
  return write_all(from, count, -1);
}

/** At a place of a file, or behind what has been sent. */
bool ByteWriter::write_all(const char* from, sf_count_t count, sf_count_t at) {
  while (count > 0 && error_ == 0) {
    const std::size_t size = static_cast<std::size_t>(count);
    const ssize_t written =
        at < 0 ? ::write(descriptor_, from, size) : ::pwrite(descriptor_, from, size, at);
    if (written < 0 || (at < 0 && is_interrupted())) {  // only a stream makes it wait
      error_ = written < 0 ? errno : EINTR;
    } else {
      from += written;
      count -= written;
      if (at >= 0) at += written;
    }
  }
  return error_ == 0;
}

std::string wav_header(int channels, int rate, int bits, bool is_float, sf_count_t frames) {
  const std::uint64_t frame_bytes = static_cast<std::uint64_t>(channels * bits / 8);
  const std::uint64_t header_bytes = 36, most = kUnknown;
  const std::uint64_t data =
      std::min(static_cast<std::uint64_t>(frames), most / frame_bytes + 1) * frame_bytes;
  return "RIFF" + little_endian(std::min(data + header_bytes, most), 4) + "WAVEfmt " +
         little_endian(16, 4) + little_endian(is_float ? 3 : 1, 2) +
         little_endian(static_cast<std::uint64_t>(channels), 2) +
         little_endian(static_cast<std::uint64_t>(rate), 4) +
         little_endian(static_cast<std::uint64_t>(rate) * frame_bytes, 4) +
         little_endian(frame_bytes, 2) + little_endian(static_cast<std::uint64_t>(bits), 2) +
         "data" + little_endian(std::min(data, most), 4);
}

}  // namespace jurn

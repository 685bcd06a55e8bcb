// Pipes, sockets, devices and results behind the interface of libsndfile, which expects files.
#pragma once

#include <sndfile.h>

#include <cstdint>
#include <string>

namespace jurn {

/** Reads a stream once from start to end. libsndfile can go back within the first bytes, where the
 * headers are. */
class PipeReader {
 public:
  /** A WAV header without a length, as programs write it to a pipe, is completed; `raw` streams
   * have no header. */
  PipeReader(int descriptor, bool raw);

  /** Whether libsndfile reads this kind of file from front to back. Others have to be files. */
  bool reads_in_one_pass();
  /** Copies the whole stream to a file. */
  void copy_to(int file);

  /** Copies the 8 bytes of a chunk's head, which libsndfile reads again; false at the samples and
   * where there is none. */
  bool look(std::uint64_t at, unsigned char* head);

  SNDFILE* open(SF_INFO* info);

  /** The errno of a failed read, or 0. */
  int error() const { return error_; }

 private:
  sf_count_t receive(char* to, sf_count_t count);
  bool fill_head(std::size_t size);
  void complete_wav_header();
  sf_count_t read(char* to, sf_count_t count);

  int descriptor_;
  int error_ = 0;
  std::string head_;  // the first bytes, kept
  sf_count_t position_ = 0;
  sf_count_t received_ = 0;
};

/** Writes a file or a stream and keeps the first error, which some of libsndfile's encoders drop.
 * What a stream has sent cannot be changed: headers that libsndfile writes again at the end stay as
 * they were. */
class ByteWriter {
 public:
  explicit ByteWriter(int descriptor, bool is_stream = true)
      : descriptor_(descriptor), is_stream_(is_stream) {}

  SNDFILE* open(SF_INFO* info);

  /** Appends all bytes or sets the error. */
  bool send(const char* from, sf_count_t count);

  /** The errno of a failed write, or 0. */
  int error() const { return error_; }
  void forget_error() { error_ = 0; }

 private:
  sf_count_t write(const char* from, sf_count_t count);
  bool write_all(const char* from, sf_count_t count, sf_count_t at);

  int descriptor_;
  bool is_stream_;
  int error_ = 0;
  sf_count_t position_ = 0;
  sf_count_t length_ = 0;
};

/** The header of a WAV stream; lengths that its 32 bits cannot hold stand for an unknown one. */
std::string wav_header(int channels, int rate, int bits, bool is_float, sf_count_t frames);

}  // namespace jurn

// Files that are complete or not there at all.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace jurn {

/** The name of standard input and standard output. */
constexpr char kStandardStream[] = "-";

/** A descriptor, closed at the end unless it is a standard one. */
class Descriptor {
 public:
  explicit Descriptor(int number = -1) : number_(number) {}
  ~Descriptor() { close(); }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  void reset(int number);
  int get() const { return number_; }
  void swap(Descriptor& other) { std::swap(number_, other.number_); }
  bool close();

 private:
  int number_;
};

/** A new file without a name, which ends with its descriptor. */
int open_temporary_file();

/** Takes the numbers of standard streams that the caller has closed, so that no file gets them;
 * to use them remains an error. */
void open_standard_streams();

/** A file that is written beside its target and takes the target's place only when complete. Pipes
 * and devices are written as they are. */
class OutputFile {
 public:
  explicit OutputFile(const std::string& path, bool overwrite = true);
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  int descriptor() const { return descriptor_.get(); }
  const std::string& path() const { return path_; }
  /** Whether it is written as it is, from start to end. */
  bool is_stream() const { return temporary_.empty(); }
  bool is_standard_output() const { return standard_output_; }
  /** The file that is written until commit; empty for a stream. */
  const std::string& written() const { return temporary_; }

  /** Closes the file and moves it to its target. */
  void commit();

 private:
  std::string path_;
  std::string target_;
  std::string temporary_;
  bool standard_output_ = false;
  bool keep_others_ = false;  // even those that come while this one is written
  Descriptor descriptor_;
};

/** Writes a whole text; "-" is standard output. An error leaves nothing behind. */
void write_file(const std::string& path, bool overwrite, std::string_view text);

/** Throws what a failed write to `path` means: an interruption, a closed pipe or an error that says
 * `reason`. `error` is its errno, or 0. */
[[noreturn]] void fail_to_write(const std::string& path, int error, const std::string& reason);

/** Throws when `output` names one of the files that are read, by whatever path. */
void refuse_overwrite(const std::string& output, const std::vector<std::string>& inputs);

}  // namespace jurn

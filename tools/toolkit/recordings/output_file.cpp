#include "recordings/output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "errors.h"
#include "recordings/pipe.h"
#include "recordings/signals.h"

namespace tool {

namespace fs = std::filesystem;

void open_standard_streams() {
  for (const int number : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
    if (fcntl(number, F_GETFD) < 0)
      (void)open("/dev/null", number == STDIN_FILENO ? O_WRONLY : O_RDONLY);
}

void Descriptor::reset(int number) {
  close();
  number_ = number;
}

bool Descriptor::close() {
  const int number = number_;
  number_ = -1;
  return number <= STDERR_FILENO || ::close(number) == 0;
}

OutputFile::OutputFile(const std::string& path, bool overwrite) : path_(path) {
  struct stat named {};
  struct stat standard {};
  const bool exists = path != kStandardStream && stat(path.c_str(), &named) == 0;
  standard_output_ = path == kStandardStream ||
                     (exists && fstat(STDOUT_FILENO, &standard) == 0 &&
                      named.st_dev == standard.st_dev && named.st_ino == standard.st_ino);
  if (standard_output_) {
    path_ = "standard output";
    descriptor_.reset(STDOUT_FILENO);
    return;
  }
  if (exists && S_ISDIR(named.st_mode)) throw Error(kOutputError, path + ": is a directory");
  if (exists && !S_ISREG(named.st_mode)) {
    descriptor_.reset(open(path.c_str(), O_WRONLY | O_CLOEXEC));
    if (descriptor_.get() < 0)
      throw Error(kOutputError, path + ": cannot be written (" + std::strerror(errno) + ")");
    return;
  }
  if (exists && !overwrite)
    throw Error(kOutputError, path + ": exists and is kept; --overwrite replaces it");
  // The file behind a symbolic link is replaced, not the link.
  const fs::path target = exists ? fs::canonical(path) : fs::absolute(path);
  const fs::path folder = target.parent_path();
  std::error_code error;
  if (!fs::is_directory(folder, error))
    throw Error(kOutputError, path + ": there is no folder " + folder.string());
  target_ = target.string();
  const std::string temporary =
      (folder / ("." + target.filename().string() + "." + std::to_string(getpid()) + ".part"))
          .string();
  descriptor_.reset(open(temporary.c_str(), O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC, 0666));
  if (descriptor_.get() < 0)
    throw Error(kOutputError, path + ": cannot be written (" + std::strerror(errno) + ")");
  temporary_ = temporary;
}

OutputFile::~OutputFile() {
  if (!temporary_.empty()) unlink(temporary_.c_str());
}

void OutputFile::commit() {
  if (!descriptor_.close() ||
      (!is_stream() && std::rename(temporary_.c_str(), target_.c_str()) != 0))
    throw Error(kOutputError, path_ + ": cannot be written (" + std::strerror(errno) + ")");
  temporary_.clear();
}

void fail_to_write(const std::string& path, int error, const std::string& reason) {
  check_interrupted();
  if (error == EPIPE) throw Error(kPipeClosed, "");
  throw Error(kOutputError,
              path + ": cannot be written (" + (error ? std::strerror(error) : reason) + ")");
}

void write_file(const std::string& path, bool overwrite, std::string_view text) {
  OutputFile output(path, overwrite);
  PipeWriter writer(output.descriptor());
  if (!writer.send(text.data(), static_cast<sf_count_t>(text.size())))
    fail_to_write(output.path(), writer.error(), "");
  output.commit();
}

void refuse_overwrite(const std::string& output, const std::vector<std::string>& inputs) {
  std::error_code error;
  for (const std::string& input : inputs)
    if (fs::equivalent(output, input, error))
      throw Error(kUsageError, output + ": is the same file as the input " + input +
                                   "; give the result another name");
}

}  // namespace tool

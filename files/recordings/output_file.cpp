#include "recordings/output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <utility>

#include "errors.h"
#include "recordings/pipe.h"
#include "recordings/signals.h"

namespace jurn {

namespace fs = std::filesystem;

namespace {

std::atomic<unsigned> count_of_files{0};

[[noreturn]] void refuse_existing(const std::string& path) {
  throw Error(kOutputError, path + ": exists and is kept; --overwrite replaces it");
}

/** The file behind symbolic links, which stay what they are; it need not exist. */
fs::path follow_links(const std::string& path) {
  constexpr int kMostLinks = 40;
  fs::path target = fs::absolute(path);
  std::error_code error;
  for (int i = 0; i < kMostLinks && fs::is_symlink(target, error); ++i)
    target = target.parent_path() / fs::read_symlink(target);
  return target;
}

/** Like rename, in one step also where it keeps a file that is there already. */
int move_file(const std::string& from, const std::string& to, bool keep_others) {
  if (!keep_others) return std::rename(from.c_str(), to.c_str());
  if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return 0;
  if (errno != EINVAL && errno != ENOSYS) return -1;  // of the file systems that cannot
  if (link(from.c_str(), to.c_str()) == 0) return unlink(from.c_str());
  return errno == EEXIST ? -1 : std::rename(from.c_str(), to.c_str());
}

}  // namespace

void open_standard_streams() {
  for (const int number : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
    if (fcntl(number, F_GETFD) < 0)
      (void)open("/dev/null", number == STDIN_FILENO ? O_WRONLY : O_RDONLY);
}

int open_temporary_file() {
  const char* const folder = std::getenv("TMPDIR");
  std::string name =
      (fs::path(folder && *folder ? folder : "/tmp") / "jurn-filter.XXXXXX").string();
  const int descriptor = mkostemp(name.data(), O_CLOEXEC);
  if (descriptor < 0)
    throw Error(kInputError, name + ": no temporary file can be made (" + std::strerror(errno) +
                                 "); TMPDIR names another folder");
  unlink(name.c_str());
  return descriptor;
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
    if (descriptor_.get() < 0) fail_to_write(path, errno, "");
    return;
  }
  if (exists && !overwrite) refuse_existing(path);
  const fs::path target = follow_links(path);
  const fs::path folder = target.parent_path();
  std::error_code error;
  if (!fs::is_directory(folder, error))
    throw Error(kOutputError, path + ": there is no folder " + folder.string());
  target_ = target.string();
  keep_others_ = !overwrite;
  // A name of its own, as long as the file system's limit may be that of the result.
  const std::string begin = (folder / (".jurn-filter." + std::to_string(getpid()) + ".")).string();
  std::string temporary;
  do {
    temporary = begin + std::to_string(++count_of_files) + ".part";
    descriptor_.reset(open(temporary.c_str(), O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC, 0666));
  } while (descriptor_.get() < 0 && errno == EEXIST);
  if (descriptor_.get() < 0) fail_to_write(path, errno, "");
  // Whoever could not read what was there reads nothing new, either.
  if (exists) (void)fchmod(descriptor_.get(), (named.st_mode & 0777) | S_IRUSR | S_IWUSR);
  temporary_ = std::move(temporary);  // what allocated here could leave the file behind
}

OutputFile::~OutputFile() {
  if (!temporary_.empty()) unlink(temporary_.c_str());
}

void OutputFile::commit() {
  if (!descriptor_.close() || (!is_stream() && move_file(temporary_, target_, keep_others_) != 0)) {
    if (errno == EEXIST) refuse_existing(path_);  // another program's, meanwhile
    throw Error(kOutputError, path_ + ": cannot be written (" + std::strerror(errno) + ")");
  }
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
  ByteWriter writer(output.descriptor());
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

}  // namespace jurn

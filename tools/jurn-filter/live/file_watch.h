// A file that is saved anew.
#pragma once

#include <sys/stat.h>

#include <string>

namespace jurn {

/** Tells the newest version of a file, once it is written whole. */
class FileWatch {
 public:
  explicit FileWatch(const std::string& path) : path_(path), known_(now()), seen_(known_) {}

  /** Whether it is another one than the last time that this was true. Not more often than every
   * quarter of a second: a file that changed in between is still being written. */
  bool is_new() {
    const Version current = now();
    const bool settled = current == seen_ && current != known_ && current.size >= 0;
    seen_ = current;
    if (settled) known_ = current;
    return settled;
  }

 private:
  struct Version {
    long long size, seconds, nanoseconds;
    ino_t file;
    bool operator==(const Version& other) const {
      return size == other.size && seconds == other.seconds && nanoseconds == other.nanoseconds &&
             file == other.file;
    }
    bool operator!=(const Version& other) const { return !(*this == other); }
  };
  Version now() const {
    struct stat status {};
    if (stat(path_.c_str(), &status) != 0) return {-1, 0, 0, 0};
    return {status.st_size, status.st_mtim.tv_sec, status.st_mtim.tv_nsec, status.st_ino};
  }

  std::string path_;
  Version known_, seen_;
};

}  // namespace jurn

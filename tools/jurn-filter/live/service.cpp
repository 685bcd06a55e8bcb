#include "live/service.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "errors.h"
#include "recordings/output_file.h"

namespace fs = std::filesystem;

namespace jurn {
namespace {

std::string unit_of(const std::string& name) {
  std::string unit = "jurn-filter-";
  for (const unsigned char c : name)
    unit += std::isalnum(c) ? static_cast<char>(std::tolower(c)) : '-';
  return unit + ".service";
}

fs::path folder() {
  const char* const config = std::getenv("XDG_CONFIG_HOME");
  const char* const home = std::getenv("HOME");
  if (config && *config) return fs::path(config) / "systemd" / "user";
  if (!home || !*home) throw Error(kOutputError, "neither HOME nor XDG_CONFIG_HOME is set");
  return fs::path(home) / ".config" / "systemd" / "user";
}

/** A word of a command as systemd reads it. */
std::string quoted(const std::string& word) {
  std::string result = "\"";
  for (const char c : word) {
    if (c == '"' || c == '\\') result += '\\';
    if (c == '%' || c == '$') result += c;
    result += c;
  }
  return result + '"';
}

void run_systemctl(std::vector<std::string> words) {
  words.insert(words.begin(), {"systemctl", "--user"});
  std::string command;
  std::vector<char*> arguments;
  for (std::string& word : words) {
    command += (command.empty() ? "" : " ") + word;
    arguments.push_back(word.data());
  }
  arguments.push_back(nullptr);
  pid_t child = 0;
  int status = 0;
  if (const int problem =
          posix_spawnp(&child, arguments[0], nullptr, nullptr, arguments.data(), environ))
    throw Error(kOutputError, command + ": " + std::strerror(problem));
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
    throw Error(kOutputError, command + ": failed");
}

std::string description_of(const std::string& name) {
  return "Description=" + name + ", a filter in PipeWire\n";
}

/** The text of the service of this name, none where there is none. Throws where its file is that of
 * another name. */
std::string text_of(const fs::path& path, const std::string& name) {
  std::ifstream file(path);
  std::string text{std::istreambuf_iterator<char>(file), {}};
  if (!text.empty() && text.find(description_of(name)) == std::string::npos)
    throw Error(kUsageError, path.string() + ": is another service than that of \"" + name +
                                 "\"; give this one another --name");
  return text;
}

}  // namespace

std::string install_service(const std::string& name, const std::vector<std::string>& arguments) {
  const fs::path path = folder() / unit_of(name);
  const std::string before = text_of(path, name);
  std::error_code problem;
  fs::create_directories(path.parent_path(), problem);
  std::string command = quoted(fs::read_symlink("/proc/self/exe").string());
  for (const std::string& word : arguments) command += " " + quoted(word);
  write_file(path.string(), true,
             "[Unit]\n" + description_of(name) +
                 "After=pipewire.service\n\n[Service]\nExecStart=" + command +
                 "\nRestart=on-failure\nRestartSec=2\n\n[Install]\nWantedBy=default.target\n");
  try {
    run_systemctl({"daemon-reload"});
    run_systemctl({"enable", unit_of(name)});
    run_systemctl({"restart", unit_of(name)});
  } catch (const Error&) {
    try {
      if (before.empty()) {
        run_systemctl({"disable", unit_of(name)});
      } else {
        write_file(path.string(), true, before);
        run_systemctl({"daemon-reload"});
        run_systemctl({"restart", unit_of(name)});
      }
    } catch (const Error&) {  // the first one says why
    }
    if (before.empty()) fs::remove(path, problem);
    throw;
  }
  return path.string();
}

std::string uninstall_service(const std::string& name) {
  const fs::path path = folder() / unit_of(name);
  if (text_of(path, name).empty())
    throw Error(kInputError, path.string() + ": is not there; nothing of this name is installed");
  run_systemctl({"disable", "--now", unit_of(name)});
  fs::remove(path);
  run_systemctl({"daemon-reload"});
  return path.string();
}

}  // namespace jurn

#include "plotting/gnuplot.h"

#include <spawn.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string_view>

#include "errors.h"
#include "recordings/output_file.h"
#include "recordings/pipe.h"
#include "recordings/signals.h"
#include "text.h"

namespace jurn {
namespace {

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

File temporary_file() {
  File file(std::tmpfile());
  if (!file)
    throw Error(kOutputError,
                std::string("no temporary file for gnuplot (") + std::strerror(errno) + ")");
  return file;
}

/** Runs gnuplot on a script; returns what it complained about, nothing when it succeeded. */
std::string run_gnuplot(const std::string& script, int output) {
  // Files instead of pipes: neither side ever waits for the other.
  const File in = temporary_file(), errors = temporary_file();
  if (std::fwrite(script.data(), 1, script.size(), in.get()) != script.size() ||
      std::fflush(in.get()) != 0)
    throw Error(kOutputError, "no room for the script of gnuplot");
  std::rewind(in.get());

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, fileno(in.get()), STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, fileno(errors.get()), STDERR_FILENO);
  const char* const arguments[] = {"gnuplot", "-d", nullptr};  // -d: no settings of the user
  pid_t child = 0;
  const int failed = posix_spawnp(&child, arguments[0], &actions, nullptr,
                                  const_cast<char* const*>(arguments), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (failed == ENOENT)
    throw Error(kOutputError,
                "pictures are drawn by gnuplot, which is not installed; the Debian package "
                "gnuplot-nox has it");
  if (failed)
    throw Error(kOutputError, std::string("gnuplot cannot be run (") + std::strerror(failed) + ")");
  int status = 0;
  while (waitpid(child, &status, 0) < 0)
    if (errno != EINTR) throw Error(kOutputError, "gnuplot was lost");
  check_interrupted();
  if (status == 0) return {};
  char line[256];
  std::string complaint = "it ended early";
  std::rewind(errors.get());
  while (std::fgets(line, sizeof line, errors.get()))
    if (line[0] != '\n') complaint = line;
  return complaint;
}

/** Whether a picture has its end, for gnuplot overlooks that a file could not be written. */
bool is_complete(int picture) {
  char end[16];
  const off_t size = lseek(picture, 0, SEEK_END);
  if (size < static_cast<off_t>(sizeof end) ||
      pread(picture, end, sizeof end, size - static_cast<off_t>(sizeof end)) != sizeof end)
    return false;
  const std::string_view text(end, sizeof end);
  return text.find("</svg>") != text.npos || text.find("IEND") != text.npos;
}

void send_file(int file, const OutputFile& output) {
  lseek(file, 0, SEEK_SET);
  ByteWriter writer(output.descriptor());
  char buffer[65536];
  ssize_t got;
  while ((got = read(file, buffer, sizeof buffer)) > 0)
    if (!writer.send(buffer, got)) fail_to_write(output.path(), writer.error(), "");
  if (got < 0) fail_to_write(output.path(), errno, "");
}

}  // namespace

Picture picture_format(const std::string& path) {
  if (path.empty()) return Picture::kTerminal;
  const std::string ending = std::filesystem::path(path).extension().string();
  if (ending == ".png" || ending == ".PNG") return Picture::kPng;
  if (ending == ".svg" || ending == ".SVG") return Picture::kSvg;
  throw Error(kUsageError,
              path + ": the name's ending chooses the picture's format; known are .png, .svg");
}

std::string plot_string(const std::string& text) {
  std::string quoted = "'";
  for (const char c : text) {
    if (c == '\'') quoted += '\'';
    quoted += static_cast<unsigned char>(c) < 0x20 ? '?' : c;
  }
  return quoted + "'";
}

std::string set_terminal(Picture format, int width, int height) {
  // File names are shown as they are: an underscore is no subscript.
  std::string text = "set encoding utf8\n";
  if (format == Picture::kTerminal) {
    winsize window{};
    const bool known = ioctl(STDOUT_FILENO, TIOCGWINSZ, &window) == 0 && window.ws_col >= 40;
    append(&text, "set terminal dumb noenhanced mono size %d,24\n",
           known ? std::min(window.ws_col - 1, 160) : 79);
  } else if (format == Picture::kPng) {
    append(&text, "set terminal pngcairo noenhanced size %d,%d font 'sans-serif,11'\n", width,
           height);
  } else {
    append(&text,
           "set terminal svg noenhanced size %d,%d dynamic font 'sans-serif,13' background rgb "
           "'white'\n",
           width, height);
  }
  return text;
}

void draw(const std::string& path, bool overwrite, const std::string& script) {
  OutputFile output(path.empty() ? kStandardStream : path, overwrite);
  std::fflush(stdout);
  // gnuplot overlooks what cannot be written: a stream gets the finished picture.
  Descriptor copy(output.is_stream() ? open_temporary_file() : -1);
  const int drawn = output.is_stream() ? copy.get() : output.descriptor();
  const std::string complaint = run_gnuplot(script, drawn);
  if (!complaint.empty())
    throw Error(kOutputError,
                (path.empty() ? "the plot" : path) + ": gnuplot cannot draw it: " + complaint);
  if (!path.empty() && !is_complete(drawn))
    throw Error(kOutputError, path + ": cannot be written, is the disk full?");
  if (output.is_stream()) send_file(drawn, output);
  output.commit();
}

}  // namespace jurn

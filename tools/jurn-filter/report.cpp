#include "report.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "units.h"

namespace jurn {
namespace {

thread_local std::vector<std::string>* kept_lines = nullptr;

constexpr std::chrono::milliseconds kQuietTime(1000), kBetween(200);

double dbfs(double peak) {
  return to_decibels(peak / 32768.0);
}

using Json = nlohmann::ordered_json;

void print_line(const Json& json, std::FILE* out) {
  // File names need not be UTF-8.
  std::fprintf(out, "%s\n", json.dump(-1, ' ', false, Json::error_handler_t::replace).c_str());
}

void print_json(const Summary& s, std::FILE* out) {
  Json json = {
      {"input", s.input},
      {"output", s.output},
      {"frames", s.frames},
      {"channels", s.channels},
      {"rate", s.rate},
      {"peak", s.peak / 32768.0},
      {"peak_dbfs", nullptr},
      {"clipped", s.clipped},
      {"clipped_by_channel", s.clipped_by_channel},
      {"left_out", s.left_out},
      {"fitting_gain_db", nullptr},
      {"fitted_gain_db", nullptr},
      {"input_limited", s.input_clipped},
      {"input_not_finite", s.not_finite},
      {"lost_after_seconds", s.lost_after ? Json(*s.lost_after) : Json()},
      {"narrowed_to_16_bits", !s.narrowed.empty()},
      {"seconds", s.seconds},
  };
  if (!s.stamp.empty()) json["stamp"] = s.stamp;
  if (s.peak > 0.0) json["peak_dbfs"] = dbfs(s.peak);
  if (s.fitting_gain_db) json["fitting_gain_db"] = *s.fitting_gain_db;
  if (s.fitted_gain_db) json["fitted_gain_db"] = *s.fitted_gain_db;
  print_line(json, out);
}

/** "  outputs  12 clipped in channel 0, 3 in channel 2" */
void print_clipped_channels(const Summary& s, std::FILE* out) {
  std::string text;
  for (std::size_t c = 0; c < s.clipped_by_channel.size() && s.clipped_by_channel.size() > 1; ++c)
    if (s.clipped_by_channel[c] > 0)
      text += (text.empty() ? "" : ", ") + std::to_string(s.clipped_by_channel[c]) +
              (text.empty() ? " clipped in channel " : " in channel ") + std::to_string(c);
  if (!text.empty()) std::fprintf(out, "  outputs  %s\n", text.c_str());
}

void print_text(const Summary& s, std::FILE* out) {
  const double duration = static_cast<double>(s.frames) / s.rate;
  std::fprintf(out, "%s\n", s.on_standard_output ? "standard output" : printable(s.output).c_str());
  std::fprintf(out, "  length   %.3f s, %lld frames, %d channel%s, %d Hz\n", duration,
               static_cast<long long>(s.frames), s.channels, s.channels == 1 ? "" : "s", s.rate);
  if (s.peak > 0.0)
    std::fprintf(out, "  peak     %.10g, %.1f dBFS\n", s.peak, dbfs(s.peak));
  else
    std::fprintf(out, "  peak     0, silence\n");
  std::fprintf(out, "  clipped  %lld samples", static_cast<long long>(s.clipped));
  if (s.fitting_gain_db) {
    std::fprintf(out, "; a gain of %.1f dB", *s.fitting_gain_db);
    if (s.gain_of) std::fprintf(out, " for filter %d", s.gain_of);
    std::fprintf(out, " would avoid it");
  }
  std::fprintf(out, "\n");
  print_clipped_channels(s, out);
  if (s.fitted_gain_db) {
    std::fprintf(out, "  gain     %.1f dB", *s.fitted_gain_db);
    if (s.gain_of) std::fprintf(out, " of filter %d", s.gain_of);
    std::fprintf(out, ", at which it does not clip\n");
  }
  if (!s.narrowed.empty())
    std::fprintf(out, "  16 bits  %s%s\n", s.narrowed.c_str(),
                 s.dithered ? "; dithered" : "; --dither adds noise instead of distortion");
  if (s.input_clipped)
    std::fprintf(out, "  input    %lld samples beyond full scale were limited\n",
                 static_cast<long long>(s.input_clipped));
  if (s.not_finite)
    std::fprintf(out, "  input    %lld samples that are no finite numbers were read as silence\n",
                 static_cast<long long>(s.not_finite));
  if (!s.left_out.empty())
    std::fprintf(out, "  left out %s, for which this kind of result has no place\n",
                 s.left_out.c_str());
  if (!s.stamp.empty()) std::fprintf(out, "  stamp    %s\n", s.stamp.c_str());
  std::fprintf(out, "  speed    %.0f times faster than real time\n", duration / s.seconds);
}

}  // namespace

int exit_code(ErrorKind kind) {
  switch (kind) {
    case kUsageError:
      return 2;
    case kInputError:
      return 3;
    case kOutputError:
      return 4;
    case kInterrupted:
      return 130;
    case kPipeClosed:
      return 141;
  }
  return 3;
}

int report_error(int code, std::string message) {
  std::replace(message.begin(), message.end(), '\n', ' ');
  if (!message.empty()) std::fprintf(stderr, "jurn-filter: %s\n", printable(message).c_str());
  return code;
}

void say(const std::string& line) {
  if (kept_lines)
    kept_lines->push_back(line);
  else
    std::fprintf(stderr, "jurn-filter: %s\n", printable(line).c_str());
}

void warn(const std::string& message) {
  if (!message.empty()) say("warning: " + message);
}

void note(const std::string& message) {
  say("note: " + message);
}

void keep_lines(std::vector<std::string>* kept) {
  kept_lines = kept;
}

ProgressLine::ProgressLine() : enabled_(isatty(STDERR_FILENO)) {}

ProgressLine::~ProgressLine() {
  if (shown_) std::fprintf(stderr, "\r\033[K");
}

void ProgressLine::show(const Progress& progress) {
  if (!enabled_) return;
  const Clock::time_point now = Clock::now();
  if (progress.what != what_) {
    what_ = progress.what;
    start_ = now;
    next_ = now + kQuietTime;
  }
  if (now < next_) return;
  next_ = now + kBetween;
  shown_ = true;
  const std::string name = printable(what_);
  const double done = static_cast<double>(progress.frames);
  if (progress.total > 0) {
    const double total = static_cast<double>(progress.total);
    const double spent = std::chrono::duration<double>(now - start_).count();
    std::fprintf(stderr, "\r%s: %.0f %%, %.0f s left\033[K", name.c_str(), 100.0 * done / total,
                 spent * (total - done) / done);
  } else {
    std::fprintf(stderr, "\r%s: %.0f s of audio\033[K", name.c_str(), done / progress.rate);
  }
}

void print(const LevelSummary& s, bool as_json) {
  std::FILE* const out = s.on_standard_output ? stderr : stdout;
  if (as_json)
    print_line({{"input", s.input},
                {"output", s.output},
                {"loudest_dbfs", std::isfinite(s.loudest_db) ? Json(s.loudest_db) : Json()},
                {"seconds", s.seconds}},
               out);
  else
    std::fprintf(out, "%s\n  loudest  %.1f dBFS, after %.3f s\n", printable(s.output).c_str(),
                 s.loudest_db, s.seconds);
}

void print(const Summary& summary, bool as_json) {
  std::FILE* const out = summary.on_standard_output ? stderr : stdout;
  as_json ? print_json(summary, out) : print_text(summary, out);
}

}  // namespace jurn

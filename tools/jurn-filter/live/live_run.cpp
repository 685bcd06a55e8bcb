#include "live/live_run.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <exception>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "errors.h"
#include "live/file_watch.h"
#include "live/live_audio.h"
#include "live/terminal.h"
#include "recordings/audio_io.h"
#include "recordings/output_file.h"
#include "recordings/signals.h"
#include "report.h"
#include "streams/setup_voice.h"
#include "units.h"

namespace jurn {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int kBlock = 64;         // of filters that need blocks: how late they are
constexpr int kRecordSeconds = 4;  // that the file may be late

/** What is heard, as a file of floats. */
class LiveRecord {
 public:
  LiveRecord(const LiveOptions& o, LiveAudio* audio) : o_(o), audio_(audio) {}

  /** Before audio of this rate. */
  void start(int rate) {
    if (o_.record.empty() || rate == std::exchange(rate_, rate)) return;
    if (writer_) {
      warn(o_.record + ": ends where the rate changes to " + std::to_string(rate) + " Hz");
      end();
    }
    if (is_done_) return;
    AudioFormat format;
    format.samples = SampleFormat::kFloat;
    format.narrower = true;
    writer_.emplace(o_.record, audio_->outputs(), rate, format, o_.overwrite);
    audio_->record(rate * kRecordSeconds);
  }
  void write() {
    if (!writer_) return;
    std::vector<float> values = audio_->take_recorded();
    for (float& value : values) value *= 32768.0F;
    try {
      writer_->write(values.data(), values.size() / static_cast<std::size_t>(audio_->outputs()));
    } catch (const Error& problem) {
      keep_on(problem);
      close();
    }
  }
  /** Throws, late, what kept it from being whole. */
  void finish() {
    end();
    if (problem_) std::rethrow_exception(problem_);
  }

 private:
  void end() {
    write();
    if (writer_) close();
  }
  /** Where something failed, what was written before it stays. */
  void close() {
    try {
      if (problem_) writer_->forget_error();
      writer_->commit();
    } catch (const Error& problem) {
      keep_on(problem);
    }
    writer_.reset();
    is_done_ = true;
    if (audio_->lost())
      warn(o_.record + ": " + std::to_string(audio_->lost()) +
           " frames are missing, which could not be written in time");
  }
  /** What is heard goes on. */
  void keep_on(const Error& problem) {
    warn(std::string(problem.what()) + "; the record ends here");
    if (!problem_) problem_ = std::current_exception();
  }

  const LiveOptions& o_;
  LiveAudio* audio_;
  std::optional<AudioWriter> writer_;
  int rate_ = 0;
  bool is_done_ = false;
  std::exception_ptr problem_;
};

std::string decibels(float peak) {
  char text[16];
  std::snprintf(text, sizeof text, "%6.1f", std::max(-99.9, to_decibels(peak)));
  return text;
}

/** A filter in the graph until it is ended. */
class Live {
 public:
  explicit Live(const LiveOptions& o)
      : o_(o),
        file_(std::make_unique<FilterFile>(o.file, o.kind, kUsualRate, o.channels)),
        audio_(file_->inputs(), file_->outputs()),
        watch_(o.file),
        record_(o_, &audio_),
        gain_db_(o.gain_db),
        terminal_(!o.quiet),
        may_pass_(file_->can_be_bypassed()) {
    if (audio_.inputs() > kMostChannels || audio_.outputs() > kMostChannels)
      throw Error(kInputError,
                  o.file + ": PipeWire takes up to " + std::to_string(kMostChannels) + " channels");
    if (!o.record.empty()) {
      refuse_overwrite(o.record, {o.file});
      refuse_overwrite(o.record, file_->files());
    }
    make();  // says now what there is to say
    pw_init(nullptr, nullptr);
    loop_ = pw_loop_new(nullptr);
    pw_loop_enter(loop_);
    node_ = connect();
  }
  ~Live() {
    node_.reset();
    pw_loop_leave(loop_);
    pw_loop_destroy(loop_);
    pw_deinit();
  }

  void run() {
    if (!o_.quiet)
      note(o_.file + ": filters what programs " +
           (o_.node.is_microphone ? "record from" : "play to") + " \"" + o_.node.name + "\" (" +
           std::to_string(audio_.inputs()) + " in, " + std::to_string(audio_.outputs()) + " out)" +
           (terminal_.is_there() ? std::string("; ") + kKeys : ""));
    const auto end = Clock::now() + std::chrono::duration<double>(o_.check);
    while (!is_interrupted() && !ends_ && (o_.check == 0.0 || Clock::now() < end)) {
      pw_loop_iterate(loop_, 20);
      if (node_) node_->rethrow();
      keep_connected();
      if (node_) node_->tell_latency();
      if (is_due(&next_look_, 250) && watch_.is_new()) {
        read_for(rate_);
        change();
      }
      while (const char key = terminal_.key()) press(key);
      record_.write();
      audio_.free_returned();
      if (is_due(&next_show_, 100)) show();
    }
    accept_interruption();
    node_.reset();
    if (o_.check > 0.0) print_costs();
    record_.finish();
  }

 private:
  static bool is_due(Clock::time_point* next, int milliseconds) {
    if (Clock::now() < *next) return false;
    *next = Clock::now() + std::chrono::milliseconds(milliseconds);
    return true;
  }

  void say(const std::string& text) {
    terminal_.end_line();
    warn(text);
  }

  /** After the server went away: the filter stays, and is there again with a new one. */
  void keep_connected() {
    if (node_ && node_->is_lost()) {
      node_.reset();
      audio_.reset();
      say("PipeWire: the server is gone; waits for another one");
    }
    if (node_ || !is_due(&next_try_, 500)) return;
    try {
      node_ = connect();
      say("PipeWire: is there again");
    } catch (const Error&) {
    }
  }

  std::unique_ptr<PipewireNode> connect() {
    return std::make_unique<PipewireNode>(loop_, o_.node, &audio_,
                                          [this](int rate) { run_at(rate); });
  }

  void run_at(int rate) {
    if (is_started_ && rate == rate_) return;
    record_.start(rate);
    if (rate != rate_) read_for(rate);
    audio_.start(make());
    is_started_ = true;
  }

  /** A mixer without routes. */
  Setup silence() const {
    SetupStep mixer{};
    mixer.kind = SetupStep::kMixer;
    mixer.outputs = audio_.outputs();
    return {audio_.inputs(), {mixer}};
  }

  /** The filter that is wanted now. Where there is none, the input itself or, of what must not be
   * bypassed, nothing. */
  std::unique_ptr<OfferedFilter> make() {
    const StreamFormat format{rate_, audio_.inputs(), audio_.outputs(), kBlock, true};
    std::vector<std::string> warnings;
    if (is_bypassed_ || !file_) {
      const Format engine = engine_format(format, kBlock, kConvolutionHistory);
      auto made = may_pass_ ? std::make_unique<OfferedFilter>(make_wire(engine))
                            : offer_setup(silence(), engine, SampleFormat::kFloat, "", &warnings);
      made->made_for = format;
      return made;
    }
    auto made = file_->make(format, from_decibels(gain_db_), &warnings);
    if (warnings != warned_)
      for (const std::string& text : warnings) say(text);
    warned_ = warnings;
    return made;
  }

  void change() {
    if (is_started_) audio_.offer(make());
  }

  void take(std::unique_ptr<FilterFile> file) {
    file_ = std::move(file);
    may_pass_ = file_->can_be_bypassed();
    is_bypassed_ = is_bypassed_ && may_pass_;
  }

  /** A file that cannot run leaves the filter as it is. */
  void read_for(int rate) {
    const int before = std::exchange(rate_, rate);
    try {
      auto file = std::make_unique<FilterFile>(o_.file, o_.kind, rate, audio_.inputs());
      if (file->outputs() != audio_.outputs())
        throw Error(kInputError, o_.file + ": makes " + std::to_string(file->outputs()) +
                                     " channels by now, and " + std::to_string(audio_.outputs()) +
                                     " run");
      take(std::move(file));
    } catch (const std::exception& problem) {
      say(std::string(problem.what()) + (rate == before ? "; what ran before runs on" : ""));
      // What was read for another rate is none for this one.
      if (rate != before) file_.reset();
    }
  }

  void press(char key) {
    if (key == 'q' || key == 4) ends_ = true;
    if (key == '+' || key == '=' || key == '-') {
      gain_db_ = std::round(gain_db_) + (key == '-' ? -1.0 : 1.0);
      change();
    }
    if (key != 'b') return;
    if (!may_pass_) {
      say(o_.file +
          ": a setup of loudspeakers is not bypassed: all frequencies would reach each "
          "of them");
      return;
    }
    is_bypassed_ = !is_bypassed_;
    change();
  }

  void show() {
    if (!terminal_.is_there()) return;
    const LiveLevels levels = audio_.take_levels();
    clipped_ += levels.clipped;
    char gain[16];
    std::snprintf(gain, sizeof gain, "%+.0f", gain_db_);
    terminal_.show("in " + decibels(levels.in) + " dB   out " + decibels(levels.out) + " dB   " +
                   (is_bypassed_ ? "bypassed" : std::string("gain ") + gain + " dB") + "   clips " +
                   std::to_string(clipped_) + "   " + kKeys);
  }

  void print_costs() const {
    const LiveCosts& costs = audio_.costs();
    const double rate = rate_;
    std::printf(
        "frames      %lld\nmissed      %ld cycles\nshare       %.2f %% of a core\n"
        "dearest     %.0f us for %d frames, which last %.0f us\nlatency     %d frames\n",
        costs.frames, costs.missed,
        costs.frames ? 100.0 * costs.seconds * rate / static_cast<double>(costs.frames) : 0.0,
        1e6 * costs.dearest, costs.dearest_frames, 1e6 * costs.dearest_frames / rate,
        audio_.latency());
  }

  const LiveOptions& o_;
  std::unique_ptr<FilterFile> file_;
  LiveAudio audio_;
  FileWatch watch_;
  LiveRecord record_;
  double gain_db_;
  Terminal terminal_;
  pw_loop* loop_ = nullptr;
  std::unique_ptr<PipewireNode> node_;
  int rate_ = kUsualRate;
  bool is_started_ = false, is_bypassed_ = false, ends_ = false;
  bool may_pass_;  // the input itself, of the last file that could be read
  long clipped_ = 0;
  std::vector<std::string> warned_;
  Clock::time_point next_look_{}, next_show_{}, next_try_{};
};

}  // namespace

void run_live(const LiveOptions& options) {
  Live(options).run();
}

}  // namespace jurn

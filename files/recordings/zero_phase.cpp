#include "recordings/zero_phase.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

#include "errors.h"
#include "recordings/output_file.h"
#include "recordings/signals.h"

namespace jurn {
namespace {

/** Frames in a file without a name. */
class Spool {
 public:
  explicit Spool(int channels)
      : channels_(static_cast<std::size_t>(channels)), file_(open_temporary_file()) {}

  void write(std::int64_t first, const std::vector<double>& frames) {
    move(frames.size() * sizeof(double), [&](std::size_t done, std::size_t bytes) {
      return pwrite(file_.get(), reinterpret_cast<const char*>(frames.data()) + done, bytes,
                    offset(first) + static_cast<off_t>(done));
    });
  }
  void read(std::int64_t first, std::size_t count, std::vector<double>* frames) {
    frames->resize(count * channels_);
    move(frames->size() * sizeof(double), [&](std::size_t done, std::size_t bytes) {
      return pread(file_.get(), reinterpret_cast<char*>(frames->data()) + done, bytes,
                   offset(first) + static_cast<off_t>(done));
    });
  }

 private:
  off_t offset(std::int64_t frame) const {
    return static_cast<off_t>(frame * static_cast<std::int64_t>(channels_ * sizeof(double)));
  }

  template <typename Call>
  static void move(std::size_t bytes, Call call) {
    for (std::size_t done = 0; done < bytes;) {
      const ssize_t moved = call(done, bytes - done);
      if (moved < 0 && errno == EINTR) {
        check_interrupted();
        continue;
      }
      if (moved <= 0)
        throw Error(kOutputError, std::string("the recording between its two ways cannot be kept "
                                              "in a file of TMPDIR (") +
                                      std::strerror(moved < 0 ? errno : EIO) + ")");
      done += static_cast<std::size_t>(moved);
    }
  }

  std::size_t channels_;
  Descriptor file_;
};

class ZeroPhase : public Stage {
 public:
  ZeroPhase(std::unique_ptr<Stage> forward, std::unique_ptr<Stage> backward)
      : Stage(forward->channels_in, forward->channels_out, forward->is_int16),
        forward_(std::move(forward)),
        backward_(std::move(backward)),
        spool_(channels_out) {
    forward_->keep_tail = true;
    forward_->delay = backward_->delay = 0;  // what is late forward is early backward
  }

  void push(const double* in, std::size_t frames, std::vector<double>*) override {
    if (dither) forward_->dither = std::move(dither);
    received_ += static_cast<std::int64_t>(frames);
    piece_.clear();
    forward_->push(in, frames, &piece_);
    keep();
  }

  bool finish(std::vector<double>* out) override {
    if (!is_filtered_) {
      for (bool more = true; more; keep()) {
        piece_.clear();
        more = forward_->finish(&piece_);
      }
      run_backward();
      is_filtered_ = true;
    }
    const std::int64_t count = std::min(received_ - returned_, kPiece);
    spool_.read(returned_, static_cast<std::size_t>(count), &piece_);
    out->insert(out->end(), piece_.begin(), piece_.end());
    returned_ += count;
    return returned_ < received_;
  }

 private:
  static constexpr std::int64_t kPiece = 16384;

  void keep() {
    spool_.write(made_, piece_);
    made_ += static_cast<std::int64_t>(piece_.size()) / channels_out;
  }

  /** What comes out takes the place of what went in. */
  void run_backward() {
    std::int64_t written = made_;
    std::vector<double> result;
    for (std::int64_t end = made_; end > 0; end -= kPiece) {
      check_interrupted();
      const std::int64_t first = std::max<std::int64_t>(end - kPiece, 0);
      const std::size_t count = static_cast<std::size_t>(end - first);
      spool_.read(first, count, &piece_);
      turn(&piece_);
      result.clear();
      backward_->push(piece_.data(), count, &result);
      if (first == 0) backward_->finish(&result);
      turn(&result);
      written -= static_cast<std::int64_t>(result.size()) / channels_out;
      spool_.write(written, result);
    }
    input_clipped = forward_->input_clipped;
    clipped = forward_->clipped + backward_->clipped + backward_->input_clipped;
    lost_after = backward_->lost_after >= 0 ? 0 : forward_->lost_after;  // all before that frame
  }

  /** Puts the frames into the opposite order. */
  void turn(std::vector<double>* frames) const {
    std::reverse(frames->begin(), frames->end());
    for (auto frame = frames->begin(); frame != frames->end(); frame += channels_out)
      std::reverse(frame, frame + channels_out);
  }

  std::unique_ptr<Stage> forward_, backward_;
  Spool spool_;
  std::vector<double> piece_;
  std::int64_t received_ = 0, made_ = 0, returned_ = 0;
  bool is_filtered_ = false;
};

}  // namespace

std::unique_ptr<Stage> make_zero_phase(std::unique_ptr<Stage> forward,
                                       std::unique_ptr<Stage> backward) {
  return std::make_unique<ZeroPhase>(std::move(forward), std::move(backward));
}

}  // namespace jurn

// A stream: one record of the library, run block by block from Python.
#pragma once

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "arrays.h"
#include "made.h"
#include "records.h"

namespace jurn::python {

/** Lets other Python threads run meanwhile. */
class Unlocked {
 public:
  Unlocked() : thread_(PyEval_SaveThread()) {}
  ~Unlocked() { PyEval_RestoreThread(thread_); }
  Unlocked(const Unlocked&) = delete;
  Unlocked& operator=(const Unlocked&) = delete;

 private:
  PyThreadState* thread_;
};

/** Marks an object as in use while it lives; the flag is only read and written under Python's lock.
 */
class InUse {
 public:
  explicit InUse(bool* flag) : flag_(flag) {
    check(*flag);
    *flag_ = true;
  }
  ~InUse() { *flag_ = false; }
  InUse(const InUse&) = delete;
  InUse& operator=(const InUse&) = delete;

  static void check(bool flag) {
    if (flag)
      throw std::runtime_error("the filter runs on another thread; use a copy on each thread");
  }

 private:
  bool* flag_;
};

/** The head of a stored stream. */
struct StoredHead {
  std::uint32_t magic = 0x4e52554a;  // "JURN" on machines with the byte order of the records
  std::uint16_t format = 2;          // of what follows
  std::uint8_t tag = 0;              // the record
  std::uint8_t fading = 0;           // whether a second record follows
  std::int32_t last = 0;             // frames of the previous block
  std::int32_t previous_last = 0;    // the same of the second record
  std::uint32_t size = 0;            // of one record
};

/** The head of stored data; throws for none, or one of another format. */
StoredHead stored_head(std::string_view data);

/** Ends stored data with a checksum, so that nothing altered is run. */
py::bytes sealed(std::string data);

/** The data without its checksum; throws for what was altered or cut. */
std::string_view unsealed(std::string_view data);

template <class Record>
class Stream {
 public:
  using Sample = typename Traits<Record>::Sample;

  Stream() : record_(std::make_unique<Record>()) {}
  Stream(const Stream& other) : last_(other.last_), previous_last_(other.previous_last_) {
    InUse::check(other.in_use_);
    record_ = std::make_unique<Record>(*other.record_);
    if (other.previous_) previous_ = std::make_unique<Record>(*other.previous_);
  }

  Record& record() { return *record_; }
  const Record& record() const { return *record_; }
  int last() const { return last_; }
  bool in_use() const { return in_use_; }

  void clear() {
    InUse::check(in_use_);
    previous_.reset();
    last_ = 0;
    reset(*record_);
  }

  /** Filters one block of any length up to the longest. A pending fade spans it, or as much of it
   * as the library fades at once. */
  template <class In>
  void run_block(const In* in, int frames, Sample* out) {
    if (frames == 0) return;
    const int now = previous_ ? std::min(frames, longest_fade(*record_)) : frames;
    move_histories(*record_, last_, now);
    if (previous_) {
      move_histories(*previous_, previous_last_, now);
      if constexpr (!std::is_same_v<Record, shuzhiFilter_ID>)
        fade(*previous_, *record_, in, now, out);
      previous_.reset();
    } else {
      run(*record_, in, now, out);
    }
    last_ = now;
    run_block(in + now * channels_in(*record_), frames - now, out + now * channels_out(*record_));
  }

  /** process(block, out) and run(samples, block, out) of Python; `block` 0 is one block. */
  template <class In>
  py::object filter(py::handle samples, py::handle out, py::ssize_t block) {
    const InUse in_use(&in_use_);
    const int ins = channels_in(*record_), outs = channels_out(*record_);
    Input<In> in = read_block<In>(samples, ins);
    py::ssize_t longest = longest_block(*record_);
    if (!std::is_same_v<In, Sample>) longest = std::min<py::ssize_t>(longest, JURN_BLOCK);
    if (block == 0 ? in.frames > longest : block < 0 || block > longest)
      throw py::value_error("block: " + std::to_string(block == 0 ? in.frames : block) +
                            " frames; this filter takes blocks of 1 to " + std::to_string(longest));
    Output<Sample> result(out, in.frames, outs, in.dimensions);
    keep_apart(&in, ins, result.data(), result.values() * static_cast<py::ssize_t>(sizeof(Sample)),
               ins == outs && std::is_same_v<In, Sample>);
    {
      const Unlocked unlocked;
      const py::ssize_t step = block == 0 ? in.frames : block;
      for (py::ssize_t done = 0; done < in.frames; done += step)
        run_block(in.data + done * ins, static_cast<int>(std::min(step, in.frames - done)),
                  result.data() + done * outs);
    }
    return result.finish();
  }

  /** The next block fades to the filter with these coefficients. */
  void fade_to(py::handle b, py::handle a, py::handle right) {
    const InUse in_use(&in_use_);
    if (fade_inside(*record_, b, right)) return;
    if (record_->filtertype == JURN_MOVING_AVERAGE)
      throw py::value_error("a moving average has no coefficients to fade to");
    auto next = std::make_unique<Record>();
    next->filtertype = record_->filtertype;
    if constexpr (!std::is_same_v<Record, Filterf_ID>) next->chanel = record_->chanel;
    set_coefficients(*next, b, a, right);
    if (!previous_) {
      previous_ = std::make_unique<Record>(*record_);
      previous_last_ = last_;
    }
    inherit(*next, *previous_, previous_last_);
    last_ = 0;
    *record_ = *next;  // views keep their memory
  }

  py::bytes stored() const {
    InUse::check(in_use_);
    StoredHead head;
    head.tag = Traits<Record>::kTag;
    head.fading = previous_ ? 1 : 0;
    head.last = last_;
    head.previous_last = previous_last_;
    head.size = sizeof(Record);
    std::string all(reinterpret_cast<const char*>(&head), sizeof head);
    all.append(reinterpret_cast<const char*>(record_.get()), sizeof(Record));
    if (previous_) all.append(reinterpret_cast<const char*>(previous_.get()), sizeof(Record));
    return sealed(std::move(all));
  }

  static std::unique_ptr<Stream> restored(const py::bytes& bytes) {
    const StoredHead head = stored_head(bytes);
    const std::string_view data = unsealed(bytes);
    const std::size_t records = head.fading ? 2 : 1;
    if (head.tag != Traits<Record>::kTag || head.size != sizeof(Record) ||
        data.size() != sizeof head + records * sizeof(Record))
      throw py::value_error("data: holds another kind of filter, or is cut");
    auto stream = std::make_unique<Stream>();
    const char* from = data.data() + sizeof head;
    std::memcpy(static_cast<void*>(stream->record_.get()), from, sizeof(Record));
    if (head.fading) {
      stream->previous_ = std::make_unique<Record>();
      std::memcpy(static_cast<void*>(stream->previous_.get()), from + sizeof(Record),
                  sizeof(Record));
    }
    const auto fits = [](const Record& r, int last) {
      return is_valid(r) && last >= 0 && last <= longest_block(r);
    };
    if (!fits(*stream->record_, head.last) ||
        (stream->previous_ && !fits(*stream->previous_, head.previous_last)) ||
        (stream->previous_ && channels_in(*stream->previous_) != channels_in(*stream->record_)))
      throw py::value_error("data: holds a filter beyond the limits of its record");
    stream->last_ = head.last;
    stream->previous_last_ = head.previous_last;
    return stream;
  }

 private:
  std::unique_ptr<Record> record_;
  std::unique_ptr<Record> previous_;  // what the next block fades from
  int last_ = 0;                      // frames of the previous block
  int previous_last_ = 0;             // and of the last one that previous_ has run
  bool in_use_ = false;
};

}  // namespace jurn::python

namespace pybind11::detail {
template <class Record>
class type_caster<jurn::python::Stream<Record>>
    : public jurn::python::MadeCaster<jurn::python::Stream<Record>> {};
}  // namespace pybind11::detail

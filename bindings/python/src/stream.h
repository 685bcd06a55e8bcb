// A stream: one record of the library, run block by block from Python.
#pragma once

#include <algorithm>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "arrays.h"
#include "made.h"
#include "records.h"
#include "streams/record_stream.h"

namespace jurn::python {

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

template <class Record>
class Stream : public RecordStream<Record> {
 public:
  using Base = RecordStream<Record>;
  using Base::record;
  using typename Base::Sample;

  Stream() = default;
  Stream(const Stream& other) : Base((InUse::check(other.in_use_), other)) {}

  bool in_use() const { return in_use_; }

  void clear() {
    InUse::check(in_use_);
    Base::clear();
  }

  /** process(block, out) and run(samples, block, out) of Python; `block` 0 is one block. */
  template <class In>
  py::object filter(py::handle samples, py::handle out, py::ssize_t block) {
    const InUse in_use(&in_use_);
    const int ins = channels_in(record()), outs = channels_out(record());
    Input<In> in = read_block<In>(samples, ins);
    py::ssize_t longest = longest_block(record());
    if (!std::is_same_v<In, Sample>) longest = std::min<py::ssize_t>(longest, JURN_BLOCK);
    if (block == 0 ? in.frames > longest : block < 0 || block > longest)
      throw py::value_error("block: " + std::to_string(block == 0 ? in.frames : block) +
                            " frames; this filter takes blocks of 1 to " + std::to_string(longest));
    Output<Sample> result(out, in.frames, outs, in.dimensions);
    keep_apart(&in, ins, result.data(), result.values() * static_cast<py::ssize_t>(sizeof(Sample)),
               ins == outs && std::is_same_v<In, Sample>);
    {
      const py::gil_scoped_release unlocked;
      const py::ssize_t step = block == 0 ? in.frames : block;
      for (py::ssize_t done = 0; done < in.frames; done += step)
        this->run_block(in.data + done * ins, static_cast<int>(std::min(step, in.frames - done)),
                        result.data() + done * outs);
      this->take_retired();
    }
    return result.finish();
  }

  /** The next block fades to the filter with these coefficients. */
  void fade_to(py::handle b, py::handle a, py::handle right) {
    const InUse in_use(&in_use_);
    if (fade_inside(record(), b, right)) return;
    if (record().filtertype == JURN_MOVING_AVERAGE)
      throw py::value_error("a moving average has no coefficients to fade to");
    auto next = std::make_unique<Record>();
    next->filtertype = record().filtertype;
    if constexpr (!std::is_same_v<Record, Filterf_ID>) next->chanel = record().chanel;
    set_coefficients(*next, b, a, right);
    Base::fade_to(&next);
  }

  py::bytes stored() const {
    InUse::check(in_use_);
    return py::bytes(Base::stored());
  }

  static std::unique_ptr<Stream> restored(const py::bytes& bytes) {
    auto stream = std::make_unique<Stream>();
    stream->restore(std::string_view(bytes));
    return stream;
  }

 private:
  bool in_use_ = false;
};

}  // namespace jurn::python

namespace pybind11::detail {
template <class Record>
class type_caster<jurn::python::Stream<Record>>
    : public jurn::python::MadeCaster<jurn::python::Stream<Record>> {};
}  // namespace pybind11::detail

// What runs behind an object of another language's.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace jurn::bindings {

/** What is behind an object, a record or a stream; the numbers are part of the interface. */
enum class What {
  kFilter,
  kMovingSum,
  kFloatFilter,
  kLongFilter,
  kSections,
  kStream,
  kConvolution,
};

/** Coefficients as they are handed over. */
struct Wanted {
  int kind;               // FilterDesign's or one of below; a long filter's own
  std::vector<double> b;  // of routes, the taps of all of them
  std::vector<double> a;
  std::vector<int> routes;  // input, output and taps of each
};
enum { kMean = 3, kRoutes };  // a mean has its length in b

/** One thread at a time, but for change(). Java checks the arrays of a call, and that it is a
 * multiple of block() frames. */
class Running {
 public:
  Running() = default;
  virtual ~Running() = default;
  Running(const Running&) = delete;
  Running& operator=(const Running&) = delete;

  virtual int inputs() const = 0;
  virtual int outputs() const = 0;
  virtual int block() const { return 1; }

  virtual void run(const short* in, int frames, short* out);
  virtual void run(const float* in, int frames, float* out);
  virtual void run(const short* in, int frames, float* out);
  /** Each channel in an array of its own. */
  virtual void run(const float* const* in, int frames, float* const* out);

  /** Any thread, also while another one runs. */
  virtual void change(const Wanted& to, int fade);
  virtual void reset() = 0;
  virtual int rate() const { return 0; }
  virtual int latency() const { return 0; }
  virtual int tail() const { return 0; }
  virtual int push(short sample);
  virtual std::string stored();
  virtual void restore(std::string_view data);

  /** Room for so many values of a type; only a call that is longer than all before it allocates. */
  template <typename Sample>
  Sample* room(std::size_t values, int which) {
    std::vector<double>& memory = room_[which];
    const std::size_t doubles = values * sizeof(Sample) / sizeof(double) + 1;
    if (memory.size() < doubles) memory.resize(doubles);
    return reinterpret_cast<Sample*>(memory.data());
  }

 private:
  std::vector<double> room_[2];
};

/** `wanted` null: an object to be restored. */
std::unique_ptr<Running> make_record(What what, int channels, const Wanted* wanted);
/** `shape` is rate, inputs, outputs, frames of a block and longest taps. */
std::unique_ptr<Running> make_stream(What what, const std::vector<int>& shape,
                                     const Wanted& wanted);
std::unique_ptr<Running> restored_stream(What what, std::string_view data);
/** Goes on from what stored() of an object of the same kind gave. */
std::unique_ptr<Running> restored(What what, std::string_view data);

}  // namespace jurn::bindings

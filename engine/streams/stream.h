// Audio through a filter, and through other ones from some moment on, without a step or a hole.
#pragma once

#include <array>
#include <memory>
#include <utility>
#include <vector>

#include "streams/voice.h"

namespace jurn {

/** A filter that a stream is to go over to. */
struct Change {
  Change(std::unique_ptr<Voice> to, int frames) : voice(std::move(to)), fade(frames) {}

  std::unique_ptr<Voice> voice;
  int fade;                // frames of the ramp, 1 or more
  Change* next = nullptr;  // for lists of those that are no longer needed
};

/** Frees a list of changes. */
void free_changes(Change* list);

/**
 * A stream of frames. Only the constructors allocate; every other call is safe in a real-time
 * thread.
 *
 * A new filter first hears the past: it takes over the state of the one before, or the last input
 * is run through it, a part with every call where that is much. Then it fades in,
 *
 *   y = y + w (v - y),   w = i / (fade - 1) for frame i of the ramp,
 *
 * with y what sounds without it and v what it makes of the input. So a change during a change fades
 * from what sounds at that moment, and one to the same filter changes no sample. While a filter
 * hears the past, prepares a fade of its own, or kVoices sound at once, the newest change waits and
 * replaces an older one that waits. So however many come, the newest is heard in bounded time.
 */
class Stream {
 public:
  static constexpr int kVoices = 4;

  /** `first` may be null: the input passes. */
  Stream(const Format& format, std::unique_ptr<Voice> first);
  ~Stream();
  /** With the same past, filters and changes. Throws where a voice is of a kind without copies. */
  Stream(const Stream& other);
  Stream& operator=(const Stream&) = delete;

  /** Writes the stream, within a change, too; nothing of it changes. Throws where a voice is of a
   * kind that cannot be stored. Allocates. */
  void store(StateBytes* to);
  /** What store() wrote: it goes on as that stream would have, bit by bit. Throws for another
   * format than `wanted`, if there is one. */
  explicit Stream(StateBytes* from, const Format* wanted = nullptr);

  const Format& format() const { return format_; }

  /** Filters interleaved frames; `out` may be `in` where both have as many channels. A multiple of
   * the format's block, if a voice works in blocks. */
  void process(const short* in, int frames, short* out);
  void process(const float* in, int frames, float* out);
  void process(const double* in, int frames, double* out);

  /** Filters frames, each channel in an array of its own; out[c] may be in[c]. */
  void process(const short* const* in, int frames, short* const* out);
  void process(const float* const* in, int frames, float* const* out);
  void process(const double* const* in, int frames, double* const* out);

  /** What process() would put out for the first frames of the next block, fewer than a whole one;
   * that block, once complete, gives the same but for the rounding of floats. Allocates. */
  void preview(const short* in, int frames, short* out);
  void preview(const float* in, int frames, float* out);
  void preview(const double* in, int frames, double* out);

  /** Goes over to another filter of the same format. Before the first frame it starts at once. */
  void change(std::unique_ptr<Change> next);

  /** Whether a change has been told that is not yet complete. */
  bool changing() const { return count_ > 1 || warming_ || waiting_ || voice().changing(); }

  /** Returns to silence and to the newest filter. */
  void reset();

  /** Frames that ring on, after a change that has been told, too. */
  int tail() const;

  /** The newest filter that sounds. */
  const Voice& voice() const { return *voices_[count_ - 1].change->voice; }

  /** Input samples since the beginning or the reset that were infinite or no number; they count
   * as 0. */
  unsigned long long bad_samples() const { return bad_samples_ + voice().bad_samples(); }

  /** Hands over what is no longer needed, a list by `next`, to be freed on another thread. */
  Change* take_retired();
  /** Frees it here, where no thread is in a hurry. */
  void free_retired() { free_changes(take_retired()); }

 private:
  void make_pieces();
  void pass_state(StateBytes* state);
  void pass_change(StateBytes* state, std::unique_ptr<Change>* change) const;

  struct Sounding {
    std::unique_ptr<Change> change;
    int done;  // frames of its ramp
  };

  template <typename Sample>
  void process_interleaved(const Sample* in, int frames, Sample* out);
  template <typename In, typename Out>
  void process_pieces(const In& in, int frames, const Out& out);
  template <typename Sample>
  void preview_interleaved(const Sample* in, int frames, Sample* out);
  void filter(int frames);
  void begin_change(int frames);
  void mix(const Sounding& sounding, int frames);
  void begin_waiting();
  void hear_the_past(int frames);
  void drop_faded();
  void retire(std::unique_ptr<Change> old);
  void retire_all();
  void remember(int frames);

  Format format_;
  int piece_;                         // frames that are filtered at once at most
  std::vector<double> memory_;        // of the pieces below
  std::vector<double*> in_, old_;     // a piece of each input, of now and of the past
  std::vector<double*> out_, spare_;  // and of each output
  std::vector<double> past_;          // the last input, a ring for each channel
  int past_frames_;                   // of a ring
  long long heard_ = 0;               // frames of the stream
  bool previewed_ = false;            // the block to come: no change begins in it
  unsigned long long bad_samples_ = 0;
  std::array<Sounding, kVoices> voices_{};  // from the oldest to the newest
  int count_ = 0;
  std::unique_ptr<Change> warming_;  // hears the past
  long long warmed_ = 0;             // the frame that it hears next
  std::unique_ptr<Change> waiting_;  // the newest
  Change* retired_ = nullptr;
};

}  // namespace jurn

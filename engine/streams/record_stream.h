// A record of the library as a stream, and its bytes.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>

#include "errors.h"
#include "streams/records.h"
#include "streams/state_bytes.h"

namespace jurn::records {

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

/** Only the constructors, stored() and restore() allocate. */
template <class Record>
class RecordStream {
 public:
  using Sample = typename Traits<Record>::Sample;

  RecordStream() : record_(std::make_unique<Record>()) {}
  /** With the same past. */
  RecordStream(const RecordStream& other)
      : record_(std::make_unique<Record>(*other.record_)),
        last_(other.last_),
        previous_last_(other.previous_last_) {
    if (other.previous_) previous_ = std::make_unique<Record>(*other.previous_);
  }
  RecordStream& operator=(const RecordStream&) = delete;

  Record& record() { return *record_; }
  const Record& record() const { return *record_; }
  /** Frames of the previous block, behind which the histories lie. */
  int last() const { return last_; }
  bool fading() const { return previous_ != nullptr; }

  /** Returns to silence and to the newest coefficients. */
  void clear() {
    if (previous_) retired_ = std::move(previous_);
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
      retired_ = std::move(previous_);
    } else {
      run(*record_, in, now, out);
    }
    last_ = now;
    run_block(in + now * channels_in(*record_), frames - now, out + now * channels_out(*record_));
  }

  /** The next block fades to a filter of the same kind and channels, which goes on with the past of
   * this one. `next` is left with what is no longer needed, if anything. */
  void fade_to(std::unique_ptr<Record>* next) {
    if (previous_) {
      inherit(**next, *previous_, previous_last_);
      exchange(record_.get(), next->get());
    } else {
      // What others look at stays in its place.
      exchange(record_.get(), next->get());
      previous_ = std::move(*next);
      previous_last_ = last_;
      inherit(*record_, *previous_, previous_last_);
      *next = take_retired();
    }
    last_ = 0;
  }

  /** Hands over the record that a fade was done with, to be freed on another thread. */
  std::unique_ptr<Record> take_retired() { return std::move(retired_); }

  /** The whole state, for the byte order of this machine, with a checksum. */
  std::string stored() const {
    StoredHead head;
    head.tag = Traits<Record>::kTag;
    head.fading = previous_ ? 1 : 0;
    head.last = last_;
    head.previous_last = previous_last_;
    head.size = sizeof(Record);
    std::string all(reinterpret_cast<const char*>(&head), sizeof head);
    all.append(reinterpret_cast<const char*>(record_.get()), sizeof(Record));
    if (previous_) all.append(reinterpret_cast<const char*>(previous_.get()), sizeof(Record));
    add_checksum(&all);
    return all;
  }

  /** Goes on from a stored state; throws for what does not fit, and changes nothing then. */
  void restore(std::string_view data) {
    const StoredHead head = stored_head(data);
    data = without_checksum(data);
    const std::size_t records = head.fading ? 2 : 1;
    if (head.tag != Traits<Record>::kTag || head.size != sizeof(Record) ||
        data.size() != sizeof head + records * sizeof(Record))
      throw Error(kInputError, "data: holds another kind of filter, or is cut");
    const auto now = taken(data, 0);
    auto before = head.fading ? taken(data, 1) : nullptr;
    const auto fits = [](const Record& r, int last) {
      return is_valid(r) && last >= 0 && last <= longest_block(r);
    };
    if (!fits(*now, head.last) || (before && !fits(*before, head.previous_last)) ||
        (before && channels_in(*before) != channels_in(*now)))
      throw Error(kInputError, "data: holds a filter beyond the limits of its record");
    *record_ = *now;
    previous_ = std::move(before);
    last_ = head.last;
    previous_last_ = head.previous_last;
  }

 private:
  static std::unique_ptr<Record> taken(std::string_view data, std::size_t which) {
    auto record = std::make_unique<Record>();
    std::memcpy(static_cast<void*>(record.get()),
                data.data() + sizeof(StoredHead) + which * sizeof(Record), sizeof(Record));
    return record;
  }

  /** Without a third record on the stack. */
  static void exchange(Record* x, Record* y) {
    auto* const bytes = reinterpret_cast<unsigned char*>(x);
    std::swap_ranges(bytes, bytes + sizeof(Record), reinterpret_cast<unsigned char*>(y));
  }

  std::unique_ptr<Record> record_;
  std::unique_ptr<Record> previous_;  // what the next block fades from
  std::unique_ptr<Record> retired_;   // and did
  int last_ = 0;                      // frames of the previous block
  int previous_last_ = 0;             // and of the last one that previous_ has run
};

}  // namespace jurn::records

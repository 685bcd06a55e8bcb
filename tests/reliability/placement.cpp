/* State is plain data: a record that is moved by memcpy between all blocks, to every offset that
 * its alignment allows, or written to a file and read back, goes on bit for bit; so it does when
 * the caller's arrays lie at any offset from the alignment of vectors. */
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "scenarios.h"

namespace {

/** The storage of every record that has moved, by its place. */
std::map<const void*, std::unique_ptr<char[]>> storage;

void* other_place(size_t bytes, size_t alignment) {
  static int moves = 0;
  auto room = std::make_unique<char[]>(bytes + 256);
  char* const place = room.get() + alignment * (++moves % (256 / alignment));
  storage[place] = std::move(room);
  return place;
}

void leave(void* record, size_t bytes) {
  std::memset(record, 0x5a, bytes);
  storage.erase(record);
}

void* by_memcpy(void* record, size_t bytes, size_t alignment) {
  void* const place = std::memcpy(other_place(bytes, alignment), record, bytes);
  leave(record, bytes);
  return place;
}

void* by_file(void* record, size_t bytes, size_t alignment) {
  static std::FILE* const file = std::tmpfile();
  std::rewind(file);
  EXPECT_EQ(std::fwrite(record, 1, bytes, file), bytes);
  leave(record, bytes);
  std::rewind(file);
  void* const place = other_place(bytes, alignment);
  EXPECT_EQ(std::fread(place, 1, bytes, file), bytes);
  return place;
}

// With sanitizers, which make a scenario slow, not every offset.
#ifdef JURN_PLAIN_CALLS
constexpr bool kIsSlow = true;
#else
constexpr bool kIsSlow = false;
#endif

TEST(Placement, ChangesNoBit) {
  for (const Scenario& scenario : scenarios()) {
    const uint64_t still = scenario.run(Placement());
    EXPECT_EQ(scenario.run({by_memcpy, 0}), still) << scenario.name << " moved";
    EXPECT_EQ(scenario.run({by_file, 0}), still) << scenario.name << " written and read";
    // Long convolutions take time, and meet the caller's arrays as the others do.
    const int apart = kIsSlow || std::string(scenario.name).find("long_convolution") == 0 ? 5 : 1;
    for (int offset = 1; offset < 32; offset += apart)
      EXPECT_EQ(scenario.run({nullptr, offset}), still) << scenario.name << ' ' << offset;
  }
}

}  // namespace

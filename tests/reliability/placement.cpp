/* State is plain data: a record that is moved by memcpy between all blocks, to every offset that
 * its alignment allows, or written to a file and read back, goes on bit for bit; so it does when
 * the caller's arrays lie at any offset from the alignment of vectors. */
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "scenarios.h"

namespace {

/** Storage of its own per size, so that several records may move in turn. */
char* other_place(size_t bytes, size_t alignment, const void* now) {
  static std::map<size_t, std::unique_ptr<char[]>> storage[2];
  static int moves = 0;
  for (auto& half : storage)
    if (!half[bytes]) half[bytes] = std::make_unique<char[]>(bytes + 256);
  const char* p = static_cast<const char*>(now);
  const char* first = storage[0][bytes].get();
  const bool in_first = p >= first && p < first + 256;
  const size_t offset = alignment * (++moves % (256 / alignment));
  return storage[in_first][bytes].get() + offset;
}

void* by_memcpy(void* record, size_t bytes, size_t alignment) {
  void* place = std::memcpy(other_place(bytes, alignment, record), record, bytes);
  std::memset(record, 0x5a, bytes);
  return place;
}

void* by_file(void* record, size_t bytes, size_t alignment) {
  static std::FILE* const file = std::tmpfile();
  std::rewind(file);
  EXPECT_EQ(std::fwrite(record, 1, bytes, file), bytes);
  std::memset(record, 0x5a, bytes);
  std::rewind(file);
  void* place = other_place(bytes, alignment, record);
  EXPECT_EQ(std::fread(place, 1, bytes, file), bytes);
  return place;
}

TEST(Placement, ChangesNoBit) {
  for (const Scenario& scenario : scenarios()) {
    const uint64_t still = scenario.run(Placement());
    EXPECT_EQ(scenario.run({by_memcpy, 0}), still) << scenario.name << " moved";
    EXPECT_EQ(scenario.run({by_file, 0}), still) << scenario.name << " written and read";
    for (int offset = 1; offset < 32; ++offset)
      EXPECT_EQ(scenario.run({nullptr, offset}), still) << scenario.name << ' ' << offset;
  }
}

}  // namespace

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}

/* Writes the head-related impulse responses in the plane of the ears, one pair per five degrees
 * counted to the left from the front, as floats: head SET RATE FILE. First the number of directions
 * and the taps of each ear as 32-bit integers; then left and right ear of each direction. */
#include <mysofa.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  int taps = 0, error = 0;
  MYSOFA_EASY* set = mysofa_open(argv[1], std::strtof(argv[2], nullptr), &taps, &error);
  std::FILE* file = std::fopen(argv[3], "wb");
  if (!set || !file) {
    std::fprintf(stderr, "%s: cannot be read or written (%d)\n", argv[set ? 3 : 1], error);
    return 1;
  }
  constexpr int kDirections = 72;
  // Delays come apart from the responses; they go back in front of them.
  constexpr int kRoom = 64;
  const int length = taps + kRoom;
  const std::int32_t head[] = {kDirections, length};
  std::fwrite(head, sizeof head, 1, file);
  const auto count = static_cast<std::size_t>(taps);
  std::vector<float> ear[2] = {std::vector<float>(count), std::vector<float>(count)};
  for (int i = 0; i < kDirections; ++i) {
    const float angle = static_cast<float>(i) * 2.0f * std::acos(-1.0f) / kDirections;
    float delay[2];
    mysofa_getfilter_float(set, std::cos(angle), std::sin(angle), 0.0f, ear[0].data(),
                           ear[1].data(), &delay[0], &delay[1]);
    for (int side = 0; side < 2; ++side) {
      std::vector<float> whole(static_cast<std::size_t>(length));
      const long shift = std::lrint(delay[side] * std::strtof(argv[2], nullptr));
      for (long k = 0; k < taps && shift + k < length; ++k)
        whole[static_cast<std::size_t>(shift + k)] = ear[side][static_cast<std::size_t>(k)];
      std::fwrite(whole.data(), sizeof(float), whole.size(), file);
    }
  }
  mysofa_close(set);
  if (std::fclose(file) != 0) {
    std::perror(argv[3]);
    return 1;
  }
  return 0;
}

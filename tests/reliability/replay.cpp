/* Runs a fuzz target without a fuzzer: fuzz_TARGET COUNT [FILES], on so many inputs from a
 * generator and on the files, findings of the past. */
#include <fstream>
#include <iterator>
#include <random>
#include <vector>

#include "fuzz.h"

int main(int argc, char** argv) {
  for (int i = 2; i < argc; ++i) {
    std::ifstream file(argv[i], std::ios::binary);
    require(file.good(), argv[i]);
    const std::vector<char> input{std::istreambuf_iterator<char>(file), {}};
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(input.data()), input.size());
  }
  std::mt19937 random(1);
  const int count = argc > 1 ? std::atoi(argv[1]) : 100;
  for (int i = 0; i < count; ++i) {
    std::vector<uint8_t> input(random() % 400 + 1);
    for (uint8_t& byte : input) byte = static_cast<uint8_t>(random());
    LLVMFuzzerTestOneInput(input.data(), input.size());
  }
  return 0;
}

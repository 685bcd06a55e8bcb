/* Runs a fuzz target without a fuzzer: on the files named as arguments, findings of the past, and
 * on inputs from a generator. */
#include <fstream>
#include <iterator>
#include <random>
#include <vector>

#include "fuzz.h"

int main(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    std::ifstream file(argv[i], std::ios::binary);
    require(file.good(), argv[i]);
    const std::vector<char> input{std::istreambuf_iterator<char>(file), {}};
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(input.data()), input.size());
  }
  std::mt19937 random(1);
  for (int i = 0; i < 100; ++i) {
    std::vector<uint8_t> input(random() % 400 + 1);
    for (uint8_t& byte : input) byte = static_cast<uint8_t>(random());
    LLVMFuzzerTestOneInput(input.data(), input.size());
  }
  return 0;
}

/* Prints one line per kind: its name and the checksum of its outputs and final state.
 *
 *   checksum                    on the best clone of the kernels
 *   checksum CLONE              on baseline, avx2 or avx512; exit code 77 where the CPU lacks it
 *   checksum CLONE EXPECTED     names the lines that differ from the file, exit code 1 */
#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "scenarios.h"
#include "simd/clones.h"

int main(int argc, char** argv) {
  const char* const names[] = {"baseline", "avx2", "avx512"};
  for (int clone = JURN_CLONE_BASELINE; argc > 1 && clone <= JURN_CLONE_AVX512; ++clone) {
    if (std::strcmp(argv[1], names[clone]) != 0) continue;
    if (clone > JURN_best_clone()) return 77;
    JURN_clone_hook = static_cast<JURN_Clone>(clone);
  }
  std::FILE* expected = argc > 2 ? std::fopen(argv[2], "r") : nullptr;
  if (argc > 2 && !expected) {
    std::perror(argv[2]);
    return 1;
  }
  int differing = 0;
  for (const Scenario& scenario : scenarios()) {
    char line[100], wanted[100] = "";
    std::snprintf(line, sizeof line, "%-26s %016" PRIx64 "\n", scenario.name,
                  scenario.run(Placement()));
    if (expected && !std::fgets(wanted, sizeof wanted, expected)) wanted[0] = '\0';
    if (expected && std::strcmp(line, wanted) == 0) continue;
    std::fputs(line, stdout);
    if (expected) ++differing;
  }
  if (expected) std::fclose(expected);
  if (differing > 0) std::printf("%d kinds differ from %s\n", differing, argv[2]);
  return differing > 0;
}

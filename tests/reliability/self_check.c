/* Says which promises this build breaks on this thread; the exit code has their bits. */
#include "JURN_self_check.h"

#include <stdio.h>

int main(void) {
  static const char* const names[] = {"unrounded products", "rewritten sums",  "float constants",
                                      "rounding mode",      "flushed results", "flushed operands"};
  const int broken = MORVAX_SelfCheck_API();
  for (int bit = 0; bit < 6; ++bit)
    if (broken >> bit & 1) puts(names[bit]);
  return broken;
}

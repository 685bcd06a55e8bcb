// The first include of each source that packages of other build systems compile. CMake passes
// -ffp-contract=off; where nobody does, as for Swift, clang is asked here to round every product.
#pragma once

#if defined(__clang__)
#include "exact_arithmetic.h"
#endif

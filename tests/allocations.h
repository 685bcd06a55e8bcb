// Counts what C++ allocates.
#pragma once

#include <atomic>

extern std::atomic<long> allocations;

// Counts what C++ allocates, which the elements do and GStreamer, in C, does not.
#pragma once

#include <atomic>

extern std::atomic<long> allocations;

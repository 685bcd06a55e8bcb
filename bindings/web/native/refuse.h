/* How what the engine throws leaves a WebAssembly module. Debian's C++ library for WebAssembly has
 * no exceptions. Whatever is thrown is a message for the user and caught by nobody inside: it
 * leaves through the caller, who throws it in its own language. Nothing is unwound: what was
 * allocated on the way is lost, so whoever can drops the instance. One file of a module includes
 * this. */
#pragma once

#include <cstddef>
#include <cstdlib>
#include <exception>

extern "C" [[noreturn]] void jurn_refuse(const char* message);

// NOLINTBEGIN(bugprone-reserved-identifier): the names that compilers call
extern "C" void* __cxa_allocate_exception(std::size_t bytes) noexcept {
  return std::malloc(bytes);
}

extern "C" void __cxa_free_exception(void* memory) noexcept {
  std::free(memory);
}

extern "C" [[noreturn]] void __cxa_throw(void* thrown, void*, void (*)(void*)) {
  jurn_refuse(static_cast<std::exception*>(thrown)->what());
}
// NOLINTEND(bugprone-reserved-identifier)

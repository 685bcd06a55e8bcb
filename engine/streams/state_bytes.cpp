#include "exact.h"

#include "streams/state_bytes.h"

#include <cstring>

#include "Filter_control.h"
#include "errors.h"
#include "streams/stamp.h"

namespace jurn {
namespace {

constexpr std::uint32_t kMagic = 0x4e52554b;  // on machines with the byte order of this one

std::uint32_t checksum(std::string_view bytes) {
  Stamp stamp;
  stamp.add(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
  return stamp.number();
}

/** What the bytes hold, and what they are for. */
std::string head_of(const std::string& what) {
  return what + " of version " + MORVAX_Version_API() + ", " + std::to_string(sizeof(void*) * 8) +
         " bits";
}

}  // namespace

void add_checksum(std::string* bytes) {
  const std::uint32_t sum = checksum(*bytes);
  bytes->append(reinterpret_cast<const char*>(&sum), sizeof sum);
}

std::string_view without_checksum(std::string_view bytes) {
  std::uint32_t sum = 0;
  if (bytes.size() < sizeof sum) throw Error(kInputError, "data: is cut");
  const std::string_view rest = bytes.substr(0, bytes.size() - sizeof sum);
  std::memcpy(&sum, rest.data() + rest.size(), sizeof sum);
  if (checksum(rest) != sum) throw Error(kInputError, "data: was altered, or is cut");
  return rest;
}

StateBytes::StateBytes(std::string_view bytes, const std::string& what)
    : reads_(true), left_(bytes) {
  std::uint32_t magic = 0;
  if (bytes.size() >= sizeof magic) pass(&magic);
  if (magic != kMagic)
    throw Error(kInputError, "data: no " + what + ", or one of a machine with another byte order");
  left_ = without_checksum(bytes).substr(sizeof magic);
  std::string head;
  pass_sized(&head);
  if (head != head_of(what))
    throw Error(kInputError, "data: holds " + head + "; this reads " + head_of(what));
}

std::string StateBytes::sealed(const std::string& what) const {
  StateBytes all;
  std::uint32_t magic = kMagic;
  std::string head = head_of(what);
  all.pass(&magic);
  all.pass_sized(&head);
  all.written_ += written_;
  add_checksum(&all.written_);
  return all.written_;
}

void StateBytes::check(bool right) {
  if (!right) throw Error(kInputError, "data: holds what cannot run, or is cut");
}

void StateBytes::pass(void* value, std::size_t size) {
  if (size == 0) return;
  if (!reads_) {
    written_.append(static_cast<const char*>(value), size);
    return;
  }
  check(size <= left_.size());
  std::memcpy(value, left_.data(), size);
  left_.remove_prefix(size);
}

}  // namespace jurn

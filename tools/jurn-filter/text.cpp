#include "text.h"

#include <cstdarg>
#include <cstdio>
#include <filesystem>

namespace jurn {
namespace {

constexpr std::size_t kLongestName = 36;

}  // namespace

void append(std::string* text, const char* format, ...) {
  va_list arguments, again;
  va_start(arguments, format);
  va_copy(again, arguments);
  const int length = std::vsnprintf(nullptr, 0, format, arguments);
  va_end(arguments);
  const std::size_t end = text->size(), count = static_cast<std::size_t>(length);
  text->resize(end + count + 1);
  std::vsnprintf(text->data() + end, count + 1, format, again);
  va_end(again);
  text->resize(end + count);
}

std::string short_name(const std::string& path) {
  std::string name = std::filesystem::path(path).filename().string();
  if (name.size() <= kLongestName) return name;
  std::size_t end = kLongestName - 10;
  while (end > 0 && (name[end] & 0xc0) == 0x80) --end;  // not within a character
  std::size_t tail = name.size() - 9;
  while (tail < name.size() && (name[tail] & 0xc0) == 0x80) ++tail;
  return name.substr(0, end) + "…" + name.substr(tail);
}

std::string csv_field(const std::string& text) {
  if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
  std::string quoted = "\"";
  for (const char c : text) {
    if (c == '"') quoted += '"';
    quoted += c;
  }
  return quoted + "\"";
}

}  // namespace jurn

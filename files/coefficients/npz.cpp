// Archives of numpy.savez, through libzip.
#include "exact.h"

#include <zip.h>

#include <memory>

#include "coefficients/libraries.h"

namespace jurn {
namespace {

// No array of coefficients comes near; a member that unfolds to more is refused before.
constexpr zip_uint64_t kMaxBytes = 64 << 20;

struct Close {
  void operator()(zip_t* archive) const { zip_discard(archive); }
  void operator()(zip_file_t* file) const { zip_fclose(file); }
};

}  // namespace

std::vector<ArchiveMember> read_npz(const std::string& path, const std::string& bytes) {
  zip_error_t error;
  zip_error_init(&error);
  zip_source_t* const source = zip_source_buffer_create(bytes.data(), bytes.size(), 0, &error);
  const std::unique_ptr<zip_t, Close> archive(
      source ? zip_open_from_source(source, ZIP_RDONLY, &error) : nullptr);
  if (!archive) {
    if (source) zip_source_free(source);
    fail(path, std::string("damaged: ") + zip_error_strerror(&error));
  }
  std::vector<ArchiveMember> members;
  for (zip_int64_t i = 0; i < zip_get_num_entries(archive.get(), 0); ++i) {
    zip_stat_t member;
    if (zip_stat_index(archive.get(), static_cast<zip_uint64_t>(i), 0, &member) != 0 ||
        !(member.valid & ZIP_STAT_NAME) || !(member.valid & ZIP_STAT_SIZE))
      fail(path, "damaged: a member of the archive has no name or size");
    const std::string name = member.name;
    if (!is_array(name)) continue;
    if (member.size > kMaxBytes)
      fail(path, quote(name) + " is larger than any array of coefficients");
    const std::unique_ptr<zip_file_t, Close> file(
        zip_fopen_index(archive.get(), static_cast<zip_uint64_t>(i), 0));
    std::string content(static_cast<std::size_t>(member.size), '\0');
    if (!file ||
        zip_fread(file.get(), content.data(), member.size) != static_cast<zip_int64_t>(member.size))
      fail(path, "damaged: " + quote(name) + " cannot be read");
    members.push_back({name, std::move(content)});
  }
  return members;
}

}  // namespace jurn

#include "recordings/metadata.h"

#include <FLAC/metadata.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <iterator>

namespace jurn {
namespace {

constexpr std::size_t kMostBytes = std::size_t{64} << 20;  // of a chunk

struct DeleteChain {
  void operator()(FLAC__Metadata_Chain* chain) const { FLAC__metadata_chain_delete(chain); }
};
struct DeleteIterator {
  void operator()(FLAC__Metadata_Iterator* at) const { FLAC__metadata_iterator_delete(at); }
};
using FlacChain = std::unique_ptr<FLAC__Metadata_Chain, DeleteChain>;
using Iterator = std::unique_ptr<FLAC__Metadata_Iterator, DeleteIterator>;

FlacChain open_chain(const std::string& path) {
  FlacChain chain(FLAC__metadata_chain_new());
  if (!chain || !FLAC__metadata_chain_read(chain.get(), path.c_str())) return nullptr;
  return chain;
}

/** What is written anew for other samples: the format, their length and places, the tags of
 * libsndfile. "LIST" holds those too, unless it is the labels of cues. */
bool is_of_samples(const std::string& id, const std::string& bytes) {
  static const char* const ids[] = {"RIFF", "RF64", "WAVE", "ds64", "fmt ", "fact", "data",
                                    "PEAK", "JUNK", "junk", "PAD ", "FLLR", "levl", "LIST"};
  if (id == "LIST") return bytes.compare(0, 4, "adtl") != 0;
  return std::any_of(std::begin(ids), std::end(ids), [&](const char* own) { return id == own; });
}

std::vector<Chunk> read_chunks(SNDFILE* file) {
  std::vector<Chunk> chunks;
  for (SF_CHUNK_ITERATOR* at = sf_get_chunk_iterator(file, nullptr); at;
       at = sf_next_chunk_iterator(at)) {
    SF_CHUNK_INFO info{};
    if (sf_get_chunk_size(at, &info) != SF_ERR_NO_ERROR || info.datalen > kMostBytes) continue;
    const unsigned int length = info.datalen;
    Chunk chunk;
    const auto read = [&](unsigned int count) {
      chunk.bytes.resize(count);
      info.datalen = count;
      info.data = chunk.bytes.data();
      return sf_get_chunk_data(at, &info) == SF_ERR_NO_ERROR;
    };
    if (!read(std::min(length, 4u))) continue;  // of the samples no more
    chunk.id.assign(info.id, std::min<std::size_t>(info.id_size, 4));
    const bool is_name =
        chunk.id.size() == 4 && std::all_of(chunk.id.begin(), chunk.id.end(),
                                            [](unsigned char c) { return std::isprint(c) != 0; });
    if (is_name && !is_of_samples(chunk.id, chunk.bytes) && read(length))
      chunks.push_back(std::move(chunk));
  }
  return chunks;
}

std::string name_of(const FLAC__StreamMetadata_VorbisComment_Entry& entry) {
  const std::string text(reinterpret_cast<const char*>(entry.entry), entry.length);
  std::string name = text.substr(0, text.find('='));
  std::transform(name.begin(), name.end(), name.begin(),
                 [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  return name;
}

/** Loudness and checksums of the samples before. */
bool is_tag_of_samples(const std::string& name) {
  return name.compare(0, 11, "REPLAYGAIN_") == 0 || name.compare(0, 5, "R128_") == 0 ||
         name == "ENCODER";
}

/** Tags that libsndfile takes over, whatever the format. */
bool is_usual_tag(const std::string& name) {
  static const char* const names[] = {"TITLE", "COPYRIGHT", "SOFTWARE", "ARTIST", "COMMENT",
                                      "DATE",  "ALBUM",     "LICENSE",  "GENRE",  "TRACKNUMBER"};
  return std::any_of(std::begin(names), std::end(names), [&](const char* n) { return name == n; });
}

}  // namespace

class FlacBlocks {
 public:
  struct Delete {
    void operator()(FLAC__StreamMetadata* block) const { FLAC__metadata_object_delete(block); }
  };
  using Block = std::unique_ptr<FLAC__StreamMetadata, Delete>;
  std::vector<Block> blocks;
};

static std::shared_ptr<const FlacBlocks> read_flac(const std::string& path) {
  const FlacChain chain = open_chain(path);
  const Iterator at(FLAC__metadata_iterator_new());
  if (!chain || !at) return nullptr;
  auto found = std::make_shared<FlacBlocks>();
  FLAC__metadata_iterator_init(at.get(), chain.get());
  do {
    const FLAC__MetadataType type = FLAC__metadata_iterator_get_block_type(at.get());
    if (type != FLAC__METADATA_TYPE_PICTURE && type != FLAC__METADATA_TYPE_VORBIS_COMMENT &&
        type != FLAC__METADATA_TYPE_CUESHEET)
      continue;
    FlacBlocks::Block block(
        FLAC__metadata_object_clone(FLAC__metadata_iterator_get_block(at.get())));
    if (!block) continue;
    if (type == FLAC__METADATA_TYPE_VORBIS_COMMENT)
      for (FLAC__uint32 i = block->data.vorbis_comment.num_comments; i-- > 0;)
        if (is_tag_of_samples(name_of(block->data.vorbis_comment.comments[i])))
          FLAC__metadata_object_vorbiscomment_delete_comment(block.get(), i);
    found->blocks.push_back(std::move(block));
  } while (FLAC__metadata_iterator_next(at.get()));
  return found;
}

std::string Metadata::names() const {
  std::vector<std::string> all;
  const auto add = [&](const std::string& name) {
    if (std::find(all.begin(), all.end(), name) == all.end()) all.push_back(name);
  };
  for (const Chunk& chunk : chunks)
    add(chunk.id == "LIST" ? "labels of cues" : chunk.id.substr(0, chunk.id.find(' ')));
  for (std::size_t i = 0; flac && i < flac->blocks.size(); ++i) {
    const FLAC__StreamMetadata& block = *flac->blocks[i];
    if (block.type == FLAC__METADATA_TYPE_PICTURE) add("a picture");
    if (block.type == FLAC__METADATA_TYPE_CUESHEET) add("a cue sheet");
    if (block.type != FLAC__METADATA_TYPE_VORBIS_COMMENT) continue;
    for (FLAC__uint32 k = 0; k < block.data.vorbis_comment.num_comments; ++k) {
      const std::string name = name_of(block.data.vorbis_comment.comments[k]);
      if (!is_usual_tag(name)) add(name);
    }
  }
  std::string text;
  for (const std::string& name : all)
    for (const char c : (text.empty() ? "" : ", ") + name) text += c >= ' ' && c <= '~' ? c : '?';
  return text;
}

Metadata read_metadata(SNDFILE* file, int format, const std::string& path) {
  Metadata metadata;
  if (takes_chunks(format)) metadata.chunks = read_chunks(file);
  if (takes_flac_blocks(format)) metadata.flac = read_flac(path);
  return metadata;
}

bool takes_chunks(int format) {
  const int kind = format & SF_FORMAT_TYPEMASK;
  return kind == SF_FORMAT_WAV || kind == SF_FORMAT_WAVEX || kind == SF_FORMAT_RF64;
}

bool takes_flac_blocks(int format) {
  return (format & SF_FORMAT_TYPEMASK) == SF_FORMAT_FLAC;
}

bool write_chunks(SNDFILE* file, const std::vector<Chunk>& chunks) {
  bool all = true;
  for (const Chunk& chunk : chunks) {
    SF_CHUNK_INFO info{};
    std::memcpy(info.id, chunk.id.data(), 4);
    info.id_size = 4;
    std::string bytes = chunk.bytes;
    info.datalen = static_cast<unsigned>(bytes.size());
    info.data = bytes.data();
    all = sf_set_chunk(file, &info) == SF_ERR_NO_ERROR && all;
  }
  return all;
}

bool write_flac_blocks(const FlacBlocks& blocks, const std::string& path) {
  const FlacChain chain = open_chain(path);
  const Iterator at(FLAC__metadata_iterator_new());
  if (!chain || !at) return false;
  FLAC__metadata_iterator_init(at.get(), chain.get());
  while (FLAC__metadata_iterator_next(at.get())) {
    const FLAC__MetadataType type = FLAC__metadata_iterator_get_block_type(at.get());
    if (type == FLAC__METADATA_TYPE_VORBIS_COMMENT || type == FLAC__METADATA_TYPE_PADDING)
      FLAC__metadata_iterator_delete_block(at.get(), false);
  }
  for (const FlacBlocks::Block& block : blocks.blocks) {
    FLAC__StreamMetadata* const copy = FLAC__metadata_object_clone(block.get());
    if (!copy || !FLAC__metadata_iterator_insert_block_after(at.get(), copy)) return false;
  }
  return FLAC__metadata_chain_write(chain.get(), false, false);
}

}  // namespace jurn

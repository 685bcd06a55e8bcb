// What a recording holds beside its samples and tags, carried from WAV to WAV and FLAC to FLAC.
#pragma once

#include <sndfile.h>

#include <memory>
#include <string>
#include <vector>

namespace jurn {

/** A chunk of a WAV file as it is: bext, cue, smpl, iXML, id3 with its pictures, labels ... */
struct Chunk {
  std::string id;  // of four letters
  std::string bytes;
};

/** Metadata of a FLAC file: pictures, all tags, cue sheets. */
class FlacBlocks;

struct Metadata {
  std::vector<Chunk> chunks;
  std::shared_ptr<const FlacBlocks> flac;

  /** "bext, smpl", or "a picture, ALBUMARTIST": what a result of another kind does not get. Empty
   * if nothing. */
  std::string names() const;
};

/** Reads that of a file that was opened; of other kinds of files there is none. */
Metadata read_metadata(SNDFILE* file, int format, const std::string& path);

/** Whether a result of this format takes it. */
bool takes_chunks(int format);
bool takes_flac_blocks(int format);

/** Before the first write. False if the library does not take one of them. */
bool write_chunks(SNDFILE* file, const std::vector<Chunk>& chunks);
/** Into the complete file. False if that fails. */
bool write_flac_blocks(const FlacBlocks& blocks, const std::string& path);

}  // namespace jurn

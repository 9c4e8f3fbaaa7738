// Where one chunk of a segment file lies and what state it is in, as
// SegmentFileV1::get_segment_chunk found it at that moment.
//
// A value type; not synchronised.
#ifndef DOWNLOADER_STORAGE_SEGMENTCHUNK_H_
#define DOWNLOADER_STORAGE_SEGMENTCHUNK_H_

#include <cstdint>
#include <string>

namespace downloader {
namespace storage {

struct SegmentChunk {
  // File position of the chunk's slot.
  uint64_t position = 0;
  // Resource offset of the chunk's first byte.
  uint64_t offset = 0;
  // Content bytes of this chunk (fewer for a short last chunk).
  uint64_t content_len = 0;
  uint64_t chunk_index = 0;
  // The checksum stored behind the content; 0 when it could not be read.
  uint32_t crc = 0;
  // The chunk's bitmap bit.
  bool is_filled = false;

  // "{position:17,offset:0,content_len:300,chunk_index:0,crc:0,is_filled:1}"
  std::string to_string() const;
};

}  // namespace storage
}  // namespace downloader

#endif  // DOWNLOADER_STORAGE_SEGMENTCHUNK_H_

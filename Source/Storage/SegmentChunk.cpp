#include "Storage/SegmentChunk.h"

#include <sstream>

namespace downloader {
namespace storage {

std::string SegmentChunk::to_string() const {
  std::ostringstream out;
  out << "{position:" << position << ",offset:" << offset << ",content_len:" << content_len
      << ",chunk_index:" << chunk_index << ",crc:" << crc << ",is_filled:" << (is_filled ? 1 : 0) << "}";
  return out.str();
}

}  // namespace storage
}  // namespace downloader

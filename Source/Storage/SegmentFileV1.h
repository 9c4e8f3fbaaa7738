// The segment file, format version 1: one cached resource in fixed-size
// chunks, any of which may be present, with a bitmap saying which.
//
// Layout (every integer little-endian, written and read byte by byte):
//
//   offset  size         field
//   0       2            magic "dl" (0x64 0x6C)
//   2       2            version, always 1      (bytes 0..3 as one word: 0x00016C64)
//   4       4            content_file_size      bytes of the resource
//   8       4            bitmap_size            ceil(chunk_count / 8)
//   12      4            chunk_content_size     content bytes per chunk
//   16      bitmap_size  bitmap                 bit (7 - i % 8) of byte i / 8 = chunk i filled
//   16 + bitmap_size     chunk slots, chunk_content_size + 4 bytes apart
//
//   chunk_count  = ceil(content_file_size / chunk_content_size), never stored
//   position(i)  = 16 + bitmap_size + i * (chunk_content_size + 4)
//   content_len(i) = chunk_content_size, except the last chunk, which holds
//                    content_file_size - i * chunk_content_size
//   slot i       = content_len(i) bytes of content, then a 4-byte checksum
//                  right behind them (so a short last chunk's checksum sits
//                  at position(i) + content_len(i), not at the slot's end)
//   goff(i)      = i * chunk_content_size, the chunk's offset in the resource
//
// Example: content 1000, chunk 300: 4 chunks, bitmap 1 byte, slots at 17,
// 321, 625, 929; the last chunk holds 100 bytes with its checksum at 1029, so
// a full file is 1033 bytes and its bitmap byte reads 0xF0.
//
// No trailer, no overall checksum; the file name ties the file to a resource.
// Slots are not reserved: the file grows as chunks are written.
//
// Crash consistency. A chunk is committed in this order: its content and
// checksum (adjacent, so one positional write may carry both), then, once
// that write has returned, its bitmap bit, one byte written on its own. A
// process that dies anywhere before the bit's write leaves the bit clear, so
// the chunk reads as missing; a set bit therefore always has content and
// checksum on disk before it. The header and the
// zeroed bitmap are written once, by `create`; a file cut short there fails
// `open` and is made anew by its adapter. Nothing here calls fsync: the
// guarantee covers a crash of the process, not a loss of power.
//
// Several objects may hold one file (in this process through separate
// adapters, or in another process). They share only the on-disk bitmap:
// `get_segment_chunk` refreshes the one byte it is about to trust, and a
// bit change reads that byte from disk before writing it back. Two objects
// committing chunks of the same bitmap byte at the same instant can still
// lose one of the two bits; the loss only makes a chunk read as missing.
//
// Thread rules: any thread; every operation holds `mutex_` throughout.
// Members below it are guarded by it.
//
// Edge cases: every operation fails (false, or 0 for sizes) until `create`
// or `open` succeeded; a failed `create` or `open` leaves the object invalid,
// also if it was valid before. Offsets at or past content_file_size have no
// chunk. A chunk never written reads as checksum 0.
#ifndef DOWNLOADER_STORAGE_SEGMENTFILEV1_H_
#define DOWNLOADER_STORAGE_SEGMENTFILEV1_H_

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <wisp/Mutex.h>

#include "Storage/SegmentChunk.h"

namespace downloader {
namespace storage {

class File;

class SegmentFileV1 {
 public:
  static constexpr uint8_t kMagic0 = 'd';
  static constexpr uint8_t kMagic1 = 'l';
  static constexpr uint16_t kVersion = 1;
  static constexpr uint64_t kMagicOffset = 0;
  static constexpr uint64_t kVersionOffset = 2;
  static constexpr uint64_t kContentFileSizeOffset = 4;
  static constexpr uint64_t kBitmapSizeOffset = 8;
  static constexpr uint64_t kChunkContentSizeOffset = 12;
  static constexpr uint64_t kHeaderSize = 16;
  static constexpr uint64_t kChecksumSize = 4;
  // Sizes must stay below this to fit the 32-bit header fields.
  static constexpr uint64_t kContentFileSizeLimit = 0xFFFFFFFFu;
  // The chunk size of every file this system creates.
  static constexpr uint64_t kDefaultChunkContentSize = 131072;

  static_assert(kVersionOffset == kMagicOffset + 2, "magic is 2 bytes");
  static_assert(kContentFileSizeOffset == kVersionOffset + 2, "version is 2 bytes");
  static_assert(kBitmapSizeOffset == kContentFileSizeOffset + 4, "content_file_size is 4 bytes");
  static_assert(kChunkContentSizeOffset == kBitmapSizeOffset + 4, "bitmap_size is 4 bytes");
  static_assert(kHeaderSize == kChunkContentSizeOffset + 4, "the header is 16 bytes");
  static_assert(((uint32_t{kVersion} << 16) | (uint32_t{kMagic1} << 8) | kMagic0) == 0x00016C64u,
                "magic and version read as one little-endian word");

  // Derived sizes; 0 when either input is 0.
  static uint64_t chunkCountFor(uint64_t contentFileSize, uint64_t chunkContentSize);
  static uint64_t bitmapSizeFor(uint64_t contentFileSize, uint64_t chunkContentSize);

  SegmentFileV1();
  ~SegmentFileV1();

  SegmentFileV1(const SegmentFileV1&) = delete;
  SegmentFileV1& operator=(const SegmentFileV1&) = delete;

  // Writes the header and a zeroed bitmap into `file`, which must be open for
  // writing. Fails for a size of 0, a chunk size of 0 or either at or above
  // kContentFileSizeLimit.
  bool create(std::shared_ptr<File> file, uint64_t content_file_size, uint64_t chunk_content_size,
              int64_t job_id);
  // Loads header and bitmap from `file`, which must be open for reading.
  bool open(std::shared_ptr<File> file, int64_t job_id);

  // The chunk holding resource offset `goff`, with its bit refreshed from
  // disk and its stored checksum read.
  bool get_segment_chunk(uint64_t goff, SegmentChunk* chunk);
  // The same without the checksum (crc 0): one read of the bit's byte.
  bool refreshed_chunk_at(uint64_t goff, SegmentChunk* chunk);
  // The chunks of [goff, goff + len), which must start on a chunk boundary,
  // with all their bits refreshed from disk in one read (crc 0).
  bool refreshed_run(uint64_t goff, uint64_t len, std::vector<SegmentChunk>* chunks);
  // Where the chunk lies, without touching the disk: is_filled as last seen
  // in memory, crc 0. For callers that only need the geometry.
  bool chunk_at(uint64_t goff, SegmentChunk* chunk);
  // Sets the bit of a chunk whose content and checksum `crc` the caller has
  // already written to its slot. `chunk` must be a descriptor of this file;
  // on success its crc and is_filled are set.
  bool commit_segment_chunk(SegmentChunk* chunk, uint32_t crc);
  bool set_fill_state(uint64_t chunk_index, bool filled);
  // Reloads one bitmap byte from disk.
  bool update_fill_state(uint64_t chunk_index);
  // From the in-memory bitmap (as last loaded or refreshed).
  bool is_filled(uint64_t chunk_index);
  // True when the file is long enough to hold the chunk's content (a checksum
  // cut short behind it reads as 0). Lets callers refuse a header's claim
  // before allocating for it.
  bool slot_on_disk(const SegmentChunk& chunk);

  // chunk_content_size times the number of leading filled chunks; not capped
  // at content_file_size (a full file with a short last chunk reports more).
  uint64_t continuous_filled_size();
  uint64_t content_file_size();
  uint64_t chunk_content_size();
  uint64_t chunk_count();
  uint64_t bitmap_size();
  bool is_valid();
  std::string path();
  // "[v1]{is valid:1,content file size:1000,bitmap size:1,chunk content size:300,chunk count:4,bitmap:0xf0}"
  std::string to_string();

 private:
  enum class Lookup { kGeometry, kRefreshBit, kRefreshBitAndReadCrc };

  void resetLocked(std::shared_ptr<File> file, int64_t jobId) REQUIRES(mutex_);
  bool locateLocked(uint64_t goff, Lookup lookup, SegmentChunk* chunk) REQUIRES(mutex_);
  bool readHeaderLocked(uint64_t* contentFileSize, uint64_t* bitmapSize, uint64_t* chunkContentSize) REQUIRES(mutex_);
  bool updateFillStateLocked(uint64_t chunkIndex) REQUIRES(mutex_);
  bool refreshFillStatesLocked(uint64_t firstIndex, uint64_t lastIndex) REQUIRES(mutex_);
  SegmentChunk describeLocked(uint64_t chunkIndex) const REQUIRES(mutex_);
  bool setFillStateLocked(uint64_t chunkIndex, bool filled) REQUIRES(mutex_);
  bool isFilledLocked(uint64_t chunkIndex) const REQUIRES(mutex_);
  uint64_t positionOfLocked(uint64_t chunkIndex) const REQUIRES(mutex_);
  uint64_t contentLengthOfLocked(uint64_t chunkIndex) const REQUIRES(mutex_);
  std::string toStringLocked() const REQUIRES(mutex_);

  wisp::Mutex mutex_;
  uint64_t contentFileSize_ GUARDED_BY(mutex_) = 0;
  uint64_t bitmapSize_ GUARDED_BY(mutex_) = 0;
  uint64_t chunkContentSize_ GUARDED_BY(mutex_) = 0;
  uint64_t chunkCount_ GUARDED_BY(mutex_) = 0;
  bool isValid_ GUARDED_BY(mutex_) = false;
  std::vector<uint8_t> bitmap_ GUARDED_BY(mutex_);
  std::shared_ptr<File> file_ GUARDED_BY(mutex_);
  std::string tag_ GUARDED_BY(mutex_);
};

}  // namespace storage
}  // namespace downloader

#endif  // DOWNLOADER_STORAGE_SEGMENTFILEV1_H_

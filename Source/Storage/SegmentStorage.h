// The older streaming store: one resource written in order into a temporary
// file, then renamed to its cache file once every byte is there. Used for
// resources that are not kept as chunked segment files.
//
// File layout (little-endian, byte by byte), then the content from offset 16:
//
//   offset  size  field
//   0       4     magic "dlss"
//   4       2     version, 1
//   6       2     header size, 16
//   8       8     desired file size (bytes of content when complete)
//
// Writing: bytes are accepted only where the last write ended (mGoffWrite_);
// they collect in a cell that is written to the file when it holds
// "segment_flush_threshold" bytes, and by `complete`. `complete` renames the
// temporary file to the cache file only when the content has the desired
// size; `cancel` removes the temporary file. Reading: from the read position
// (mGoffRead_) on, in pieces of "segment_read_chunk_size" bytes, out of the
// cache file (or, while a download is in progress, the temporary file); in
// write mode what is still in the cell is served from memory.
//
// Thread rules: any thread; `mutex_` guards everything below it.
//
// Edge cases: a write anywhere but at mGoffWrite_, or beyond the desired
// size, is refused (-1); a read at the end returns 0; a header that fails
// its checks leaves the store closed ("parseFileHeader,data corrupted");
// `complete` on a short download keeps the temporary file.
#ifndef DOWNLOADER_STORAGE_SEGMENTSTORAGE_H_
#define DOWNLOADER_STORAGE_SEGMENTSTORAGE_H_

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <downloader/Pipe/ConfigReader.h>
#include <wisp/Mutex.h>

#include "Platform/FileSystem.h"

namespace downloader {
namespace storage {

class File;

class SegmentStorage {
 public:
  enum class Mode { kRead, kWrite };

  static constexpr uint64_t kHeaderSize = 16;
  static constexpr uint16_t kVersion = 1;
  static constexpr uint64_t kVersionOffset = 4;
  static constexpr uint64_t kHeaderSizeOffset = 6;
  static constexpr uint64_t kDesiredSizeOffset = 8;
  static_assert(kHeaderSizeOffset == kVersionOffset + 2, "version is 2 bytes");
  static_assert(kDesiredSizeOffset == kHeaderSizeOffset + 2, "header size is 2 bytes");
  static_assert(kHeaderSize == kDesiredSizeOffset + 8, "the header is 16 bytes");

  // Used when the configuration leaves a value at 0 or below.
  static constexpr int32_t kDefaultFlushThreshold = 131072;
  static constexpr int32_t kDefaultReadChunkSize = 65536;
  static constexpr int32_t kDefaultCellCapacityMin = 16384;

  // `desiredFileSize` matters in write mode only; read mode takes it from
  // the file's header.
  SegmentStorage(std::string cacheFilePath, std::string tmpFilePath, Mode mode, uint64_t desiredFileSize,
                 int64_t jobId, platform::FileSystem* fileSystem = platform::FileSystem::Default());
  ~SegmentStorage();

  SegmentStorage(const SegmentStorage&) = delete;
  SegmentStorage& operator=(const SegmentStorage&) = delete;

  // Reads "segment_flush_threshold", "segment_read_chunk_size" and
  // "segment_cell_capacity_min" from "downloader_config". Call before open.
  void initCache(const ConfigPtr& config);
  // Write mode: makes the temporary file and its header. Read mode: opens the
  // cache file, else the temporary file, and checks its header.
  bool open();

  // Bytes taken (all of them), or -1.
  int64_t write(uint64_t goff, const uint8_t* data, uint64_t len);
  // Bytes delivered from the read position on; 0 at the end or on failure.
  uint64_t read(uint8_t* buffer, uint64_t len);
  bool seek(uint64_t goff);
  bool complete();
  void cancel();

  uint64_t desiredFileSize();
  // Bytes written so far (write mode) or readable (read mode).
  uint64_t availableSize();

 private:
  bool writeHeaderLocked() REQUIRES(mutex_);
  bool parseFileHeader() REQUIRES(mutex_);
  bool flushCellLocked() REQUIRES(mutex_);
  // Up to len bytes at goff, from the file or the cell.
  int64_t readInner(uint8_t* buffer, uint64_t len, uint64_t goff) REQUIRES(mutex_);

  // Constant after construction.
  const std::string cacheFilePath_;
  const std::string tmpFilePath_;
  const Mode mode_;
  const std::string tag_;
  platform::FileSystem* const fileSystem_;

  wisp::Mutex mutex_;
  std::shared_ptr<File> file_ GUARDED_BY(mutex_);
  uint64_t mDesiredFileSize_ GUARDED_BY(mutex_);
  uint64_t mGoffWrite_ GUARDED_BY(mutex_) = 0;
  uint64_t mGoffRead_ GUARDED_BY(mutex_) = 0;
  // Content bytes in the file (in read mode: all that can be read).
  uint64_t flushedSize_ GUARDED_BY(mutex_) = 0;
  std::vector<uint8_t> cell_ GUARDED_BY(mutex_);
  uint64_t flushThreshold_ GUARDED_BY(mutex_) = kDefaultFlushThreshold;
  uint64_t readChunkSize_ GUARDED_BY(mutex_) = kDefaultReadChunkSize;
  uint64_t cellCapacityMin_ GUARDED_BY(mutex_) = kDefaultCellCapacityMin;
  bool completed_ GUARDED_BY(mutex_) = false;
};

}  // namespace storage
}  // namespace downloader

#endif  // DOWNLOADER_STORAGE_SEGMENTSTORAGE_H_

// One open cache file, shared by every writer and reader of it in this
// process (see DiskAdapterProvider): the file, its segment file, and the
// guard every transfer passes.
//
// Construction opens the existing file as a segment file; when that fails it
// makes the file anew, empty, with 131072-byte chunks for `fileSize` bytes of
// content, giving up whatever the file held. A `fileSize` that cannot be
// stored (0, as a reader passes, or too large) never recreates a file: the
// adapter then stays invalid and the file untouched.
//
// Edge cases: on an invalid adapter every transfer fails (-1). `write` and
// `read` move exactly one whole chunk at its resource offset; anything else is
// refused by the guard. A write whose commit fails reports -1 even though its
// content may be on disk (the chunk stays unfilled).
//
// Thread rules: any thread; the file and the segment file serialise
// themselves, and the members are constant after construction except
// reservedEnd_, an atomic.
//
// A write that lands past the room set aside for the file first sets aside
// the next kReserveAhead bytes of it (never past the last slot), so the file
// system allocates once per stretch instead of under every write. The room
// does not count in the file's length; a file left partly written keeps at
// most that stretch set aside beyond its last write.
#ifndef DOWNLOADER_STORAGE_PERSISTENCE_DISKADAPTER_H_
#define DOWNLOADER_STORAGE_PERSISTENCE_DISKADAPTER_H_

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "Platform/FileSystem.h"
#include "Storage/DiskAdapterIntercept.h"
#include "Storage/SegmentFileV1.h"

namespace downloader {
namespace storage {

class DiskCacheEntry;
class File;

class DiskAdapter {
 public:
  DiskAdapter(const std::string& path, uint64_t fileSize, int64_t jobId, platform::FileSystem* fileSystem);
  ~DiskAdapter();

  DiskAdapter(const DiskAdapter&) = delete;
  DiskAdapter& operator=(const DiskAdapter&) = delete;

  // Bytes transferred, or a negative value.
  int64_t write(const uint8_t* data, uint64_t len, uint64_t goff);
  // The same for a chunk whose content lies in several parts.
  int64_t writeParts(const platform::WritePart* parts, size_t count, uint64_t goff);
  int64_t read(uint8_t* data, uint64_t len, uint64_t goff);
  // Several whole chunks at once: `goff` on a chunk boundary, `len` ending at
  // a chunk's end. The same checks as `read` for each chunk, in three file
  // calls instead of four per chunk. len, or -1 when any chunk fails.
  int64_t readRun(uint8_t* data, uint64_t len, uint64_t goff);
  // Writes the entry's cells in resource order; false at the first failure.
  bool writeCache(const DiskCacheEntry& entry);

  // How much of the file ahead of a write that passes what is set aside
  // gets set aside at once.
  static constexpr uint64_t kReserveAhead = 8 * 1024 * 1024;

  bool isValid() const { return intercept_ != nullptr; }
  SegmentFileV1& segmentFile() { return segmentFile_; }
  const std::string& path() const { return path_; }

 private:
  // Sets aside room from `position` on when [position, position + length)
  // passes what is set aside already.
  void reserveAhead(uint64_t position, uint64_t length);

  // Constant after construction.
  const std::string path_;
  const std::string tag_;
  std::shared_ptr<File> file_;
  SegmentFileV1 segmentFile_;
  // Present only while the segment file is valid; refers to segmentFile_.
  std::unique_ptr<DiskAdapterIntercept> intercept_;
  // Where the last chunk's slot ends; 0 while invalid.
  uint64_t layoutEnd_ = 0;

  // The end of the room set aside so far. Writers race on it only to set the
  // same room aside twice, which is harmless.
  std::atomic<uint64_t> reservedEnd_{0};
};

}  // namespace storage
}  // namespace downloader

#endif  // DOWNLOADER_STORAGE_PERSISTENCE_DISKADAPTER_H_

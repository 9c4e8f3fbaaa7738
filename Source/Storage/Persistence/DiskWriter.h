// One open file of the disk cache: a platform handle, the path it was opened
// from, and positional reads and writes that report a byte count or -1.
//
// Opening is counted: every successful open of an already open writer adds a
// holder, every `closeFile` removes one, and the handle is released when the
// last holder closes (or when the writer is destroyed).
//
// Thread rules: any thread. `mutex_` guards the handle and the count; a
// transfer copies the handle under the lock and runs outside it, so reads and
// writes of several threads proceed in parallel and a close waits for none
// of them (the handle lives until the last transfer using it ends).
//
// Edge cases: a transfer on a closed writer fails (-1); a read at or past the
// end returns the bytes that exist (0 past the end); a write the system takes
// only in part fails (-1) even though some bytes may have landed.
#ifndef DOWNLOADER_STORAGE_PERSISTENCE_DISKWRITER_H_
#define DOWNLOADER_STORAGE_PERSISTENCE_DISKWRITER_H_

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <wisp/Mutex.h>

#include "Platform/FileSystem.h"

namespace downloader {
namespace storage {

class DiskWriter {
 public:
  DiskWriter(std::string filePath, platform::FileSystem* fileSystem, int64_t jobId);
  ~DiskWriter();

  DiskWriter(const DiskWriter&) = delete;
  DiskWriter& operator=(const DiskWriter&) = delete;

  // Read and write; the file is created when missing.
  bool openFile();
  // Read and write; fails when the file does not exist.
  bool openExistingFile();
  // Makes the parent directories, then opens read and write, created or cut
  // to zero length.
  bool createFile();
  // `flags` are platform::OpenFlag bits. On an open writer this only adds a
  // holder, and only when the open handle grants the access asked for.
  bool openFileWithFlags(uint32_t flags);

  int64_t readData(void* buffer, uint64_t length, uint64_t offset);
  // Consecutive bytes from `offset` into `slices`; the count read, or -1.
  int64_t readScattered(const std::vector<platform::ReadSlice>& slices, uint64_t offset);
  int64_t writeData(const void* buffer, uint64_t length, uint64_t offset);
  // The parts back to back from `offset`, as one write of their
  // concatenation.
  int64_t writeGather(const platform::WritePart* parts, size_t count, uint64_t offset);
  // True when `length` bytes at `offset` lie inside what the platform can
  // address; transfers check it before touching the handle.
  bool seek(uint64_t offset, uint64_t length) const;
  // Current length of the open file; false when closed or on error.
  bool fileSize(uint64_t* size);
  bool flushOSBuffers();
  // Disk room for [offset, offset + length) without changing the length
  // (see platform::PositionalFile::Reserve); false when closed or refused.
  bool reserve(uint64_t offset, uint64_t length);
  void closeFile();

  bool isOpen() const;
  // The platform::OpenFlag bits of the open handle; 0 when closed.
  uint32_t openFlags() const;
  const std::string& filePath() const { return filePath_; }
  platform::FileSystem* fileSystem() const { return fileSystem_; }

 private:
  std::shared_ptr<platform::PositionalFile> handle() const;

  // Constant after construction.
  const std::string filePath_;
  platform::FileSystem* const fileSystem_;
  const std::string tag_;

  mutable wisp::Mutex mutex_;
  std::shared_ptr<platform::PositionalFile> mFd_ GUARDED_BY(mutex_);
  uint32_t flags_ GUARDED_BY(mutex_) = 0;
  int openCount_ GUARDED_BY(mutex_) = 0;
};

}  // namespace storage
}  // namespace downloader

#endif  // DOWNLOADER_STORAGE_PERSISTENCE_DISKWRITER_H_

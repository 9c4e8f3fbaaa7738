// The stored bytes of one resource as a reader sees them: how much of it is
// there from the start on, how large it is, and a cursor that loads bytes.
// Each call of CacheWriter::AcquireDataStore gives its caller a store of its
// own (its own cursor) over the resource's one cache file.
//
// Thread rules: one reader thread per store; the file underneath is shared
// safely with writers and other readers.
//
// Edge cases: Seek beyond the total size fails and keeps the cursor; Load at
// the end of the resource, or at a byte that is not stored, returns 0; a
// store whose file is invalid is not readable and loads nothing.
#ifndef DOWNLOADER_STORAGE_IDATASTORE_H_
#define DOWNLOADER_STORAGE_IDATASTORE_H_

#include <cstdint>
#include <string>

#include <downloader/DownloaderExport.h>

namespace downloader {
namespace storage {

class DOWNLOADER_EXPORT IDataStore {
 public:
  virtual ~IDataStore();

  // The resource's cache key.
  virtual std::string GetID() = 0;
  // Bytes stored without a gap from offset 0, at most the total size.
  virtual int64_t GetDownloadedSize() = 0;
  // The whole resource's size; 0 when nothing is stored.
  virtual int64_t GetTotalSize() = 0;
  virtual bool IsReadable() = 0;
  virtual bool Seek(int64_t position) = 0;
  virtual int64_t GetPosition() = 0;
  // Up to `desired` bytes at the cursor into `buffer`; advances the cursor by
  // what it returns.
  virtual int64_t Load(void* buffer, uint64_t desired) = 0;
};

}  // namespace storage
}  // namespace downloader

#endif  // DOWNLOADER_STORAGE_IDATASTORE_H_

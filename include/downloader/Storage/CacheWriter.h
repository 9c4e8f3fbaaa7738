// The cache's front door for the rest of the library: where the cache lives,
// the data store through which a stored resource is read, the segment writer
// through which a stream stores what it downloads, and the cache's cleaning. A resource's cache
// file is named by its URI's ID:
//
//   <root>/kestreldl_folder/disk_cache/v1/cache/cache.<ID>
//
// Until a root is set the cache is off: no store is readable and no writer is
// made.
//
// Thread rules: any thread; mutex_ of the implementation guards the root.
#ifndef DOWNLOADER_STORAGE_CACHEWRITER_H_
#define DOWNLOADER_STORAGE_CACHEWRITER_H_

#include <cstdint>
#include <memory>
#include <string>

#include <downloader/Base/URI.h>
#include <downloader/DownloaderExport.h>
#include <downloader/Pipe/ConfigReader.h>
#include <downloader/Storage/IDataStore.h>

namespace downloader {
namespace storage {

class SegmentFileWriter;

class DOWNLOADER_EXPORT CacheWriter {
 public:
  // The host's local cache folder; "" turns the cache off again.
  static void SetCacheRoot(const std::string& root);
  static std::string GetCacheRoot();
  // "" while the cache is off.
  static std::string CacheFilePath(const URI& uri);

  // The resource's store, or empty while the cache is off. "enable_cache_store_lock"
  // makes a store readable only once the whole resource is there.
  static std::shared_ptr<IDataStore> AcquireDataStore(const ConfigPtr& config, const std::shared_ptr<URI>& uri);

  // A writer of the resource's cache file for `contentSize` bytes, flushing at
  // "segment_writer_flush_threshold" (preloads) or
  // "segment_writer_flush_threshold_play". Empty while the cache is off, when
  // the size cannot be stored, or when the file holds a resource of another
  // size.
  static std::shared_ptr<SegmentFileWriter> CreateSegmentWriter(const ConfigPtr& config,
                                                                const std::shared_ptr<URI>& uri,
                                                                uint64_t contentSize);
  // Whether a stream of `url` writes what it reads: the same rule by which the
  // disk-cache level replays, so nothing is written that cannot be read back.
  static bool WritesSegments(const ConfigPtr& config, const std::string& url);
  // Hands `size` bytes the stream read at `offset` to the storage thread; the
  // bytes are copied before it returns.
  static void StoreSegmentBytes(const std::shared_ptr<SegmentFileWriter>& writer, uint64_t offset,
                                const uint8_t* data, uint64_t size);
  // Hands the writer's last bytes to the storage thread; returns at once.
  static void CompleteSegmentWriter(std::shared_ptr<SegmentFileWriter> writer);
  // Starts the disk-cache cleaner when the settings ask for it; later calls
  // do nothing more.
  static void ScheduleCleaning(const ConfigPtr& config);
  // Waits until every writer completed so far has reached the disk; false
  // when `timeoutMs` passed first. A host calls it before it exits or unloads
  // the library, so that the end of the last resources read is kept.
  static bool WaitForPendingWrites(int64_t timeoutMs);
};

}  // namespace storage
}  // namespace downloader

#endif  // DOWNLOADER_STORAGE_CACHEWRITER_H_

// The registry that gives every writer and reader of one cache file in this
// process the same DiskAdapter, so that they share one open file and one
// segment file object.
//
// The registry holds adapters weakly: an adapter lives as long as a writer or
// reader holds it, and the next acquire after the last one let go makes a
// new adapter (which reopens the file). Expired entries are swept out when
// the map has doubled since the last sweep.
//
// Thread rules: any thread; `mutex_` guards the map and is held while an
// adapter is made, so that two threads acquiring one path at once get the
// same adapter.
//
// Edge cases: `acquire_adapter` before `init` throws DLException
// "dlexception,diskadapterprovider,not initialized". An adapter that came out
// invalid is shared all the same until it expires; `fileSize` only matters
// when the file has to be made.
#ifndef DOWNLOADER_STORAGE_PERSISTENCE_DISKADAPTERPROVIDER_H_
#define DOWNLOADER_STORAGE_PERSISTENCE_DISKADAPTERPROVIDER_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>

#include <wisp/Mutex.h>

#include "Platform/FileSystem.h"

namespace downloader {
namespace storage {

class DiskAdapter;

class DiskAdapterProvider {
 public:
  // The process-wide registry the writers and readers use by default.
  static DiskAdapterProvider& GetInstance();

  DiskAdapterProvider();
  ~DiskAdapterProvider();

  DiskAdapterProvider(const DiskAdapterProvider&) = delete;
  DiskAdapterProvider& operator=(const DiskAdapterProvider&) = delete;

  // Adapters made from now on use `fileSystem`; may be called again.
  void init(platform::FileSystem* fileSystem = platform::FileSystem::Default());
  bool isInitialized();

  std::shared_ptr<DiskAdapter> acquire_adapter(const std::string& path, uint64_t file_size, int64_t job_id);

  // Removes the file at `path` unless a live adapter holds it; no adapter
  // for it can be made meanwhile. True when the file was removed.
  bool removeIfUnused(const std::string& path);

 private:
  void sweepExpiredLocked() REQUIRES(mutex_);

  wisp::Mutex mutex_;
  platform::FileSystem* fileSystem_ GUARDED_BY(mutex_) = nullptr;
  std::unordered_map<std::string, std::weak_ptr<DiskAdapter>> adapters_ GUARDED_BY(mutex_);
  size_t sweepAtSize_ GUARDED_BY(mutex_);
};

}  // namespace storage
}  // namespace downloader

#endif  // DOWNLOADER_STORAGE_PERSISTENCE_DISKADAPTERPROVIDER_H_

// Keeps the disk cache folder under "disk_cache_capacity" bytes (0: no limit)
// by removing the least recently modified cache files first. A file that a
// writer or reader holds (a live DiskAdapter) is never removed: the check and
// the removal happen under the adapter registry's lock, so no adapter can be
// made for the file in between.
//
// With "enable_clean_disk" the first stream open starts cleaning on the
// cleaner's looper: one pass at once, then one every "clean_duration" ms
// (default 60000) with the configuration of that first open.
//
// Thread rules: any thread. Passes run one at a time on the looper;
// CleanFolder may also be called directly (tests, a host's own timer).
#ifndef DOWNLOADER_STORAGE_DISKCACHECLEANER_H_
#define DOWNLOADER_STORAGE_DISKCACHECLEANER_H_

#include <cstdint>
#include <string>

#include <downloader/Pipe/ConfigReader.h>
#include <wisp/Mutex.h>

#include "Platform/FileSystem.h"
#include "Utils/context/LibraryContext.h"
#include "Utils/looper/MessageLooper.h"

namespace downloader {
namespace storage {

class DiskAdapterProvider;

class DiskCacheCleaner {
 public:
  // The current library context's.
  static DiskCacheCleaner& GetInstance();

  // Passes fall due on the context's clock.
  explicit DiskCacheCleaner(LibraryContext& context);
  ~DiskCacheCleaner();
  DiskCacheCleaner(const DiskCacheCleaner&) = delete;
  DiskCacheCleaner& operator=(const DiskCacheCleaner&) = delete;

  // Starts periodic cleaning when "enable_clean_disk" is on; later calls do
  // nothing once it runs.
  void Schedule(const ConfigPtr& config);

  // One pass over `folder` (not recursive): while its files add up to more
  // than `capacity` bytes, removes the least recently modified one that no
  // adapter of `provider` holds. Answers the bytes removed. Capacity 0 or a
  // missing folder remove nothing.
  static uint64_t CleanFolder(const std::string& folder, uint64_t capacity, DiskAdapterProvider& provider,
                              platform::FileSystem* fileSystem);

  // The folder the cache writer puts cache files in, under the current root;
  // "" without a root.
  static std::string CacheFolder();

 private:
  void RunPass();

  MessageLooper looper_;

  wisp::Mutex mutex_;
  ConfigPtr config_ GUARDED_BY(mutex_);
  bool started_ GUARDED_BY(mutex_) = false;
};

}  // namespace storage
}  // namespace downloader

#endif  // DOWNLOADER_STORAGE_DISKCACHECLEANER_H_

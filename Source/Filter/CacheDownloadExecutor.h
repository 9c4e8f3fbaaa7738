// Serves a request from the cache writer's data store of its resource. Its
// name is "CACHE".
//
// Open reads the resource its URI names (it takes that resource's store when
// the executor was made for another one) and fails with RFUR when nothing of
// it is stored. With "enable_cache_filter_range_start" on, a "range_start"
// within the stored bytes moves the store's cursor there, one at or past the
// end of the resource to the end, and one in between opens at 0. Read loads up
// to the packet's size at the cursor: (0, n); (5, 0) at the end of the
// resource; (1, RFUR) at the first byte that is not stored, so that the stream
// continues at the next level from there.
//
// Thread rules: one stream thread; the store is this executor's own.
#ifndef DOWNLOADER_FILTER_CACHEDOWNLOADEXECUTOR_H_
#define DOWNLOADER_FILTER_CACHEDOWNLOADEXECUTOR_H_

#include <cstdint>
#include <memory>
#include <string>

#include <downloader/Filter/IDownloadExecutor.h>
#include <downloader/Pipe/ConfigReader.h>
#include <downloader/Storage/IDataStore.h>

namespace downloader {

class CacheDownloadExecutor : public IDownloadExecutor {
 public:
  CacheDownloadExecutor(ConfigPtr config, std::shared_ptr<URI> uri, std::shared_ptr<storage::IDataStore> store);
  ~CacheDownloadExecutor() override;

  DLResultCode Open(const std::shared_ptr<URI>& uri) override;
  // Not supported: (1, 0).
  DLResultCode OpenAsync(const std::shared_ptr<URI>& uri) override;
  DLResultCode WaitOpenResult() override;
  DLReadResult Read(Packet& packet) override;
  DLResultCode Seek(int64_t offset) override;
  int64_t GetFileSize() override;
  DLResultCode Close() override;
  bool IsReady() override { return true; }
  void SetHint(const std::string& hint) override;
  std::string GetInfo(const std::string& key) override;
  std::string GetName() override { return "CACHE"; }

 private:
  // Constant after construction.
  const ConfigPtr config_;
  const std::shared_ptr<URI> uri_;
  // Stream thread only.
  std::shared_ptr<storage::IDataStore> store_;
  bool opened_ = false;
  bool closed_ = false;
};

}  // namespace downloader

#endif  // DOWNLOADER_FILTER_CACHEDOWNLOADEXECUTOR_H_

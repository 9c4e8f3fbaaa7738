// Reads a file already on the device: the URL is "http://local.url" followed
// by the file's path (everything after the prefix, taken as it stands). The
// file is opened for reading with shared access, so the host may read and
// write it meanwhile; its size is taken once, at Open.
//
// Outcomes: OOPE (the file did not open; Read and Seek also answer it until a
// later Open succeeds), OFSE (the file is empty), code 5 once the read
// position reaches the size taken at Open. OpenAsync is not supported (1, 0).
// Open starts at the request's "range_start" when it has one, as a stream
// reopening at an offset after a downgrade asks; otherwise at 0. Seek may move
// past the end (reads then answer code 5) and back again.
//
// GetInfo answers fixed texts whatever was read: "is_loaded_from_cache" "6",
// "downloaded_size" "0", "" for anything else; readers of these statistics
// interpret them.
//
// Thread rules: the owning stream calls it from one thread; Close may come
// from another. Every operation holds mutex_ for its whole run (reads are
// local and short).
#ifndef DOWNLOADER_FILTER_LOCALFILEEXECUTOR_H_
#define DOWNLOADER_FILTER_LOCALFILEEXECUTOR_H_

#include <cstdint>
#include <memory>
#include <string>

#include <downloader/DownloaderExport.h>
#include <downloader/Filter/IDownloadExecutor.h>
#include <downloader/Filter/SubCode.h>
#include <wisp/Mutex.h>

namespace downloader {

namespace platform {
class PositionalFile;
}  // namespace platform

class DOWNLOADER_EXPORT LocalFileExecutor : public IDownloadExecutor {
 public:
  // "OOPE": the file is not open.
  static constexpr int64_t kNotOpenSubCode = FourCharSubCode('O', 'O', 'P', 'E');
  // "OFSE": the file is empty.
  static constexpr int64_t kEmptyFileSubCode = FourCharSubCode('O', 'F', 'S', 'E');

  LocalFileExecutor();
  ~LocalFileExecutor() override;
  LocalFileExecutor(const LocalFileExecutor&) = delete;
  LocalFileExecutor& operator=(const LocalFileExecutor&) = delete;

  DLResultCode Open(const std::shared_ptr<URI>& uri) override;
  DLResultCode OpenAsync(const std::shared_ptr<URI>& uri) override;
  DLResultCode WaitOpenResult() override;
  DLReadResult Read(Packet& packet) override;
  DLResultCode Seek(int64_t offset) override;
  int64_t GetFileSize() override;
  DLResultCode Close() override;
  bool IsReady() override;
  void SetHint(const std::string& hint) override;
  std::string GetInfo(const std::string& key) override;
  std::string GetName() override;
  int32_t GetExecutorType() override;

 private:
  wisp::Mutex mutex_;
  std::unique_ptr<platform::PositionalFile> file_ GUARDED_BY(mutex_);
  int64_t fileSize_ GUARDED_BY(mutex_) = 0;
  int64_t readPosition_ GUARDED_BY(mutex_) = 0;
  bool opened_ GUARDED_BY(mutex_) = false;
};

}  // namespace downloader

#endif  // DOWNLOADER_FILTER_LOCALFILEEXECUTOR_H_
